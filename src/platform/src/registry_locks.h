// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>
#include <optional>

// The locks that SQLite takes on the database's files. No connection may be open in this process when they are looked
// at: it would lose its own.
namespace ZelmarDB {

/** Of another process. */
struct RegistryLock {
    pid_t process;
    bool isExclusive;
};

/** One of those of the processes that have the database open; exclusive: nobody else may read or write. */
std::optional<RegistryLock> openLock();

/** That of the process that writes: from before its change is in the log until others can see it. */
std::optional<RegistryLock> writeLock();

}  // namespace ZelmarDB
