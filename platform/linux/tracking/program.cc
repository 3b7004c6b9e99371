#include "platform/linux/tracking/program.h"

#include "base/hash.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/tracking/program_bytes.h"

#include <bpf/bpf.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

using loaded_object = std::unique_ptr<bpf_object, deleter<bpf_object__close>>;
using attached_link = std::unique_ptr<bpf_link, deleter<bpf_link__destroy>>;

// In the order in which they are attached: whoever sees a request begin sees it end. The last one is pinned
// last, so a folder that has it has everything.
constexpr const char *program_names[] = {"on_complete", "on_requeue", "on_issue"};
constexpr const char *map_names[] = {"dirty",   "overview", "under_way", "sums",
                                     "sleeper", "alarm",    "taken",     "facts"};
constexpr size_t kernel_maps = 6; // the first ones, which the program has itself

std::string pin_of(const std::string &folder, const char *name)
{
    return folder + "/" + name;
}

// libbpf prints to standard error by default; what it says is not for an administrator.
int say_nothing(libbpf_print_level /*level*/, const char * /*format*/, va_list /*arguments*/)
{
    return 0;
}

std::string failure(const char *what)
{
    return std::string(what) + ": " + strerror(errno);
}

size_t page_of_memory()
{
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

unique_fd new_array(size_t count, size_t value_size)
{
    LIBBPF_OPTS(bpf_map_create_opts, options, .map_flags = BPF_F_MMAPABLE);
    return unique_fd(bpf_map_create(BPF_MAP_TYPE_ARRAY, "qelcd", sizeof(uint32_t),
                                    static_cast<uint32_t>(value_size), static_cast<uint32_t>(count),
                                    &options));
}

bool set_constants(bpf_object *object, const tracked_disk &disk)
{
    bpf_map *map = nullptr;
    bpf_object__for_each_map(map, object)
    {
        if (strstr(bpf_map__name(map), ".rodata"))
            return bpf_map__set_initial_value(map, &disk, sizeof disk) == 0;
    }
    return false;
}

bool set_size(const loaded_object &object, const char *name, uint64_t count)
{
    bpf_map *map = bpf_object__find_map_by_name(object.get(), name);
    return bpf_map__set_max_entries(map, static_cast<uint32_t>(count)) == 0;
}

loaded_object load_object(const tracked_disk &disk, uint64_t queues, std::string *why)
{
    libbpf_set_print(say_nothing);
    const auto bytes = program_bytes();
    loaded_object object(bpf_object__open_mem(bytes.data(), bytes.size(), nullptr));
    if (!object) {
        *why = failure("the tracking program cannot be opened");
        return nullptr;
    }
    if (!set_size(object, "dirty", disk.words) || !set_size(object, "overview", overview_words(disk.words)) ||
        !set_size(object, "sums", processor_count()) || !set_size(object, "alarm", page_of_memory()) ||
        !set_size(object, "under_way", queues * PLACES_PER_QUEUE) || !set_constants(object.get(), disk) ||
        bpf_object__load(object.get()) != 0) {
        *why = failure("the kernel does not take the tracking program");
        return nullptr;
    }
    return object;
}

bool pin_maps(const std::string &folder, const loaded_object &object, uint64_t words)
{
    const unique_fd taken = new_array(words, sizeof(uint64_t));
    const unique_fd facts = new_array(1, facts_size);
    for (size_t i = 0; i < kernel_maps; i++) {
        const int fd = bpf_object__find_map_fd_by_name(object.get(), map_names[i]);
        if (bpf_obj_pin(fd, pin_of(folder, map_names[i]).c_str()) != 0)
            return false;
    }
    return taken.is_open() && facts.is_open() &&
           bpf_obj_pin(taken.get(), pin_of(folder, "taken").c_str()) == 0 &&
           bpf_obj_pin(facts.get(), pin_of(folder, "facts").c_str()) == 0;
}

bool attach_and_pin(const std::string &folder, const loaded_object &object)
{
    for (const char *name : program_names) {
        const attached_link link(bpf_program__attach(bpf_object__find_program_by_name(object.get(), name)));
        if (!link || bpf_link__pin(link.get(), pin_of(folder, name).c_str()) != 0)
            return false;
    }
    return true;
}

mapped_array open_array(const std::string &folder, const char *name, size_t count, size_t value_size)
{
    const unique_fd fd(bpf_obj_get(pin_of(folder, name).c_str()));
    bpf_map_info info{};
    uint32_t size = sizeof info;
    if (!fd.is_open() || bpf_obj_get_info_by_fd(fd.get(), &info, &size) != 0 || info.max_entries != count ||
        info.value_size != value_size)
        return {};
    return {fd.get(), count, value_size};
}

program_alarm open_alarm(const std::string &folder)
{
    return program_alarm(unique_fd(bpf_obj_get(pin_of(folder, "alarm").c_str())));
}

bool make_folder(const std::string &folder)
{
    const std::string parent = folder.substr(0, folder.rfind('/'));
    return (mkdir(parent.c_str(), 0700) == 0 || errno == EEXIST) && mkdir(folder.c_str(), 0700) == 0;
}

} // namespace

mapped_array::mapped_array(int fd, size_t count, size_t value_size)
{
    const size_t page = page_of_memory();
    size_ = (count * value_size + page - 1) / page * page;
    void *bytes = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    bytes_ = bytes == MAP_FAILED ? nullptr : bytes;
}

mapped_array::~mapped_array()
{
    if (bytes_)
        munmap(bytes_, size_);
}

mapped_array::mapped_array(mapped_array &&other) noexcept
    : bytes_(std::exchange(other.bytes_, nullptr)), size_(other.size_)
{
}

mapped_array &mapped_array::operator=(mapped_array &&other) noexcept
{
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    return *this;
}

program_alarm::program_alarm(unique_fd ring)
    : ring_(std::move(ring)),
      reader_(ring_.is_open() ? ring_buffer__new(
                                    ring_.get(), [](void *, void *, size_t) { return 0; }, nullptr, nullptr)
                              : nullptr)
{
}

void program_alarm::clear()
{
    ring_buffer__consume(reader_.get());
}

uint64_t overview_words(uint64_t words)
{
    return (words >> OVERVIEW_SHIFT) / 64 + 1;
}

size_t processor_count()
{
    const int count = libbpf_num_possible_cpus();
    return count > 0 ? static_cast<size_t>(count) : 1;
}

std::optional<program_maps> open_program(const std::string &folder, uint64_t words, uint64_t queues)
{
    auto maps = open_former_program(folder, words, queues);
    if (!maps)
        return std::nullopt;
    maps->sleeper = open_array(folder, "sleeper", 1, sizeof(uint64_t));
    maps->alarm = open_alarm(folder);
    return maps->sleeper.is_open() && maps->alarm.is_open() ? std::move(maps) : std::nullopt;
}

std::optional<program_maps> open_former_program(const std::string &folder, uint64_t words, uint64_t queues)
{
    if (access(pin_of(folder, std::end(program_names)[-1]).c_str(), F_OK) != 0)
        return std::nullopt;
    program_maps maps;
    maps.dirty = open_array(folder, "dirty", words, sizeof(uint64_t));
    maps.overview = open_array(folder, "overview", overview_words(words), sizeof(uint64_t));
    maps.taken = open_array(folder, "taken", words, sizeof(uint64_t));
    maps.under_way = open_array(folder, "under_way", queues * PLACES_PER_QUEUE, sizeof(write_under_way));
    maps.sums = open_array(folder, "sums", processor_count(), sizeof(write_sums));
    maps.facts = open_array(folder, "facts", 1, facts_size);
    if (!maps.dirty.is_open() || !maps.overview.is_open() || !maps.taken.is_open() ||
        !maps.under_way.is_open() || !maps.sums.is_open() || !maps.facts.is_open())
        return std::nullopt;
    return maps;
}

std::optional<program_maps> attach_program(const std::string &folder, const tracked_disk &disk,
                                           uint64_t queues, std::string *why)
{
    const loaded_object object = load_object(disk, queues, why);
    if (!object)
        return std::nullopt;
    std::optional<program_maps> maps;
    if (make_folder(folder) && pin_maps(folder, object, disk.words) && attach_and_pin(folder, object))
        maps = open_program(folder, disk.words, queues);
    if (!maps) {
        *why = failure("the tracking program cannot be run and kept");
        remove_program(folder);
    }
    return maps;
}

void remove_program(const std::string &folder)
{
    for (const std::string &name : list_folder(folder).value_or(std::vector<std::string>{}))
        unlink(pin_of(folder, name.c_str()).c_str());
    rmdir(folder.c_str());
    rmdir(folder.substr(0, folder.rfind('/')).c_str()); // only the last one can
}

uint64_t program_version()
{
    static const uint64_t version = fnv1a_64(program_bytes());
    return version;
}
