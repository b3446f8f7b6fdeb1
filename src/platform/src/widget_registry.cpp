// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <platform/dpl.h>
#include <platform/widget_registry.h>
#include <sqlite3.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>

#include "label_attribute.h"
#include "widget_database.h"
#include "widget_db.h"

namespace fs = std::filesystem;

namespace ZelmarDB {

namespace {

constexpr int PATIENCE_SECONDS = 5;
// The suffixes of the database file and of the files that SQLite keeps beside it.
constexpr const char* DATABASE_PARTS[] = {"", "-journal", "-wal", "-shm"};

RegistryFault faultOf(int error)
{
    switch (error) {
        case ENOENT:
            return RegistryFault::MISSING;
        case EACCES:
        case EPERM:
            return RegistryFault::FORBIDDEN;
        case EROFS:
            return RegistryFault::READ_ONLY;
        case ENOSPC:
        case EDQUOT:
            return RegistryFault::FULL;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
            return RegistryFault::EXHAUSTED;
        default:
            return RegistryFault::INPUT_OUTPUT;
    }
}

RegistryError systemError(int error, const std::string& path)
{
    if (error == ENOENT) {
        return {RegistryFault::MISSING, "there is no database " + path};
    }
    std::string reason = std::strerror(error);
    reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    return {faultOf(error), reason + " on " + path};
}

/** `error` is the system's error number, or 0 if SQLite has none. */
RegistryError databaseError(const SQLite::Exception& e, int error, const std::string& file)
{
    switch (e.getErrorCode()) {
        case SQLITE_BUSY:
        case SQLITE_PROTOCOL:  // others kept taking and leaving locks
            return {RegistryFault::HELD,
                    "another process has held the database for " + std::to_string(PATIENCE_SECONDS) + " s"};
        case SQLITE_READONLY:  // the file could be opened, so its folder or its log cannot
            return systemError(access(fs::path(file).parent_path().c_str(), W_OK) == 0 ? EACCES : errno, file);
        case SQLITE_FULL:
            return systemError(ENOSPC, file);
        case SQLITE_NOMEM:
            return systemError(ENOMEM, file);
        case SQLITE_CANTOPEN:
        case SQLITE_IOERR:
            // ENOENT is left over from an earlier call, since the file exists.
            return e.getExtendedErrorCode() == SQLITE_IOERR_NOMEM ? systemError(ENOMEM, file)
                   : error == 0 || error == ENOENT ? RegistryError(RegistryFault::INPUT_OUTPUT, file + ": " + e.what())
                                                   : systemError(error, file);
        case SQLITE_NOTADB:
            return {RegistryFault::FOREIGN, file + ": " + e.what()};
        case SQLITE_CORRUPT:
        case SQLITE_ERROR:  // the table lacks something
            return {RegistryFault::DAMAGED, file + ": " + e.what()};
        default:
            return {RegistryFault::INPUT_OUTPUT, file + ": " + e.what()};
    }
}

/** Throws with the system's reason, which SQLite's text omits. Call it before SQLite opens the file: it drops its
 * locks. */
void requireOpenable(const std::string& file, int flags)
{
    const int handle = open(file.c_str(), flags | O_CLOEXEC, 0644);
    if (handle < 0) {
        throw systemError(errno, file);
    }
    close(handle);
}

/**
 * The URI for SQLite. Without a journal, no process has the database open. It is then read as immutable, so that a user
 * who may not create a log can read it, and one who may does not leave a log behind.
 */
std::string fileToRead()
{
    const std::string file = DATABASE_FILE;
    const bool hasJournal =
        access((file + "-wal").c_str(), F_OK) == 0 || access((file + "-journal").c_str(), F_OK) == 0;
    return "file:" + file + (hasJournal ? "" : "?immutable=1");
}

/** Opens `uri`, which names the file, and calls `use` with it. Throws RegistryError instead of SQLite::Exception. */
template <typename Use>
auto withFile(const std::string& file, const std::string& uri, int flags, Use use)
{
    std::optional<SQLite::Database> database;
    try {
        database.emplace(uri, flags | SQLITE_OPEN_URI, PATIENCE_SECONDS * 1000);
        return use(*database);
    } catch (const SQLite::Exception& e) {
        throw databaseError(e, database ? sqlite3_system_errno(database->getHandle()) : 0, file);
    }
}

void requireVersion(SQLite::Database& database)
{
    const int version = schemaVersion(database);
    if (version != SCHEMA_VERSION) {
        throw RegistryError(version < SCHEMA_VERSION ? RegistryFault::OLDER_VERSION : RegistryFault::NEWER_VERSION,
                            std::string(DATABASE_FILE) + " has schema version " + std::to_string(version) +
                                ", this release has version " + std::to_string(SCHEMA_VERSION));
    }
}

/** Opens the database, checks its schema version, and calls `use` with it. */
template <typename Use>
auto withDatabase(RegistryAccess access, Use use)
{
    const bool change = access == RegistryAccess::CHANGE;
    requireOpenable(DATABASE_FILE, change ? O_RDWR : O_RDONLY);
    const int flags = change ? SQLite::OPEN_READWRITE : SQLite::OPEN_READONLY;
    return withFile(DATABASE_FILE, change ? DATABASE_FILE : fileToRead(), flags, [&](SQLite::Database& database) {
        // The log stays when the database is closed: a reader without write permission needs it.
        sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        requireVersion(database);
        return use(database);
    });
}

void requireSound(SQLite::Database& database)
{
    requireVersion(database);
    const std::string problem = database.execAndGet("PRAGMA integrity_check(1)").getString();
    if (problem != "ok") {
        throw RegistryError(RegistryFault::DAMAGED,
                            std::string(DATABASE_FILE) + ": " + problem.substr(problem.rfind('\n') + 1));
    }
    database.execAndGet("SELECT count(*) FROM widget");  // integrity_check does not notice a missing table
}

/** Whether the text can be an argument of the tool, and a text of the database. */
bool isNameable(const std::string& text)
{
    try {
        DPL::FromUTF8String(text);
    } catch (const std::exception&) {
        return false;
    }
    return text.find('\0') == std::string::npos;
}

bool stands(const std::string& path)
{
    std::error_code unknown;
    return fs::exists(fs::symlink_status(path, unknown));
}

/** The path, with a number added if it exists already. */
std::string unused(const std::string& path)
{
    std::string candidate = path;
    for (int number = 2; stands(candidate); number++) {
        candidate = path + "." + std::to_string(number);
    }
    return candidate;
}

/** Unlike a plain rename, it never replaces a file that another process has just made. */
void rename(const std::string& from, const std::string& to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
        throw systemError(errno, to);
    }
}

/**
 * Moves the database and its journals aside under one name, by which SQLite finds them again. A journal without its
 * database is also moved, since it would damage a new database. Returns the new paths.
 */
std::vector<std::string> setAside()
{
    const std::string file = DATABASE_FILE;
    const bool isThere = stands(file);
    if (!isThere) {
        unlink((file + "-shm").c_str());  // an index of the log; SQLite makes it again when it opens the log
    }
    const std::time_t now = std::time(nullptr);
    std::tm utc = {};
    char date[sizeof "2026-11-23"] = "";
    std::strftime(date, sizeof date, "%Y-%m-%d", gmtime_r(&now, &utc));
    const std::string aside = unused(file + "." + date);

    std::vector<std::string> paths;
    for (const char* part : DATABASE_PARTS) {  // the database first: after a kill, only journals are left
        if (stands(file + part)) {
            paths.push_back(isThere ? aside + part : unused(file + part + ".orphaned"));
            rename(file + part, paths.back());
        }
    }
    return paths;
}

/** An empty database under another name. The constructor removes what a killed process left of another draft. */
class Draft {
public:
    Draft() { removeFiles(); }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    ~Draft() { removeFiles(); }

    /** Writes it to the disk. */
    void write() const
    {
        requireOpenable(m_file, O_RDWR | O_CREAT | O_EXCL);
        withFile(m_file, m_file, SQLite::OPEN_READWRITE, [](SQLite::Database& database) {
            database.exec(WIDGET_DB_SQL);
            database.exec(
                "PRAGMA wal_checkpoint(TRUNCATE)");  // closing the database would do so, but not report a failure
        });
        // Checks the file alone: it is renamed without its log.
        withFile(m_file, "file:" + m_file + "?immutable=1", SQLite::OPEN_READONLY, requireSound);
    }

    const std::string& file() const { return m_file; }

private:
    void removeFiles() const
    {
        for (const char* part : DATABASE_PARTS) {
            unlink((m_file + part).c_str());
        }
    }

    const std::string m_file = std::string(DATABASE_FILE) + ".new";
};

void syncFolder(const std::string& folder)
{
    const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0 || fsync(handle) != 0) {
        const int error = errno;
        close(handle);
        throw systemError(error, folder);
    }
    close(handle);
}

}  // namespace

std::vector<RegisteredWidget> registeredWidgets(RegistryAccess access)
{
    return withDatabase(access, [](SQLite::Database& database) {
        // The plus makes SQLite sort what it has read. In the order of the index, it would read most pages many times.
        SQLite::Statement statement(
            database,
            "SELECT kx_app_id, tizen_app_id, installed_on_usb, available, external_storage_path "
            "FROM widget WHERE kx_app_id IS NOT NULL ORDER BY +kx_app_id");
        std::vector<RegisteredWidget> widgets;
        while (statement.executeStep()) {
            const std::string identifier = statement.getColumn(0).getString();
            const std::string application = statement.getColumn(1).getString();
            if (isNameable(identifier) && isNameable(application)) {
                widgets.push_back({identifier, application, statement.getColumn(2).getInt() != 0,
                                   statement.getColumn(3).getInt() != 0, statement.getColumn(4).getString()});
            }
        }
        return widgets;
    });
}

void registerWidget(const std::string& identifier, const std::string& application, bool onUsb)
{
    withDatabase(RegistryAccess::CHANGE, [&](SQLite::Database& database) {
        SQLite::Statement statement(
            database, "INSERT INTO widget (kx_app_id, tizen_app_id, installed_on_usb) VALUES (?1, ?2, ?3)");
        statement.bind(1, identifier);
        statement.bind(2, application);
        statement.bind(3, onUsb ? 1 : 0);
        try {
            statement.exec();
        } catch (const SQLite::Exception& e) {
            if (e.getExtendedErrorCode() != SQLITE_CONSTRAINT_UNIQUE) {
                throw;
            }
            const bool sameIdentifier = std::strstr(e.what(), "kx_app_id") != nullptr;
            throw RegistryError(RegistryFault::TAKEN,
                                sameIdentifier ? "the database has a widget " + identifier + " already"
                                               : "the application " + application + " belongs to another widget");
        }
    });
}

void unregisterWidget(const std::string& identifier)
{
    withDatabase(RegistryAccess::CHANGE, [&](SQLite::Database& database) {
        SQLite::Statement statement(database, "DELETE FROM widget WHERE kx_app_id = ?1");
        statement.bind(1, identifier);
        statement.exec();
    });
}

RegistryCreation createRegistry(ExistingRegistry existing)
{
    const Draft draft;
    if (existing == ExistingRegistry::KEEP && stands(DATABASE_FILE)) {
        withDatabase(RegistryAccess::CHANGE, requireSound);  // creates a missing log, too
        return {false, {}};
    }
    const std::string folder = fs::path(DATABASE_FILE).parent_path();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw systemError(error.value(), folder);
    }
    draft.write();
    RegistryCreation creation = {true, setAside()};
    syncFolder(folder);  // after a power cut, no old log may stand beside the new database
    rename(draft.file(), DATABASE_FILE);
    syncFolder(folder);
    // Creates the write-ahead log, which a reader without write permission needs.
    withDatabase(RegistryAccess::CHANGE, requireSound);
    return creation;
}

RegistryHealth inspectRegistry()
{
    withDatabase(RegistryAccess::READ, requireSound);
    return {DATABASE_FILE, std::string("SQLite ") + SQLite::getLibVersion(), SCHEMA_VERSION};
}

bool isLabelled(const std::string& link)
{
    char label[2];
    return lgetxattr(link.c_str(), LABEL_ATTRIBUTE, label, sizeof label) == 1 && label[0] == '_';
}

}  // namespace ZelmarDB
