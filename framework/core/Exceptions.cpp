// SPDX-License-Identifier: Apache-2.0
#include "framework/core/Exceptions.h"

namespace Kiv {

void throwRangeException(std::string const& message) {
  throw RangeException(message);
}

void throwMutatorArgNullPointerException(char const* type, AttributeId attribute) {
  throw NullPointerException(std::string(type) + ": attribute " + std::to_string(attribute) +
                             " must not be null");
}

void rethrowFromDeserializeAttr(RangeException const& exception, char const* field) {
  throw RangeException(std::string(field) + ": " + exception.what());
}

}  // namespace Kiv
