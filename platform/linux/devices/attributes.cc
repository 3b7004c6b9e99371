#include "platform/linux/devices/attributes.h"

#include "platform/linux/host/sysfs.h"
#include "platform/linux/host/weak_log.h"

#include <cerrno>
#include <cstring>

namespace {

std::optional<std::vector<std::string>> devices_in(const std::string &folder)
{
    auto names = list_folder(folder);
    if (!names)
        log_error("Cannot list %s: %s", folder.c_str(), strerror(errno));
    return names;
}

bool write_if_there(const std::string &path, const std::string &text)
{
    if (write_attribute(path, text) || errno == ENOENT)
        return true;
    log_error("Cannot write \"%s\" to %s: %s", text.c_str(), path.c_str(), strerror(errno));
    return false;
}

} // namespace

bool write_to_all(const std::string &folder, const std::string &attribute, const std::string &text)
{
    const auto names = devices_in(folder);
    bool result = names.has_value();
    for (const std::string &name : names.value_or(std::vector<std::string>{}))
        result = write_if_there(folder + "/" + name + "/" + attribute, text) && result;
    return result;
}

bool read_sizes_anew()
{
    const auto names = devices_in("/sys/block");
    bool result = names.has_value();
    for (const std::string &name : names.value_or(std::vector<std::string>{})) {
        const std::string device = "/sys/block/" + name + "/device";
        if (read_attribute(device + "/state").value_or("running") == "running")
            result = write_if_there(device + "/rescan", "1") && result;
    }
    return result;
}
