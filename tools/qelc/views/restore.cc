#include "tools/qelc/views/restore.h"

#include "platform/linux/host/text.h"
#include "tools/common/human_text.h"
#include "tools/common/visible.h"
#include "tools/qelc/views/kept.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {
using std::chrono::steady_clock;
constexpr std::chrono::milliseconds time_between_bars{200}, time_between_lines{30000};

std::string model_of(const disk_facts &disk)
{
    std::string text;
    for (const auto &part : {disk.vendor, disk.model}) {
        const std::string word(trim_padding(part.value_or("")));
        text += (text.empty() || word.empty() ? "" : " ") + word;
    }
    return text.empty() ? "" : "  " + text;
}

std::string target_lines(const restore_target &target)
{
    const disk_facts &disk = target.disk.facts;
    std::string text =
        disk.name + "  " + size_text(disk.sectors * 512) + model_of(disk) + "  " + target.disk.guid;
    text = visible(text) + "\n";
    for (const content &one : target.contents)
        text += "  " + visible(text_of(one)) + "\n";
    if (target.contents.empty())
        text += "  nothing known is on it\n";
    return text;
}

// "1.1 GiB/s, 17 min left"; "" as long as nobody can say.
std::string speed_text(uint64_t position, uint64_t size, steady_clock::duration since)
{
    const double seconds = std::chrono::duration<double>(since).count();
    if (seconds < 1 || position == 0 || position == size)
        return "";
    const double rate = static_cast<double>(position) / seconds;
    return "  " + size_text(static_cast<uint64_t>(rate)) + "/s, " +
           time_text(static_cast<uint64_t>(static_cast<double>(size - position) / rate)) + " left";
}

std::string bar(uint64_t percent)
{
    constexpr uint64_t width = 20;
    const uint64_t filled = percent * width / 100;
    return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "]  " +
           std::to_string(percent) + " %";
}
} // namespace

std::string overwritten_page(const snapshot &of, const std::vector<restore_target> &targets)
{
    std::string text, names;
    for (const restore_target &target : targets) {
        text += target_lines(target);
        names += (names.empty() ? "" : ", ") + target.disk.facts.name;
    }
    return text + "\nEverything on " + visible(names) + " will be overwritten with the state of " +
           visible(time_of(of)) + " (" + visible(of.name) + ").\n";
}

void restore_progress::show(const restore_target &target, uint64_t position)
{
    const auto now = steady_clock::now();
    if (disk_ != target.disk.facts.name) {
        disk_ = target.disk.facts.name;
        begin_ = shown_ = now;
    }
    const bool is_terminal = isatty(STDERR_FILENO) != 0, is_end = position == target.size;
    if (now - shown_ < (is_terminal ? time_between_bars : time_between_lines) && !(is_end && is_terminal))
        return;
    shown_ = now;
    const uint64_t percent = is_end ? 100 : position / (target.size / 100 + 1);
    const std::string speed = speed_text(position, target.size, now - begin_);
    is_in_line_ = is_terminal;
    if (is_terminal)
        fprintf(stderr, "\r  %s  %s%s\033[K", visible(disk_).c_str(), bar(percent).c_str(), speed.c_str());
    else
        fprintf(stderr, "%s: %u %%%s\n", visible(disk_).c_str(), static_cast<unsigned>(percent),
                speed.c_str());
}

void restore_progress::end_line()
{
    if (is_in_line_)
        fputc('\n', stderr);
    is_in_line_ = false;
}
