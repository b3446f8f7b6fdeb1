// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <platform/dpl.h>
#include <platform/widget_registry.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "label_attribute.h"
#include "widget_database.h"
#include "widget_db.h"

namespace fs = std::filesystem;

namespace ZelmarDB {

namespace {

constexpr int PATIENCE_SECONDS = 5;

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

RegistryError databaseError(const SQLite::Exception& e)
{
    switch (e.getErrorCode()) {
        case SQLITE_BUSY:
            return {RegistryFault::HELD,
                    "another process has held the database for " + std::to_string(PATIENCE_SECONDS) + " s"};
        case SQLITE_FULL:
            return systemError(ENOSPC, DATABASE_FILE);
        default:
            return {RegistryFault::DAMAGED, std::string(DATABASE_FILE) + ": " + e.what()};
    }
}

/**
 * The URI for SQLite. Without a write-ahead log, no process has the database open: who may not make a log then reads
 * the database as immutable, since SQLite would refuse it otherwise.
 */
std::string readableFile()
{
    const std::string file = DATABASE_FILE;
    const bool hasLog = access((file + "-wal").c_str(), F_OK) == 0;
    const bool mayMakeLog = access(fs::path(file).parent_path().c_str(), W_OK) == 0;
    return "file:" + file + (hasLog || mayMakeLog ? "" : "?immutable=1");
}

/** The database, found to be one of ours. Throws RegistryError and SQLite::Exception. */
SQLite::Database openDatabase(RegistryAccess access)
{
    const bool change = access == RegistryAccess::CHANGE;
    // SQLite's own text omits the system's reason.
    if (faccessat(AT_FDCWD, DATABASE_FILE, change ? R_OK | W_OK : R_OK, AT_EACCESS) != 0) {
        throw systemError(errno, DATABASE_FILE);
    }
    SQLite::Database database(readableFile(),
                              (change ? SQLite::OPEN_READWRITE : SQLite::OPEN_READONLY) | SQLITE_OPEN_URI,
                              PATIENCE_SECONDS * 1000);
    // The log stays at the end: who may only read the database needs it.
    sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    requireWidgetDatabase(database);
    return database;
}

/** Whether the tool can take it: as a word of its command line, and as text of the database. */
bool isNameable(const std::string& text)
{
    try {
        DPL::FromUTF8String(text);
    } catch (const std::exception&) {
        return false;
    }
    return text.find('\0') == std::string::npos;
}

}  // namespace

std::vector<RegisteredWidget> registeredWidgets(RegistryAccess access)
{
    try {
        SQLite::Database database = openDatabase(access);
        SQLite::Statement statement(
            database,
            "SELECT kx_app_id, tizen_app_id, installed_on_usb, available, external_storage_path "
            "FROM widget WHERE kx_app_id IS NOT NULL ORDER BY kx_app_id");
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
    } catch (const SQLite::Exception& e) {
        throw databaseError(e);
    }
}

void registerWidget(const std::string& identifier, const std::string& application, bool onUsb)
{
    try {
        SQLite::Database database = openDatabase(RegistryAccess::CHANGE);
        SQLite::Statement statement(
            database, "INSERT INTO widget (kx_app_id, tizen_app_id, installed_on_usb) VALUES (?1, ?2, ?3)");
        statement.bind(1, identifier);
        statement.bind(2, application);
        statement.bind(3, onUsb ? 1 : 0);
        statement.exec();
    } catch (const SQLite::Exception& e) {
        if (e.getExtendedErrorCode() == SQLITE_CONSTRAINT_UNIQUE) {
            const bool sameIdentifier = std::strstr(e.what(), "kx_app_id") != nullptr;
            throw RegistryError(RegistryFault::TAKEN,
                                sameIdentifier ? "the database has a widget " + identifier + " already"
                                               : "the application " + application + " belongs to another widget");
        }
        throw databaseError(e);
    }
}

void unregisterWidget(const std::string& identifier)
{
    try {
        SQLite::Database database = openDatabase(RegistryAccess::CHANGE);
        SQLite::Statement statement(database, "DELETE FROM widget WHERE kx_app_id = ?1");
        statement.bind(1, identifier);
        statement.exec();
    } catch (const SQLite::Exception& e) {
        throw databaseError(e);
    }
}

void createRegistry()
{
    const fs::path folder = fs::path(DATABASE_FILE).parent_path();
    const std::string draft = std::string(DATABASE_FILE) + ".new";
    if (access(DATABASE_FILE, F_OK) == 0) {
        return;
    }
    try {
        fs::create_directories(folder);
        fs::remove(draft);
        SQLite::Database(draft, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec(WIDGET_DB_SQL);
        // Unlike a renaming, a link never takes the place of a database that another process has made meanwhile.
        const int error = link(draft.c_str(), DATABASE_FILE) == 0 ? 0 : errno;
        fs::remove(draft);
        if (error != 0 && error != EEXIST) {
            throw systemError(error, DATABASE_FILE);
        }
        const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        fsync(handle);
        close(handle);
        // Makes the write-ahead log, for readers who may not make one themselves.
        openDatabase(RegistryAccess::CHANGE).execAndGet("SELECT count(*) FROM widget");
    } catch (const fs::filesystem_error& e) {
        throw systemError(e.code().value(), e.path1());
    } catch (const SQLite::Exception& e) {
        throw databaseError(e);
    }
}

RegistryHealth inspectRegistry()
{
    try {
        SQLite::Database database = openDatabase(RegistryAccess::READ);
        const std::string problem = database.execAndGet("PRAGMA quick_check(1)").getString();
        if (problem != "ok") {
            throw RegistryError(RegistryFault::DAMAGED, std::string(DATABASE_FILE) + ": " + problem);
        }
        return {DATABASE_FILE, std::string("SQLite ") + SQLite::getLibVersion(), SCHEMA_VERSION};
    } catch (const SQLite::Exception& e) {
        throw databaseError(e);
    }
}

bool isLabelled(const std::string& link)
{
    char label[2];
    return lgetxattr(link.c_str(), LABEL_ATTRIBUTE, label, sizeof label) == 1 && label[0] == '_';
}

}  // namespace ZelmarDB
