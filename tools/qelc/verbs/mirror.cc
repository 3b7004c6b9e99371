// The verb that does all of it: a volume if one is wanted, protection, the copy, and the wait for its end.
#include "tools/qelc/here.h"
#include "tools/qelc/overwrite.h"
#include "tools/qelc/verbs/protect.h"
#include "tools/qelc/views/mirror_watch.h"
#include "tools/volumes/volumes.h"

namespace {
// Until it is level. What was protected stays so, whatever comes of the copy.
outcome copy_and_wait(host &at, const wanted_pair &pair, const verb_options &given)
{
    outcome copied = copy_disks(at, {pair.source});
    if (copied.status != exit_ok)
        return copied;
    say(pair.source.name + " is protected by " + pair.mirror.name + ", and is copied to it");
    verb_options wanted = given;
    wanted.disks = {pair.source.guid};
    wanted.wait = given.is_for_program;
    if (!given.is_for_program)
        wanted.watch = 1;
    return follow_mirrors(at, wanted);
}

outcome plan_of(const wanted_pair &pair)
{
    return {.items = {{"disk", pair.source.name, pair.source.guid, exit_ok,
                       "protected by " + pair.mirror.name + ", and copied to it"}},
            .is_dry_run = true};
}

// To a disk that is there, or will come.
outcome mirror_to(host &at, const verb_options &given, const named_disk &source)
{
    const wanted_pair pair{source, at.disk(given.mirror, true)};
    check_pairs(at, {pair});
    confirm_overwriting(at, guids_of({pair}), given);
    if (given.dry_run)
        return plan_of(pair);
    outcome end = protect_pairs(at, {pair}, given);
    return end.status == exit_ok ? copy_and_wait(at, pair, given) : end;
}

// --- In a new volume -------------------------------------------------------------------------------------

void remove_again(const new_volume &volume)
{
    const std::string why = delete_volume(volume.name, say);
    say("the volume " + volume.name +
        (why.empty() ? " was removed again" : " could not be removed again: " + why));
}

// Without an answer nobody knows whether the daemon will protect it.
outcome protect_by_volume(host &at, const wanted_pair &pair, const new_volume &volume,
                          const verb_options &given)
{
    try {
        return protect_pairs(at, {pair}, given);
    } catch (const verb_end &) {
        say("the volume " + volume.name + " stays; qelc volume delete " + volume.name + " removes it");
        throw;
    }
}

outcome mirror_in(host &at, const verb_options &given, const named_disk &source)
{
    if (!at.is_local())
        throw verb_end{exit_usage, "--in makes a volume on this host: --host does not go with it",
                       "qelc help mirror shows its options"};
    require_root();
    check_source(at, source);
    std::string why;
    const auto volume =
        create_volume({source.guid, given.where, given.volume, given.yes, given.dry_run}, say, &why);
    if (!volume)
        throw verb_end{exit_refused, why, "qelc help mirror says what a place may be"};
    const wanted_pair pair{source, {volume->name, volume->guid}};
    if (given.dry_run) {
        outcome end = plan_of({source, {"it", ""}});
        end.items.insert(end.items.begin(), {"volume", given.volume.empty() ? "a new volume" : given.volume,
                                             "", exit_ok, "made in " + given.where});
        return end;
    }
    outcome end = protect_by_volume(at, pair, *volume, given);
    if (end.status == exit_ok)
        return copy_and_wait(at, pair, given);
    remove_again(*volume);
    return end;
}
} // namespace

outcome mirror(host &at, const verb_options &given)
{
    at.require_adopted();
    const named_disk source = at.disk(given.disk);
    return given.where.empty() ? mirror_to(at, given, source) : mirror_in(at, given, source);
}
