// SPDX-License-Identifier: Apache-2.0
#include "tests/model/Runner.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <unistd.h>
#include <utility>

#include "framework/core/AllocTrack.h"
#include "tests/model/Model.h"
#include "tests/model/World.h"
#include "tests/support/InChild.h"

namespace BfnTest {

namespace {

Orders const& orders() {
  static Orders const asked = askOrders();
  return asked;
}

// Whether the event ends the process as predicted; else what it did instead.
std::optional<std::string> diesOtherwise(World& world, Event const& event, Death const& death) {
  constexpr int kSurvived = 90;
  ChildEnd const end = inChild(STDERR_FILENO, [&] {
    try {
      world.apply(event);
    } catch (...) {
    }
    return kSurvived;
  });
  if (end.exitedWith(kSurvived)) {
    return "predicted to end the process, but did not";
  }
  if (death.texts.empty()) return std::nullopt;
  if (!WIFSIGNALED(end.status) || WTERMSIG(end.status) != SIGABRT) {
    return "predicted to abort, but ended otherwise: " + end.text;
  }
  for (std::string const& text : death.texts) {
    if (end.text.find(text) == std::string::npos) {
      return "predicted to say '" + text + "', but said: " + end.text;
    }
  }
  return std::nullopt;
}

}  // namespace

Tally& Tally::operator+=(Tally const& other) {
  events += other.events;
  chipCalls += other.chipCalls;
  logs += other.logs;
  thrown += other.thrown;
  fatal += other.fatal;
  deathsTried += other.deathsTried;
  return *this;
}

std::optional<Difference> runSequence(std::vector<Event> const& events, Options const& options,
                                      Tally& tally) {
  Orders const& known = orders();
  Kiv::U64 const liveBefore = Kiv::AllocTrackTypeInfo::liveObjects();
  {
    World world;
    Model model(known);
    model.plantedFault = options.plantedFault;
    Effects effects;
    int deathsLeft = options.deathsToTry;
    for (size_t i = 0; i < events.size(); ++i) {
      Event const& event = events[i];
      if (!model.possible(event)) continue;
      if (std::optional<Death> const death = model.apply(event, effects)) {
        ++tally.fatal;
        if (deathsLeft == 0) continue;
        --deathsLeft;
        ++tally.deathsTried;
        if (auto what = diesOtherwise(world, event, *death)) return Difference{i, std::move(*what)};
        continue;
      }
      ++tally.events;
      tally.chipCalls += effects.calls.size();
      tally.logs += effects.logs.size();
      tally.thrown += effects.thrown != Thrown::Nothing;
      Thrown const thrown = world.apply(event);
      auto what = effectsDiffer(world, thrown, effects);
      bool const compareState =
          i + 1 == events.size() || i % static_cast<size_t>(options.compareEvery) == 0;
      if (!what && compareState) what = stateDiffers(world, model.state());
      if (what) return Difference{i, std::move(*what)};
    }
  }
  if (Kiv::AllocTrackTypeInfo::liveObjects() != liveBefore) {
    return Difference{events.size() - 1, "objects are left over"};
  }
  return std::nullopt;
}

std::optional<std::string> differsInChild(std::vector<Event> const& events,
                                          Options const& options) {
  constexpr int kDiffers = 91;
  orders();
  ChildEnd const end = inChild(STDERR_FILENO, [&] {
    Tally tally;
    try {
      auto const difference = runSequence(events, options, tally);
      if (!difference) return 0;
      std::string const text = "event " + std::to_string(difference->event + 1) + ", " +
                               toCode(events[difference->event]) + "\n  " + difference->what;
      if (::write(STDERR_FILENO, text.data(), text.size()) < 0) return kDiffers + 1;
      return kDiffers;
    } catch (std::exception const& exception) {
      std::string const text = std::string("an unexpected exception: ") + exception.what();
      return ::write(STDERR_FILENO, text.data(), text.size()) < 0 ? kDiffers + 1 : kDiffers;
    }
  });
  if (end.exitedWith(0)) return std::nullopt;
  if (WIFSIGNALED(end.status)) {
    return "the process ended by signal " + std::to_string(WTERMSIG(end.status)) + ": " + end.text;
  }
  return end.text;
}

std::optional<std::uint64_t> failingSeed(Batch& batch) {
  orders();
  // The child says which sequence it is at, and at last what it has counted.
  struct Message {
    std::uint64_t seed;
    bool done;
    Tally tally;
  };
  ChildEnd const end = inChild(STDERR_FILENO, [&batch] {
    Message message{};
    auto const send = [&message] {
      return ::write(STDERR_FILENO, &message, sizeof message) == sizeof message;
    };
    for (int i = 0; i < batch.sequences; ++i) {
      message.seed = batch.firstSeed + static_cast<std::uint64_t>(i);
      if (!send()) return 1;
      Options options = batch.options;
      options.deathsToTry = message.seed % batch.deathsEvery == 0 ? kDeathsToTry : 0;
      try {
        if (runSequence(randomSequence(message.seed, batch.length), options, message.tally)) {
          return 1;
        }
      } catch (...) {
        return 1;
      }
    }
    message.done = true;
    return send() ? 0 : 1;
  });
  // What an ending process says follows whole messages.
  Message last{};
  size_t const started =
      std::min(end.text.size() / sizeof last, static_cast<size_t>(batch.sequences) + 1);
  for (size_t i = 0; i < started; ++i) {
    Message next;
    std::memcpy(&next, end.text.data() + i * sizeof next, sizeof next);
    std::uint64_t const expected =
        batch.firstSeed +
        std::min<std::uint64_t>(i, static_cast<std::uint64_t>(batch.sequences) - 1);
    if (next.seed != expected) break;
    last = next;
  }
  if (last.done && end.exitedWith(0)) {
    batch.tally = last.tally;
    return std::nullopt;
  }
  return last.seed;
}

std::vector<Event> shrink(std::vector<Event> events, Options const& options) {
  Options every = options;
  every.compareEvery = 1;
  if (!differsInChild(events, every)) return events;
  size_t chunk = std::max<size_t>(events.size() / 2, 1);
  while (true) {
    bool smaller = false;
    for (size_t from = 0; from < events.size();) {
      std::vector<Event> rest(events);
      size_t const to = std::min(from + chunk, events.size());
      rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(from),
                 rest.begin() + static_cast<std::ptrdiff_t>(to));
      if (!rest.empty() && differsInChild(rest, every)) {
        events = std::move(rest);
        smaller = true;
      } else {
        from = to;
      }
    }
    if (chunk == 1 && !smaller) return events;
    chunk = std::max<size_t>(chunk / 2, 1);
  }
}

std::string toCode(std::vector<Event> const& events) {
  std::string code = "  World world;\n";
  for (Event const& event : events) code += "  " + toCode(event) + "\n";
  return code;
}

}  // namespace BfnTest
