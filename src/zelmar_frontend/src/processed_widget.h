// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace ZelmarFrontend {

enum WidgetActionStatus { NOT_PROCESSED = 0, SUCCESS = 1, FAIL = 2 };

/**
 * One widget of a run: its identifiers, the action's result for it, and the database operations on it. These need the
 * thread attached to the widget database; a database failure makes them return false, with the reason in the log.
 */
class ProcessedWidget {
public:
    /** Looks the widget up. A widget that the database does not know has a record, too. Lets every exception pass. */
    ProcessedWidget(const std::string& pkgId, const std::string& strErrCode, WidgetActionStatus status);
    virtual ~ProcessedWidget() = default;

    std::string getPkgId() const { return m_pkgId; }
    void setPkgId(const std::string& pkgId) { m_pkgId = pkgId; }
    std::string getStrErrCode() const { return m_strErrCode; }
    void setStrCode(const std::string& strErrCode) { m_strErrCode = strErrCode; }
    WidgetActionStatus getWidgetActionStatus() const { return m_widgetActionStatus; }
    void setActionResult(WidgetActionStatus status) { m_widgetActionStatus = status; }

    bool setWidgetStateAvailable();
    bool setWidgetStateUnavailable();

    /** An empty `path` clears: the database then holds an empty path, not none. */
    bool setExternalStoragePath(const std::string& path);

    /** Lets DatabaseError pass: if it is unknown whether the widget is installed, no error code is true. */
    bool isWidgetInstalled() const;
    bool isInstalledOnUSB() const;

private:
    std::string m_pkgId;
    std::string m_strErrCode;
    WidgetActionStatus m_widgetActionStatus;
    // The key of every database operation. Empty: the database knows no such widget.
    std::wstring m_tizenAppId;
};

/** Appends one record per identifier, in order, without a result. */
void appendWidgets(std::vector<ProcessedWidget>& widgets, const std::vector<std::string>& pkgIds);

/** Marks the widget as failed for the reason `strErrCode`, one of the shared error codes. */
void failWidget(ProcessedWidget& widget, const std::string& strErrCode);

/** "a,SUCCESS:b,FAIL,<code>:" in the order of the records; one without a result adds nothing. */
std::string makeActionResult(const std::vector<ProcessedWidget>& widgets);

}  // namespace ZelmarFrontend
