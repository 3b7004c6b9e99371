// The state of the host for Prometheus.
#include "tools/qelc/views/metrics.h"

#include "tools/qelc/health/host_watch.h"
#include "tools/qelc/verbs/families.h"

#include <cstdio>

namespace {
// A daemon that does not answer is a sample, too.
int print_metrics(const peer_options &peer, const verb_options & /*given*/, bool /*as_json*/)
{
    fputs(metrics_page(host_watch(peer).look()).c_str(), stdout);
    return exit_ok;
}

constexpr verb table[] = {
    {.name = "metrics",
     .description = "print the state of the host as metrics for Prometheus",
     .note = "In a form for the textfile collector of its node exporter. Ends with 0 also if the\n"
             "daemon does not run: qelcd_up is 0 then.\n",
     .look = print_metrics},
};
} // namespace

std::span<const verb> metrics_verbs()
{
    return table;
}
