// libtw as a script has it.
#include "tests/scripted/script_folder.h"

#include <tw.h>

#include <cstdlib>
#include <cstring>

namespace {
template <size_t size>
void fill(char (&field)[size], const script_entry &entry)
{
    const std::string value = entry.value.value_or("");
    if (value.size() >= size)
        script_unexpected("relationships:" + std::to_string(entry.line) + ": too long");
    else
        memcpy(field, value.c_str(), value.size() + 1);
}

bool set_field(tw_relationship *one, const script_entry &entry)
{
    if (entry.key == "percent")
        one->percent = static_cast<uint32_t>(script_number(entry));
    else if (entry.key == "sync_state")
        fill(one->sync_state, entry);
    else if (entry.key == "status")
        fill(one->status, entry);
    else if (entry.key == "src_link")
        fill(one->src_link, entry);
    else if (entry.key == "src_path")
        fill(one->src_path, entry);
    else if (entry.key == "src_guid")
        fill(one->src_guid, entry);
    else if (entry.key == "dest_link")
        fill(one->dest_link, entry);
    else if (entry.key == "dest_path")
        fill(one->dest_path, entry);
    else if (entry.key == "dest_guid")
        fill(one->dest_guid, entry);
    else
        return false;
    return true;
}

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
        } else if (!one || !set_field(one, entry)) {
            script_unknown("relationships", entry);
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
