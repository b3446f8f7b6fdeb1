// SPDX-License-Identifier: Apache-2.0

#include "make_widgets_unavailable_action.h"

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>
#include <stdexcept>

#include "log.h"
#include "zelmar_frontend_common.h"
#include "zelmar_frontend_constants.h"

namespace fs = boost::filesystem;

namespace ZelmarFrontend {

const std::string MakeWidgetsUnavailableAction::m_actionName("make-unavailable");
const std::string MakeWidgetsUnavailableAction::m_actionDescription("Sets a widget as unavailable");

void MakeWidgetsUnavailableAction::setRequiredParameters(const boost::program_options::variables_map& vm)
{
    ZELMAR_DEBUG("Parsing required parameters");

    if (vm.count("kxAppId") == 0) {
        throw std::runtime_error("KxAppId not found");
    }
    setRequiredParameters(vm["kxAppId"].as<std::vector<std::string>>());
}

void MakeWidgetsUnavailableAction::setRequiredParameters(const std::vector<std::string>& pkgIds)
{
    appendWidgets(m_widgets, pkgIds);
}

void MakeWidgetsUnavailableAction::runAction()
{
    ZELMAR_DEBUG("Running action: %s", m_actionName.c_str());

    // The path first, the state last. Nothing is undone when a later step fails: the stick may have been pulled.
    for (ProcessedWidget& widget : m_widgets) {
        const std::string pkgId = widget.getPkgId();

        if (!widget.isWidgetInstalled()) {
            ZELMAR_DEBUG("Widget is not installed. PkgId: %s", pkgId.c_str());
            failWidget(widget, ERROR_WIDGET_IS_NOT_INSTALLED);
            continue;
        }

        const fs::path imageDir = imageDirectory(pkgId);
        boost::system::error_code error;
        if (!fs::exists(imageDir, error) || !fs::is_directory(imageDir, error)) {
            // Odd: "%e" and "rror". It prints a meaningless number; as the last conversion, it shifts no argument of
            // another.
            ZELMAR_DEBUG_MISMATCHED("Cannot find widget install path: %s, %error", imageDir.c_str(),
                                    error.message().c_str());
            failWidget(widget, ERROR_INSTALL_DIR_NOT_FOUND);
            continue;
        }
        // Only a check: links and log use the path as it stands.
        fs::path canonicalDir = imageDir;
        if (!canonicalizePath(canonicalDir, INSTALLATION_ROOT)) {
            // Odd: misspelt, and the path is not printed.
            ZELMAR_DEBUG_MISMATCHED("Install path is not vaild", imageDir.c_str());
            failWidget(widget, ERROR_INSTALL_DIR_NOT_FOUND);
            continue;
        }

        if (!widget.setExternalStoragePath("")) {
            ZELMAR_DEBUG("Cannot change external storage path");
        }
        removeSymlinks(pkgId);
        if (!widget.setWidgetStateUnavailable()) {
            // Odd: the identifier is not printed.
            ZELMAR_DEBUG_MISMATCHED("Cannot change widget state, pkgid: ", pkgId.c_str());
            failWidget(widget, ERROR_UNKNOWN);
            continue;
        }
        widget.setActionResult(SUCCESS);
    }
}

std::string MakeWidgetsUnavailableAction::getActionResult() const
{
    return makeActionResult(m_widgets);
}

void MakeWidgetsUnavailableAction::cleanAction()
{
    ZELMAR_DEBUG("Action's clean is not required.");
}

void MakeWidgetsUnavailableAction::rollbackAction() noexcept
{
    ZELMAR_DEBUG("No rollback required.");
}

}  // namespace ZelmarFrontend
