#include "client/disk_identity.h"

#include "base/fd.h"
#include "base/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tw.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
constexpr off_t signature_offset = 440;
constexpr int guid_size = 64;

// Logs errno with WHAT and PATH, and returns it.
int failed(const char *what, const char *path)
{
    const int failure = errno;
    log_error("%s '%s': %s", what, path, strerror(failure));
    return failure;
}

bool exists(const char *path)
{
    if (access(path, F_OK) == 0)
        return true;
    log_error("Disk '%s' not exist", path);
    return false;
}

// 0 if FD is a block device; otherwise logs why not and returns an errno value.
int check_block_device(int fd, const char *path)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return failed("Failed to stat", path);
    if (!S_ISBLK(status.st_mode)) {
        log_error("'%s' is not a block device", path);
        return ENOTBLK;
    }
    return 0;
}
} // namespace

optional_text get_disk_guid(const char *path, bool is_lun)
{
    if (!path)
        return std::nullopt;
    if (is_lun) {
        char guid[guid_size] = "";
        log_debug("start get scsi disk guid.");
        tw_scsi_get_guid(path, guid, sizeof guid);
        log_debug("finish get scsi disk guid.");
        guid[guid_size - 1] = '\0';
        return guid;
    }
    log_debug("start get disk signature.");
    const uint32_t signature = get_disk_signature(path);
    log_debug("finish get disk signature.");
    if (signature == no_signature) {
        log_warning("Cannot get the signature of diskk %s.", path);
        return std::nullopt;
    }
    return signature_to_guid(signature);
}

uint32_t get_disk_signature(const char *path)
{
    if (!path || !exists(path))
        return unreadable_signature;
    const unique_fd disk(open(path, O_RDONLY | O_CLOEXEC));
    if (!disk.is_open()) {
        failed("Failed to open", path);
        return unreadable_signature;
    }
    if (check_block_device(disk.get(), path) != 0)
        return unreadable_signature;
    // After a failed seek the read is still tried, from the current position.
    if (lseek(disk.get(), signature_offset, SEEK_SET) < 0)
        log_error("Seek '%s' error: %s", path, strerror(errno));
    uint32_t signature = no_signature;
    if (read(disk.get(), &signature, sizeof signature) != sizeof signature) {
        failed("Failed to read", path);
        return unreadable_signature;
    }
    return signature;
}

int write_disk_signature(const char *path, uint32_t signature)
{
    if (!exists(path))
        return -1;
    const unique_fd disk(open(path, O_WRONLY | O_CLOEXEC));
    if (!disk.is_open()) {
        failed("Failed to open", path);
        return -1;
    }
    if (const int failure = check_block_device(disk.get(), path))
        return -failure;
    if (lseek(disk.get(), signature_offset, SEEK_SET) < 0) {
        const int failure = errno;
        log_error("Seek '%s' error: %s", path, strerror(failure));
        return -failure;
    }
    if (write(disk.get(), &signature, sizeof signature) != sizeof signature)
        return -failed("Failed to write", path);
    const int result = fsync(disk.get());
    if (result != 0)
        failed("Failed to fsync", path);
    return result;
}

std::string signature_to_guid(uint32_t signature)
{
    char guid[guid_size];
    snprintf(guid, sizeof guid, "%08x-0000-0000-0000-000000000000", signature);
    return guid;
}
