// What the fuzz targets share. A target is a function that libFuzzer calls with bytes of its choice;
// replay.cc calls it with the files of its corpus instead. Where a target has several readers, the first byte
// chooses one: 'a', 'b'...
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Ends the process with a message unless HOLDS.
void require(bool holds, const char *what);

// The bytes of one run.
struct fuzz_input {
    size_t choice = 0; // less than the number of choices
    std::string bytes; // after the first one

    fuzz_input(const uint8_t *data, size_t size, size_t choices);
};

// A file without a name in any folder, which a reader of files finds under its path.
class memory_file {
public:
    memory_file();
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    ~memory_file();

    int fd() const { return fd_; }
    const char *path() const { return path_.c_str(); }

    // Replaces the content.
    void set(const std::string &bytes) const;
    std::string content() const;

private:
    int fd_;
    std::string path_;
};

// For targets on fixed paths, which run in a private host.
void require_private_host();
void put_file(const std::string &path, const std::string &bytes);
std::string file_content_of(const std::string &path); // "" for none
