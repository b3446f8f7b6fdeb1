// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <boost/optional.hpp>
#include <memory>
#include <string>
#include <utility>

/**
 * What a platform folder supplies to conformance_test: its database, labels and log, past the seam. Each call uses a
 * connection of its own, waits for no lock, and throws a std::exception if it fails. Text is UTF-8.
 */
namespace Conformance {

/** Puts a new database without widgets in the place of any that is there. No thread is attached. */
void makeDatabase();

/** Says whether there was one, even an empty file. No thread is attached. */
bool removeDatabase();

/** Puts an empty file where the database should be. No thread is attached. */
void makeEmptyFile();

/** Makes every query and change fail, on the attached thread too; as by removing the table of widgets. */
void breakDatabase();

/** Lets no other connection change anything while the result lives. Null: on this platform, nothing waits. */
std::shared_ptr<void> lockDatabase();

/** Adds a widget: not available, without a path; an empty KxAppId is none. */
void putWidget(const std::string& tizenAppId, const std::string& kxAppId, bool installedOnUsb);

/** Whether it is available, and its external storage path. */
using State = std::pair<bool, boost::optional<std::string>>;
State readWidget(const std::string& tizenAppId);

/** The label of the path itself, be it a link; empty if it has none. */
std::string labelOf(const std::string& path);

/** What was logged since the last call; the first call begins. */
std::string takeLog();

}  // namespace Conformance
