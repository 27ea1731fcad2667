#pragma once

/// What the library exports; everything else in it is hidden.
#define BFN_MAC_REWRITE_EXPORT __attribute__((visibility("default")))
