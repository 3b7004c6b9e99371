// Records in the state folders: a file is loaded and stored again byte for byte, or it is set aside as it is.
// A mirror's record of a former version gets the fields that are new.
#include "platform/linux/agent/apps.h"
#include "platform/linux/agent/devices.h"
#include "platform/linux/agent/restores.h"
#include "platform/linux/agent/snapshots.h"
#include "platform/linux/mirror/record.h"
#include "tests/fuzz/fuzz.h"
#include "tools/volumes/record.h"

#include <unistd.h>

namespace {
bool stores_mirror_again()
{
    const auto mirrors = load_mirrors(bad_files::set_aside);
    require(mirrors.has_value(), "mirrors can be loaded");
    if (mirrors->empty())
        return false;
    const mirror_record &mirror = mirrors->front();
    require(percent_of(mirror, mirror.position) <= 100, "there are a hundred percent");
    require(save_mirror(mirror), "a mirror can be stored");
    return true;
}

bool stores_app_again()
{
    std::vector<app_record> apps;
    require(load_apps(&apps), "databases can be loaded");
    if (apps.empty())
        return false;
    require(keep_app(*apps.front()), "a database can be stored");
    return true;
}

bool stores_device_again()
{
    std::vector<device_record> devices;
    require(load_devices(&devices), "devices can be loaded");
    if (devices.empty())
        return false;
    const std::string braced = devices.front()->guid;
    require(keep_device({braced.substr(1, braced.size() - 2), devices.front()->path}),
            "a device can be stored");
    return true;
}

bool stores_snapshot_again()
{
    const auto snapshots = load_snapshots();
    require(snapshots.has_value(), "snapshots can be loaded");
    if (snapshots->empty())
        return false;
    require(store_snapshot(snapshots->front()), "a snapshot can be stored");
    return true;
}

bool stores_restore_again()
{
    const auto restores = load_restores();
    require(restores.has_value(), "restores can be loaded");
    if (restores->empty())
        return false;
    require(store_restore(restores->front()), "a restore can be stored");
    return true;
}

bool stores_volume_again()
{
    const auto volumes = load_volumes(bad_files::set_aside);
    require(volumes.has_value(), "volumes can be loaded");
    if (volumes->empty())
        return false;
    require(is_volume_name(volumes->front().name), "a volume has a name that a file can have");
    require(save_volume(volumes->front()), "a volume can be stored");
    return true;
}

constexpr state_folder volumes_folder = {"/var/lib/qelcd-volumes", "qelcd-volumes"};

struct {
    const state_folder &folder;
    const char *kind;
    bool (*stores_again)();
} const kinds[] = {
    {twinvault, "mirror", stores_mirror_again},      {kavcdpagt, "application", stores_app_again},
    {kavcdpagt, "device", stores_device_again},      {kavcdpagt, "snapshot", stores_snapshot_again},
    {volumes_folder, "volume", stores_volume_again}, {kavcdpagt, "restore", stores_restore_again}};

std::string with_new_fields(const record_fields &fields, const std::string &text)
{
    constexpr size_t former_count = 12;
    if (fields.size() != former_count)
        return text;
    record_fields all = fields;
    all.insert(all.end(), {{"dest_diskseq", ""}, {"dest_sectors_changed", "0"}});
    return encode_record(twinvault.owner, "mirror", all);
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready =
        (require_private_host(),
         make_state_folder(twinvault) && make_state_folder(kavcdpagt) && make_state_folder(volumes_folder));
    require(is_ready, "the state folders can be made");
    const fuzz_input input(data, size, std::size(kinds));
    const auto &kind = kinds[input.choice];
    const auto fields = decode_record(kind.folder.owner, kind.kind, input.bytes);
    const std::string name =
        fields ? escaped(fields->front().second, plain_in_file_names).substr(0, 200) : "x";
    const std::string path = std::string(kind.folder.path) + "/" + name + "." + kind.kind;
    put_file(path, input.bytes);
    const bool is_stored = kind.stores_again();
    const std::string kept = is_stored ? path : path + ".damaged-1";
    const std::string expected = is_stored ? with_new_fields(*fields, input.bytes) : input.bytes;
    require(file_content_of(kept) == expected, "a record is stored again, and other files are kept");
    require(unlink(kept.c_str()) == 0, "there is one file");
    return 0;
}
