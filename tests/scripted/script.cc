#include "tests/scripted/script.h"

#include "tests/scripted/script_fields.h"
#include "tests/scripted/script_folder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

namespace {
std::string make_folder()
{
    std::string path = std::filesystem::temp_directory_path() / "script-XXXXXX";
    if (!mkdtemp(path.data()))
        ADD_FAILURE() << "cannot make " << path;
    return path;
}

// Writes the fields of a record, a line each; null texts are left out. See script_fields.h.
struct field_writer {
    std::string &lines;
    void operator()(const char *key, const scripted_text &text) const
    {
        if (text)
            lines += std::string(key) + " " + *text + "\n";
    }
    void operator()(const char *key, std::integral auto number) const
    {
        (*this)(key, std::to_string(number));
    }
};

// How a record begins, even when its value is null.
std::string header(const std::string &key, const scripted_text &value)
{
    return key + (value ? " " + *value : "") + "\n";
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
    for (const script_entry &entry : script_read("unexpected"))
        ADD_FAILURE() << "script: unexpected: " << entry.key << " " << entry.value.value_or("");
    std::set<std::string> used;
    for (const script_entry &entry : script_read("used"))
        used.insert(entry.key);
    for (const script_entry &entry : script_read("results")) {
        if (entry.key == "once" && !used.contains(std::to_string(entry.line)))
            ADD_FAILURE() << "script: never used: " << entry.value.value_or("");
    }
    unsetenv("QELCD_SCRIPT");
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void script::replace(const char *file, const std::string &lines) const
{
    const std::string path = folder_ + "/" + file;
    std::ofstream(path + ".new") << lines;
    std::filesystem::rename(path + ".new", path);
}

void script::append(const char *file, const std::string &line) const
{
    std::ofstream(folder_ + "/" + file, std::ios::app) << line + "\n";
}

void script::disks(const std::vector<scripted_disk> &disks)
{
    std::string lines;
    for (const scripted_disk &disk : disks) {
        lines += header("disk", disk.name);
        disk_fields(disk, field_writer{lines});
        for (const scripted_partition &part : disk.parts) {
            lines += header("partition", part.name);
            partition_fields(part, field_writer{lines});
        }
    }
    replace("disks", lines);
}

void script::relationships(const std::vector<scripted_relationship> &relationships)
{
    std::string lines;
    for (const scripted_relationship &one : relationships) {
        lines += header("relationship", std::nullopt);
        relationship_fields(one, field_writer{lines});
    }
    replace("relationships", lines);
}

void script::apps(const std::vector<scripted_app> &apps)
{
    std::string lines;
    for (const scripted_app &app : apps) {
        lines += header("app", app.instance_name);
        app_fields(app, field_writer{lines});
    }
    replace("apps", lines);
}

void script::part_type(const std::string &path, unsigned type)
{
    append("part-types", path + " " + std::to_string(type));
}

void script::once(const std::string &function, const std::string &result,
                  const std::vector<std::string> &arguments)
{
    append("results", result_line("once", function, result, arguments));
}

void script::always(const std::string &function, const std::string &result,
                    const std::vector<std::string> &arguments)
{
    append("results", result_line("always", function, result, arguments));
}

void script::delay(const std::string &function, double seconds, int from)
{
    append("delays", function + " " + std::to_string(seconds) + " " + std::to_string(from));
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
