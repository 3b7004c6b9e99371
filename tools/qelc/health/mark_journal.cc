#include "tools/qelc/health/mark_journal.h"

#include "base/file.h"
#include "platform/linux/host/text.h"
#include "platform/linux/state/folders.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>

namespace {
// As it was before it was escaped: %XX is a byte. What is no code stays.
std::string plain(std::string_view text)
{
    std::string all;
    while (!text.empty()) {
        const char *code = text.data() + 1;
        unsigned char byte = 0;
        const bool is_code =
            text.size() > 2 && text[0] == '%' && std::from_chars(code, code + 2, byte, 16).ptr == code + 2;
        all += is_code ? static_cast<char>(byte) : text[0];
        text.remove_prefix(is_code ? 3 : 1);
    }
    return all;
}

time_t time_of(std::string_view text)
{
    tm fields{};
    const char *end = strptime(std::string(text).c_str(), "%Y-%m-%dT%H:%M:%SZ", &fields);
    return end ? timegm(&fields) : 0;
}
} // namespace

std::optional<journal_mark> parse_mark(std::string_view line)
{
    const auto words = split(line, ' ');
    const size_t of = words.size() > 1 && words[1] == "group" ? 3 : 2; // where the mirrors stand
    if (words.size() < of + 2 || (of == 2 && words[1] != "disk"))
        return std::nullopt;
    journal_mark mark{.time = time_of(words[0])};
    (of == 3 ? mark.group : mark.mirror) = plain(words[2]);
    mark.is_taken = words[of + 1] == "ok";
    const std::string_view result = words[of + 1];
    const auto rest = static_cast<size_t>(result.data() + result.size() - line.data());
    mark.text = line.substr(std::min(rest + 1, line.size()));
    const bool is_result = mark.is_taken || result == "failed:";
    return mark.time != 0 && is_result ? std::optional(mark) : std::nullopt;
}

// A line that is being written has no end yet, and is read the next time.
bool mark_journal::read_new(const std::function<void(const journal_mark &)> &take)
{
    const file_stream file = open_for_reading((std::string(kavcdpagt.path) + "/journal").c_str());
    if (!file)
        return errno == ENOENT;
    struct stat facts {};
    if (fstat(fileno(file.get()), &facts) != 0)
        return false;
    if (facts.st_ino != file_ || facts.st_size < position_)
        position_ = 0;
    file_ = facts.st_ino;
    if (fseeko(file.get(), position_, SEEK_SET) != 0)
        return false;
    char *line = nullptr;
    size_t room = 0;
    ssize_t length = 0;
    while ((length = getline(&line, &room, file.get())) > 0 && line[length - 1] == '\n') {
        position_ += length;
        if (const auto mark = parse_mark({line, static_cast<size_t>(length - 1)}))
            take(*mark);
    }
    free(line);
    return true;
}
