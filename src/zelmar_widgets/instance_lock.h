// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarWidgets {

/**
 * Held by the one instance that changes something, for one run of the tool at most. The tool knows nothing of it.
 * Whoever waits gets it in turn: an instance that has to wait holds the queue meanwhile, so that the one that has the
 * lock cannot take it again ahead of it.
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
