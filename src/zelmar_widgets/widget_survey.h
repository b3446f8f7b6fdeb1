// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <platform/widget_registry.h>
#include <string>
#include <vector>

#include "widget_files.h"

namespace ZelmarWidgets {

// What can be wrong with a widget.
inline const std::string LINK_MISSING = "link-missing";
inline const std::string LINK_ELSEWHERE = "link-elsewhere";
inline const std::string LINK_UNLABELLED = "link-unlabelled";
inline const std::string LINK_LEFT = "link-left";
inline const std::string CONTENT_GONE = "content-gone";
inline const std::string NO_IMAGE = "no-image";
inline const std::string DIRECTORY_MISSING = "directory-missing";
inline const std::string UNKNOWN_WIDGET = "unknown-widget";

enum class State { AVAILABLE, UNAVAILABLE, ON_DEVICE, UNKNOWN };

struct Widget {
    std::string identifier;
    State state;
    std::string stick;               // by the database, else by a link; empty: none
    std::vector<Link> links;         // those of the tool that exist
    std::vector<std::string> wrong;  // each word once
};

/** All widgets of the database, compared with the files; then those without a row that still have links to a stick. */
std::vector<Widget> lookAtWidgets(const std::vector<ZelmarDB::RegisteredWidget>& rows);

/** As a list with commas. */
std::string joined(const std::vector<std::string>& words);

}  // namespace ZelmarWidgets
