// libtw as a script has it.
#include "tests/scripted/script_fields.h"
#include "tests/scripted/script_folder.h"

#include <tw.h>

#include <cstdlib>
#include <cstring>

namespace {
// All relationships, or the first one with that source.
tw_relationship *read_chain(const char *source)
{
    std::vector<tw_relationship> all;
    for (const script_entry &entry : script_read("relationships")) {
        if (entry.key == "relationship")
            all.push_back({});
        else if (!all.empty())
            relationship_fields(all.back(), field_reader{entry});
    }
    tw_relationship *chain = nullptr;
    tw_relationship **tail = &chain;
    for (const tw_relationship &one : all) {
        if (source && (chain || strcmp(one.src_guid, source) != 0))
            continue;
        *tail = script_new<tw_relationship>();
        **tail = one;
        tail = &(*tail)->next;
    }
    return chain;
}
} // namespace

#pragma GCC visibility push(default)

tw_relationship *tw_disk_stat(const char *guid)
{
    return script_query("tw_disk_stat", {script_word(guid)}, 0) < 0 ? nullptr : read_chain(guid);
}

void tw_disk_stat_release(tw_relationship *chain)
{
    script_query("tw_disk_stat_release", {}, 0);
    for (tw_relationship *next; chain; chain = next) {
        next = chain->next;
        free(chain);
    }
}

int tw_disk_protect(const char *local_guid, const char *mirror_guid)
{
    return script_action("tw_disk_protect", {script_word(local_guid), script_word(mirror_guid)}, -1);
}

int tw_disk_unprotect(const char *local_guid)
{
    return script_action("tw_disk_unprotect", {script_word(local_guid)}, -1);
}

int tw_disk_resync(const char *local_guid, int flag)
{
    return script_action("tw_disk_resync", {script_word(local_guid), std::to_string(flag)}, -1);
}

int tw_disk_stop_sync(const char *local_guid)
{
    return script_action("tw_disk_stop_sync", {script_word(local_guid)}, -1);
}

int tw_scsi_get_guid(const char *path, char *buffer, int size)
{
    const std::string word = script_word(path);
    std::optional<std::string> guid;
    for (const script_entry &entry : script_read("scsi-guids")) {
        if (entry.key == word)
            guid = entry.value.value_or("");
    }
    const bool fits = guid && size > 0 && guid->size() < static_cast<size_t>(size);
    const int result = script_query("tw_scsi_get_guid", {word, std::to_string(size)}, fits ? 0 : -1);
    if (result >= 0 && fits)
        memcpy(buffer, guid->c_str(), guid->size() + 1);
    return result;
}
