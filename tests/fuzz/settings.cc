// What the embedded libraries are told by an administrator, and what they tell of a mirror.
#include "platform/linux/state/settings.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/state/progress.h"
#include "platform/linux/state/text.h"
#include "tests/fuzz/fuzz.h"

#include <sys/stat.h>

#include <bit>

namespace {
void read_as_settings(const std::string &text)
{
    put_file("/etc/kavtessaron/embedded.conf", text);
    const embedded_settings all = read_settings();
    require(all.freeze_deadline.count() >= 500 && all.freeze_deadline.count() <= 5000,
            "what is frozen is thawed in time");
    require(all.freeze_after.count() >= 0, "a wait does not end before it begins");
    require(all.tracking_page == 0 || (all.tracking_page >= 4096 && std::has_single_bit(all.tracking_page)),
            "a page is a power of two");
    require(all.tracking_memory >= 4096, "there is memory for marks");
    require(read_settings() == all, "a file is read alike twice");
}

void read_as_progress(const std::string &text)
{
    mkdir("/run/twinvault", 0755);
    auto fields = decode_record("twinvault", "progress", text);
    const std::string found = fields ? fields->front().second.substr(0, 60) : "";
    const std::string guid = found.empty() ? "x" : found;
    if (fields && fields->size() > 2)
        (*fields)[2].second = read_attribute("/proc/sys/kernel/random/boot_id").value_or("");
    put_file("/run/twinvault/" + escaped(guid, plain_in_file_names),
             fields ? encode_record("twinvault", "progress", *fields) : text);
    if (const auto one = read_progress(guid, progress_writer::former)) {
        require(bytes_behind(*one) <= one->size, "no more is behind than there is");
        require(write_progress(*one) && read_progress(guid) == one, "what was read is written again");
    }
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready = (require_private_host(), true);
    static_cast<void>(is_ready);
    const fuzz_input input(data, size, 2);
    (input.choice == 0 ? read_as_settings : read_as_progress)(input.bytes);
    return 0;
}
