// SPDX-License-Identifier: Apache-2.0

// The least program that does the tool's job: the same links, labels, rows and durability, and as many log lines. It
// leaves out every query, check, undo and report that the job can be done without. Call it with the tool's arguments:
//   floor --make-available --path STICK -- ID...
//   floor --make-all-unavailable

#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/xattr.h>
#include <syslog.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <exception>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

const std::string APPS = "/opt/usr/apps/";

// Log lines as long as the tool's, with as many arguments to print.
#define LOG(format, ...) \
    syslog(LOG_DEBUG, "%s: %s(%d) > " format, "make_widgets_available_action", __func__, __LINE__, ##__VA_ARGS__)

void must(int result, const char* step)
{
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), step);
    }
}

Strings files(const std::string& id)
{
    return {id + ".img", "widget.info", "config.xml", "config.xml.spm"};
}

/** Runs and commits an update of the widget `id`. */
void change(SQLite::Statement& update, const std::string& id)
{
    update.bindNoCopy(1, id);
    update.exec();
    update.reset();
}

void makeAvailable(SQLite::Database& database, const std::string& stick, const Strings& ids)
{
    LOG("External path: %s", stick.c_str());
    const std::string stickFolder = stick + "/";
    SQLite::Statement setPath(database, "UPDATE widget SET external_storage_path = ?2 WHERE kx_app_id = ?1");
    SQLite::Statement setAvailable(database, "UPDATE widget SET available = 1 WHERE kx_app_id = ?1");
    for (const std::string& id : ids) {
        const std::string imageDir = APPS + id + "_img/", storagePath = stickFolder + id + "_img";
        const std::string contentDir = storagePath + "/";
        LOG("===== Processing widget: %s ======", id.c_str());
        LOG("Path to check: %s", imageDir.c_str());
        LOG("Creating symlinks, pkgId: %s", id.c_str());
        for (const std::string& file : files(id)) {
            const std::string link = imageDir + file, target = contentDir + file;
            LOG("Preparing link: %s ---> %s", target.c_str(), link.c_str());
            must(symlink(target.c_str(), link.c_str()), "symlink");
            LOG("Preaparing smack labels");
            must(lsetxattr(link.c_str(), "security.SMACK64", "_", 1, 0), "lsetxattr");
        }
        setPath.bindNoCopy(2, storagePath);
        change(setPath, id);
        LOG("Updating DB, pkgId: %s", id.c_str());
        change(setAvailable, id);
    }
    LOG("Cleaning...");
}

Strings makeAllUnavailable(SQLite::Database& database)
{
    Strings ids;
    SQLite::Statement available(database, "SELECT kx_app_id FROM widget WHERE available");
    while (available.executeStep()) {
        ids.push_back(available.getColumn(0));
    }
    SQLite::Statement clearPath(database, "UPDATE widget SET external_storage_path = '' WHERE kx_app_id = ?1");
    SQLite::Statement setUnavailable(database, "UPDATE widget SET available = 0 WHERE kx_app_id = ?1");
    for (const std::string& id : ids) {
        const std::string imageDir = APPS + id + "_img/";
        LOG("Dao handle: %s", id.c_str());
        LOG("Path to check: %s", imageDir.c_str());
        change(clearPath, id);
        LOG("Removing symlinks");
        for (const std::string& file : files(id)) {
            must(unlink((imageDir + file).c_str()), "unlink");
            LOG("Symlink has been removed: %s%s", imageDir.c_str(), file.c_str());
        }
        LOG("Updating DB, kxAppId: %s", id.c_str());
        change(setUnavailable, id);
    }
    LOG("Action's clean is not required.");
    return ids;
}

}  // namespace

int main(int argc, char** argv)
try {
    openlog("ZELMAR_INSTALLER", 0, LOG_USER);
    const int apps = open(APPS.c_str(), O_RDONLY);
    SQLite::Database database("/opt/usr/zelmar/widgets.db", SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX);
    sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    database.exec("PRAGMA synchronous = NORMAL; PRAGMA wal_autocheckpoint = 3906; PRAGMA journal_size_limit = 2000000");

    LOG("Parsing command line arguments");
    LOG("Selected action name: %s", argv[1]);
    LOG("Parsing required parameters");
    LOG("Running action");
    Strings ids(argv + std::min(argc, 5), argv + argc);
    if (ids.empty()) {
        ids = makeAllUnavailable(database);
    } else {
        makeAvailable(database, argv[3], ids);
    }
    std::string result;
    for (const std::string& id : ids) {
        result += id + ",SUCCESS:";
    }
    LOG("chosenAction result : %s", result.c_str());
    std::cout << result << std::endl;
    must(syncfs(apps), "syncfs");
    return 0;
} catch (const std::exception& e) {
    std::cerr << e.what() << std::endl;
    return 1;
}
