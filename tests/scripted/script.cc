#include "tests/scripted/script.h"

#include "tests/scripted/script_folder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {
std::string make_folder()
{
    std::string path = std::filesystem::temp_directory_path() / "script-XXXXXX";
    if (!mkdtemp(path.data()))
        throw std::filesystem::filesystem_error("script", path,
                                                std::error_code(errno, std::generic_category()));
    return path;
}

void replace_file(const std::string &path, const std::string &text)
{
    std::ofstream(path + ".new") << text;
    std::filesystem::rename(path + ".new", path);
}

void append_line(const std::string &path, const std::string &line)
{
    std::ofstream(path, std::ios::app) << line + "\n";
}

// A record as lines: the first one stands there even when its value is null.
std::string record(const std::string &key, const scripted_text &value,
                   std::initializer_list<std::pair<const char *, scripted_text>> fields)
{
    std::string lines = key + (value ? " " + *value : "") + "\n";
    for (const auto &[name, field] : fields) {
        if (field)
            lines += std::string(name) + " " + *field + "\n";
    }
    return lines;
}

std::string result_line(const std::string &mode, const std::string &function, const std::string &result,
                        const std::vector<std::string> &arguments)
{
    std::string line = mode + " " + function + " " + result;
    for (const std::string &argument : arguments)
        line += " " + script_word(argument.c_str());
    return line;
}
} // namespace

script::script() : folder_(make_folder())
{
    setenv("QELCD_SCRIPT", folder_.c_str(), 1);
}

script::~script()
{
    for (const std::string &fault : take_faults())
        ADD_FAILURE() << "script: " << fault;
    unsetenv("QELCD_SCRIPT");
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void script::disks(const std::vector<scripted_disk> &disks)
{
    std::string lines;
    for (const scripted_disk &disk : disks) {
        lines += record("disk", disk.name,
                        {{"path", disk.path},
                         {"vendor", disk.vendor},
                         {"model", disk.model},
                         {"sectors", std::to_string(disk.sectors)},
                         {"state", std::to_string(disk.state)}});
        for (const scripted_partition &part : disk.parts)
            lines += record("partition", part.name,
                            {{"guid", part.guid},
                             {"fs", part.fs},
                             {"size", std::to_string(part.size)},
                             {"used", std::to_string(part.used)}});
    }
    replace_file(folder_ + "/disks", lines);
}

void script::relationships(const std::vector<scripted_relationship> &relationships)
{
    std::string lines;
    for (const scripted_relationship &one : relationships)
        lines += record("relationship", std::nullopt,
                        {{"percent", std::to_string(one.percent)},
                         {"sync_state", one.sync_state},
                         {"status", one.status},
                         {"src_link", one.src_link},
                         {"src_path", one.src_path},
                         {"src_guid", one.src_guid},
                         {"dest_link", one.dest_link},
                         {"dest_path", one.dest_path},
                         {"dest_guid", one.dest_guid}});
    replace_file(folder_ + "/relationships", lines);
}

void script::apps(const std::vector<scripted_app> &apps)
{
    std::string lines;
    for (const scripted_app &app : apps)
        lines += record("app", app.instance_name,
                        {{"db_type", std::to_string(app.db_type)},
                         {"archive_log", std::to_string(app.archive_log)},
                         {"db_name", app.db_name},
                         {"db_user", app.db_user},
                         {"db_passwd", app.db_passwd},
                         {"oracle_home", app.oracle_home},
                         {"host", app.host},
                         {"port", app.port}});
    replace_file(folder_ + "/apps", lines);
}

void script::devices(const std::vector<scripted_device> &devices)
{
    std::string lines;
    for (const scripted_device &device : devices)
        lines +=
            record("device", device.guid, {{"path", device.path}, {"flag", std::to_string(device.flag)}});
    replace_file(folder_ + "/devices", lines);
}

void script::scsi_guid(const std::string &path, const std::string &guid)
{
    append_line(folder_ + "/scsi-guids", path + " " + guid);
}

void script::part_type(const std::string &path, unsigned type)
{
    append_line(folder_ + "/part-types", path + " " + std::to_string(type));
}

void script::once(const std::string &function, const std::string &result,
                  const std::vector<std::string> &arguments)
{
    append_line(folder_ + "/results", result_line("once", function, result, arguments));
}

void script::always(const std::string &function, const std::string &result,
                    const std::vector<std::string> &arguments)
{
    append_line(folder_ + "/results", result_line("always", function, result, arguments));
}

void script::delay(const std::string &function, double seconds, int from)
{
    std::ostringstream line;
    line << function << ' ' << seconds << " from " << from;
    append_line(folder_ + "/delays", line.str());
}

std::vector<std::string> script::calls(const std::string &function) const
{
    std::vector<std::string> calls;
    for (const script_entry &call : script_read("calls")) {
        if (function.empty() || call.key == function)
            calls.push_back(call.value ? call.key + " " + *call.value : call.key);
    }
    return calls;
}

std::vector<std::string> script::take_faults()
{
    std::vector<std::string> faults;
    for (const script_entry &entry : script_read("unexpected"))
        faults.push_back("unexpected: " + entry.key + " " + entry.value.value_or(""));
    std::filesystem::remove(folder_ + "/unexpected");

    const auto used = script_read("used");
    for (const script_entry &entry : script_read("results")) {
        const std::string line = std::to_string(entry.line);
        const auto is_line = [&](const script_entry &taken) { return taken.key == line; };
        if (entry.key == "once" && std::none_of(used.begin(), used.end(), is_line)) {
            faults.push_back("never used: " + entry.value.value_or(""));
            append_line(folder_ + "/used", line);
        }
    }
    return faults;
}
