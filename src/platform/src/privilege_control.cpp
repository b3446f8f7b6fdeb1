// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <platform/privilege_control.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include "label_attribute.h"

namespace {

constexpr int PATH_TYPE_WITH_LABEL = 0;

/** Labels the open link, not what is at its path by now. Returns 0, or the system's error code. */
int labelLink(int link, const char* label)
{
    struct stat status = {};
    if (fstat(link, &status) != 0) {
        return errno;
    }
    if (!S_ISLNK(status.st_mode)) {
        return EINVAL;
    }
    // The only way to set an attribute through a descriptor opened with O_PATH.
    const std::string openLink = "/proc/self/fd/" + std::to_string(link);
    return setxattr(openLink.c_str(), LABEL_ATTRIBUTE, label, std::strlen(label), 0) == 0 ? 0 : errno;
}

}  // namespace

int perm_app_setup_path(const char*, const char* path, int app_path_type, ...)
{
    if (app_path_type != PATH_TYPE_WITH_LABEL) {
        return EINVAL;
    }
    va_list arguments;
    va_start(arguments, app_path_type);
    const char* label = va_arg(arguments, const char*);
    va_end(arguments);

    // The owner of the folder can replace the link by another file at any moment. So the link is opened once, checked
    // and labelled through its descriptor.
    const int link = open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (link < 0) {
        return errno;
    }
    const int result = labelLink(link, label);
    close(link);
    return result;
}

const char* perm_strerror(int result)
{
    return std::strerror(result);
}
