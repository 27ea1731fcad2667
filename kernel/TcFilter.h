// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "framework/core/Types.h"

namespace BfnKernel {

/// The filter that puts the program on a device's egress: one place, by priority and handle, in the
/// device's clsact qdisc. Functions name the device by its index and throw KernelError, Unavailable
/// when the kernel lacks clsact or program filters.
namespace TcFilter {

/// Filters of other owners are commonly numbered from 49152 downwards or chosen by hand from 1 on;
/// a low one runs before those that end the chain.
inline constexpr Kiv::U32 kPriority = 9;
inline constexpr Kiv::U32 kHandle = 0x4b6976;

/// Makes the device's clsact qdisc; false when it has one.
bool clsactIs(int device);
/// Removes the qdisc, and with it all filters of the device.
void clsactDel(int device);

/// The kernel's number of the program whose filter is in our place; none when there is none.
std::optional<Kiv::U32> program(int device);
/// Puts the program there, in one step when another one is there.
void programIs(int device, int program);
/// Removes the filter that is in our place.
void programDel(int device);

/// Whether the device's clsact qdisc has any filter, on egress or ingress.
bool anyFilter(int device);

}  // namespace TcFilter

}  // namespace BfnKernel
