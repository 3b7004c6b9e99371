// The tracking program of one disk in the kernel, and what it shares with this process.
//
// All of it is pinned in a folder of the BPF file system: the program goes on when this process ends, even
// when it is killed, and the next process goes on with what it finds. A reboot ends it.
#pragma once

#include "base/deleter.h"
#include "base/fd.h"
#include "platform/linux/tracking/shared.h"

#include <bpf/libbpf.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// A mapped array of the kernel. Moved, never copied; unmapped by its destructor.
class mapped_array {
public:
    mapped_array() = default;
    // Maps an array of COUNT values of VALUE_SIZE bytes; is_open() tells whether that succeeded, else errno.
    mapped_array(int fd, size_t count, size_t value_size);
    ~mapped_array();
    mapped_array(mapped_array &&other) noexcept;
    mapped_array &operator=(mapped_array &&other) noexcept;

    bool is_open() const { return bytes_ != nullptr; }
    template <class Value>
    Value *values() const
    {
        return static_cast<Value *>(bytes_);
    }

private:
    void *bytes_ = nullptr;
    size_t size_ = 0;
};

// Wakes a process that waits for the program. Moved, never copied.
class program_alarm {
public:
    program_alarm() = default;
    explicit program_alarm(unique_fd ring);

    bool is_open() const { return reader_ != nullptr; }
    int fd() const { return ring_.get(); } // readable once the program has called
    void clear();

private:
    unique_fd ring_;
    std::unique_ptr<ring_buffer, deleter<ring_buffer__free>> reader_;
};

struct program_maps {
    mapped_array dirty;     // words of 64 pages: set by the kernel
    mapped_array overview;  // words of 64 groups of words that may have marks
    mapped_array taken;     // the same: pages that are being copied, set by this process alone
    mapped_array under_way; // PLACES_PER_QUEUE write_under_way for each queue
    mapped_array sums;      // a write_sums per processor
    mapped_array sleeper;   // one word: not zero asks the program to give the alarm at the next request, once
    mapped_array facts;     // one value of FACTS_SIZE bytes, for the caller
    program_alarm alarm;
};

// Raise it when the arrays that a former program leaves, or the facts, change their form. They are not read
// then.
constexpr uint64_t maps_form = 0;

constexpr size_t facts_size = 256;

uint64_t overview_words(uint64_t words); // for so many words of marks

size_t processor_count(); // possible ones, not only those online

// What is pinned in FOLDER for a disk of that many words and queues, if it is whole; else null, and what
// there is should be removed.
std::optional<program_maps> open_program(const std::string &folder, uint64_t words, uint64_t queues);

// The same for a program of another version, which may have no alarm.
std::optional<program_maps> open_former_program(const std::string &folder, uint64_t words, uint64_t queues);

// Loads the program, attaches and pins it. The folder must not exist. All values are zero. Null with the
// reason in WHY; nothing is left then.
std::optional<program_maps> attach_program(const std::string &folder, const tracked_disk &disk,
                                           uint64_t queues, std::string *why);

// Ends the program and removes the folder. Nothing happens if there is none.
void remove_program(const std::string &folder);

// A number that differs between programs that differ.
uint64_t program_version();
