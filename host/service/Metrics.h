// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "host/service/Service.h"

namespace Host {

/// What a monitoring system asks of a service, in the text form of Prometheus: what is wanted and
/// installed, what the packets hit, what failed, and how it is connected. See docs/operations.md.
/// `auditFindings`: of the last audit.
std::string metricsText(Service& service, size_t auditFindings);

/// Writes them where the node exporter's textfile collector reads them, by rename. Throws
/// std::system_error.
void writeMetrics(Service& service, std::filesystem::path const& file, size_t auditFindings);

}  // namespace Host
