#include "tools/volumes/lvm.h"

#include "base/fd.h"
#include "base/tool.h"
#include "platform/linux/host/text.h"

#include <sys/mman.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {
struct tool_result {
    std::string output;
    std::string error; // "": it has succeeded
};

std::string all_of(int fd)
{
    constexpr size_t most = size_t{1} << 20;
    std::string text;
    char block[4096];
    ssize_t count = 0;
    while (text.size() < most &&
           (count = pread(fd, block, sizeof block, static_cast<off_t>(text.size()))) > 0)
        text.append(block, static_cast<size_t>(count));
    return text;
}

// A person reads one line: the first one that is no warning, without its indentation. What follows is less
// plain.
std::string first_complaint(const std::string &text)
{
    for (std::string_view line : split(text, '\n')) {
        line = trim_padding(line);
        if (!line.starts_with("WARNING"))
            return std::string(line);
    }
    return "";
}

tool_result run(const std::vector<std::string> &words)
{
    const unique_fd output(memfd_create("output", MFD_CLOEXEC)), errors(memfd_create("errors", MFD_CLOEXEC));
    pid_t child = -1;
    int status = 0;
    int error = output.is_open() && errors.is_open() ? 0 : errno;
    if (error == 0)
        error = start_tool({.words = words, .output = output.get(), .errors = errors.get()}, &child);
    if (error == 0)
        error = wait_for_tool(child, &status);
    if (error != 0)
        return {"", words[0] + ": " + strerror(error)};
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {all_of(output.get()), ""};
    const std::string said = first_complaint(all_of(errors.get()));
    return {"", words[0] + (said.empty() ? " has failed" : ": " + said)};
}

// The rows of a report, each with its fields; an empty field stays.
std::vector<std::vector<std::string>> report(const std::string &tool, const std::string &columns,
                                             const std::vector<std::string> &of, std::string *why)
{
    std::vector<std::string> words = {tool, "--noheadings", "--nosuffix", "--units", "b", "--separator",
                                      "|",  "--options",    columns};
    words.insert(words.end(), of.begin(), of.end());
    const tool_result result = run(words);
    *why = result.error;
    std::vector<std::vector<std::string>> rows;
    for (std::string_view line : split(result.output, '\n')) {
        std::vector<std::string> &row = rows.emplace_back();
        for (line = trim_padding(line);; line.remove_prefix(line.find('|') + 1)) {
            row.emplace_back(line.substr(0, line.find('|')));
            if (line.find('|') == std::string_view::npos)
                break;
        }
        row.resize(static_cast<size_t>(std::count(columns.begin(), columns.end(), ',')) + 1);
    }
    return rows;
}

uint64_t number(const std::string &text)
{
    return parse_number(text).value_or(0);
}

double percent(const std::string &text)
{
    return strtod(text.c_str(), nullptr);
}

uint64_t share(uint64_t size, double percents)
{
    return static_cast<uint64_t>(static_cast<double>(size) / 100 * percents);
}

std::string group_of(const std::string &name)
{
    return name.substr(0, name.find('/'));
}

std::string volume_of(const std::string &name)
{
    return name.substr(name.find('/') + 1);
}

bool is_pool_full(const std::string &pool)
{
    std::string why;
    const auto rows = report("lvs", "data_percent,metadata_percent", {pool}, &why);
    return !rows.empty() && (percent(rows[0][0]) >= 100 || percent(rows[0][1]) >= 100);
}
} // namespace

bool is_lvm_name(const std::string &name, size_t parts)
{
    constexpr char plain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+_.-";
    const auto names = split(name, '/');
    const auto slashes = static_cast<size_t>(std::count(name.begin(), name.end(), '/'));
    return names.size() == parts && slashes + 1 == parts &&
           std::all_of(names.begin(), names.end(), [&](std::string_view one) {
               return one[0] != '-' && one.find_first_not_of(plain) == std::string_view::npos;
           });
}

std::optional<uint64_t> lvm_free(const std::string &name, std::string *why)
{
    const bool is_pool = name.find('/') != std::string::npos;
    const auto rows = is_pool ? report("lvs", "lv_size,data_percent,lv_layout", {name}, why)
                              : report("vgs", "vg_free", {name}, why);
    if (rows.empty())
        return std::nullopt;
    if (!is_pool)
        return number(rows[0][0]);
    if (rows[0][2].find("thin,pool") == std::string::npos) {
        *why = "is not a thin pool";
        return std::nullopt;
    }
    return share(number(rows[0][0]), 100 - percent(rows[0][1]));
}

std::optional<std::vector<std::string>> lvm_devices(const std::string &group, std::string *why)
{
    std::vector<std::string> devices;
    for (const auto &row : report("vgs", "pv_name", {group}, why))
        devices.push_back(row[0]);
    return why->empty() ? std::optional(devices) : std::nullopt;
}

lvm_found find_lvm(const std::string &volume, lvm_volume *facts, std::string *why)
{
    const auto rows = report("lvs", "lv_active,lv_tags,pool_lv,lv_size,data_percent",
                             {"--select", "lv_name=" + volume_of(volume), group_of(volume)}, why);
    if (!why->empty())
        return lvm_found::failed;
    if (rows.empty())
        return lvm_found::missing;
    const auto &row = rows[0];
    *facts = {.is_active = row[0] == "active",
              .tags = row[1],
              .pool = row[2].empty() ? "" : group_of(volume) + "/" + row[2],
              .size = number(row[3]),
              .taken = number(row[3])};
    if (!facts->pool.empty()) {
        facts->taken = share(facts->size, percent(row[4]));
        facts->is_pool_full = is_pool_full(facts->pool);
    }
    return lvm_found::found;
}

std::string create_lvm(const std::string &volume, const std::string &pool, uint64_t size,
                       const std::string &tag)
{
    std::vector<std::string> words = {"lvcreate", "--quiet", "--yes",          "--addtag",
                                      tag,        "--name",  volume_of(volume)};
    const std::string bytes = std::to_string(size) + "b";
    if (pool.empty())
        words.insert(words.end(),
                     {"--wipesignatures", "y", "--zero", "y", "--size", bytes, group_of(volume)});
    else
        words.insert(words.end(), {"--virtualsize", bytes, "--thinpool", pool});
    return run(words).error;
}

std::string remove_lvm(const std::string &volume)
{
    return run({"lvremove", "--quiet", "--yes", volume}).error;
}

std::optional<std::string> lvm_snapshots(const std::string &volume, std::string *why)
{
    std::string names;
    for (const auto &row :
         report("lvs", "lv_name",
                {"--select", "origin=" + volume_of(volume) + " && pool_lv=\"\"", group_of(volume)}, why))
        names += (names.empty() ? "" : ", ") + row[0];
    return why->empty() ? std::optional(names) : std::nullopt;
}
