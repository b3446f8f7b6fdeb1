// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>
#include <optional>

// The locks that SQLite takes on the database's files. Call these functions only while this process has no connection
// to the database: the connection would lose its own locks.
namespace ZelmarDB {

/** A lock of another process. */
struct RegistryLock {
    pid_t process;
    bool isExclusive;
};

/** The lock of a process that has the database open. Exclusive: no other process may read or write. */
std::optional<RegistryLock> openLock();

/** The lock of the process that writes. It is held from before a change is in the log until others can see it. */
std::optional<RegistryLock> writeLock();

}  // namespace ZelmarDB
