// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <chrono>
#include <climits>
#include <optional>

namespace ZelmarDB {

constexpr char DATABASE_FILE[] = "/opt/usr/zelmar/widgets.db";

/** Throws SQLite::Exception if the tables are not ours, or of another version. */
void requireWidgetDatabase(SQLite::Database& database);

/**
 * A file or folder by which its file system is synced. Open it before the changes: a sync tells only of the writes that
 * failed since then.
 */
class SyncHandle {
public:
    explicit SyncHandle(const char* path);
    ~SyncHandle();
    SyncHandle(const SyncHandle&) = delete;
    SyncHandle& operator=(const SyncHandle&) = delete;

    bool isOpen() const { return m_file >= 0; }

    /** All zeros if fstat fails. */
    struct stat status() const;

    /** Brings all that was written to the file system to the disk. Returns 0, or the system's error code. */
    int syncFileSystem() const;

private:
    const int m_file;
};

/** The widget database, open for reading and writing, and the care of its write-ahead log. */
class WidgetDatabase {
public:
    /** Throws SQLite::Exception if there is no widget database, or if it cannot be read and written. */
    WidgetDatabase();
    WidgetDatabase(const WidgetDatabase&) = delete;
    WidgetDatabase& operator=(const WidgetDatabase&) = delete;

    /** Throws SQLite::Exception. */
    SQLite::Statement prepare(const char* sql) { return SQLite::Statement(m_database, sql); }

    /** To be called after each change: keeps the log short, and safe from power cuts. */
    void tendLog();

    /** Brings what was changed to the disk, rows and links. Returns 0, or the system's error code. */
    int bringToDisk();

private:
    static int waitForLock(void* self, int attempts);
    static int noteCommit(void* self, sqlite3* database, const char* name, int pagesInLog);

    int readInt(const char* sql) { return m_database.execAndGet(sql).getInt(); }
    off_t bytesInLog() const;
    void sync(const SyncHandle& handle);
    int syncAll();
    int foldLog();

    std::chrono::nanoseconds m_waitingBudget;
    SQLite::Database m_database;
    std::optional<SyncHandle> m_log;
    SyncHandle m_links;
    int m_pageBytes = 0;
    int m_pagesJustCommitted = 0;  // all that the log holds after a commit; 0 once tended
    int m_pagesInLog = INT_MAX;
    off_t m_foldAtBytes = 0;
    int m_syncError = 0;  // of the first sync that failed: the system tells of a lost write only once
};

}  // namespace ZelmarDB
