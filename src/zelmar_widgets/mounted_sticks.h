// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace ZelmarWidgets {

struct Mount {
    std::string point;
    std::string device;  // its numbers, "8:1"
    std::string type;    // of the file system
};

/** The lines of /proc/self/mountinfo, whatever bytes a mount point holds, in their order. */
std::vector<Mount> mountsIn(const std::string& mountinfo);

/** What is mounted, as it was when this was made. */
class MountedSticks {
public:
    MountedSticks();

    /** The folders below which everything is a stick's: /opt/storage/usb, and what it resolves to. */
    const std::vector<std::string>& roots() const { return m_roots; }

    /** What is mounted below these, pulled or not, the latest first; of several at one point, the one that shows. */
    std::vector<Mount> all() const;

    /** Where those are that were not pulled. */
    std::vector<std::string> mounted() const;

    bool isMountPoint(const std::string& path) const;

    /** Whether the block device below the path was pulled: its mount point and what is cached of it may still stand. */
    bool isPulled(const std::string& path) const;

private:
    std::vector<std::string> m_roots;
    std::vector<Mount> m_mounts;
};

/** Tells of mounts and unmounts anywhere, even of a mount that has been undone since. */
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

}  // namespace ZelmarWidgets
