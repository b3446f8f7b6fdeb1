// SPDX-License-Identifier: Apache-2.0

#include "widget_database.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include "widget_db.h"

namespace ZelmarDB {

namespace {

constexpr char LINKS_ROOT[] = "/opt/usr/apps";

// For other processes' locks, in the whole run: the waits of many widgets must not add up.
constexpr std::chrono::seconds WAITING_BUDGET(5);
constexpr std::chrono::milliseconds WAITING_STEP(1);

// When the log holds this much it is folded; a fold that failed is tried again a step later. So a run needs some 8 MiB
// of the disk for the log, and leaves at most 2 MiB.
constexpr off_t LOG_LIMIT_DURING_RUN = 7 << 20;
constexpr off_t LOG_LIMIT_AFTER_RUN = 2 << 20;
constexpr off_t LOG_STEP_BETWEEN_FOLDS = 1 << 20;
constexpr off_t LOG_HEADER_BYTES = 32;
constexpr int LOG_PAGE_HEADER_BYTES = 24;

/** Throws the system's reason if the file cannot be read and written; SQLite's own text omits it. */
const char* accessible(const char* file)
{
    if (faccessat(AT_FDCWD, file, R_OK | W_OK, AT_EACCESS) != 0) {
        throw SQLite::Exception(std::strerror(errno));
    }
    return file;
}

}  // namespace

void requireWidgetDatabase(SQLite::Database& database)
{
    if (database.execAndGet("PRAGMA application_id").getInt() != APPLICATION_ID) {
        throw SQLite::Exception("not a widget database");
    }
    const int version = database.execAndGet("PRAGMA user_version").getInt();
    if (version != SCHEMA_VERSION) {
        throw SQLite::Exception("schema version " + std::to_string(version) + " instead of " +
                                std::to_string(SCHEMA_VERSION));
    }
}

SyncHandle::SyncHandle(const char* path) : m_file(open(path, O_RDONLY | O_CLOEXEC)) {}

SyncHandle::~SyncHandle()
{
    if (isOpen()) {
        close(m_file);
    }
}

struct stat SyncHandle::status() const
{
    struct stat status = {};
    fstat(m_file, &status);
    return status;
}

int SyncHandle::syncFileSystem() const
{
    return syncfs(m_file) == 0 ? 0 : errno;
}

WidgetDatabase::WidgetDatabase()
    : m_waitingBudget(WAITING_BUDGET),
      // One thread uses it, so SQLite's own locks would only cost.
      m_database(accessible(DATABASE_FILE), SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX),
      m_links(LINKS_ROOT)
{
    sqlite3* const database = m_database.getHandle();
    sqlite3_busy_handler(database, &waitForLock, this);
    sqlite3_wal_hook(database, &noteCommit, this);
    // The log stays when the database is closed: a reader without write permission needs it, and no run pays for a
    // fold.
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);

    requireWidgetDatabase(m_database);
    if (m_database.execAndGet("PRAGMA journal_mode = WAL").getString() != "wal") {
        throw SQLite::Exception("no write-ahead log");
    }
    // A commit only writes to the log; tendLog and bringToDisk see to the disk.
    m_database.exec("PRAGMA synchronous = OFF");
    // Each row is visited once, so a cache of 256 KiB is enough; SQLite's default is 2 MB.
    m_database.exec("PRAGMA cache_size = -256");
    m_pageBytes = LOG_PAGE_HEADER_BYTES + readInt("PRAGMA page_size");
    // The log, not the database: closing a descriptor of the database would drop SQLite's locks on it.
    m_log.emplace(sqlite3_filename_wal(sqlite3_db_filename(database, "main")));
}

int WidgetDatabase::waitForLock(void* self, int)
{
    auto& budget = static_cast<WidgetDatabase*>(self)->m_waitingBudget;
    if (budget <= budget.zero()) {
        return 0;
    }
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(WAITING_STEP);
    budget -= std::chrono::steady_clock::now() - start;
    return 1;
}

int WidgetDatabase::noteCommit(void* self, sqlite3*, const char*, int pagesInLog)
{
    static_cast<WidgetDatabase*>(self)->m_pagesJustCommitted = pagesInLog;
    return SQLITE_OK;
}

off_t WidgetDatabase::bytesInLog() const
{
    return LOG_HEADER_BYTES + off_t(m_pagesInLog) * m_pageBytes;
}

void WidgetDatabase::sync(const SyncHandle& handle)
{
    const int error = handle.syncFileSystem();
    if (m_syncError == 0) {
        m_syncError = error;
    }
}

int WidgetDatabase::syncAll()
{
    // Links first: no row may reach the disk here before the links that it relies on.
    if (m_links.isOpen() && m_links.status().st_dev != m_log->status().st_dev) {
        sync(m_links);
    }
    sync(*m_log);
    return m_syncError;
}

int WidgetDatabase::foldLog()
{
    // The copy overwrites the database: the links and the whole log must be on the disk before it.
    if (const int error = syncAll()) {
        return error;
    }
    // Copies what no other process still reads, without waiting. If that fails, the log stays as it is.
    const auto budget = std::exchange(m_waitingBudget, m_waitingBudget.zero());
    m_database.tryExec("PRAGMA synchronous = NORMAL");
    sqlite3_wal_checkpoint_v2(m_database.getHandle(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    m_database.tryExec("PRAGMA synchronous = OFF");
    m_waitingBudget = budget;
    return 0;
}

void WidgetDatabase::tendLog()
{
    const int pages = std::exchange(m_pagesJustCommitted, 0);
    if (pages == 0) {  // the row was like this before, so nothing was written
        return;
    }
    if (std::exchange(m_pagesInLog, pages) >= pages) {  // the log was started anew, or this is the first change
        m_foldAtBytes = LOG_LIMIT_DURING_RUN;
        // Older frames follow the new ones in the file, and could read as valid after a power cut. So the log's new
        // head is synced before the next change; bringToDisk returns a failure.
        if (m_log->status().st_size > bytesInLog()) {
            sync(*m_log);
        }
    }
    if (bytesInLog() >= m_foldAtBytes) {
        foldLog();
        m_foldAtBytes = bytesInLog() + LOG_STEP_BETWEEN_FOLDS;
    }
}

int WidgetDatabase::bringToDisk()
{
    // Counts rows written with the values they had, too: their links may have changed.
    if (m_database.getTotalChanges() == 0) {
        return 0;
    }
    return m_log->status().st_size > LOG_LIMIT_AFTER_RUN ? foldLog() : syncAll();
}

}  // namespace ZelmarDB
