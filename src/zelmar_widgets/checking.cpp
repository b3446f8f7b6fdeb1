// SPDX-License-Identifier: Apache-2.0

#include "checking.h"

#include <platform/widget_registry.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <zelmar_frontend_constants.h>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "executor.h"
#include "failure.h"
#include "front_end.h"
#include "mounted_sticks.h"
#include "widget_paths.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

using ZelmarFrontend::EXTERNAL_STORAGE_ROOT;
using ZelmarFrontend::INSTALLATION_ROOT;

Check failed(const std::string& subject, const Failure& failure)
{
    return {subject, failure.what(), failure.advice()};
}

Check checkProgram()
{
    const std::string tool = toolPath();
    if (access(tool.c_str(), X_OK) != 0) {
        return {"program", systemFailure(errno, tool).what(), "install it there"};
    }
    return {"program", "zelmar-widgets " ZELMAR_VERSION ", " + tool, ""};
}

Check checkKernel()
{
    utsname system = {};
    uname(&system);
    int version = 0;
    int revision = 0;
    std::sscanf(system.release, "%d.%d", &version, &revision);
    const bool tellsOfFailedWrites = version > 5 || (version == 5 && revision >= 8);
    return {"kernel", std::string(system.sysname) + " " + system.release,
            tellsOfFailedWrites ? "" : "use 5.8 or newer: an older one does not tell of writes that failed"};
}

std::string nameOf(int process)
{
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    return name;
}

std::string usersOfDatabase()
{
    std::ostringstream users;
    for (const ZelmarDB::RegistryUser& user : ZelmarDB::registryUsers()) {
        users << " (process " << user.process << ", " << nameOf(user.process)
              << (user.isChanging ? ", holds it)" : ", has it open)");
    }
    return users.str();
}

Check checkDatabase()
{
    const std::string users = usersOfDatabase();
    try {
        const ZelmarDB::RegistryHealth health = ZelmarDB::inspectRegistry();
        return {"database",
                health.place + " is sound, " + health.engine + ", schema version " +
                    std::to_string(health.schemaVersion) + users,
                ""};
    } catch (const ZelmarDB::RegistryError& e) {
        const Failure failure = registryFailure(e);
        return {"database", failure.what() + users, failure.advice()};
    }
}

/** Where the image directories are, or will be. */
std::string existingInstallationRoot()
{
    fs::path directory = INSTALLATION_ROOT;
    std::error_code error;
    while (!fs::exists(directory, error) && directory.has_relative_path()) {
        directory = directory.parent_path();
    }
    return directory;
}

Check checkApps()
{
    const std::string directory = existingInstallationRoot();
    struct statvfs disk = {};
    if (statvfs(directory.c_str(), &disk) != 0) {
        return failed("apps", systemFailure(errno, directory));
    }
    if ((disk.f_flag & ST_RDONLY) != 0) {
        return failed("apps", systemFailure(EROFS, directory));
    }
    if (isDiskFull(directory)) {
        return failed("apps", systemFailure(ENOSPC, directory));
    }
    std::error_code error;
    if (directory == INSTALLATION_ROOT && !fs::is_directory(directory, error)) {
        return failed("apps", systemFailure(ENOTDIR, directory));
    }
    return {"apps", INSTALLATION_ROOT + (directory == INSTALLATION_ROOT ? " has room" : " is made by the first 'add'"),
            ""};
}

Check checkLabels()
{
    const std::string directory = existingInstallationRoot();
    const auto taken = ZelmarDB::takesLabels(directory);
    if (!taken) {
        return {"labels",
                "whether " + directory + " takes them cannot be told" + (geteuid() == 0 ? "" : ", but by root"), ""};
    }
    return {"labels", directory + (*taken ? " takes them" : " takes none"),
            *taken ? "" : "have a file system with extended attributes there, and /proc mounted"};
}

Check checkLog()
{
    return ZelmarDB::isLogKept() ? Check{"log", "somebody keeps its lines", ""}
                                 : Check{"log", "nobody keeps its lines",
                                         "start a syslog daemon: zelmar-frontend tells its reasons nowhere else"};
}

Check checkRoot(const MountedSticks& mounts)
{
    std::error_code error;
    if (!fs::is_directory(EXTERNAL_STORAGE_ROOT, error)) {
        return {"sticks", "no directory " + EXTERNAL_STORAGE_ROOT, "create it, and mount sticks in folders of it"};
    }
    const std::string target = mounts.roots().back();
    return {"sticks",
            EXTERNAL_STORAGE_ROOT + (target == EXTERNAL_STORAGE_ROOT ? "" : ", which is " + target) + ": " +
                std::to_string(mounts.all().size()) + " mounted",
            ""};
}

Check checkStick(const Mount& stick, bool isPulled)
{
    if (isPulled) {
        return {"stick", stick.point + ": its device has gone", "unmount it, then plug it in again"};
    }
    if (!isText(stick.point)) {
        return {"stick", stick.point + " is not UTF-8, so the database cannot hold it", "mount the stick elsewhere"};
    }
    std::error_code error;
    const fs::directory_iterator content(stick.point, error);
    if (error) {
        return failed("stick", systemFailure(error.value(), stick.point));
    }
    return {"stick", stick.point + " (" + stick.type + ") can be read", ""};
}

}  // namespace

void check(const std::function<void(const Check&)>& tell)
{
    tell(checkProgram());
    tell(checkKernel());
    tell(checkDatabase());
    tell(checkApps());
    tell(checkLabels());
    tell(checkLog());
    const MountedSticks mounts;
    tell(checkRoot(mounts));
    for (const Mount& stick : mounts.all()) {
        tell(checkStick(stick, mounts.isPulled(stick.point)));
    }
}

}  // namespace ZelmarWidgets
