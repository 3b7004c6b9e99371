#include "tools/qelc/new_config.h"

#include "config/config.h"
#include "platform/linux/host/sysfs.h"
#include "tools/qelc/config_check.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

// It is written beside PATH first, so that one that is there is whole.
int write_new_config(const std::string &path, qel_t &content)
{
    content.guid = read_attribute("/proc/sys/kernel/random/uuid");
    if (!content.guid)
        return EIO;
    const std::string unfinished = path + ".new";
    const mode_t former = umask(0027); // whoever may read it knows the addresses of the manager
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    const bool is_free = unlink(unfinished.c_str()) == 0 || errno == ENOENT;
    int error = is_free ? 0 : errno;
    if (is_free) {
        qelcfg_write(unfinished.c_str(), &content);
        const bool is_written = check_config(unfinished).faults.empty();
        error = !is_written ? EIO : link(unfinished.c_str(), path.c_str()) != 0 ? errno : 0;
        unlink(unfinished.c_str());
    }
    umask(former);
    return error;
}
