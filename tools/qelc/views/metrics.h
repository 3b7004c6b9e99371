// The state of a host as metrics.
#pragma once

#include "tools/qelc/health/host_health.h"

#include <string>

// In the text format that Prometheus, the textfile collector of its node exporter, and OpenMetrics have in
// common. What is not known is left out.
std::string metrics_page(const host_health &seen);
