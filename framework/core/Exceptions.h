// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include "framework/core/Types.h"

namespace Kiv {

class PtrInterface;

/// A value is outside the range of its type, or its string form cannot be parsed.
class RangeException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A mutator was given a null pointer where an object is required.
class NullPointerException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws RangeException with exactly this message.
[[noreturn]] void throwRangeException(std::string const& message);

/// Throws NullPointerException naming the type and the attribute.
[[noreturn]] void throwMutatorArgNullPointerException(char const* type, AttributeId attribute);
/// The same for an attribute of `owner`, under the name of the owner's type.
[[noreturn]] void throwMutatorArgNullPointerException(PtrInterface const& owner,
                                                      AttributeId attribute);

/// Throws a RangeException that says in which field `exception` arose: "<field>: <message>".
[[noreturn]] void rethrowFromDeserializeAttr(RangeException const& exception, char const* field);

}  // namespace Kiv
