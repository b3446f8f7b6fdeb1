// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <platform/privilege_control.h>
#include <platform/widget_registry.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstring>

constexpr char ATTRIBUTE[] = "security.zelmar";

int perm_app_setup_path(const char*, const char* path, int app_path_type, ...)
{
    va_list arguments;
    va_start(arguments, app_path_type);
    const char* const label = va_arg(arguments, const char*);
    va_end(arguments);
    if (app_path_type != 0) {
        return EINVAL;
    }
    // Labels the link that was opened and checked, even if another file has taken its place at the path since.
    const int link = open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (link < 0) {
        return errno;
    }
    const std::string opened = "/proc/self/fd/" + std::to_string(link);
    struct stat status = {};
    int result = EINVAL;
    if (fstat(link, &status) == 0 && S_ISLNK(status.st_mode)) {
        result = setxattr(opened.c_str(), ATTRIBUTE, label, std::strlen(label), 0) == 0 ? 0 : errno;
    }
    close(link);
    return result;
}

const char* perm_strerror(int result)
{
    return std::strerror(result);
}

bool ZelmarDB::isLabelled(const std::string& link)
{
    char label[2];
    return lgetxattr(link.c_str(), ATTRIBUTE, label, sizeof label) == 1 && label[0] == '_';
}

std::optional<bool> ZelmarDB::takesLabels(const std::string&)
{
    return std::nullopt;  // zelmar-widgets says that it is unknown
}
