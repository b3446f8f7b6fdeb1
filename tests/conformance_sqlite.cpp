// SPDX-License-Identifier: Apache-2.0

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <boost/filesystem.hpp>
#include <fstream>

#include "conformance.h"
#include "widget_db.h"

namespace Conformance {

const std::string FOLDER = "/opt/usr/zelmar", DATABASE_FILE = FOLDER + "/widgets.db";

void makeDatabase()
{
    removeDatabase();
    SQLite::Database(DATABASE_FILE, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec(WIDGET_DB_SQL);
}

bool removeDatabase()
{
    const bool existed = boost::filesystem::exists(DATABASE_FILE);
    boost::filesystem::remove_all(FOLDER);
    boost::filesystem::create_directories(FOLDER);
    return existed;
}

void makeEmptyFile()
{
    removeDatabase();
    std::ofstream(DATABASE_FILE).close();
}

std::shared_ptr<void> lockDatabase()
{
    auto database = std::make_shared<SQLite::Database>(DATABASE_FILE, SQLite::OPEN_READWRITE);
    database->exec("BEGIN IMMEDIATE");
    return database;
}

void breakDatabase()
{
    SQLite::Database(DATABASE_FILE, SQLite::OPEN_READWRITE).exec("DROP TABLE widget");
}

void putWidget(const std::string& tizenAppId, const std::string& kxAppId, bool installedOnUsb)
{
    SQLite::Database database(DATABASE_FILE, SQLite::OPEN_READWRITE);
    SQLite::Statement insert(
        database, "INSERT INTO widget (tizen_app_id, kx_app_id, installed_on_usb) VALUES (?, nullif(?, ''), ?)");
    SQLite::bind(insert, tizenAppId, kxAppId, int(installedOnUsb));
    insert.exec();
}

State readWidget(const std::string& tizenAppId)
{
    SQLite::Database database(DATABASE_FILE);
    SQLite::Statement query(database, "SELECT available, external_storage_path FROM widget WHERE tizen_app_id = ?");
    query.bind(1, tizenAppId);
    query.executeStep();
    const SQLite::Column path = query.getColumn(1);
    return {query.getColumn(0).getInt() == 1, boost::make_optional(!path.isNull(), path.getString())};
}

std::string labelOf(const std::string& path)
{
    char label[100];
    const ssize_t size = lgetxattr(path.c_str(), "security.SMACK64", label, sizeof label);
    return std::string(label, size < 0 ? 0 : static_cast<size_t>(size));
}

std::string takeLog()
{
    static const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    constexpr sockaddr_un address = {AF_UNIX, "/dev/log"};
    // Done by the first call alone.
    static_cast<void>(bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    std::string lines, line(1 << 20, '\0');
    for (ssize_t size; (size = recv(log, line.data(), line.size(), 0)) > 0;) {
        lines.append(line, 0, static_cast<size_t>(size));
    }
    return lines;
}

}  // namespace Conformance
