// SPDX-License-Identifier: Apache-2.0

#include "processed_widget.h"

#include <platform/dpl.h>
#include <platform/zelmar_dao.h>
#include <boost/optional.hpp>

#include "log.h"
#include "zelmar_frontend_constants.h"

using ZelmarDB::KxWidgetDAO;
using ZelmarDB::KxWidgetDAOReadOnly;

namespace ZelmarFrontend {

ProcessedWidget::ProcessedWidget(const std::string& pkgId, const std::string& strErrCode, WidgetActionStatus status)
    : m_pkgId(pkgId),
      m_strErrCode(strErrCode),
      m_widgetActionStatus(status),
      m_tizenAppId(KxWidgetDAOReadOnly::getTizenAppIdFromKxAppId(DPL::FromUTF8String(pkgId)))
{
}

bool ProcessedWidget::setWidgetStateAvailable()
{
    ZELMAR_DEBUG_AT(58, "Updating DB, pkgId: %s", m_pkgId.c_str());
    try {
        KxWidgetDAO::setAvailable(m_tizenAppId, true);
    } catch (const KxWidgetDAOReadOnly::Exception::WidgetNotExist& e) {
        ZELMAR_DEBUG_AT(66, "Database error: %s", e.message().c_str());
        return false;
    } catch (const KxWidgetDAOReadOnly::Exception::DatabaseError& e) {
        ZELMAR_DEBUG_AT(70, "Database error: %s", e.message().c_str());
        return false;
    }
    return true;
}

bool ProcessedWidget::setWidgetStateUnavailable()
{
    // Odd: "kxAppId" for what is "pkgId" above.
    ZELMAR_DEBUG_AT(77, "Updating DB, kxAppId: %s", m_pkgId.c_str());
    try {
        KxWidgetDAO::setAvailable(m_tizenAppId, false);
    } catch (const KxWidgetDAOReadOnly::Exception::WidgetNotExist& e) {
        ZELMAR_DEBUG_AT(85, "Database error: %s", e.message().c_str());
        return false;
    } catch (const KxWidgetDAOReadOnly::Exception::DatabaseError& e) {
        ZELMAR_DEBUG_AT(89, "Database error: %s", e.message().c_str());
        return false;
    }
    return true;
}

bool ProcessedWidget::setExternalStoragePath(const std::string& path)
{
    try {
        const boost::optional<std::wstring> storagePath(DPL::FromUTF8String(path));
        KxWidgetDAO::setExternalStoragePath(m_tizenAppId, storagePath);
    } catch (const KxWidgetDAOReadOnly::Exception::Base& e) {
        ZELMAR_DEBUG_AT(105, "Database error: %s", e.message().c_str());
        return false;
    }
    return true;
}

bool ProcessedWidget::isWidgetInstalled() const
{
    if (m_tizenAppId.empty()) {
        ZELMAR_DEBUG_AT(129, "TizenAppId is empty, probably widget is not installed");
        return false;
    }
    try {
        return KxWidgetDAOReadOnly::isWidgetInstalled(m_tizenAppId);
    } catch (const KxWidgetDAOReadOnly::Exception::WidgetNotExist&) {
        ZELMAR_DEBUG_AT(139, "Widget not exist, pkgId: %s", m_pkgId.c_str());
        return false;
    }
}

bool ProcessedWidget::isInstalledOnUSB() const
{
    try {
        const int handle = KxWidgetDAOReadOnly::getHandleFromTizenAppId(m_tizenAppId);
        if (handle == -1) {
            return false;
        }
        return KxWidgetDAO(handle).isInstalledOnUSB();
    } catch (const KxWidgetDAOReadOnly::Exception::WidgetNotExist& e) {
        ZELMAR_DEBUG_AT(190, "Database error: %s", e.message().c_str());
    } catch (const KxWidgetDAOReadOnly::Exception::DatabaseError& e) {
        ZELMAR_DEBUG_AT(194, "Database error: %s", e.message().c_str());
    }
    return false;
}

void appendWidgets(std::vector<ProcessedWidget>& widgets, const std::vector<std::string>& pkgIds)
{
    widgets.reserve(widgets.size() + pkgIds.size());
    for (const std::string& pkgId : pkgIds) {
        widgets.emplace_back(pkgId, "", NOT_PROCESSED);
    }
}

void failWidget(ProcessedWidget& widget, const std::string& strErrCode)
{
    widget.setActionResult(FAIL);
    widget.setStrCode(strErrCode);
}

std::string makeActionResult(const std::vector<ProcessedWidget>& widgets)
{
    std::string result;
    for (const ProcessedWidget& widget : widgets) {
        if (widget.getWidgetActionStatus() == SUCCESS) {
            result += widget.getPkgId() + ",SUCCESS:";
        } else if (widget.getWidgetActionStatus() == FAIL) {
            result += widget.getPkgId() + ",FAIL," + widget.getStrErrCode() + ":";
        }
    }
    return result;
}

}  // namespace ZelmarFrontend
