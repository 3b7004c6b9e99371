#include "tests/scripted/script_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>

namespace {
std::string file_path(const std::string &file)
{
    const char *folder = getenv("QELCD_SCRIPT");
    return folder ? std::string(folder) + "/" + file : std::string();
}

// One write, so that lines of many threads and processes stay whole.
void append_line(const std::string &file, const std::string &text)
{
    const std::string line = text + "\n";
    const int fd = open(file_path(file).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        fprintf(stderr, "scripted library: %s: %s", file.c_str(), line.c_str());
    close(fd);
}

std::vector<std::string> words_of(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

void wait_as_scripted(const std::string &function)
{
    const auto of_function = [&](const script_entry &entry) { return entry.key == function; };
    for (const script_entry &entry : script_read("delays")) {
        const auto words = words_of(entry.value.value_or(""));
        if (of_function(entry) && std::ranges::count_if(script_read("calls"), of_function) >= stoi(words[1]))
            std::this_thread::sleep_for(std::chrono::duration<double>(stod(words[0])));
    }
}

// A line for the next call goes before those for all calls, wherever it stands.
std::optional<std::string> take_result(const std::string &function, const std::vector<std::string> &arguments)
{
    static std::mutex taking;
    const std::lock_guard guard(taking);
    std::set<std::string> used;
    for (const script_entry &entry : script_read("used"))
        used.insert(entry.key);
    std::optional<std::string> standing;
    for (const script_entry &entry : script_read("results")) {
        const auto words = words_of(entry.value.value_or(""));
        if (words[0] != function || words.size() - 2 > arguments.size() ||
            !std::equal(words.begin() + 2, words.end(), arguments.begin()))
            continue;
        if (entry.key == "always" && !standing)
            standing = words[1];
        if (entry.key == "once" && !used.contains(std::to_string(entry.line))) {
            append_line("used", std::to_string(entry.line));
            return words[1];
        }
    }
    return standing;
}

std::string joined(const std::string &function, const std::vector<std::string> &arguments)
{
    std::string text = function;
    for (const std::string &argument : arguments)
        text += " " + argument;
    return text;
}

// One of the numbers that stand between bars.
int one_of(const std::string &numbers)
{
    static thread_local std::minstd_rand random(std::random_device{}());
    std::string separated = numbers;
    std::ranges::replace(separated, '|', ' ');
    const auto all = words_of(separated);
    return stoi(all[random() % all.size()]);
}

std::optional<int> scripted_result(const std::string &function, const std::vector<std::string> &arguments)
{
    if (!getenv("QELCD_SCRIPT"))
        return std::nullopt;
    append_line("calls", joined(function, arguments));
    wait_as_scripted(function);
    const auto result = take_result(function, arguments);
    if (result && result->starts_with("exit:"))
        _exit(atoi(result->c_str() + 5));
    return result ? std::optional(one_of(*result)) : std::nullopt;
}
} // namespace

std::vector<script_entry> script_read(const std::string &file)
{
    std::vector<script_entry> entries;
    std::ifstream stream(file_path(file));
    std::string text;
    for (int line = 1; std::getline(stream, text); line++) {
        const size_t blank = text.find(' ');
        entries.push_back({text.substr(0, blank), std::nullopt, line});
        if (blank != std::string::npos)
            entries.back().value = text.substr(blank + 1);
    }
    return entries;
}

void script_unexpected(const std::string &what)
{
    append_line("unexpected", what);
}

std::string script_word(const char *text)
{
    if (!text)
        return "(null)";
    if (*text == '\0')
        return "\"\"";
    std::string word;
    for (const char *at = text; *at; at++) {
        char escaped[8];
        const auto byte = static_cast<unsigned char>(*at);
        snprintf(escaped, sizeof escaped, byte <= ' ' || byte == '\\' || byte == 127 ? "\\x%02x" : "%c",
                 byte);
        word += escaped;
    }
    return word;
}

int script_query(const std::string &function, const std::vector<std::string> &arguments, int natural)
{
    return scripted_result(function, arguments).value_or(natural);
}

int script_action(const std::string &function, const std::vector<std::string> &arguments, int failure)
{
    const auto result = scripted_result(function, arguments);
    if (!result)
        script_unexpected(joined(function, arguments));
    return result.value_or(failure);
}

void *script_allocate(size_t size)
{
    void *memory = calloc(1, size);
    if (!memory)
        abort();
    return memory;
}

char *script_copy(const std::optional<std::string> &value)
{
    if (!value)
        return nullptr;
    char *copy = static_cast<char *>(script_allocate(value->size() + 1));
    memcpy(copy, value->c_str(), value->size());
    return copy;
}
