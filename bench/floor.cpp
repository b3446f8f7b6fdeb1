// SPDX-License-Identifier: Apache-2.0

// The least program that does the tool's job: the same links, labels, rows, durability and number of log lines, with
// nothing asked, checked, undone or reported that the job can be done without. Takes the tool's words, in this order:
//   floor --make-available --path STICK [--] ID...
//   floor --make-all-unavailable

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/xattr.h>
#include <syslog.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

namespace {

const std::string APPS = "/opt/usr/apps/";
const std::string METADATA_FILES[] = {"widget.info", "config.xml", "config.xml.spm"};

sqlite3* database;
int appsFolder;
bool changed;

void must(bool done, const char* step)
{
    if (!done) {
        std::cerr << step << ": " << std::strerror(errno) << ", " << sqlite3_errmsg(database) << std::endl;
        std::exit(1);
    }
}

// As long as the tool's lines are, and with as many arguments to print.
#define LOG(format, ...) \
    syslog(LOG_DEBUG, "%s: %s(%d) > " format, "make_widgets_available_action", __func__, __LINE__, ##__VA_ARGS__)

class Statement {
public:
    explicit Statement(const char* sql)
    {
        must(sqlite3_prepare_v2(database, sql, -1, &m_statement, nullptr) == 0, sql);
    }
    ~Statement() { sqlite3_finalize(m_statement); }

    /** Runs and commits an update of the widget `id`, with `value` for ?2 if the statement has one. */
    void update(const std::string& id, const std::string& value = "")
    {
        sqlite3_bind_text(m_statement, 1, id.data(), static_cast<int>(id.size()), SQLITE_STATIC);
        sqlite3_bind_text(m_statement, 2, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
        must(sqlite3_step(m_statement) == SQLITE_DONE, "update");
        sqlite3_reset(m_statement);
        changed = true;
    }

    bool next() { return sqlite3_step(m_statement) == SQLITE_ROW; }
    std::string text() { return reinterpret_cast<const char*>(sqlite3_column_text(m_statement, 0)); }

private:
    sqlite3_stmt* m_statement = nullptr;
};

void openDatabase()
{
    appsFolder = open(APPS.c_str(), O_RDONLY);
    must(sqlite3_open_v2("/opt/usr/zelmar/widgets.db", &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK, "open");
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    const char* care =
        "PRAGMA synchronous = NORMAL; PRAGMA wal_autocheckpoint = 3906; PRAGMA journal_size_limit = 2000000";
    must(sqlite3_exec(database, care, nullptr, nullptr, nullptr) == SQLITE_OK, care);
}

void closeDatabase()
{
    must(!changed || syncfs(appsFolder) == 0, "syncfs");
    sqlite3_close(database);
}

void placeLink(const std::string& target, const std::string& link)
{
    LOG("Preparing link: %s ---> %s", target.c_str(), link.c_str());
    if (symlink(target.c_str(), link.c_str()) != 0) {
        must(errno == EEXIST && unlink(link.c_str()) == 0 && symlink(target.c_str(), link.c_str()) == 0, "symlink");
    }
    LOG("Preaparing smack labels");
    must(lsetxattr(link.c_str(), "security.SMACK64", "_", 1, 0) == 0, "lsetxattr");
}

void removeLink(const std::string& link)
{
    must(unlink(link.c_str()) == 0, "unlink");
    LOG("Symlink has been removed: %s", link.c_str());
}

void makeAvailable(const std::string& stick, const std::vector<std::string>& ids)
{
    Statement setPath("UPDATE widget SET external_storage_path = ?2 WHERE kx_app_id = ?1");
    Statement setAvailable("UPDATE widget SET available = 1 WHERE kx_app_id = ?1");
    const std::string stickFolder = stick + "/";
    for (const std::string& id : ids) {
        const std::string place = APPS + id + "_img/";
        const std::string storagePath = stickFolder + id + "_img";
        const std::string content = storagePath + "/";
        LOG("===== Processing widget: %s ======", id.c_str());
        LOG("Path to check: %s", place.c_str());
        LOG("Creating symlinks, pkgId: %s", id.c_str());
        placeLink(content + id + ".img", place + id + ".img");
        for (const std::string& file : METADATA_FILES) {
            placeLink(content + file, place + file);
        }
        setPath.update(id, storagePath);
        LOG("Updating DB, pkgId: %s", id.c_str());
        setAvailable.update(id);
    }
}

std::vector<std::string> makeAllUnavailable()
{
    std::vector<std::string> ids;
    Statement available("SELECT kx_app_id FROM widget WHERE available");
    while (available.next()) {
        ids.push_back(available.text());
    }
    Statement clearPath("UPDATE widget SET external_storage_path = '' WHERE kx_app_id = ?1");
    Statement setUnavailable("UPDATE widget SET available = 0 WHERE kx_app_id = ?1");
    for (const std::string& id : ids) {
        const std::string place = APPS + id + "_img/";
        LOG("Dao handle: %s", id.c_str());
        LOG("Path to check: %s", place.c_str());
        clearPath.update(id);
        LOG("Removing symlinks");
        removeLink(place + id + ".img");
        for (const std::string& file : METADATA_FILES) {
            removeLink(place + file);
        }
        LOG("Updating DB, kxAppId: %s", id.c_str());
        setUnavailable.update(id);
    }
    return ids;
}

}  // namespace

int main(int argc, char** argv)
{
    openlog("ZELMAR_INSTALLER", 0, LOG_USER);
    openDatabase();
    LOG("Parsing command line arguments");
    if (argc < 2) {
        return 0;
    }
    LOG("Selected action name: %s", argv[1]);
    std::vector<std::string> ids;
    if (std::strcmp(argv[1], "--make-available") == 0) {
        LOG("Parsing required parameters");
        LOG("External path: %s", argv[3]);
        LOG("Running action: %s", "make-available");
        ids.assign(argv + 5, argv + argc);
        makeAvailable(argv[3], ids);
        LOG("Cleaning...");
    } else {
        LOG("Running action: %s", "make-unavailable");
        ids = makeAllUnavailable();
        // Once for the action, once for the one that it runs inside.
        LOG("Action's clean is not required.");
        LOG("Action's clean is not required.");
    }
    std::string result;
    for (const std::string& id : ids) {
        result += id + ",SUCCESS:";
    }
    LOG("chosenAction result : %s", result.c_str());
    std::cout << result << std::endl;
    closeDatabase();
    return 0;
}
