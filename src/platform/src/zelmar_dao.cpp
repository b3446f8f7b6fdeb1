// SPDX-License-Identifier: Apache-2.0

#include <platform/zelmar_dao.h>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "widget_database.h"

namespace ZelmarDB {

namespace {

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

struct Attachment {
    WidgetDatabase database;
    // Each prepared at its first use.
    std::array<std::optional<SQLite::Statement>, QUERY_COUNT> statements;
    bool attemptedChange = false;
};

thread_local std::unique_ptr<Attachment> t_attachment;

SQLite::Statement& preparedStatement(Query query)
{
    if (!t_attachment) {
        throw SQLite::Exception("the thread is not attached to the database");
    }
    // Even if the change fails: the caller changes links, too.
    t_attachment->attemptedChange |= query == SET_AVAILABLE || query == SET_EXTERNAL_STORAGE_PATH;
    std::optional<SQLite::Statement>& statement = t_attachment->statements[query];
    if (!statement) {
        statement.emplace(t_attachment->database.prepare(QUERIES[query].sql));
    }
    return *statement;
}

/** Resets the statement at the end of the scope, which releases its locks. */
class ResetAtEnd {
public:
    explicit ResetAtEnd(SQLite::Statement& statement) : m_statement(statement) {}
    ResetAtEnd(const ResetAtEnd&) = delete;
    ResetAtEnd& operator=(const ResetAtEnd&) = delete;
    ~ResetAtEnd() { m_statement.tryReset(); }

private:
    SQLite::Statement& m_statement;
};

/** Calls `use` with the query's statement and returns its result. Every DatabaseError of a query is thrown here. */
template <typename Function>
auto ask(Query query, Function use)
{
    try {
        SQLite::Statement& statement = preparedStatement(query);
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

/** Calls `read` with the one column that the query reads of the widget, and returns its result. */
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
    ask(query, [&](SQLite::Statement& statement) {
        const std::string key = DPL::ToUTF8String(tizenAppId);
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
    if (t_attachment) {
        return;
    }
    try {
        t_attachment = std::make_unique<Attachment>();
    } catch (const SQLite::Exception& e) {
        throw DPL::DB::SqlConnection::Exception::Base(std::string("Open ") + DATABASE_FILE + ": " + e.what());
    }
}

void KxDatabase::detachFromThread()
{
    const std::unique_ptr<Attachment> attachment = std::move(t_attachment);
    const int error = attachment && attachment->attemptedChange ? attachment->database.bringToDisk() : 0;
    if (error != 0) {
        throw KxWidgetDAOReadOnly::Exception::DatabaseError(std::string("Sync the links and ") + DATABASE_FILE + ": " +
                                                            std::strerror(error));
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
    return ask(FIND_BY_KX_APP_ID, [&](SQLite::Statement& statement) {
        statement.bind(1, DPL::ToUTF8String(kxAppId));
        return statement.executeStep() ? wideText(statement.getColumn(0)) : std::wstring();
    });
}

bool KxWidgetDAOReadOnly::isWidgetInstalled(const std::wstring& tizenAppId)
{
    return getHandleFromTizenAppId(tizenAppId) != -1;
}

int KxWidgetDAOReadOnly::getHandleFromTizenAppId(const std::wstring& tizenAppId)
{
    return ask(FIND_BY_TIZEN_APP_ID, [&](SQLite::Statement& statement) {
        statement.bind(1, DPL::ToUTF8String(tizenAppId));
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
