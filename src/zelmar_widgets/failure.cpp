#include "failure.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace ZelmarWidgets {

Failure systemFailure(int error, const std::string& what)
{
    std::string reason = std::strerror(error);
    reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    return {COULD_NOT_WORK, reason + " on " + what + "; " + adviceFor(error)};
}

Failure unknownWidget(const std::string& identifier)
{
    return {BAD_COMMAND_LINE, "the database knows no widget '" + identifier + "'; 'zelmar-widgets status' lists them"};
}

std::string adviceFor(int error)
{
    switch (error) {
        case 0:
            return "restore it, or move it away and run 'zelmar-widgets init'";
        case EACCES:
        case EPERM:
            return "call it as root";
        case EBUSY:
            return "end that process, or call again";
        case EEXIST:
            return "choose another, or remove that widget first";
        case ENOENT:
            return "'zelmar-widgets init' creates it";
        case ENOSPC:
            return "make room, then call again";
        case EROFS:
            return "mount it for writing, then call again";
        default:
            return "mend that, then call again";
    }
}

}  // namespace ZelmarWidgets
