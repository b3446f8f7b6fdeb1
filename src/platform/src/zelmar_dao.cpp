#include <SQLiteCpp/SQLiteCpp.h>
#include <platform/zelmar_dao.h>
#include <sqlite3.h>
#include <unistd.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace ZelmarDB {

namespace {

constexpr char DATABASE_FILE[] = "/opt/usr/zelmar/widgets.db";
constexpr int APPLICATION_ID = 0x5a4b5857;  // as widget_db.sql sets it
constexpr int SCHEMA_VERSION = 1;
constexpr int BUSY_TIMEOUT_MS = 5000;

// The write-ahead log takes at most 8 MiB of the device: when it holds this much, it is copied into the database. Each
// page in it has a header.
constexpr int LOG_LIMIT_BYTES = 7 << 20;
constexpr int LOG_PAGE_HEADER_BYTES = 24;

enum Query {
    FIND_BY_KX_APP_ID,
    FIND_BY_TIZEN_APP_ID,
    LIST_AVAILABLE,
    READ_TIZEN_APP_ID,
    READ_KX_APP_ID,
    READ_INSTALLED_ON_USB,
    SET_AVAILABLE,
    SET_EXTERNAL_STORAGE_PATH,
    QUERY_COUNT
};

struct QueryText {
    const char* purpose;
    const char* sql;
};

constexpr QueryText QUERIES[QUERY_COUNT] = {
    {"Find a widget by its KxAppId", "SELECT tizen_app_id FROM widget WHERE kx_app_id = ?1"},
    {"Find a widget by its TizenAppId", "SELECT handle FROM widget WHERE tizen_app_id = ?1"},
    {"List the available widgets", "SELECT handle FROM widget WHERE available ORDER BY handle"},
    {"Read a widget's TizenAppId", "SELECT tizen_app_id FROM widget WHERE handle = ?1"},
    {"Read a widget's KxAppId", "SELECT kx_app_id FROM widget WHERE handle = ?1"},
    {"Read a widget's kind of storage", "SELECT installed_on_usb FROM widget WHERE handle = ?1"},
    {"Set a widget's availability", "UPDATE widget SET available = ?2 WHERE tizen_app_id = ?1"},
    {"Set a widget's external storage path", "UPDATE widget SET external_storage_path = ?2 WHERE tizen_app_id = ?1"},
};

/** The open database; throws SQLite::Exception. */
class Connection {
public:
    Connection();

    /** Prepared at its first use. */
    SQLite::Statement& statement(Query query);

    /** Brings what this connection wrote to the disk, whoever else has the database open. Returns SQLite's code. */
    int syncLog();

private:
    int readInt(const char* sql) { return m_database.execAndGet(sql).getInt(); }

    SQLite::Database m_database;
    std::array<std::optional<SQLite::Statement>, QUERY_COUNT> m_statements;
};

/** The database's path. Throws the system's reason if it cannot be read and written; SQLite's own text omits it. */
const char* accessibleDatabaseFile()
{
    if (access(DATABASE_FILE, R_OK | W_OK) != 0) {
        throw SQLite::Exception(std::strerror(errno));
    }
    return DATABASE_FILE;
}

Connection::Connection() : m_database(accessibleDatabaseFile(), SQLite::OPEN_READWRITE, BUSY_TIMEOUT_MS)
{
    if (readInt("PRAGMA application_id") != APPLICATION_ID) {
        throw SQLite::Exception("not a widget database");
    }
    const int version = readInt("PRAGMA user_version");
    if (version != SCHEMA_VERSION) {
        throw SQLite::Exception("schema version " + std::to_string(version) + " instead of " +
                                std::to_string(SCHEMA_VERSION));
    }
    if (m_database.execAndGet("PRAGMA journal_mode = WAL").getString() != "wal") {
        throw SQLite::Exception("no write-ahead log");
    }
    // A commit only writes to the log; SQLite syncs when it copies the log into the database, and syncLog does.
    m_database.exec("PRAGMA synchronous = NORMAL");
    // Each row is visited once, in passing; SQLite would keep 2 MB of them.
    m_database.exec("PRAGMA cache_size = -256");
    const int logPages = LOG_LIMIT_BYTES / (readInt("PRAGMA page_size") + LOG_PAGE_HEADER_BYTES);
    m_database.exec("PRAGMA wal_autocheckpoint = " + std::to_string(logPages));
}

SQLite::Statement& Connection::statement(Query query)
{
    std::optional<SQLite::Statement>& statement = m_statements[query];
    if (!statement) {
        statement.emplace(m_database, QUERIES[query].sql);
    }
    return *statement;
}

int Connection::syncLog()
{
    if (m_database.getTotalChanges() == 0) {
        return SQLITE_OK;
    }
    sqlite3_file* log = nullptr;
    const int code = sqlite3_file_control(m_database.getHandle(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    return code == SQLITE_OK ? log->pMethods->xSync(log, SQLITE_SYNC_NORMAL) : code;
}

thread_local std::unique_ptr<Connection> t_connection;

/** Resets the statement at the end of the scope, and with that gives back the locks it took. */
class ResetAtEnd {
public:
    explicit ResetAtEnd(SQLite::Statement& statement) : m_statement(statement) {}
    ResetAtEnd(const ResetAtEnd&) = delete;
    ResetAtEnd& operator=(const ResetAtEnd&) = delete;
    ~ResetAtEnd() { m_statement.tryReset(); }

private:
    SQLite::Statement& m_statement;
};

/** Gives the query's statement to `use` and returns what that makes of it. Every database failure leaves from here. */
template <typename Function>
auto ask(Query query, Function use)
{
    try {
        if (!t_connection) {
            throw SQLite::Exception("the thread is not attached to the database");
        }
        SQLite::Statement& statement = t_connection->statement(query);
        const ResetAtEnd reset(statement);
        return use(statement);
    } catch (const std::runtime_error& e) {  // SQLite's, or that of a text that is not UTF-8
        throw KxWidgetDAOReadOnly::Exception::DatabaseError(std::string(QUERIES[query].purpose) + ": " + e.what());
    }
}

/** Says that no row has the key that the query asked for. */
KxWidgetDAOReadOnly::Exception::WidgetNotExist noWidget(Query query, const std::string& key)
{
    return KxWidgetDAOReadOnly::Exception::WidgetNotExist(std::string(QUERIES[query].purpose) + ": no widget has the " +
                                                          key);
}

/** Returns what `read` makes of the one column that the query asks of the widget. */
template <typename Function>
auto askWidget(Query query, int handle, Function read)
{
    return ask(query, [&](SQLite::Statement& statement) {
        statement.bind(1, handle);
        if (!statement.executeStep()) {
            throw noWidget(query, "handle " + std::to_string(handle));
        }
        return read(statement.getColumn(0));
    });
}

/** Runs an update of the widget whose new value `bindValue` binds to ?2. */
template <typename Function>
void update(Query query, const std::wstring& tizenAppId, Function bindValue)
{
    const std::string key = DPL::ToUTF8String(tizenAppId);
    ask(query, [&](SQLite::Statement& statement) {
        statement.bind(1, key);
        bindValue(statement);
        if (statement.exec() == 0) {
            throw noWidget(query, "TizenAppId " + key);
        }
    });
}

std::wstring wideText(const SQLite::Column& column)
{
    return DPL::FromUTF8String(column.getString());
}

}  // namespace

void KxDatabase::attachToThreadRW()
{
    try {
        t_connection = std::make_unique<Connection>();
    } catch (const SQLite::Exception& e) {
        throw DPL::DB::SqlConnection::Exception::Base(std::string("Open ") + DATABASE_FILE + ": " + e.what());
    }
}

void KxDatabase::detachFromThread()
{
    const std::unique_ptr<Connection> connection = std::move(t_connection);
    const int code = connection ? connection->syncLog() : SQLITE_OK;
    if (code != SQLITE_OK) {
        throw KxWidgetDAOReadOnly::Exception::DatabaseError(std::string("Sync the write-ahead log of ") +
                                                            DATABASE_FILE + ": " + sqlite3_errstr(code));
    }
}

std::wstring KxWidgetDAOReadOnly::getTizenAppId() const
{
    return askWidget(READ_TIZEN_APP_ID, m_handle, wideText);
}

boost::optional<std::wstring> KxWidgetDAOReadOnly::getKxAppId() const
{
    return askWidget(READ_KX_APP_ID, m_handle, [](const SQLite::Column& column) {
        return column.isNull() ? boost::none : boost::make_optional(wideText(column));
    });
}

bool KxWidgetDAOReadOnly::isInstalledOnUSB() const
{
    return askWidget(READ_INSTALLED_ON_USB, m_handle,
                     [](const SQLite::Column& column) { return column.getInt() != 0; });
}

std::wstring KxWidgetDAOReadOnly::getTizenAppIdFromKxAppId(const std::wstring& kxAppId)
{
    const std::string key = DPL::ToUTF8String(kxAppId);
    return ask(FIND_BY_KX_APP_ID, [&](SQLite::Statement& statement) {
        statement.bind(1, key);
        return statement.executeStep() ? wideText(statement.getColumn(0)) : std::wstring();
    });
}

bool KxWidgetDAOReadOnly::isWidgetInstalled(const std::wstring& tizenAppId)
{
    return getHandleFromTizenAppId(tizenAppId) != -1;
}

int KxWidgetDAOReadOnly::getHandleFromTizenAppId(const std::wstring& tizenAppId)
{
    const std::string key = DPL::ToUTF8String(tizenAppId);
    return ask(FIND_BY_TIZEN_APP_ID, [&](SQLite::Statement& statement) {
        statement.bind(1, key);
        return statement.executeStep() ? statement.getColumn(0).getInt() : -1;
    });
}

std::list<std::shared_ptr<KxWidgetDAOReadOnly>> KxWidgetDAOReadOnly::getAvailableWidgets()
{
    return ask(LIST_AVAILABLE, [](SQLite::Statement& statement) {
        std::list<std::shared_ptr<KxWidgetDAOReadOnly>> widgets;
        while (statement.executeStep()) {
            widgets.push_back(std::make_shared<KxWidgetDAOReadOnly>(statement.getColumn(0).getInt()));
        }
        return widgets;
    });
}

void KxWidgetDAO::setAvailable(const std::wstring& tizenAppId, bool available)
{
    update(SET_AVAILABLE, tizenAppId, [=](SQLite::Statement& statement) { statement.bind(2, available ? 1 : 0); });
}

void KxWidgetDAO::setExternalStoragePath(const std::wstring& tizenAppId, const boost::optional<std::wstring>& path)
{
    update(SET_EXTERNAL_STORAGE_PATH, tizenAppId, [&](SQLite::Statement& statement) {
        if (path) {
            statement.bind(2, DPL::ToUTF8String(*path));
        } else {
            statement.bind(2);
        }
    });
}

}  // namespace ZelmarDB
