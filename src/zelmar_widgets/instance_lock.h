// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarWidgets {

/** Held by the one instance that changes something, against the others. The tool knows nothing of it. */
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
