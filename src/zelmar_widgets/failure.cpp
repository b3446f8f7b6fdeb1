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
            return "call it as root";
        case EEXIST:
        case ENOTDIR:
            return "move away what stands there, then call again";
        case EBUSY:
            return "unmount what is mounted there, then call again";
        case ENOSPC:
        case EDQUOT:
            return "make room, then call again";
        case EROFS:
            return "make it writable, then call again";
        default:
            return "remove the cause, then call again";
    }
}

std::string adviceFor(ZelmarDB::RegistryFault fault)
{
    using ZelmarDB::RegistryFault;
    switch (fault) {
        case RegistryFault::MISSING:
            return "'zelmar-widgets init' creates it";
        case RegistryFault::FORBIDDEN:
            return adviceFor(EACCES);
        case RegistryFault::READ_ONLY:
            return adviceFor(EROFS);
        case RegistryFault::HELD:
            return "end that process, or call again";
        case RegistryFault::FULL:
            return adviceFor(ENOSPC);
        case RegistryFault::TAKEN:
            return "choose another, or remove that widget first";
        case RegistryFault::OLDER_VERSION:
            return "install the release that made it";
        case RegistryFault::NEWER_VERSION:
            return "install the release that made it, or a newer one";
        case RegistryFault::FOREIGN:
        case RegistryFault::DAMAGED:
            return "run 'zelmar-widgets init --replace' for an empty one; or, while no process uses it, put back "
                   "widgets.db, widgets.db-wal and widgets.db-shm, and remove what the copy lacks";
        case RegistryFault::EXHAUSTED:
            return "end other processes, then call again";
        case RegistryFault::INPUT_OUTPUT:
            break;
    }
    return "remove the cause ('dmesg' tells of a failing disk), then call again";
}

}  // namespace

Failure systemFailure(int error, const std::string& what, ExitStatus status)
{
    std::string reason = std::strerror(error);
    reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    return {status, Failure::Kind::SYSTEM, reason + " on " + what, adviceFor(error)};
}

Failure registryFailure(const ZelmarDB::RegistryError& error)
{
    const bool isTaken = error.fault() == ZelmarDB::RegistryFault::TAKEN;
    return {isTaken ? BAD_COMMAND_LINE : COMMAND_FAILED, Failure::Kind::DATABASE, error.what(),
            adviceFor(error.fault())};
}

Failure badCommandLine(const std::string& message, const std::string& advice)
{
    return {BAD_COMMAND_LINE, Failure::Kind::COMMAND_LINE, message, advice};
}

Failure unknownWidget(const std::string& identifier)
{
    return badCommandLine("the database knows no widget '" + identifier + "'", "'zelmar-widgets status' lists them");
}

std::string explanationOf(const std::string& code, const std::string& imageDirectory)
{
    if (code == ZelmarFrontend::ERROR_INSTALL_DIR_NOT_FOUND) {
        return "its image directory " + imageDirectory + " is missing; run 'zelmar-widgets heal'";
    }
    if (code == ZelmarFrontend::ERROR_SYMLINKS_CREATE) {
        return "a link in " + imageDirectory +
               " could not be made or labelled; move away what stands there, or see 'journalctl -t ZELMAR_INSTALLER'; "
               "then call again";
    }
    if (code == ZelmarFrontend::ERROR_UNKNOWN) {
        return "the database could not be changed: another process has held it too long, or the disk is full; call "
               "again";
    }
    if (code == ZelmarFrontend::ERROR_WIDGET_IS_NOT_INSTALLED) {
        return "it has been removed from the database meanwhile; add it again";
    }
    return "the database query failed; see 'journalctl -t ZELMAR_INSTALLER', then call again";
}

}  // namespace ZelmarWidgets
