// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

// Finds out which sticks are mounted.
namespace ZelmarWidgets {

struct Mount {
    std::string point;
    std::string disk;  // its numbers, "8:1"
    std::string type;  // of the file system
};

/** The mounts in the text of /proc/self/mountinfo, in its order. A mount point may hold any bytes. */
std::vector<Mount> mountsIn(const std::string& mountinfo);

/** What is mounted, as it was when this was made. */
class MountedSticks {
public:
    MountedSticks();

    /** The folders below which everything is a stick's: /opt/storage/usb, and what it resolves to. */
    const std::vector<std::string>& roots() const { return m_roots; }

    /** What is mounted below the roots, pulled or not, the last one first; of several mounts at one point, the upper
     * one. */
    std::vector<Mount> all() const;

    /** The mount points of the sticks that were not pulled, in the same order. */
    std::vector<std::string> mountPoints() const;

    bool isMountPoint(const std::string& path) const;

    /** Whether the disk that the path is on was pulled. It may still be mounted, and files be read from a cache. */
    bool isPulled(const std::string& path) const;

private:
    std::vector<std::string> m_roots;
    std::vector<Mount> m_mounts;
};

/**
 * The stick that an argument MOUNT_POINT of `plug` or `unplug` names: its path with links resolved, as the tool records
 * it. For `unplug`, the path need not exist any more. Throw Failure.
 */
std::string stickToPlug(const std::string& mountPoint);
std::string stickToUnplug(const std::string& mountPoint);

/** Notices each mount and unmount on the system, even if an unmount has followed the mount before it is asked. */
class MountWatch {
public:
    MountWatch();
    ~MountWatch();
    MountWatch(const MountWatch&) = delete;
    MountWatch& operator=(const MountWatch&) = delete;

    /** Whether there were any since the last call, or since the construction. */
    bool changed() const;

private:
    int m_mounts;
};

}  // namespace ZelmarWidgets
