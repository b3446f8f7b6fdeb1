// SPDX-License-Identifier: Apache-2.0

#include "failure.h"

#include <zelmar_frontend_constants.h>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace ZelmarWidgets {

namespace {

std::string adviceFor(int error)
{
    switch (error) {
        case EACCES:
        case EPERM:
            return "; call it as root";
        case EEXIST:
        case ENOTDIR:
            return "; move away what stands there, then call again";
        case ENOSPC:
            return "; make room, then call again";
        case EROFS:
            return "; make it writable, then call again";
        default:
            return "; remove the cause, then call again";
    }
}

}  // namespace

Failure systemFailure(int error, const std::string& what)
{
    std::string reason = std::strerror(error);
    reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    return {COULD_NOT_WORK, reason + " on " + what + adviceFor(error)};
}

Failure registryFailure(const ZelmarDB::RegistryError& error)
{
    using ZelmarDB::RegistryFault;
    const std::string reason = error.what();
    switch (error.fault()) {
        case RegistryFault::MISSING:
            return {COULD_NOT_WORK, reason + "; 'zelmar-widgets init' creates it"};
        case RegistryFault::FORBIDDEN:
            return {COULD_NOT_WORK, reason + adviceFor(EACCES)};
        case RegistryFault::READ_ONLY:
            return {COULD_NOT_WORK, reason + adviceFor(EROFS)};
        case RegistryFault::HELD:
            return {COULD_NOT_WORK, reason + "; end that process, or call again"};
        case RegistryFault::FULL:
            return {COULD_NOT_WORK, reason + adviceFor(ENOSPC)};
        case RegistryFault::TAKEN:
            return {BAD_COMMAND_LINE, reason + "; choose another, or remove that widget first"};
        case RegistryFault::OLDER_VERSION:
            return {COULD_NOT_WORK, reason + "; install the release that made it"};
        case RegistryFault::NEWER_VERSION:
            return {COULD_NOT_WORK, reason + "; install the release that made it, or a newer one"};
        case RegistryFault::FOREIGN:
        case RegistryFault::DAMAGED:
            return {COULD_NOT_WORK,
                    reason +
                        "; run 'zelmar-widgets init --replace' for an empty one; or, while no process uses it, put "
                        "back widgets.db, widgets.db-wal and widgets.db-shm, and remove what the copy lacks"};
        case RegistryFault::EXHAUSTED:
            return {COULD_NOT_WORK, reason + "; end other processes, then call again"};
        case RegistryFault::INPUT_OUTPUT:
            break;
    }
    return {COULD_NOT_WORK, reason + "; remove the cause ('dmesg' tells of a failing disk), then call again"};
}

Failure unknownWidget(const std::string& identifier)
{
    return {BAD_COMMAND_LINE, "the database knows no widget '" + identifier + "'; 'zelmar-widgets status' lists them"};
}

std::string causeOf(const std::string& code, const std::string& imageDirectory)
{
    if (code.empty()) {
        return "";
    }
    if (code == ZelmarFrontend::ERROR_INSTALL_DIR_NOT_FOUND) {
        return "its image directory " + imageDirectory + " is missing; run 'zelmar-widgets heal'";
    }
    if (code == ZelmarFrontend::ERROR_SYMLINKS_CREATE) {
        return "a link in " + imageDirectory +
               " could not be made or labelled; move away what stands there, or see 'journalctl -t ZELMAR_INSTALLER'; "
               "then call again";
    }
    if (code == ZelmarFrontend::ERROR_UNKNOWN) {
        return "the database took no change: another process has held it too long, or the disk is full; call again";
    }
    if (code == ZelmarFrontend::ERROR_WIDGET_IS_NOT_INSTALLED) {
        return "it has been removed from the database meanwhile; add it again";
    }
    return "the database could not be asked; see 'journalctl -t ZELMAR_INSTALLER', then call again";
}

}  // namespace ZelmarWidgets
