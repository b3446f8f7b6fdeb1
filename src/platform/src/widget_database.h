// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <SQLiteCpp/SQLiteCpp.h>
#include <chrono>
#include <string>

namespace ZelmarDB {

constexpr char DATABASE_FILE[] = "/opt/usr/zelmar/widgets.db";

/**
 * The version of the schema that the database has. Throws SQLite::Exception, with SQLITE_NOTADB where it is not a
 * widget database.
 */
int schemaVersion(SQLite::Database& database);

/**
 * A folder whose file system is to be synced. Construct it before the changes: the sync reports only writes that fail
 * after that.
 */
class SyncHandle {
public:
    /** A folder that does not exist needs no sync. Throws SQLite::Exception if an existing one cannot be opened. */
    explicit SyncHandle(const std::string& folder);
    ~SyncHandle();
    SyncHandle(const SyncHandle&) = delete;
    SyncHandle& operator=(const SyncHandle&) = delete;

    bool isOnFileSystemOf(const SyncHandle& other) const;

    /** Brings all that was written to the file system to the disk. Returns 0, or the system's error code. */
    int syncFileSystem() const;

private:
    const int m_folder;
};

/** The widget database, open for reading and writing. */
class WidgetDatabase {
public:
    /** Throws SQLite::Exception if there is no widget database, or if it cannot be read and written. */
    WidgetDatabase();
    WidgetDatabase(const WidgetDatabase&) = delete;
    WidgetDatabase& operator=(const WidgetDatabase&) = delete;

    /** Throws SQLite::Exception. */
    SQLite::Statement prepare(const char* sql) { return SQLite::Statement(m_database, sql); }

    /** Brings the changed links and rows to the disk. Returns 0, or the system's error code. */
    int bringToDisk() const;

private:
    static int waitForLock(void* self, int attempts);

    std::chrono::nanoseconds m_waitingBudget;
    SyncHandle m_linksSync;
    SyncHandle m_databaseSync;
    SQLite::Database m_database;
};

}  // namespace ZelmarDB
