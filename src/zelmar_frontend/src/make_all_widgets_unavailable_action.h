// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "i_kx_wrt_frontend_action.h"

namespace ZelmarFrontend {

/** "make-all-unavailable": does "make-unavailable" for every widget that the database lists as available. */
class MakeAllWidgetsUnavailableAction : public IKxWrtFrontendAction {
public:
    std::string getActionName() const override { return m_actionName; }
    std::string getActionDescription() const override { return m_actionDescription; }

    /** Reads no option, and ignores those given. */
    void setRequiredParameters(const boost::program_options::variables_map& vm) override;
    void runAction() override;
    std::string getActionResult() const override { return m_actionResult; }
    void cleanAction() override;
    void rollbackAction() noexcept override;

private:
    static const std::string m_actionName;
    static const std::string m_actionDescription;

    std::string m_actionResult;
};

}  // namespace ZelmarFrontend
