// SPDX-License-Identifier: Apache-2.0

#include "installing.h"

#include <platform/widget_registry.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <optional>

#include "executor.h"
#include "failure.h"
#include "instance_lock.h"
#include "widget_paths.h"

namespace fs = std::filesystem;

namespace ZelmarWidgets {

namespace {

// P_img must not be longer than a file name can be.
constexpr std::size_t LONGEST_IDENTIFIER = NAME_MAX - 4;

void requireText(const std::string& what, const std::string& text)
{
    if (!isText(text)) {
        throw badCommandLine(what + " '" + text + "' is not UTF-8", "choose another");
    }
    if (text.empty()) {
        throw badCommandLine(what + " is empty", "choose another");
    }
}

bool isRegistered(const std::string& identifier)
{
    const auto rows = ZelmarDB::registeredWidgets(ZelmarDB::RegistryAccess::CHANGE);
    return std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.identifier == identifier; });
}

/** The failure to remove the image directory, with the reason. */
Failure directoryLeft(const std::string& identifier, const std::string& directory, int error)
{
    const std::string message = identifier + " is removed, but ";
    if (error == ENOTEMPTY || error == EEXIST) {
        return {SOME_WIDGET_WRONG, Failure::Kind::WIDGET, message + directory + " holds other things",
                "remove them if nobody needs them"};
    }
    const Failure failure = systemFailure(error, directory);
    return {SOME_WIDGET_WRONG, Failure::Kind::WIDGET, message + failure.what(), failure.advice()};
}

}  // namespace

void add(const std::string& identifier, const std::string& application, bool onUsb)
{
    requireText("the identifier", identifier);
    requireText("the application", application);
    if (identifier.find('/') != std::string::npos) {
        throw badCommandLine("the identifier '" + identifier + "' has a slash", "choose another");
    }
    if (identifier.size() > LONGEST_IDENTIFIER) {
        throw badCommandLine("the identifier is longer than " + std::to_string(LONGEST_IDENTIFIER) + " bytes",
                             "choose another");
    }
    const InstanceLock lock;
    const std::string directory = imageDirectory(identifier);
    std::error_code error;
    const bool created = fs::create_directories(directory, error);
    if (error) {
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
    const Scope scope{Scope::Command::REMOVE, identifier};
    if (!isRegistered(identifier)) {
        throw unknownWidget(identifier);
    }
    std::optional<InstanceLock> lock;
    do {
        lock.reset();
        for (const ReportLine& line : execute(scope).lines) {
            if (line.result == Result::FAILED) {
                throw Failure(SOME_WIDGET_WRONG, Failure::Kind::WIDGET, identifier + " is not removed", line.advice);
            }
        }
        lock.emplace();
    } while (!dryRun(scope).lines.empty());  // another instance has made it available meanwhile
    ZelmarDB::unregisterWidget(identifier);
    const std::string directory = imageDirectory(identifier);
    if (rmdir(directory.c_str()) != 0 && errno != ENOENT) {
        throw directoryLeft(identifier, directory, errno);
    }
}

ZelmarDB::RegistryCreation init(ZelmarDB::ExistingRegistry existing)
{
    const InstanceLock lock;
    return ZelmarDB::createRegistry(existing);
}

}  // namespace ZelmarWidgets
