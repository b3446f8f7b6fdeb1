// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "widget_paths.h"

// What is to be done, from what is: no function here asks the system.
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

enum class Home { STICK, TELEVISION, UNKNOWN };  // the database does not know it: its links are all there is

struct WidgetFacts {
    std::string identifier{};
    std::string application{};
    Home home = Home::STICK;
    bool available = false;     // by its row
    std::string storagePath{};  // by its row
    std::string rowStick{};     // the stick that the path leads to, links resolved; empty: none
    bool hasImageDirectory = true;
    bool hidden = false;                                  // this user may not look at all of it: nothing is said of it
    std::array<std::optional<Link>, FILE_COUNT> links{};  // by fileNames()
    std::vector<Content> contents{};                      // on its candidates, up to the first that holds its image
};

/** What a command is about: `argument` is the stick, or for REMOVE the identifier. */
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

/** The word by which people and programs know the fault. */
std::string nameOf(Fault fault);
std::string namesOf(const std::vector<Fault>& faults);

enum class Step { CREATE_DIRECTORY, CLEAR_LINKS, MAKE_UNAVAILABLE, MAKE_AVAILABLE };

struct WidgetPlan {
    std::string identifier;
    std::string stick;          // from which it should be available; empty: it should be unavailable
    std::vector<Fault> faults;  // empty just if there is nothing to do
    std::vector<Step> steps;
    std::vector<std::string> staleLinks;  // names of those that lead to a stick, but should not
};

/** Whether the command is about this widget. */
bool isAbout(const Scope& scope, const WidgetFacts& widget);

/**
 * The sticks from which the widget may be made available: it should be from the first one that holds its image.
 * `mounted` are those below the roots, the one mounted last first.
 */
std::vector<std::string> candidates(const WidgetFacts& widget, const Scope& scope,
                                    const std::vector<std::string>& mounted);

/**
 * The one rule. A widget on USB has a stick: the one that its row names, if it holds the image, else the one mounted
 * last that does. With a stick it is available from it, with a labelled link for each file there and no other links to
 * sticks; without one it is unavailable, without such links. Every other widget has none of these links either.
 * PLUG's stick comes before all others; UNPLUG's has gone with all below it; for REMOVE all have.
 * `roots` are the folders below which everything is a stick's.
 */
WidgetPlan planFor(const WidgetFacts& widget, const Scope& scope, const std::vector<std::string>& roots);

}  // namespace ZelmarWidgets
