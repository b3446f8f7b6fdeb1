// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <boost/program_options/variables_map.hpp>
#include <list>
#include <memory>
#include <string>

#include "i_kx_wrt_frontend_action.h"

namespace ZelmarFrontend {

/** The parsed command line: at most one action, and the parameters it may read. */
class KxWrtFrontendParameterParser {
public:
    /**
     * Parses the whole command line; one switch per action, named and described by it. Keeps neither `argv` nor
     * `actions`. Throws std::runtime_error if two actions are selected, and the option library's own errors.
     */
    KxWrtFrontendParameterParser(int argc, const char* const argv[],
                                 const std::list<std::unique_ptr<IKxWrtFrontendAction>>& actions);
    virtual ~KxWrtFrontendParameterParser() = default;

    /** Empty if the command line selects none. */
    std::string getChosenAction() const { return m_chosenAction; }

    /** Valid as long as the parser lives. */
    const boost::program_options::variables_map& getParametersMap() const { return m_parametersMap; }

    std::string getAllowedOptions() const { return m_allowedOptions; }

private:
    std::string m_chosenAction;
    std::string m_allowedOptions;
    boost::program_options::variables_map m_parametersMap;
};

}  // namespace ZelmarFrontend
