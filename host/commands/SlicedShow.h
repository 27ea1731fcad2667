// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "host/language/CommandTable.h"

namespace Agent {
class CommandDispatcher;
}

namespace Host {

class Switch;

/// The show command of the plug-in in slices, between which other lines are carried out.
class SlicedShow {
 public:
  /// The host must outlive this.
  explicit SlicedShow(Switch& host);
  SlicedShow(SlicedShow const&) = delete;
  SlicedShow& operator=(SlicedShow const&) = delete;
  ~SlicedShow();

  /// Starts the command, in place of one that runs, with the filters of its line, and gives it its
  /// first slice. Throws InputError.
  Answer start(Arguments const& given);
  /// The next slice: what it has printed, and whether the command has ended. Throws InputError when
  /// none runs.
  Answer next();
  void reset();

 private:
  Switch& host_;
  std::string output_;
  std::unique_ptr<Agent::CommandDispatcher> dispatcher_;
};

}  // namespace Host
