#include "platform/linux/tracking/write_tracker.h"

#include "base/hash.h"
#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/text.h"

#include <linux/magic.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstring>
#include <set>

namespace {

constexpr char bpf_folder[] = "/sys/fs/bpf";
const std::string all_trackers = std::string(bpf_folder) + "/qelcd";
constexpr uint64_t sector_size = 512;
constexpr uint64_t smallest_page = 4096;
constexpr uint64_t pages_per_word = 64;
constexpr uint64_t words_per_group = uint64_t{1} << OVERVIEW_SHIFT;

// Names in the BPF file system may not have every character of a key.
std::string name_of(uint64_t number)
{
    char name[17];
    snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(number));
    return name;
}

// Each version of the program has its own folder.
std::string folder_of(const std::string &key)
{
    return all_trackers + "/" + name_of(fnv1a_64(key)) + "_" + name_of(program_version());
}

std::vector<std::string> folders_of_all_versions(const std::string &key)
{
    std::vector<std::string> folders;
    for (const std::string &name : list_folder(all_trackers).value_or(std::vector<std::string>{})) {
        if (name.starts_with(name_of(fnv1a_64(key))))
            folders.push_back(all_trackers + "/" + name);
    }
    return folders;
}

void remove_other_versions(const std::string &key)
{
    for (const std::string &folder : folders_of_all_versions(key)) {
        if (folder != folder_of(key))
            remove_program(folder);
    }
}

// Whether somebody has kept it, for that device and page size.
bool is_of(const program_maps &maps, const std::string &device, uint64_t page)
{
    const auto *facts = maps.facts.values<tracker_facts>();
    return facts->version != 0 && facts->form == maps_form && device == facts->source_device &&
           facts->page == page;
}

bool is_bpf_mounted()
{
    struct statfs about {};
    return statfs(bpf_folder, &about) == 0 && static_cast<uint64_t>(about.f_type) == BPF_FS_MAGIC;
}

uint64_t words_of(uint64_t disk_size, uint64_t page)
{
    const uint64_t bytes_per_word = page * pages_per_word;
    return disk_size / bytes_per_word + (disk_size % bytes_per_word != 0);
}

// Null for a disk whose driver passes writes on without requests.
std::optional<uint64_t> queues_of(const std::string &disk_name)
{
    const auto queues = list_folder("/sys/block/" + disk_name + "/mq");
    return queues ? std::optional(queues->size()) : std::nullopt;
}

std::string objection_to(const std::string &disk_name)
{
    if (!is_bpf_mounted())
        return std::string("no BPF file system is mounted at ") + bpf_folder;
    return queues_of(disk_name) ? "" : "its driver passes writes on without requests";
}

std::atomic_ref<uint64_t> at(const mapped_array &words, uint64_t index)
{
    return std::atomic_ref(words.values<uint64_t>()[index]);
}

} // namespace

// Where the tracker of a disk is, and what it has to fit.
struct write_tracker::home {
    std::string key;
    std::string device; // its sequence number
    uint64_t disk_size;
    uint64_t page;
    uint64_t queues = 0;
};

uint64_t tracking_page(uint64_t disk_size, uint64_t memory)
{
    constexpr uint64_t arrays = 2;
    uint64_t page = smallest_page;
    while (arrays * words_of(disk_size, page) * sizeof(uint64_t) > std::max(memory, uint64_t{4096}))
        page *= 2;
    return page;
}

std::unique_ptr<write_tracker> write_tracker::open(const std::string &key, const std::string &disk_name,
                                                   uint64_t disk_size, uint64_t page, std::string *why)
{
    home where = {.key = key,
                  .device = read_attribute("/sys/block/" + disk_name + "/diskseq").value_or(""),
                  .disk_size = disk_size,
                  .page = page};
    const auto numbers = parse_device_number(read_attribute("/sys/block/" + disk_name + "/dev").value_or(""));
    *why = objection_to(disk_name);
    if (why->empty() &&
        (!numbers || where.device.empty() || where.device.size() >= sizeof tracker_facts::source_device))
        *why = "the kernel does not number its devices";
    if (!why->empty())
        return nullptr;
    where.queues = *queues_of(disk_name);
    if (auto kept = open_kept(where))
        return kept;
    auto former = open_former(where);
    const tracked_disk disk = {.major = static_cast<int>(major(*numbers)),
                               .minor = static_cast<int>(minor(*numbers)),
                               .page_shift = static_cast<uint32_t>(std::countr_zero(page / sector_size)),
                               .unused = 0,
                               .words = words_of(disk_size, page)};
    auto maps = attach_program(folder_of(key), disk, where.queues, why);
    if (!maps)
        return nullptr;
    auto *facts = maps->facts.values<tracker_facts>();
    facts->page = page;
    facts->form = maps_form;
    where.device.copy(facts->source_device, sizeof facts->source_device - 1);
    std::unique_ptr<write_tracker> tracker(new write_tracker(std::move(*maps), where));
    tracker->former_ = std::move(former);
    return tracker;
}

std::unique_ptr<write_tracker> write_tracker::open_kept(const home &where)
{
    auto maps = open_program(folder_of(where.key), words_of(where.disk_size, where.page), where.queues);
    if (!maps || !is_of(*maps, where.device, where.page))
        return nullptr;
    remove_other_versions(where.key); // it had taken over from them
    return std::unique_ptr<write_tracker>(new write_tracker(std::move(*maps), where));
}

// What cannot be used is removed.
std::unique_ptr<write_tracker> write_tracker::open_former(const home &where)
{
    std::unique_ptr<write_tracker> former;
    for (const std::string &folder : folders_of_all_versions(where.key)) {
        const bool may_be = !former && folder != folder_of(where.key);
        auto maps = may_be ? open_former_program(folder, words_of(where.disk_size, where.page), where.queues)
                           : std::nullopt;
        if (maps && is_of(*maps, where.device, where.page))
            former.reset(new write_tracker(std::move(*maps), where));
        else
            remove_program(folder);
    }
    return former;
}

write_tracker::write_tracker(program_maps maps, const home &where)
    : maps_(std::move(maps)), key_(where.key), disk_size_(where.disk_size), page_size_(where.page),
      words_(words_of(where.disk_size, where.page)), queues_(where.queues)
{
    // What a former process has left. It may have been killed before it looked at a group.
    for (uint64_t word = 0; word < words_; word++) {
        if (at(maps_.dirty, word).load(std::memory_order_relaxed) != 0)
            note_marks(word);
        make_room(1);
        note_taken(word, at(maps_.taken, word).load(std::memory_order_relaxed));
    }
}

void write_tracker::keep()
{
    std::atomic_ref(facts().version).store(program_version());
    former_.reset();
    remove_other_versions(key_);
}

void write_tracker::take_over_former()
{
    former_->take();
    for (const uint64_t word : former_->taken_) {
        at(maps_.dirty, word).fetch_or(at(former_->maps_.taken, word));
        note_marks(word);
    }
    const tracker_facts &known = former_->facts();
    facts().coverage = known.coverage;
    facts().settled = known.settled;
    facts().announced = known.announced;
    memcpy(facts().mirror_device, known.mirror_device, sizeof known.mirror_device);
}

tracker_sums write_tracker::sums() const
{
    tracker_sums total;
    auto *sums = maps_.sums.values<write_sums>();
    for (size_t i = 0; i < processor_count(); i++) {
        const auto read = [](__u64 &value) { return std::atomic_ref(value).load(); };
        total.events += read(sums[i].events);
        total.sectors += read(sums[i].sectors);
        total.unplaced += read(sums[i].unplaced);
        total.begun += read(sums[i].begun);
    }
    total.sectors += std::atomic_ref(facts().unseen).load();
    return total;
}

void write_tracker::set_alarm()
{
    maps_.alarm.clear();
    at(maps_.sleeper, 0).store(1);
}

std::span<write_under_way> write_tracker::places() const
{
    return {maps_.under_way.values<write_under_way>(), queues_ * PLACES_PER_QUEUE};
}

void write_tracker::mark(uint64_t sector, uint64_t sectors)
{
    const uint64_t last =
        std::min((sector + sectors - 1) / (page_size_ / sector_size), words_ * pages_per_word - 1);
    for (uint64_t page = sector / (page_size_ / sector_size); page <= last; page++) {
        at(maps_.dirty, page / pages_per_word).fetch_or(uint64_t{1} << page % pages_per_word);
        note_marks(page / pages_per_word);
    }
}

void write_tracker::note_marks(uint64_t word)
{
    const uint64_t group = word >> OVERVIEW_SHIFT;
    at(maps_.overview, group / 64).fetch_or(uint64_t{1} << group % 64);
}

// A place whose request ends meanwhile, or another one begins in it, needs no mark: the kernel has set those
// of the former one before, and the new one is not counted yet.
under_way_sums write_tracker::mark_under_way()
{
    under_way_sums found;
    for (write_under_way &place : places()) {
        const uint64_t sectors = std::atomic_ref(place.sectors).load();
        if (sectors == 0)
            continue;
        const uint64_t sector = std::atomic_ref(place.sector).load();
        if (sector == UNKNOWN_SECTOR) {
            found.is_unknown = true;
            continue;
        }
        mark(sector, sectors);
        found.sectors += sectors;
    }
    return found;
}

void write_tracker::end_under_way()
{
    for (write_under_way &place : places()) {
        __u64 sectors = std::atomic_ref(place.sectors).load();
        const uint64_t sector = std::atomic_ref(place.sector).load();
        if (sectors == 0 || sector == UNKNOWN_SECTOR)
            continue;
        mark(sector, sectors);
        if (std::atomic_ref(place.sectors).compare_exchange_strong(sectors, 0))
            std::atomic_ref(facts().unseen).fetch_add(sectors);
    }
}

void write_tracker::forget_under_way()
{
    for (write_under_way &place : places())
        std::atomic_ref(place.sectors).store(0);
}

void write_tracker::make_room(size_t words)
{
    if (taken_.capacity() - taken_.size() < words)
        taken_.reserve(2 * taken_.capacity() + words);
}

// There is room for it.
void write_tracker::note_taken(uint64_t word, uint64_t pages)
{
    if (pages == 0)
        return;
    const auto place = std::lower_bound(taken_.begin(), taken_.end(), word);
    if (place == taken_.end() || *place != word)
        taken_.insert(place, word);
    pages_taken_ += static_cast<uint64_t>(std::popcount(pages));
}

// A page is taken before its mark goes, so that a process that is killed in between leaves both. And both
// come before the page is read, so that a write that ends later leaves a mark.
void write_tracker::take_group(uint64_t group)
{
    const uint64_t first = group << OVERVIEW_SHIFT;
    const uint64_t last = std::min(first + words_per_group, words_);
    for (uint64_t word = first; word < last; word++) {
        const uint64_t seen = at(maps_.dirty, word).load(std::memory_order_relaxed);
        if (seen == 0)
            continue;
        const uint64_t before = at(maps_.taken, word).fetch_or(seen);
        note_taken(word, seen & ~before);
        at(maps_.dirty, word).fetch_and(~seen);
    }
}

// A group leaves the overview before its marks are looked at: one that is set later puts it back. Memory may
// run out before, and not between.
bool write_tracker::take()
{
    for (uint64_t i = 0; i < overview_words(words_); i++) {
        for (uint64_t groups = at(maps_.overview, i).load(); groups != 0; groups &= groups - 1) {
            make_room(words_per_group);
            at(maps_.overview, i).fetch_and(~(groups & -groups));
            take_group(i * 64 + static_cast<uint64_t>(std::countr_zero(groups)));
        }
    }
    return !taken_.empty();
}

std::optional<page_run> write_tracker::next_taken(uint64_t from, uint64_t limit) const
{
    const auto *words = maps_.taken.values<uint64_t>();
    uint64_t first = (from + page_size_ - 1) / page_size_;
    auto word = std::lower_bound(taken_.begin(), taken_.end(), first / pages_per_word);
    const auto bits_from = [&] {
        return *word == first / pages_per_word ? words[*word] & ~uint64_t{0} << first % pages_per_word
                                               : words[*word];
    };
    while (word != taken_.end() && bits_from() == 0)
        ++word;
    if (word == taken_.end())
        return std::nullopt;
    first = *word * pages_per_word + static_cast<uint64_t>(std::countr_zero(bits_from()));
    if (first * page_size_ >= disk_size_)
        return std::nullopt;
    const auto is_taken = [&](uint64_t page) { return (words[page / 64] >> (page % 64) & 1) != 0; };
    uint64_t last = first + 1;
    while (last < words_ * pages_per_word && (last + 1 - first) * page_size_ <= limit && is_taken(last))
        last++;
    return page_run{first * page_size_, std::min(last * page_size_, disk_size_)};
}

void write_tracker::forget_taken()
{
    for (const uint64_t word : taken_)
        at(maps_.taken, word).store(0);
    taken_.clear();
    pages_taken_ = 0;
}

uint64_t write_tracker::pages_behind() const
{
    uint64_t pages = pages_taken_;
    for (uint64_t i = 0; i < overview_words(words_); i++) {
        for (uint64_t groups = at(maps_.overview, i).load(std::memory_order_relaxed); groups != 0;
             groups &= groups - 1)
            pages += pages_marked(i * 64 + static_cast<uint64_t>(std::countr_zero(groups)));
    }
    return pages;
}

uint64_t write_tracker::pages_marked(uint64_t group) const
{
    const uint64_t first = group << OVERVIEW_SHIFT;
    uint64_t pages = 0;
    for (uint64_t word = first; word < std::min(first + words_per_group, words_); word++)
        pages += static_cast<uint64_t>(std::popcount(at(maps_.dirty, word).load(std::memory_order_relaxed)));
    return pages;
}

void remove_tracker(const std::string &key)
{
    for (const std::string &folder : folders_of_all_versions(key))
        remove_program(folder);
}

void remove_other_trackers(const std::vector<std::string> &keys)
{
    std::set<std::string> kept;
    for (const std::string &key : keys)
        kept.insert(name_of(fnv1a_64(key)));
    for (const std::string &name : list_folder(all_trackers).value_or(std::vector<std::string>{})) {
        if (!kept.contains(name.substr(0, name.find('_'))))
            remove_program(all_trackers + "/" + name);
    }
}
