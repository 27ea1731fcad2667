// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "framework/core/Types.h"

/// Any bytes as valid UTF-8, and back. Names are bytes and mostly UTF-8; what is written as JSON
/// has to be UTF-8 always, and two names must not become one.
///
/// A byte that is not part of valid UTF-8 is written as the code point U+10FF00 + byte. So that the
/// mapping is one-to-one, valid encodings of the code points that such bytes take, U+10FF80 to
/// U+10FFFF, count as four invalid bytes each. All other valid UTF-8 is unchanged.
namespace Kiv {

/// Valid UTF-8 for any bytes; different for different bytes.
std::string utf8FromBytes(std::string_view bytes);
/// The bytes that utf8FromBytes() made `text` of. Takes any text: what is not written by it, and no
/// code point of those above, stays as it is.
std::string bytesFromUtf8(std::string_view text);

/// Length of the valid multi-byte sequence at the front of [at, end) that is left unchanged; 0 when
/// the byte at its front is written on its own, by writeByteAsUtf8(). `*at` is 0x80 or above.
size_t plainUtf8Length(U8 const* at, U8 const* end);
/// Writes a byte of 0x80 or above to `to`, kUtf8PerByte bytes; returns where it ended.
char* writeByteAsUtf8(char* to, U8 byte);
inline constexpr size_t kUtf8PerByte = 4;

}  // namespace Kiv
