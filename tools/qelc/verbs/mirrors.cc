// Verbs for mirrors.
#include "tools/qelc/views/mirrors.h"

#include "protocol/commands.h"
#include "tools/qelc/verbs/families.h"
#include "tools/qelc/verbs/protect.h"

namespace {
std::string protect_complaint(const verb_options &given)
{
    // The daemon would give the schedule to the last disk alone.
    if (given.every > 0 && given.group.empty() && given.disks.size() > 1)
        return "--every goes with a single disk, or with --group";
    return "";
}

optional_text protect_body(const verb_options &given)
{
    std::vector<mirror_pair> pairs;
    for (const std::string &pair : given.disks) {
        const size_t sign = pair.find('=');
        pairs.push_back({pair.substr(0, sign), pair.substr(sign + 1)});
    }
    return protection_document(pairs, source_of(given, pairs.back().source), times_of(given));
}

optional_text sources_body(const verb_options &given)
{
    return disk_list_document(given.disks);
}

// One after the other: it is protected, and copied.
optional_text mirror_body(const verb_options &given)
{
    return protection_document({{given.disk, given.mirror}}, {false, given.disk}, {}) +
           disk_list_document({given.disk});
}

unsigned seconds_for_disks(const verb_options &given)
{
    constexpr unsigned disk_seconds = 60;
    return static_cast<unsigned>(given.disks.size()) * disk_seconds;
}

std::string mirrors_complaint(const verb_options &given)
{
    const bool follows = given.watch || given.wait;
    if (given.watch && given.wait)
        return "--watch excludes --wait";
    return follows || (given.disks.empty() && given.limit == 0)
               ? ""
               : "disks and --timeout go with --wait or --watch";
}

std::string mirror_complaint(const verb_options &given)
{
    return given.mirror.empty() && given.where.empty() ? "MIRROR or --in is required" : "";
}

// The daemon may have to look for the mirror; what comes after that is quicker.
unsigned seconds_for_mirror(const verb_options & /*given*/)
{
    return 180;
}

constexpr verb sources_verb(const char *name, const char *description, uint32_t code,
                            outcome (*act)(host &at, const verb_options &given))
{
    return {.name = name,
            .usage = "SRC... [--yes] [--dry-run]",
            .description = description,
            .code = code,
            .add_options = add_sources,
            .body = sources_body,
            .act = act,
            .seconds = seconds_for_disks};
}

constexpr verb table[] = {
    {.name = "protect",
     .usage = "PAIR... [--group NAME [--no-create]] [--start T --every INTERVAL]\n"
              "            [--yes] [--dry-run]",
     .description = "protect disks, each with a mirror",
     .note = "The host may take up to a minute for each disk. Unless --timeout is given, qelc\n"
             "waits that long. Without --group, a schedule can be set for one disk only.\n",
     .code = command::add_backup,
     .add_options = add_pairs,
     .complaint = protect_complaint,
     .body = protect_body,
     .act = protect,
     .seconds = seconds_for_disks},
    {.name = "mirror",
     .usage = "SRC (MIRROR | --in PLACE [--name NAME]) [--timeout INTERVAL]\n"
              "            [--yes] [--dry-run]",
     .description = "protect a disk, copy it, and wait until the mirror is level",
     .note = "With --in, a volume is made for the mirror; it is removed again if the disk cannot\n"
             "be protected. What is copied goes on if this command ends.\n",
     .code = command::add_backup,
     .add_options = add_one_mirror,
     .complaint = mirror_complaint,
     .body = mirror_body,
     .act = mirror,
     .seconds = seconds_for_mirror},
    sources_verb("unprotect", "end the protection of disks", command::del_backup, unprotect),
    sources_verb("resync", "copy disks to their mirrors from the start", command::init_mirror, resync),
    sources_verb("cancel-resync", "stop the synchronisation of mirrors", command::cancel_init_mirror,
                 cancel_resync),
    {.name = "mirrors",
     .usage = "[[DISK...] (--watch [SECONDS] | --wait) [--timeout INTERVAL]]",
     .description = "show the mirrors and their progress",
     .note = "With --watch or --wait it ends when no mirror is being copied any more, and its\n"
             "exit status is 0 if all of them are level.\n",
     .code = command::get_client_info,
     .add_options = add_mirrors_options,
     .complaint = mirrors_complaint,
     .view = mirrors_page,
     .json = mirrors_json},
};
} // namespace

std::span<const verb> mirror_verbs()
{
    return table;
}
