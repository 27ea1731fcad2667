// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/Event.h"

namespace BfnTest {

struct Options {
  /// The whole state is compared after every so many events, and at the end; what an event did is
  /// always compared.
  int compareEvery = 6;
  /// Events predicted to be fatal that are tried out, in a forked child, of each sequence.
  int deathsToTry = 0;
  bool plantedFault = false;
};

struct Tally {
  std::uint64_t events = 0;
  std::uint64_t chipCalls = 0;
  std::uint64_t logs = 0;
  std::uint64_t thrown = 0;
  /// Predicted to be fatal and left out; tried in a child.
  std::uint64_t fatal = 0;
  std::uint64_t deathsTried = 0;

  Tally& operator+=(Tally const& other);
};

struct Difference {
  size_t event;  ///< index in the sequence
  std::string what;
};

/// Runs the sequence against a plug-in of its own, in this process; stops at the first difference.
/// Events that are impossible or predicted to be fatal are passed over.
std::optional<Difference> runSequence(std::vector<Event> const& events, Options const& options,
                                      Tally& tally);

/// Predicted deaths that a sequence of a batch tries out, if it tries any.
inline constexpr int kDeathsToTry = 8;

/// Random sequences with neighbouring seeds.
struct Batch {
  std::uint64_t firstSeed;
  int sequences;
  int length;
  /// One sequence in so many tries out predicted deaths.
  std::uint64_t deathsEvery;
  Options options;
  Tally tally;
};

/// Runs a batch in a forked child and adds up its tally. The seed of the first sequence that
/// differs, or in which the process ends.
std::optional<std::uint64_t> failingSeed(Batch& batch);

/// The same as runSequence in a forked child, so that an end of the process counts as a
/// difference too.
std::optional<std::string> differsInChild(std::vector<Event> const& events, Options const& options);

/// A part of the sequence that still differs and from which no event can be left out.
std::vector<Event> shrink(std::vector<Event> events, Options const& options);

/// The sequence as statements on a `World world`.
std::string toCode(std::vector<Event> const& events);

}  // namespace BfnTest
