// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace ZelmarFrontend {

/** Holds the running thread's attachment to the widget database; to be destroyed on the same thread. */
class DbConnectionWrapper {
public:
    DbConnectionWrapper() = default;
    DbConnectionWrapper(const DbConnectionWrapper&) = delete;
    DbConnectionWrapper& operator=(const DbConnectionWrapper&) = delete;

    /** Detaches, if this object attached; a failure is only logged. */
    virtual ~DbConnectionWrapper();

    /** Attaches the thread for reading and writing. False, with the reason in the log, if that fails; never throws. */
    bool attachToThread();

private:
    bool m_attached = false;
};

}  // namespace ZelmarFrontend
