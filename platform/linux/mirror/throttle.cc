#include "platform/linux/mirror/throttle.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/host/weak_log.h"
#include "platform/linux/mirror/record.h"
#include "platform/linux/state/settings.h"

#include <algorithm>
#include <atomic>

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds longest_pause = 200ms;
constexpr std::chrono::duration<double> longest_credit = 1s;

// For a host without the setting: decimal text in a file beside the mirrors. Any copy may look at it.
uint64_t rate_of_old_file()
{
    static std::atomic<bool> has_complained = false;
    const std::string path = std::string(twinvault.path) + "/throttle";
    const auto text = read_attribute(path);
    const auto rate = text ? parse_number(*text) : 0;
    if (!has_complained.exchange(!rate) && !rate)
        log_warning("%s holds no number of bytes per second; mirrors are copied without a limit",
                    path.c_str());
    return rate.value_or(0);
}

uint64_t read_rate()
{
    const auto rate = read_settings().throttle;
    return rate ? *rate : rate_of_old_file();
}

} // namespace

std::chrono::milliseconds throttle::pause(uint64_t bytes, clock::time_point now)
{
    if (now >= next_read_) {
        const uint64_t former = rate_;
        rate_ = read_rate();
        next_read_ = now + 1s;
        if (rate_ != former) {
            start_ = bytes;
            since_ = now;
        }
    }
    if (rate_ == 0)
        return 0ms;
    const std::chrono::duration<double> due(static_cast<double>(bytes - start_) / static_cast<double>(rate_));
    const std::chrono::duration<double> over = due - (now - since_);
    if (over < -longest_credit)
        since_ += std::chrono::duration_cast<clock::duration>(-over - longest_credit);
    if (over <= 0s)
        return 0ms;
    return std::clamp(
        std::chrono::ceil<std::chrono::milliseconds>(std::min(over, std::chrono::duration<double>(1s))), 1ms,
        longest_pause);
}
