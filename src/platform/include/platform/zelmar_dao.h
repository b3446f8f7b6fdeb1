// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/dpl.h>
#include <boost/optional.hpp>
#include <exception>
#include <list>
#include <memory>
#include <string>

namespace ZelmarDB {

/**
 * The running thread's connection to the widget database. Without it, every operation below throws DatabaseError. All
 * operations of one attachment together wait at most 5 s for other processes' locks; after that, an operation that
 * meets a lock fails at once.
 */
class KxDatabase {
public:
    /**
     * Opens the database, and never creates it. Does nothing if the thread is attached. Throws
     * DPL::DB::SqlConnection::Exception::Base, whose message says what cannot be used, and why.
     */
    static void attachToThreadRW();

    /**
     * Closes the connection; does nothing without one. If a change was attempted, this first brings to the disk the
     * links below /opt/usr/apps that were made and removed during the attachment, then the changes. Throws
     * DatabaseError if that fails; the connection is closed all the same.
     */
    static void detachFromThread();
};

/**
 * One installed widget, by its handle. KxAppId is its identifier, TizenAppId the application it belongs to. Each
 * operation is a query of its own and holds no lock when it returns.
 */
class KxWidgetDAOReadOnly {
public:
    class Exception {
    public:
        class Base : public DPL::Exception, public std::exception {
        public:
            using DPL::Exception::Exception;
            const char* what() const noexcept override { return message().c_str(); }
        };
        class WidgetNotExist : public Base {
        public:
            using Base::Base;
        };
        class DatabaseError : public Base {
        public:
            using Base::Base;
        };
    };

    /** Runs no query: a widget that does not exist shows only at the first call. */
    explicit KxWidgetDAOReadOnly(int handle) : m_handle(handle) {}
    virtual ~KxWidgetDAOReadOnly() = default;

    /** These three throw WidgetNotExist if no widget has the handle, and DatabaseError. */
    std::wstring getTizenAppId() const;
    boost::optional<std::wstring> getKxAppId() const;
    bool isInstalledOnUSB() const;

    /** These throw DatabaseError, also for text that is not well-formed. For an unknown widget: "", false, -1. */
    static std::wstring getTizenAppIdFromKxAppId(const std::wstring& kxAppId);
    static bool isWidgetInstalled(const std::wstring& tizenAppId);
    static int getHandleFromTizenAppId(const std::wstring& tizenAppId);
    static std::list<std::shared_ptr<KxWidgetDAOReadOnly>> getAvailableWidgets();

private:
    int m_handle;
};

/**
 * The changes to a widget. Each is committed when it returns; after a power cut before the detachment, the database has
 * the old value or the new one. They throw WidgetNotExist and, also for text that is not well-formed, DatabaseError.
 */
class KxWidgetDAO : public KxWidgetDAOReadOnly {
public:
    using KxWidgetDAOReadOnly::KxWidgetDAOReadOnly;

    static void setAvailable(const std::wstring& tizenAppId, bool available);

    /** An empty path is stored as an empty text, boost::none as NULL. */
    static void setExternalStoragePath(const std::wstring& tizenAppId, const boost::optional<std::wstring>& path);
};

/** Puts "/" before a component, unless the path so far is empty or ends with it. Does not interpret "..": it stays. */
class KxPathBuilder {
public:
    KxPathBuilder() = default;
    explicit KxPathBuilder(const std::string& path) : m_path(path) {}

    KxPathBuilder& Append(const std::string& component);
    std::string GetFullPath() const { return m_path; }

private:
    std::string m_path;
};

}  // namespace ZelmarDB
