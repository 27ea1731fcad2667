// SPDX-License-Identifier: Apache-2.0
#pragma once

/// What a library of the plug-in exports, this one or the plug-in itself; everything else in them
/// is hidden.
#define BFN_MAC_REWRITE_EXPORT __attribute__((visibility("default")))
