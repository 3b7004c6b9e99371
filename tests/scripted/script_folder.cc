#include "tests/scripted/script_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
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
    if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        fprintf(stderr, "scripted library: %s: %s", file.c_str(), line.c_str());
    if (fd >= 0)
        close(fd);
}

void script_unknown(const std::string &file, const script_entry &entry)
{
    script_unexpected(file + ":" + std::to_string(entry.line) + ": cannot make sense of " + entry.key);
}

std::vector<std::string> words_of(const std::string &text)
{
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

int count_calls(const std::string &function)
{
    const auto calls = script_read("calls");
    return static_cast<int>(std::count_if(calls.begin(), calls.end(),
                                          [&](const script_entry &call) { return call.key == function; }));
}

void wait_as_scripted(const std::string &function)
{
    for (const script_entry &entry : script_read("delays")) {
        const auto words = words_of(entry.value.value_or(""));
        const bool has_start = words.size() == 3 && words[1] == "from";
        if (words.size() != 1 && !has_start)
            script_unknown("delays", entry);
        else if (entry.key == function && (!has_start || count_calls(function) >= atoi(words[2].c_str())))
            std::this_thread::sleep_for(std::chrono::duration<double>(strtod(words[0].c_str(), nullptr)));
    }
}

// Keeps every other thread and process from taking a result while it lives.
class results_lock {
public:
    results_lock() : fd_(open(file_path("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666))
    {
        if (fd_ >= 0)
            flock(fd_, LOCK_EX);
    }
    ~results_lock()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    results_lock(const results_lock &) = delete;
    results_lock &operator=(const results_lock &) = delete;

private:
    int fd_;
};

bool answers(const std::vector<std::string> &words, const std::string &function,
             const std::vector<std::string> &arguments)
{
    return words.size() >= 2 && words[0] == function && words.size() - 2 <= arguments.size() &&
           std::equal(words.begin() + 2, words.end(), arguments.begin());
}

// A line for the next call goes before those for all calls, wherever it stands.
std::optional<std::string> take_result(const std::string &function, const std::vector<std::string> &arguments)
{
    const results_lock lock;
    std::set<std::string> used;
    for (const script_entry &entry : script_read("used"))
        used.insert(entry.key);
    std::optional<std::string> standing;
    for (const script_entry &entry : script_read("results")) {
        const auto words = words_of(entry.value.value_or(""));
        if ((entry.key != "once" && entry.key != "always") || words.size() < 2)
            script_unknown("results", entry);
        if (!answers(words, function, arguments))
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
    auto at = std::uniform_int_distribution<ptrdiff_t>(0, std::ranges::count(numbers, '|'))(random);
    size_t begin = 0;
    for (; at > 0; --at)
        begin = numbers.find('|', begin) + 1;
    return atoi(numbers.c_str() + begin);
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
        if (text.empty() || text[0] == '#')
            continue;
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

void script_set(void *record, std::span<const script_field> fields, const std::string &file,
                const script_entry &entry)
{
    const auto field = std::find_if(fields.begin(), fields.end(),
                                    [&](const script_field &one) { return entry.key == one.key; });
    const std::string value = entry.value.value_or("");
    if (!record || field == fields.end() ||
        (field->of == script_field::characters && value.size() >= field->size)) {
        script_unknown(file, entry);
        return;
    }
    char *target = static_cast<char *>(record) + field->offset;
    if (field->of == script_field::characters) {
        memcpy(target, value.c_str(), value.size() + 1);
    } else if (field->of == script_field::text) {
        char *const copy = script_copy(entry.value);
        memcpy(target, &copy, sizeof copy);
    } else {
        const unsigned long long number = strtoull(value.c_str(), nullptr, 0);
        memcpy(target, &number, field->size); // its low bytes come first
    }
}
