#include "bench/numbered_blocks.h"

#include "base/deleter.h"
#include "bench/mirror_bench.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

namespace {

using namespace std::chrono_literals;

constexpr size_t alignment = 4096;
constexpr auto pause_after_block = 2ms;

using buffer = std::unique_ptr<uint64_t, deleter<free>>;

buffer new_buffer(size_t bytes)
{
    return buffer(static_cast<uint64_t *>(aligned_alloc(alignment, std::max(bytes, alignment))));
}

uint64_t slot_of(uint64_t number)
{
    return number * 37 % ring_slots; // neighbours in time are none on the disk
}

uint64_t word_of(uint64_t number, size_t place)
{
    return place == 0 ? number : (number + place) * 0x9e3779b97f4a7c15;
}

// The number of a block that is whole.
std::optional<uint64_t> number_of(const uint64_t *words, size_t count)
{
    for (size_t i = 1; i < count; i++) {
        if (words[i] != word_of(words[0], i))
            return std::nullopt;
    }
    return words[0];
}

} // namespace

numbered_writer::numbered_writer(const std::string &path, const block_ring &ring)
    : ring_(ring),
      file_(open(path.c_str(), O_WRONLY | O_CLOEXEC | (ring.is_direct ? O_DIRECT : O_CREAT), 0600))
{
    if (!file_.is_open())
        give_up(path + ": " + strerror(errno));
    thread_ = std::jthread([this](const std::stop_token &end) { write(end); });
}

void numbered_writer::write(const std::stop_token &end)
{
    const buffer words = new_buffer(ring_.block);
    for (uint64_t number = 1; !end.stop_requested(); number++) {
        for (size_t i = 0; i < ring_.block / sizeof number; i++)
            words.get()[i] = word_of(number, i);
        const auto place = static_cast<off_t>(ring_.begin + slot_of(number) * ring_.block);
        if (pwrite(file_.get(), words.get(), ring_.block, place) != static_cast<ssize_t>(ring_.block) ||
            fdatasync(file_.get()) != 0)
            give_up(std::string("a writer: ") + strerror(errno));
        flushed_ = number;
        std::this_thread::sleep_for(pause_after_block);
    }
}

std::string complaint_about(const std::string &path, const block_ring &ring, uint64_t flushed)
{
    const size_t size = ring.block * ring_slots, words = ring.block / sizeof(uint64_t);
    const buffer all = new_buffer(size);
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | (ring.is_direct ? O_DIRECT : 0)));
    if (pread(file.get(), all.get(), size, static_cast<off_t>(ring.begin)) != static_cast<ssize_t>(size))
        return path + " cannot be read";
    std::optional<uint64_t> numbers[ring_slots];
    uint64_t newest = 0;
    for (uint64_t slot = 0; slot < ring_slots; slot++) {
        numbers[slot] = number_of(all.get() + slot * words, words);
        newest = std::max(newest, numbers[slot].value_or(0));
    }
    const std::string where = "of blocks of " + std::to_string(ring.block) + " bytes, number ";
    if (newest < flushed)
        return where + std::to_string(flushed) + " was flushed, " + std::to_string(newest) + " is the newest";
    // The slot of the next one may hold parts of that already.
    for (uint64_t number = newest; number + ring_slots > newest + 1; number--) {
        if (numbers[slot_of(number)] != number)
            return where + std::to_string(number) + " is torn or missing below " + std::to_string(newest);
    }
    return "";
}
