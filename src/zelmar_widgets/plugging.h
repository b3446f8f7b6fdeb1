#pragma once

#include <string>
#include <vector>

namespace ZelmarWidgets {

/** What a command made of a widget. */
struct Outcome {
    std::string identifier;
    std::string verdict;  // "available", "unavailable", "planned", "cleared" or "failed"
    std::string code;     // the tool's error code after a failure, if it had one
    std::string advice;   // what is wrong and what to do; empty: all is as it should be
};

// Each throws Failure and ZelmarDB::RegistryError; outcomes are in the order of the identifiers.

/** Makes the database's widgets on the stick available; with `dryRun`, only tells which these are. */
std::vector<Outcome> plug(const std::string& mountPoint, bool dryRun);

/** Makes the widgets that lead to the stick unavailable, or available from another stick that holds them too. */
std::vector<Outcome> unplug(const std::string& mountPoint);

/** Brings into order what lookAtWidgets finds wrong. */
std::vector<Outcome> heal();

/** In plain words, what the tool's error code says of the widget, and what to do; empty for a success. */
std::string causeOf(const std::string& code, const std::string& identifier);

}  // namespace ZelmarWidgets
