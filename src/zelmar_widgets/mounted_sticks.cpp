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

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

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

}  // namespace

std::vector<std::string> mountedSticks()
{
    std::vector<std::string> sticks;
    std::ifstream mounts(MOUNTS);
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string mountPoint;  // the fifth, after mount, parent, device and root
        fields >> mountPoint >> mountPoint >> mountPoint >> mountPoint >> mountPoint;
        mountPoint = unescaped(mountPoint);
        if (mountPoint != ZelmarFrontend::EXTERNAL_STORAGE_ROOT &&
            leadsInto(mountPoint, ZelmarFrontend::EXTERNAL_STORAGE_ROOT)) {
            sticks.push_back(mountPoint);
        }
    }
    std::reverse(sticks.begin(), sticks.end());
    return sticks;
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

bool leadsInto(const std::string& path, const std::string& folder)
{
    const fs::path normalPath = fs::path(path).lexically_normal();
    const fs::path normalFolder = fs::path(folder).lexically_normal();
    return std::mismatch(normalFolder.begin(), normalFolder.end(), normalPath.begin(), normalPath.end()).first ==
           normalFolder.end();
}

}  // namespace ZelmarWidgets
