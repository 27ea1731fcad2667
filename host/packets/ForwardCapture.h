// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>

#include "host/packets/Forwarder.h"

namespace Host::Packets {

/// Called for each frame in turn, right after it was forwarded or dropped.
using FrameObserver = std::function<void(ForwardedFrame const&)>;

/// Forwards every frame of the capture `in` and writes those that leave to `out`, with the time and
/// in the time unit of `in`. An existing `out` is replaced, but only once `in` proved to be a
/// capture.
///
/// Throws CaptureError when either file fails, or both names are one file. When `in` breaks off,
/// `out` has every frame before that, and the observer and the forwarder's totals have seen them.
void forwardCapture(std::filesystem::path const& in, std::filesystem::path const& out,
                    Forwarder& forwarder, FrameObserver const& observer = {});

}  // namespace Host::Packets
