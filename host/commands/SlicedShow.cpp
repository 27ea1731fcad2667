// SPDX-License-Identifier: Apache-2.0
#include "host/commands/SlicedShow.h"

#include <utility>

#include "framework/command/CommandDispatcher.h"
#include "host/commands/Commands.h"
#include "host/language/InputError.h"
#include "host/switch/Switch.h"

namespace Host {

SlicedShow::SlicedShow(Switch& host) : host_(host) {}

SlicedShow::~SlicedShow() = default;

Answer SlicedShow::start(Arguments const& given) {
  reset();
  auto dispatcher = std::make_unique<Agent::CommandDispatcher>(host_.clock, 1.0);
  startShow(host_, given, *dispatcher, output_);
  dispatcher_ = std::move(dispatcher);
  return next();
}

Answer SlicedShow::next() {
  if (!dispatcher_) throw InputError("no show command runs in slices; show ... slices starts one");
  dispatcher_->runSlices();
  bool const ended = dispatcher_->commands() == 0;
  std::string output = std::exchange(output_, std::string());
  if (ended) reset();
  std::string const text = output + (ended ? "the command has ended" : "the command goes on");
  return {{{"ended", ended}, {"output", std::move(output)}}, text};
}

void SlicedShow::reset() {
  dispatcher_.reset();
  output_.clear();
}

}  // namespace Host
