// SPDX-License-Identifier: Apache-2.0
#include "framework/prettyout/Renderer.h"

namespace prettyout {

void Renderer::start() {
  KIV_CHECK_AS(state_ == State::New, "!started()", "output is started once");
  state_ = State::Running;
  doStart();
}

void Renderer::end() {
  checRunning();
  KIV_CHECK_AS(depth_ == 0, "depth() == 0", depth_, " dictionaries or entries are still open");
  doEnd();
  state_ = State::Ended;
}

void Renderer::open(std::string_view key, bool isEntry) {
  checRunning();
  KIV_CHECK_AS(depth_ < kMaxDepth, "depth() < kMaxDepth", "dictionaries are nested too deeply");
  doOpen(key);
  levels_[++depth_] = Level{isEntry, false};
}

void Renderer::startDict(std::string_view name) {
  open(name, false);
}

void Renderer::startDictEntry(Attribute const& attribute) {
  KIV_CHECK_AS(depth_ > 0 && !levels_[depth_].isEntry, "inDict()",
               "an entry is started inside a dictionary only");
  open(attribute.value, true);
}

void Renderer::endDict() {
  checRunning();
  KIV_CHECK_AS(depth_ > 0 && !levels_[depth_].isEntry, "inDict()", "no dictionary to end here");
  --depth_;
  doClose();
}

void Renderer::endDictEntry() {
  checRunning();
  KIV_CHECK_AS(depth_ > 0 && levels_[depth_].isEntry, "inDictEntry()", "no entry to end here");
  --depth_;
  doClose();
}

void Renderer::ioflush() {
  buffer_.drain();
}

}  // namespace prettyout
