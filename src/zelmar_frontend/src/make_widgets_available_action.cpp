// SPDX-License-Identifier: Apache-2.0

#include "make_widgets_available_action.h"

#include <platform/dpl.h>
#include <platform/privilege_control.h>
#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "kx_wrt_frontend_action_exception.h"
#include "log.h"
#include "zelmar_frontend_common.h"
#include "zelmar_frontend_constants.h"

namespace fs = boost::filesystem;

namespace ZelmarFrontend {

namespace {

// Each link: its target on the stick, its path in the image directory.
using LinksList = std::vector<std::pair<fs::path, fs::path>>;

/** The widget's content directory on the stick. */
fs::path contentDirectory(const std::string& externalPath, const std::string& pkgId)
{
    return fs::path(externalPath) / imageDirectoryName(pkgId);
}

/** The links to the widget's files on the stick; a file that is missing there is left out. */
LinksList createLinksList(const std::string& pkgId, const std::string& externalPath)
{
    const fs::path contentDir = contentDirectory(externalPath, pkgId);
    const fs::path imageTarget = contentDir / imageFileName(pkgId);
    const std::string imageDir = imageDirectory(pkgId);
    const fs::path imageLink = imageFileLink(imageDir, pkgId);

    LinksList links;
    boost::system::error_code error;
    if (!fs::is_regular_file(fs::status(imageTarget, error))) {
        // Odd: a reason where a path is expected.
        ZELMAR_DEBUG("File does not exist or is not regular file: %s", error.message().c_str());
        return links;
    }
    links.emplace_back(imageTarget, imageLink);

    // Odd: a lambda, so that the log names the function "operator()".
    std::for_each(std::begin(LINKED_METADATA_FILES), std::end(LINKED_METADATA_FILES), [&](const std::string& name) {
        const fs::path target = contentDir / name;
        if (fs::is_regular_file(fs::status(target, error))) {
            links.emplace_back(target, fs::path(imageDir) / name);
        } else {
            ZELMAR_DEBUG("Cannot find external path: %s, Skipping.", target.c_str());
        }
    });
    return links;
}

}  // namespace

const std::string MakeWidgetsAvailableAction::m_actionName("make-available");
// "for widget for launch" is kept as it is: the help text is compared as a whole.
const std::string MakeWidgetsAvailableAction::m_actionDescription(
    "Changes widget's state and prepares for widget for launch");

void MakeWidgetsAvailableAction::setRequiredParameters(const boost::program_options::variables_map& vm)
{
    ZELMAR_DEBUG("Parsing required parameters");

    if (vm.count("path") == 0) {
        throw std::runtime_error("External path is not specified");
    }
    m_externalPath = vm["path"].as<fs::path>().string();
    if (!fs::is_directory(fs::status(m_externalPath))) {
        ZELMAR_DEBUG("External path does not exist or is not a directory: %s", m_externalPath.c_str());
        throw std::runtime_error("External path does not exist or is not a directory");
    }
    // Checked from the working directory, resolved from the mount root: callers that pass a relative path run in that
    // root, where both agree.
    m_externalPath = fs::canonical(m_externalPath, EXTERNAL_STORAGE_ROOT).string();
    ZELMAR_DEBUG("External path: %s", m_externalPath.c_str());

    if (vm.count("kxAppId") == 0) {
        throw std::runtime_error("KxAppId not found");
    }
    appendWidgets(m_widgets, vm["kxAppId"].as<std::vector<std::string>>());
}

void MakeWidgetsAvailableAction::runAction()
{
    ZELMAR_DEBUG("Running action: %s", m_actionName.c_str());

    // Links first, the state last: a widget is marked available only once its links stand. Each undo is registered as
    // soon as there is something to undo, and runs in cleanAction.
    for (ProcessedWidget& widget : m_widgets) {
        const std::string pkgId = widget.getPkgId();
        ZELMAR_DEBUG("===== Processing widget: %s ======", pkgId.c_str());

        if (!widget.isWidgetInstalled()) {
            ZELMAR_DEBUG("Widget is not installed. pkgId: %s", pkgId.c_str());
            failWidget(widget, ERROR_WIDGET_IS_NOT_INSTALLED);
            continue;
        }
        if (!widget.isInstalledOnUSB()) {
            ZELMAR_DEBUG("Widget is Installed on local storage. PkgId: %s", pkgId.c_str());
            failWidget(widget, ERROR_LOCAL_STORAGE_USED);
            continue;
        }

        fs::path imageDir = imageDirectory(pkgId);
        boost::system::error_code error;
        if (!fs::is_directory(fs::status(imageDir, error))) {
            ZELMAR_DEBUG("Cannot find installation dir: %s", imageDir.c_str());
            if (error) {
                ZELMAR_DEBUG("error message :%s", error.message().c_str());
            }
            failWidget(widget, ERROR_INSTALL_DIR_NOT_FOUND);
            continue;
        }
        // Only a check: the links are made by the path as it stands, which createSymlinks builds anew.
        if (!canonicalizePath(imageDir, INSTALLATION_ROOT)) {
            ZELMAR_DEBUG("Local destination path is not valid");
            failWidget(widget, ERROR_INSTALL_DIR_NOT_FOUND);
            continue;
        }

        try {
            createSymlinks(pkgId);
        } catch (const KxWrtFrontendActionException&) {
            ZELMAR_DEBUG("Cannot create symlinks. Cleaning...");
            failWidget(widget, ERROR_SYMLINKS_CREATE);
            continue;
        }

        if (!widget.setExternalStoragePath(contentDirectory(m_externalPath, pkgId).string())) {
            ZELMAR_DEBUG("Cannot set external storage path. Cleaning...");
            failWidget(widget, ERROR_UNKNOWN);
            continue;
        }
        m_actionSupport.addCleanFunction(pkgId, &ProcessedWidget::setExternalStoragePath, &widget, "");

        if (!widget.setWidgetStateAvailable()) {
            ZELMAR_DEBUG("Cannot update db, pkgId: %s. Cleaning...", pkgId.c_str());
            failWidget(widget, ERROR_UNKNOWN);
            continue;
        }
        m_actionSupport.addCleanFunction(pkgId, &ProcessedWidget::setWidgetStateUnavailable, &widget);

        widget.setActionResult(SUCCESS);
    }
}

void MakeWidgetsAvailableAction::createSymlinks(const std::string& pkgId)
{
    ZELMAR_DEBUG("Creating symlinks, pkgId: %s", pkgId.c_str());

    const LinksList links = createLinksList(pkgId, m_externalPath);
    // Throws for a path that the database cannot hold, before any link points into it: the whole run fails.
    DPL::FromUTF8String(m_externalPath);

    for (const auto& [target, link] : links) {
        ZELMAR_DEBUG("Preparing link: %s ---> %s", target.c_str(), link.c_str());

        boost::system::error_code error;
        if (fs::is_symlink(fs::symlink_status(link, error))) {
            ZELMAR_DEBUG("Removing old symlink: %s", link.c_str());
            if (!fs::remove(link, error)) {
                ZELMAR_DEBUG("Cannot remove old symlink");
                throw KxWrtFrontendActionException("");
            }
        }

        fs::create_symlink(target, link, error);
        if (error) {
            ZELMAR_DEBUG("Symlink create failed: [%s]", error.message().c_str());
            throw KxWrtFrontendActionException("");
        }
        if (!fs::is_symlink(fs::symlink_status(link, error))) {
            ZELMAR_DEBUG("Symlink create failed: [%s]", error.message().c_str());
            throw KxWrtFrontendActionException("");
        }
        // Before the label, so that a link that could not be labelled is removed, too.
        m_actionSupport.addCleanFunction(pkgId, &removeSymlink, link);

        ZELMAR_DEBUG("Preaparing smack labels");  // odd: misspelt
        const int result = perm_app_setup_path(pkgId.c_str(), link.c_str(), 0, "_");
        if (result != 0) {
            ZELMAR_DEBUG("Privilege error: %s", perm_strerror(result));
            throw KxWrtFrontendActionException("");
        }
    }
}

std::string MakeWidgetsAvailableAction::getActionResult() const
{
    return makeActionResult(m_widgets);
}

void MakeWidgetsAvailableAction::cleanAction()
{
    ZELMAR_DEBUG("Cleaning...");
    for (const ProcessedWidget& widget : m_widgets) {
        if (widget.getWidgetActionStatus() == FAIL) {
            m_actionSupport.runCleanFunctions(widget.getPkgId());
        }
    }
}

void MakeWidgetsAvailableAction::rollbackAction() noexcept
{
    ZELMAR_DEBUG("Rolling back action");
    try {
        for (const ProcessedWidget& widget : m_widgets) {
            if (widget.getWidgetActionStatus() != NOT_PROCESSED) {
                m_actionSupport.runCleanFunctions(widget.getPkgId());
            }
        }
    } catch (const std::exception& e) {
        ZELMAR_DEBUG("Exception: %s", e.what());
    } catch (...) {
        ZELMAR_DEBUG("Unhandled exception caught");
    }
}

}  // namespace ZelmarFrontend
