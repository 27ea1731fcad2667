// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace Host {

/// The version of the service. A program that brings a definition of its own has that one.
char const* serviceVersion();

}  // namespace Host
