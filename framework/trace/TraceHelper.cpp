// SPDX-License-Identifier: Apache-2.0
#include "framework/trace/TraceHelper.h"

#include <memory>
#include <unistd.h>
#include <utility>

namespace Kiv {

namespace {

struct Output {
  std::shared_ptr<TraceHelper::Sink const> sink;
  bool busy = false;
};

Output& output() {
  static auto* output = new Output;
  return *output;
}

class Busy {
 public:
  explicit Busy(bool& flag) : flag_(flag) { flag_ = true; }
  ~Busy() { flag_ = false; }
  Busy(Busy const&) = delete;
  Busy& operator=(Busy const&) = delete;

 private:
  bool& flag_;
};

void toStandardError(std::string text) {
  text += '\n';
  // A trace that cannot be written is lost; there is no place to report it.
  (void)!::write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

void TraceHelper::trace(char const* file, U32 line, char const* function) {
  if (output().busy) return;
  Busy const busy(output().busy);
  TraceLine const traced{
      handle_.traceFile().facility().c_str(), level_, file, line, function, stream_.str()};
  std::shared_ptr<Sink const> const sink = output().sink;  // it may replace itself
  if (sink != nullptr) {
    (*sink)(traced);
  } else {
    toStandardError(traced.text);
  }
}

void TraceHelper::sinkIs(Sink sink) {
  output().sink = sink ? std::make_shared<Sink const>(std::move(sink)) : nullptr;
}

}  // namespace Kiv
