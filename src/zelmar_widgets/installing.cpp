// SPDX-License-Identifier: Apache-2.0

#include "installing.h"

#include <platform/dpl.h>
#include <platform/widget_registry.h>
#include <unistd.h>
#include <zelmar_frontend_constants.h>
#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "failure.h"
#include "front_end.h"
#include "instance_lock.h"
#include "widget_files.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

void requireText(const std::string& what, const std::string& text)
{
    try {
        DPL::FromUTF8String(text);
    } catch (const std::exception&) {
        throw Failure(BAD_COMMAND_LINE, what + " '" + text + "' is not UTF-8; choose another");
    }
    if (text.empty()) {
        throw Failure(BAD_COMMAND_LINE, what + " is empty; choose another");
    }
}

}  // namespace

void add(const std::string& identifier, const std::string& application, bool onUsb)
{
    requireText("the identifier", identifier);
    requireText("the application", application);
    if (identifier.find('/') != std::string::npos) {
        throw Failure(BAD_COMMAND_LINE, "the identifier '" + identifier + "' has a slash; choose another");
    }
    const InstanceLock lock;
    const std::string directory = imageDirectory(identifier);
    std::error_code error;
    const bool created = fs::create_directories(directory, error);
    if (!isDirectory(directory)) {
        throw systemFailure(error.value(), directory);
    }
    try {
        ZelmarDB::registerWidget(identifier, application, onUsb);
    } catch (...) {
        if (created) {
            fs::remove(directory, error);
        }
        throw;
    }
}

void remove(const std::string& identifier)
{
    const InstanceLock lock;
    const auto rows = ZelmarDB::registeredWidgets(ZelmarDB::RegistryAccess::CHANGE);
    if (std::none_of(rows.begin(), rows.end(), [&](const auto& row) { return row.identifier == identifier; })) {
        throw unknownWidget(identifier);
    }
    for (const auto& [widget, code] : makeUnavailable({identifier})) {
        if (!code.empty() && code != ZelmarFrontend::ERROR_INSTALL_DIR_NOT_FOUND) {
            throw Failure(SOME_WIDGET_WRONG, widget + " is not removed: " + causeOf(code, imageDirectory(widget)));
        }
    }
    ZelmarDB::unregisterWidget(identifier);
    const std::string directory = imageDirectory(identifier);
    if (rmdir(directory.c_str()) != 0 && errno != ENOENT) {
        throw Failure(SOME_WIDGET_WRONG, identifier + " is removed, but " + directory +
                                             " holds other things; remove them if nobody needs them");
    }
}

ZelmarDB::RegistryCreation init(ZelmarDB::ExistingRegistry existing)
{
    const InstanceLock lock;
    return ZelmarDB::createRegistry(existing);
}

}  // namespace ZelmarWidgets
