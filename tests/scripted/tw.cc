// libtw as a script has it.
#include "tests/scripted/script_folder.h"

#include <tw.h>

#include <cstdlib>
#include <cstring>

namespace {
const script_field fields[] = {
    SCRIPT_FIELD(number, tw_relationship, percent),
    SCRIPT_FIELD(characters, tw_relationship, sync_state),
    SCRIPT_FIELD(characters, tw_relationship, status),
    SCRIPT_FIELD(characters, tw_relationship, src_link),
    SCRIPT_FIELD(characters, tw_relationship, src_path),
    SCRIPT_FIELD(characters, tw_relationship, src_guid),
    SCRIPT_FIELD(characters, tw_relationship, dest_link),
    SCRIPT_FIELD(characters, tw_relationship, dest_path),
    SCRIPT_FIELD(characters, tw_relationship, dest_guid),
};

void free_chain(tw_relationship *chain)
{
    while (chain) {
        tw_relationship *next = chain->next;
        free(chain);
        chain = next;
    }
}

tw_relationship *read_chain()
{
    tw_relationship *chain = nullptr;
    tw_relationship **tail = &chain;
    tw_relationship *one = nullptr;
    for (const script_entry &entry : script_read("relationships")) {
        if (entry.key == "relationship") {
            one = script_new<tw_relationship>();
            *tail = one;
            tail = &one->next;
        } else {
            script_set(one, fields, "relationships", entry);
        }
    }
    return chain;
}

// The first relationship with that source alone; the rest is freed.
tw_relationship *only_of(tw_relationship *chain, const char *source)
{
    while (chain && strcmp(chain->src_guid, source) != 0) {
        tw_relationship *next = chain->next;
        free(chain);
        chain = next;
    }
    if (chain) {
        free_chain(chain->next);
        chain->next = nullptr;
    }
    return chain;
}
} // namespace

#pragma GCC visibility push(default)

tw_relationship *tw_disk_stat(const char *guid)
{
    if (script_query("tw_disk_stat", {script_word(guid)}, 0) < 0)
        return nullptr;
    tw_relationship *chain = read_chain();
    return guid ? only_of(chain, guid) : chain;
}

void tw_disk_stat_release(tw_relationship *chain)
{
    script_query("tw_disk_stat_release", {}, 0);
    free_chain(chain);
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
