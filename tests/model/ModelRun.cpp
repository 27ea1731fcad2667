// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "framework/core/Hash.h"
#include "tests/model/Event.h"
#include "tests/model/Runner.h"

// Random event sequences against the reference model, until so many events have run.
namespace {

using namespace BfnTest;

struct Arguments {
  std::uint64_t events = 100'000;
  std::uint64_t seed = 1;
  std::optional<std::uint32_t> hashSeed;
  int length = 600;
  /// Of one sequence in so many, predicted deaths are tried out.
  std::uint64_t deathsEvery = 20;
  Options options;
};

int usage() {
  std::cerr << "usage: model_run [--events N] [--seed S] [--hash-seed H] [--length L]\n"
               "                 [--compare-every K] [--deaths-every M]\n";
  return 2;
}

std::optional<Arguments> parsed(int argc, char** argv) {
  Arguments arguments;
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 == argc) return std::nullopt;
    std::string const option = argv[i];
    char* end = nullptr;
    std::uint64_t const value = std::strtoull(argv[i + 1], &end, 0);
    if (end == argv[i + 1] || *end != '\0') return std::nullopt;
    if (option == "--events") {
      arguments.events = value;
    } else if (option == "--seed") {
      arguments.seed = value;
    } else if (option == "--hash-seed") {
      arguments.hashSeed = static_cast<std::uint32_t>(value);
    } else if (option == "--length" && value >= 1 && value <= 1'000'000) {
      arguments.length = static_cast<int>(value);
    } else if (option == "--compare-every" && value >= 1 && value <= 1'000'000) {
      arguments.options.compareEvery = static_cast<int>(value);
    } else if (option == "--deaths-every" && value >= 1) {
      arguments.deathsEvery = value;
    } else {
      return std::nullopt;
    }
  }
  return arguments;
}

int report(std::vector<Event> const& events, Options options, std::uint64_t seed) {
  options.deathsToTry = kDeathsToTry;
  std::cout << "Sequence of seed " << seed << " differs. Shrinking ...\n" << std::flush;
  std::vector<Event> const small = shrink(events, options);
  Options every = options;
  every.compareEvery = 1;
  std::cout << toCode(small) << differsInChild(small, every).value_or("It differs no more.")
            << '\n';
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::optional<Arguments> const arguments = parsed(argc, argv);
  if (!arguments) return usage();
  if (arguments->hashSeed) Kiv::HashHelper::hashSeed32Is(*arguments->hashSeed);
  std::cout << "seed " << arguments->seed << ", hash seed " << Kiv::HashHelper::hashSeed32() << '\n'
            << std::flush;

  // In batches, each in a child of its own: the sequence in which a process ends is known.
  constexpr int kBatch = 100;
  Tally all;
  std::uint64_t sequences = 0;
  while (all.events < arguments->events) {
    // Each sequence has a seed of its own: the n-th one of seed S is the first one of seed S + n.
    Batch batch{.firstSeed = arguments->seed + sequences,
                .sequences = kBatch,
                .length = arguments->length,
                .deathsEvery = arguments->deathsEvery,
                .options = arguments->options,
                .tally = {}};
    if (auto const seed = failingSeed(batch)) {
      return report(randomSequence(*seed, arguments->length), batch.options, *seed);
    }
    all += batch.tally;
    sequences += kBatch;
  }
  std::cout << sequences << " sequences, " << all.events << " events, " << all.chipCalls
            << " chip calls, " << all.logs << " log messages, " << all.thrown << " exceptions, "
            << all.fatal << " predicted deaths (" << all.deathsTried
            << " tried out): no difference\n";
  return 0;
}
