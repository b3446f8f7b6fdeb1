// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarWidgets {

/**
 * Held by the instance that changes something, for one run of the tool at most. The tool does not use it. A waiting
 * instance holds the queue file, so that the instance that has the lock cannot take it again before the waiting one.
 */
class InstanceLock {
public:
    /** Waits for as long as another instance works. Throws Failure. */
    InstanceLock();
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

private:
    int m_file;
};

}  // namespace ZelmarWidgets
