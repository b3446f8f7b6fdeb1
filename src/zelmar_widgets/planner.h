// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "widget_paths.h"

// Decides what is to be done from what is. No function here calls the system.
namespace ZelmarWidgets {

/** A link of one of the four names in an image directory. */
struct Link {
    std::string target;
    bool labelled = false;
};

/** What a stick holds of a widget. */
struct Content {
    std::string stick{};
    bool folder = false;
    std::array<bool, FILE_COUNT> files{};  // by fileNames()
};

/** Where the content of a widget is. UNKNOWN: the database does not know the widget, but it has an image directory. */
enum class Home { STICK, TELEVISION, UNKNOWN };

struct WidgetFacts {
    std::string identifier{};
    std::string application{};
    Home home = Home::STICK;
    bool available = false;     // by its row
    std::string storagePath{};  // by its row
    std::string rowStick{};     // the stick that the path leads to, links resolved; empty: none
    bool hasImageDirectory = true;
    bool hidden = false;                                  // this user may not read all of it, so no fault is reported
    std::array<std::optional<Link>, FILE_COUNT> links{};  // by fileNames()
    std::vector<Content> contents{};                      // on candidateSticks(), up to the first that holds the image
};

/** A command and what it is about. `argument` is the stick; for REMOVE the identifier; for HEAL empty. */
struct Scope {
    enum class Command { HEAL, PLUG, UNPLUG, REMOVE };
    Command command = Command::HEAL;
    std::string argument{};
};

enum class Fault {
    LINK_MISSING,
    LINK_ELSEWHERE,
    LINK_UNLABELLED,
    LINK_LEFT,
    CONTENT_GONE,
    NO_IMAGE,
    NOT_PLUGGED,
    DIRECTORY_MISSING,
    UNKNOWN_WIDGET,
};

/** The name of the fault in tables and JSON. */
std::string nameOf(Fault fault);
std::string namesOf(const std::vector<Fault>& faults);

enum class Step { CREATE_DIRECTORY, CLEAR_LINKS, MAKE_UNAVAILABLE, MAKE_AVAILABLE };

struct WidgetPlan {
    std::string identifier;
    std::string stick;          // from which it should be available; empty: it should be unavailable
    std::vector<Fault> faults;  // empty if, and only if, there is nothing to do
    std::vector<Step> steps;
    std::vector<std::string> staleLinks;  // names of the links that lead to a stick, but should not
};

/** Whether the command is about this widget. */
bool isAbout(const Scope& scope, const WidgetFacts& widget);

/**
 * The sticks that the widget may belong to, in the order of preference: it belongs to the first that holds its image.
 * `mounted` are the sticks below the roots, the one mounted last first.
 */
std::vector<std::string> candidateSticks(const WidgetFacts& widget, const Scope& scope,
                                         const std::vector<std::string>& mounted);

/**
 * The rule of all commands. A widget on USB belongs to the stick that its row names, if that holds the image, else to
 * the stick mounted last that holds it, else to none. It is available from the stick it belongs to, with a labelled
 * link for each file there and no other link to a stick. If it belongs to none, it is unavailable and has no link to a
 * stick. Any other widget has no link to a stick. The stick of PLUG comes before all others. The stick of UNPLUG and
 * all below it do not count. For REMOVE, no stick counts. `roots` are the folders below which everything is on a stick.
 */
WidgetPlan planFor(const WidgetFacts& widget, const Scope& scope, const std::vector<std::string>& roots);

}  // namespace ZelmarWidgets
