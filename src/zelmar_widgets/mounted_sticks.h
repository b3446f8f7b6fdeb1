// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace ZelmarWidgets {

/** What is mounted below /opt/storage/usb, the latest first. */
std::vector<std::string> mountedSticks();

/** Tells of mounts and unmounts anywhere, those too that have cancelled each other out. */
class MountWatch {
public:
    MountWatch();
    ~MountWatch();
    MountWatch(const MountWatch&) = delete;
    MountWatch& operator=(const MountWatch&) = delete;

    /** Whether there were any since it was made or last asked. */
    bool changed() const;

private:
    int m_mounts;
};

/** Whether `path` is `folder` or lies below it, by their components alone: neither has to exist. */
bool leadsInto(const std::string& path, const std::string& folder);

}  // namespace ZelmarWidgets
