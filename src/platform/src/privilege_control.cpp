#include <platform/privilege_control.h>
#include <sys/xattr.h>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

constexpr int PATH_TYPE_WITH_LABEL = 0;

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
    return lsetxattr(path, "security.SMACK64", label, std::strlen(label), 0) == 0 ? 0 : errno;
}

const char* perm_strerror(int result)
{
    return std::strerror(result);
}
