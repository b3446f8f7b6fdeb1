// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <boost/program_options/variables_map.hpp>
#include <string>

namespace ZelmarFrontend {

/**
 * An action of the tool. `main` calls setRequiredParameters, runAction, cleanAction and getActionResult, in this order.
 * If one of the last three throws, or the printing of the result fails, `main` calls rollbackAction instead of the
 * rest.
 */
class IKxWrtFrontendAction {
public:
    virtual ~IKxWrtFrontendAction() {}

    /** The command-line switch that selects the action; the same at every call. */
    virtual std::string getActionName() const = 0;

    /** The switch's line in the help text. */
    virtual std::string getActionDescription() const = 0;

    /** Copies what the action needs: the map does not outlive the call. Throws std::exception on bad input. */
    virtual void setRequiredParameters(const boost::program_options::variables_map& vm) = 0;

    /** Does the work. Throws std::exception only if the action as a whole fails, not for a single widget. */
    virtual void runAction() = 0;

    /** The text for standard output, without a newline. */
    virtual std::string getActionResult() const = 0;

    /** Undoes the steps of the widgets that failed. */
    virtual void cleanAction() = 0;

    /** Undoes the steps of all widgets, if the action has any to undo. */
    virtual void rollbackAction() noexcept = 0;
};

}  // namespace ZelmarFrontend
