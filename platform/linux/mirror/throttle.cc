#include "platform/linux/mirror/throttle.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/record.h"

#include <algorithm>

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds longest_pause = 200ms;

} // namespace

void throttle::read_rate()
{
    const std::string path = std::string(twinvault.path) + "/throttle";
    const auto text = read_attribute(path);
    const auto rate = text ? parse_number(*text) : 0;
    if (!rate && !has_complained_)
        log_warning("%s holds no number of bytes per second; mirrors are copied without a limit",
                    path.c_str());
    has_complained_ = !rate;
    rate_ = rate.value_or(0);
}

std::chrono::milliseconds throttle::pause(uint64_t position, clock::time_point now)
{
    if (now >= next_read_) {
        const uint64_t former = rate_;
        read_rate();
        next_read_ = now + 1s;
        if (rate_ != former) {
            start_ = position;
            since_ = now;
        }
    }
    if (rate_ == 0)
        return 0ms;
    const std::chrono::duration<double> due(static_cast<double>(position - start_) /
                                            static_cast<double>(rate_));
    const std::chrono::duration<double> over = due - (now - since_);
    if (over <= 0s)
        return 0ms;
    return std::clamp(
        std::chrono::ceil<std::chrono::milliseconds>(std::min(over, std::chrono::duration<double>(1s))), 1ms,
        longest_pause);
}
