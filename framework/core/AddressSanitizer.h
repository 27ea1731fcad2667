// SPDX-License-Identifier: Apache-2.0
#pragma once

/// KIV_ADDRESS_SANITIZER is defined in a build with AddressSanitizer, by either compiler.
#if defined(__SANITIZE_ADDRESS__)
#define KIV_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIV_ADDRESS_SANITIZER 1
#endif
#endif
