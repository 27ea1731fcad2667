// SPDX-License-Identifier: Apache-2.0
#include "kernel/KernelError.h"

#include <system_error>

namespace BfnKernel {

void fail(std::string const& what, int error) {
  throw KernelError(what + ": " + std::generic_category().message(error), error);
}

}  // namespace BfnKernel
