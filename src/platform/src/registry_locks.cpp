// SPDX-License-Identifier: Apache-2.0

#include "registry_locks.h"

#include <fcntl.h>
#include <unistd.h>
#include <string>

#include "widget_database.h"

namespace ZelmarDB {

namespace {

/** Bytes of a file that SQLite only locks, and never reads or writes. */
struct LockBytes {
    const char* suffix;  // of the file's name
    off_t start;
    off_t length;
};

constexpr LockBytes OPEN_LOCK = {"", 0x40000000, 512};
constexpr LockBytes WRITE_LOCK = {"-shm", 120, 1};

std::optional<RegistryLock> lockOn(const LockBytes& bytes)
{
    const int file = open((std::string(DATABASE_FILE) + bytes.suffix).c_str(), O_RDONLY | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = bytes.start;
    lock.l_len = bytes.length;
    const bool isKnown = fcntl(file, F_GETLK, &lock) == 0;
    close(file);
    if (!isKnown || lock.l_type == F_UNLCK) {
        return std::nullopt;
    }
    return RegistryLock{lock.l_pid, lock.l_type == F_WRLCK};
}

}  // namespace

std::optional<RegistryLock> openLock()
{
    return lockOn(OPEN_LOCK);
}

std::optional<RegistryLock> writeLock()
{
    return lockOn(WRITE_LOCK);
}

}  // namespace ZelmarDB
