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

void put(std::ostream &out, const char *key, const scripted_text &value)
{
    if (value)
        out << key << ' ' << *value << '\n';
}

void put_number(std::ostream &out, const char *key, uint64_t value)
{
    out << key << ' ' << value << '\n';
}

// The first line of a record, which must stand there even when its value is null.
void put_first(std::ostream &out, const char *key, const scripted_text &value)
{
    out << key << (value ? " " + *value : "") << '\n';
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
    std::ostringstream out;
    for (const scripted_disk &disk : disks) {
        put_first(out, "disk", disk.name);
        put(out, "path", disk.path);
        put(out, "vendor", disk.vendor);
        put(out, "model", disk.model);
        put_number(out, "sectors", disk.sectors);
        put_number(out, "state", disk.state);
        for (const scripted_partition &part : disk.parts) {
            put_first(out, "partition", part.name);
            put(out, "guid", part.guid);
            put(out, "fs", part.fs);
            put_number(out, "size", part.size);
            put_number(out, "used", part.used);
        }
    }
    replace_file(folder_ + "/disks", out.str());
}

void script::relationships(const std::vector<scripted_relationship> &relationships)
{
    std::ostringstream out;
    for (const scripted_relationship &one : relationships) {
        put_first(out, "relationship", std::nullopt);
        put_number(out, "percent", one.percent);
        put(out, "sync_state", one.sync_state);
        put(out, "status", one.status);
        put(out, "src_link", one.src_link);
        put(out, "src_path", one.src_path);
        put(out, "src_guid", one.src_guid);
        put(out, "dest_link", one.dest_link);
        put(out, "dest_path", one.dest_path);
        put(out, "dest_guid", one.dest_guid);
    }
    replace_file(folder_ + "/relationships", out.str());
}

void script::apps(const std::vector<scripted_app> &apps)
{
    std::ostringstream out;
    for (const scripted_app &app : apps) {
        put_first(out, "app", app.instance_name);
        put_number(out, "db_type", app.db_type);
        put(out, "archive_log", std::to_string(app.archive_log));
        put(out, "db_name", app.db_name);
        put(out, "db_user", app.db_user);
        put(out, "db_passwd", app.db_passwd);
        put(out, "oracle_home", app.oracle_home);
        put(out, "host", app.host);
        put(out, "port", app.port);
    }
    replace_file(folder_ + "/apps", out.str());
}

void script::devices(const std::vector<scripted_device> &devices)
{
    std::ostringstream out;
    for (const scripted_device &device : devices) {
        put_first(out, "device", device.guid);
        put(out, "path", device.path);
        put_number(out, "flag", device.flag);
    }
    replace_file(folder_ + "/devices", out.str());
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
