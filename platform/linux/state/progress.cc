#include "platform/linux/state/progress.h"

#include "base/fd.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"
#include "platform/linux/state/text.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace {

constexpr char folder[] = "/run/twinvault";
constexpr char owner[] = "twinvault";
constexpr char kind[] = "progress";
constexpr std::array<const char *, 3> tracked_texts = {"unknown", "yes", "no"};

std::string path_of(const std::string &src_guid)
{
    return std::string(folder) + "/" + escaped(src_guid, plain_in_file_names);
}

std::string boot()
{
    return read_attribute("/proc/sys/kernel/random/boot_id").value_or("");
}

// Its number and when it started, as the numbers are used again; "" if it is gone (proc(5), field 22 of
// stat).
std::string process_text(const std::string &number)
{
    const std::string stat = read_attribute("/proc/" + number + "/stat").value_or("");
    const size_t end_of_name = stat.rfind(')');
    if (end_of_name == std::string::npos)
        return "";
    const auto fields = split(std::string_view(stat).substr(end_of_name + 1), ' ');
    constexpr size_t started = 19;
    return fields.size() > started ? number + " " + std::string(fields[started]) : "";
}

record_fields fields_of(const mirror_progress &one, const std::string &boot, const std::string &process)
{
    return {{"src_guid", one.src_guid},
            {"dest_guid", one.dest_guid},
            {"boot", boot},
            {"process", process},
            {"size", std::to_string(one.size)},
            {"copied", std::to_string(one.copied)},
            {"rate", std::to_string(one.rate)},
            {"pages_behind", std::to_string(one.pages_behind)},
            {"page_size", std::to_string(one.page_size)},
            {"is_level", one.is_level ? "yes" : "no"},
            {"level_at", std::to_string(one.level_at)},
            {"tracked", tracked_texts.at(static_cast<size_t>(one.tracked))},
            {"reason", one.reason}};
}

// Wrong fields are detected by comparing FIELDS with fields_of the result.
mirror_progress progress_of(const record_fields &fields)
{
    const auto text = [&](size_t i) { return i < fields.size() ? fields[i].second : std::string(); };
    const auto number = [&](size_t i) { return parse_number(text(i)).value_or(0); };
    const auto *const tracked = std::find(tracked_texts.begin(), tracked_texts.end(), text(11));
    return {.src_guid = text(0),
            .dest_guid = text(1),
            .size = number(4),
            .copied = number(5),
            .rate = number(6),
            .pages_behind = number(7),
            .page_size = number(8),
            .is_level = text(9) == "yes",
            .level_at = number(10),
            .tracked = static_cast<tracked_writes>(
                tracked == tracked_texts.end() ? 0 : tracked - tracked_texts.begin()),
            .reason = text(12)};
}

bool is_written_by(progress_writer writer, const std::string &process)
{
    return writer == progress_writer::former ||
           (!process.empty() && process_text(process.substr(0, process.find(' '))) == process);
}

// Whatever the umask of this process is.
bool write_new(const std::string &path, const std::string &text)
{
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    return file.is_open() && fchmod(file.get(), 0644) == 0 &&
           write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

} // namespace

uint64_t seconds_since_boot()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec);
}

bool write_progress(const mirror_progress &one)
{
    const std::string text =
        encode_record(owner, kind, fields_of(one, boot(), process_text(std::to_string(getpid()))));
    const std::string path = path_of(one.src_guid);
    const std::string fresh = path + ".new";
    if (mkdir(folder, 0755) == 0)
        chmod(folder, 0755);
    if (write_new(fresh, text) && rename(fresh.c_str(), path.c_str()) == 0)
        return true;
    unlink(fresh.c_str());
    unlink(path.c_str()); // what it says is true no more
    return false;
}

void remove_progress(const std::string &src_guid)
{
    unlink(path_of(src_guid).c_str());
}

std::optional<mirror_progress> read_progress(const std::string &src_guid, progress_writer writer)
{
    const auto text = read_bytes(path_of(src_guid));
    const auto fields = text ? decode_record(owner, kind, *text) : std::nullopt;
    if (!fields || fields->size() != fields_of({}, "", "").size())
        return std::nullopt;
    mirror_progress one = progress_of(*fields);
    const std::string &process = (*fields)[3].second;
    if (fields_of(one, boot(), process) != *fields || one.src_guid != src_guid || one.copied > one.size ||
        !is_written_by(writer, process))
        return std::nullopt;
    return one;
}

uint64_t bytes_behind(const mirror_progress &one)
{
    if (one.is_level)
        return 0;
    const uint64_t not_copied = one.size - one.copied;
    if (one.page_size == 0)
        return not_copied;
    const bool are_all = one.pages_behind > one.copied / one.page_size; // the last page may not be whole
    return not_copied + (are_all ? one.copied : one.pages_behind * one.page_size);
}
