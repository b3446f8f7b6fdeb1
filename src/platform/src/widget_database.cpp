// SPDX-License-Identifier: Apache-2.0

#include "widget_database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "widget_db.h"

namespace ZelmarDB {

namespace {

constexpr char LINKS_ROOT[] = "/opt/usr/apps";

// How long a whole run waits for other processes' locks: the waits of many widgets must not add up.
constexpr std::chrono::seconds WAITING_BUDGET(5);
constexpr std::chrono::milliseconds WAITING_STEP(1);

// Bytes of pages in the write-ahead log at which SQLite folds it into the database. With headers, about 2 MiB of log.
constexpr int LOG_BYTES = 2000000;

/** Throws with the system's reason, which SQLite's text omits, if the file cannot be read and written. */
const char* accessible(const char* file)
{
    if (faccessat(AT_FDCWD, file, R_OK | W_OK, AT_EACCESS) != 0) {
        throw SQLite::Exception(std::strerror(errno));
    }
    return file;
}

}  // namespace

int schemaVersion(SQLite::Database& database)
{
    if (database.execAndGet("PRAGMA application_id").getInt() != APPLICATION_ID) {
        throw SQLite::Exception("not a widget database", SQLITE_NOTADB);
    }
    return database.execAndGet("PRAGMA user_version").getInt();
}

SyncHandle::SyncHandle(const std::string& folder) : m_folder(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (m_folder < 0 && errno != ENOENT) {
        throw SQLite::Exception(folder + ": " + std::strerror(errno));
    }
}

SyncHandle::~SyncHandle()
{
    if (m_folder >= 0) {
        close(m_folder);
    }
}

bool SyncHandle::isOnFileSystemOf(const SyncHandle& other) const
{
    struct stat mine = {}, others = {};
    return fstat(m_folder, &mine) == 0 && fstat(other.m_folder, &others) == 0 && mine.st_dev == others.st_dev;
}

int SyncHandle::syncFileSystem() const
{
    return m_folder < 0 || syncfs(m_folder) == 0 ? 0 : errno;
}

WidgetDatabase::WidgetDatabase()
    : m_waitingBudget(WAITING_BUDGET),
      m_linksSync(LINKS_ROOT),
      m_databaseSync(std::filesystem::path(DATABASE_FILE).parent_path()),
      // One thread uses the connection, so it needs no mutex.
      m_database(accessible(DATABASE_FILE), SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX)
{
    sqlite3* const database = m_database.getHandle();
    sqlite3_busy_handler(database, &waitForLock, this);
    // The log stays when the database is closed: a reader without write permission needs it, and the run saves the time
    // to fold it.
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);

    const int version = schemaVersion(m_database);
    if (version != SCHEMA_VERSION) {
        throw SQLite::Exception("schema version " + std::to_string(version) + " instead of " +
                                std::to_string(SCHEMA_VERSION));
    }
    if (m_database.execAndGet("PRAGMA journal_mode = WAL").getString() != "wal") {
        throw SQLite::Exception("no write-ahead log");
    }
    // SQLite syncs when it folds the log or starts it anew, so that a power cut never damages the database. It does not
    // sync a commit; bringToDisk does that.
    m_database.exec("PRAGMA synchronous = NORMAL");
    sqlite3_wal_autocheckpoint(database, LOG_BYTES / m_database.execAndGet("PRAGMA page_size").getInt());
    // A log that grew longer, since another process read an old state, is cut when it is started anew.
    m_database.exec("PRAGMA journal_size_limit = " + std::to_string(LOG_BYTES));
    // Each row is visited once, so a cache of 256 KiB is enough; SQLite's default is 2 MB.
    m_database.exec("PRAGMA cache_size = -256");
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

int WidgetDatabase::bringToDisk() const
{
    // Links first: no row may reach the disk here before the links that it relies on.
    const int linksError = m_linksSync.isOnFileSystemOf(m_databaseSync) ? 0 : m_linksSync.syncFileSystem();
    const int databaseError = m_databaseSync.syncFileSystem();
    return linksError != 0 ? linksError : databaseError;
}

}  // namespace ZelmarDB
