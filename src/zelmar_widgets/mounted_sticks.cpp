// SPDX-License-Identifier: Apache-2.0

#include "mounted_sticks.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <zelmar_frontend_constants.h>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "failure.h"
#include "widget_paths.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

// The kernel follows no more links either.
constexpr int MAX_LINKS = 40;

constexpr char MOUNTS[] = "/proc/self/mountinfo";

/** The kernel writes blanks, tabs, newlines and backslashes of a path as a backslash and three octal digits. */
std::string unescaped(const std::string& field)
{
    std::string path;
    for (std::size_t at = 0; at < field.size(); ++at) {
        if (field[at] == '\\' && at + 3 < field.size()) {
            path += static_cast<char>(std::stoi(field.substr(at + 1, 3), nullptr, 8));
            at += 3;
        } else {
            path += field[at];
        }
    }
    return path;
}

/** Whether the disk was pulled. File systems without a disk, such as tmpfs and FUSE, have the major number 0. */
bool isGone(const Mount& mount)
{
    return mount.disk.rfind("0:", 0) != 0 && access("/sys/dev/block", F_OK) == 0 &&
           access(("/sys/dev/block/" + mount.disk).c_str(), F_OK) != 0;
}

}  // namespace

std::vector<Mount> mountsIn(const std::string& mountinfo)
{
    std::vector<Mount> mounts;
    std::istringstream lines(mountinfo);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string field;
        Mount mount;
        for (int number = 1; std::getline(fields, field, ' ') && field != "-"; ++number) {
            if (number == 3) {
                mount.disk = field;
            } else if (number == 5) {
                mount.point = unescaped(field);
            }
        }
        std::getline(fields, mount.type, ' ');
        mounts.push_back(mount);
    }
    return mounts;
}

MountedSticks::MountedSticks() : m_roots{ZelmarFrontend::EXTERNAL_STORAGE_ROOT}
{
    std::error_code missing;
    const fs::path resolved = fs::canonical(m_roots.front(), missing);
    if (!missing && resolved != m_roots.front()) {
        m_roots.push_back(resolved);
    }
    std::ostringstream mounts;
    mounts << std::ifstream(MOUNTS).rdbuf();
    m_mounts = mountsIn(mounts.str());
}

std::vector<Mount> MountedSticks::all() const
{
    std::vector<Mount> sticks;
    for (auto mount = m_mounts.rbegin(); mount != m_mounts.rend(); ++mount) {
        // The last mount at a point covers those before it.
        const bool isCovered =
            std::any_of(sticks.begin(), sticks.end(), [&](const Mount& stick) { return stick.point == mount->point; });
        if (mount->point != m_roots.back() && leadsInto(mount->point, m_roots.back()) && !isCovered) {
            sticks.push_back(*mount);
        }
    }
    return sticks;
}

std::vector<std::string> MountedSticks::mountPoints() const
{
    std::vector<std::string> sticks;
    for (const Mount& stick : all()) {
        if (!isPulled(stick.point)) {
            sticks.push_back(stick.point);
        }
    }
    return sticks;
}

bool MountedSticks::isMountPoint(const std::string& path) const
{
    return std::any_of(m_mounts.begin(), m_mounts.end(), [&](const Mount& mount) { return mount.point == path; });
}

bool MountedSticks::isPulled(const std::string& path) const
{
    const Mount* innermost = nullptr;
    for (const Mount& mount : m_mounts) {
        if (leadsInto(path, mount.point) && (innermost == nullptr || mount.point.size() >= innermost->point.size())) {
            innermost = &mount;
        }
    }
    return innermost != nullptr && isGone(*innermost);
}

std::string stickToUnplug(const std::string& mountPoint)
{
    std::error_code error;
    fs::path path = fs::absolute(mountPoint, error).lexically_normal();
    if (error || path.empty()) {
        throw badCommandLine("no mount point: '" + mountPoint + "'", "name a directory");
    }
    const auto withoutSlash = [](const fs::path& some) {
        return some.has_filename() ? some : some.parent_path();
    };
    path = withoutSlash(path);
    // A link may still be there when the mount point that it leads to is not.
    for (int links = 0; links < MAX_LINKS && fs::is_symlink(fs::symlink_status(path, error)); ++links) {
        path = path.parent_path() / fs::read_symlink(path, error);
    }
    const fs::path resolved = fs::weakly_canonical(path, error);
    return withoutSlash(error ? path : resolved);
}

std::string stickToPlug(const std::string& mountPoint)
{
    std::error_code error;
    const fs::path stick = fs::canonical(mountPoint, error);
    if (error == std::errc::no_such_file_or_directory || (!error && !fs::is_directory(stick, error))) {
        throw badCommandLine("no directory: '" + mountPoint + "'", "name the one where the stick is mounted");
    }
    if (error) {
        throw systemFailure(error.value(), mountPoint, SOME_WIDGET_WRONG);
    }
    if (!isText(stick)) {
        throw badCommandLine(stick.string() + " is not UTF-8, so the database cannot hold it",
                             "mount the stick elsewhere");
    }
    return stick;
}

MountWatch::MountWatch() : m_mounts(open(MOUNTS, O_RDONLY | O_CLOEXEC)) {}

MountWatch::~MountWatch()
{
    close(m_mounts);
}

bool MountWatch::changed() const
{
    pollfd mounts{m_mounts, POLLPRI, 0};
    return poll(&mounts, 1, 0) > 0 && (mounts.revents & POLLPRI) != 0;
}

}  // namespace ZelmarWidgets
