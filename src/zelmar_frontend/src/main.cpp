// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <list>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "db_connection_wrapper.h"
#include "i_kx_wrt_frontend_action.h"
#include "log.h"
#include "make_all_widgets_unavailable_action.h"
#include "make_widgets_available_action.h"
#include "make_widgets_unavailable_action.h"
#include "standard_descriptors.h"
#include "zelmar_frontend_constants.h"
#include "zelmar_frontend_parameter_parser.h"

using namespace ZelmarFrontend;

int main(int argc, char** argv)
{
    fillStandardDescriptors();
    // A reader that went away, or a file that may not grow, must show up as a failed write: the action is then rolled
    // back.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);

    DbConnectionWrapper dbConnection;
    if (!dbConnection.attachToThread()) {
        ZELMAR_ERROR_AT(41, "Cannot attach DBConnection to current thread");
        std::cerr << "Cannot attach DBConnection to current thread" << std::endl;
        return -1;
    }

    // Destroyed in reverse order: the list, the chosen action, the database.
    std::unique_ptr<IKxWrtFrontendAction> chosenAction;
    std::list<std::unique_ptr<IKxWrtFrontendAction>> actions;
    actions.push_back(std::make_unique<MakeWidgetsAvailableAction>());
    actions.push_back(std::make_unique<MakeWidgetsUnavailableAction>());
    actions.push_back(std::make_unique<MakeAllWidgetsUnavailableAction>());

    try {
        const KxWrtFrontendParameterParser parser(argc, argv, actions);
        const std::string chosenName = parser.getChosenAction();
        const auto chosen = std::find_if(actions.begin(), actions.end(), [&chosenName](const auto& action) {
            return action->getActionName() == chosenName;
        });
        if (chosen == actions.end()) {
            std::cerr << parser.getAllowedOptions() << std::endl;
            return 0;
        }
        chosenAction = std::move(*chosen);
        chosenAction->setRequiredParameters(parser.getParametersMap());
    } catch (const std::exception& e) {
        ZELMAR_DEBUG_AT(78, "Input parameters error: %s", e.what());
        std::cerr << e.what() << std::endl;
        return -1;
    }

    try {
        chosenAction->runAction();
        chosenAction->cleanAction();
        const std::string result = chosenAction->getActionResult();
        ZELMAR_DEBUG_AT(88, "chosenAction result : %s", result.c_str());
        std::cout << result << std::endl;
        if (!std::cout) {
            throw std::system_error(errno, std::generic_category(), "Cannot write the result line to standard output");
        }
    } catch (const std::exception& e) {
        ZELMAR_DEBUG_AT(93, "Internal action's error: %s", e.what());
        chosenAction->rollbackAction();
        std::cerr << e.what() << std::endl;
        return -1;
    }
    return 0;
}
