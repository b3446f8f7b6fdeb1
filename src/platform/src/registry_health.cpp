// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <platform/widget_registry.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cerrno>

#include "label_attribute.h"
#include "registry_locks.h"

namespace ZelmarDB {

std::vector<RegistryUser> registryUsers()
{
    std::vector<RegistryUser> users;
    const auto reader = openLock();
    const auto writer = writeLock();
    if (reader && !(writer && writer->process == reader->process)) {
        users.push_back({reader->process, reader->isExclusive});
    }
    if (writer) {
        users.push_back({writer->process, true});
    }
    return users;
}

std::optional<bool> takesLabels(const std::string& directory)
{
    // A file without a name is removed when it is closed. If it can be labelled, links can.
    const int file = open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (file < 0) {
        return std::nullopt;
    }
    const std::string openFile = "/proc/self/fd/" + std::to_string(file);
    const int error = setxattr(openFile.c_str(), LABEL_ATTRIBUTE, "_", 1, 0) == 0 ? 0 : errno;
    close(file);
    if (error == EPERM || error == EACCES || error == ENOSPC) {
        return std::nullopt;
    }
    return error == 0;
}

bool isLogKept()
{
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    constexpr sockaddr_un address = {AF_UNIX, "/dev/log"};
    const bool isKept = connect(log, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(log);
    return isKept;
}

}  // namespace ZelmarDB
