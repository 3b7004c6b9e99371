#include "platform/linux/agent/devices.h"

#include "platform/linux/agent/records.h"
#include "platform/linux/state/folders.h"

#include <cstdlib>
#include <cstring>

namespace {

record_fields fields_of(const marked_device &device)
{
    return {{"guid", device.guid}, {"path", device.path}};
}

bool is_device(const record_fields &fields)
{
    return fields.size() == 2 && fields[0].second.size() <= longest_guid &&
           fields_of({fields[0].second, fields[1].second}) == fields;
}

constexpr record_kind known_device = {kavcdpagt, "device", is_device};

device_record device_of(const record_fields &fields)
{
    device_record device(zeroed<Kavdev>());
    const std::string braced = "{" + fields[0].second + "}";
    memcpy(device->guid, braced.c_str(), braced.size() + 1);
    device->flag = 1;
    device->path = text_copy(fields[1].second);
    return device;
}

} // namespace

void free_device(Kavdev *device)
{
    free(device->path);
    free(device);
}

bool keep_device(const marked_device &marked)
{
    return store_record(known_device, fields_of(marked));
}

int forget_device(const std::string &guid)
{
    return remove_record(known_device, guid);
}

bool load_devices(std::vector<device_record> *devices)
{
    return load_all(known_device, device_of, devices);
}
