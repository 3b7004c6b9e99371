// What is on a disk, through libblkid. An input is a list of pieces: first sector and length, two bytes each,
// low byte first, then so many bytes. The disk is empty elsewhere.
#include "platform/linux/disks/content.h"
#include "tests/fuzz/fuzz.h"
#include "tools/snapshots/contents.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace {
constexpr size_t sector = 512, sectors = 8192; // 4 MiB

size_t take_number(std::string_view &bytes)
{
    const size_t number = static_cast<uint8_t>(bytes[0]) + size_t{256} * static_cast<uint8_t>(bytes[1]);
    bytes.remove_prefix(2);
    return number;
}

void write_pieces(int fd, std::string_view bytes)
{
    while (bytes.size() > 4) {
        const size_t first = take_number(bytes) % sectors;
        const size_t length = std::min({take_number(bytes), bytes.size(), (sectors - first) * sector});
        require(pwrite(fd, bytes.data(), length, static_cast<off_t>(first * sector)) ==
                    static_cast<ssize_t>(length),
                "a piece can be written");
        bytes.remove_prefix(length);
    }
}

bool is_plain(const std::string &text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const memory_file disk;
    disk.set("");
    require(ftruncate(disk.fd(), sectors * sector) == 0, "a disk has a size");
    write_pieces(disk.fd(), {reinterpret_cast<const char *>(data), size});
    const int fd = open(disk.path(), O_RDONLY | O_CLOEXEC);
    const auto content = read_content(fd);
    if (content && (content->table == table_type::mbr || content->table == table_type::gpt))
        require(read_table_type(fd) == content->table, "a table is recognised twice");
    for (const table_entry &entry : read_table(fd)) {
        require(entry.guid.size() <= 36 && is_plain(entry.guid), "a GUID is short and plain");
        const auto type = read_file_system(fd, entry.start * sector, sectors * sector);
        require(!type || is_plain(*type), "a type is plain");
    }
    const auto whole = read_file_system(fd, 0, sectors * sector);
    require(!whole || (!whole->empty() && is_plain(*whole)), "a type is a plain word");
    std::string why;
    const auto parts = contents_of(disk.path(), &why);
    require(parts.has_value(), "a disk that can be read has contents");
    for (const struct content &one : *parts)
        require(one.last_folder.size() <= 64 && (one.last_mount != 0 || one.last_folder.empty()),
                "a folder is short, and of a mount");
    close(fd);
    return 0;
}
