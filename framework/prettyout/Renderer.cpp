#include "framework/prettyout/Renderer.h"

namespace prettyout {

void Renderer::start() {
  KIV_CHECK_AS(state_ == State::kNew, "!started()", "output is started once");
  state_ = State::kRunning;
  doStart();
}

void Renderer::end() {
  checkRunning();
  KIV_CHECK_AS(depth_ == 0, "depth() == 0", depth_, " dictionaries or entries are still open");
  doEnd();
  state_ = State::kEnded;
}

void Renderer::open(std::string_view key, bool isEntry) {
  checkRunning();
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
  checkRunning();
  KIV_CHECK_AS(depth_ > 0 && !levels_[depth_].isEntry, "inDict()", "no dictionary to end here");
  --depth_;
  doClose();
}

void Renderer::endDictEntry() {
  checkRunning();
  KIV_CHECK_AS(depth_ > 0 && levels_[depth_].isEntry, "inDictEntry()", "no entry to end here");
  --depth_;
  doClose();
}

void Renderer::ioflush() {
  buffer_.drain();
}

}  // namespace prettyout
