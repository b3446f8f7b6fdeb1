// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "i_kx_wrt_frontend_action.h"
#include "processed_widget.h"

namespace ZelmarFrontend {

/** "make-unavailable": clears the storage path, removes the links, and sets the state. Needs no stick. */
class MakeWidgetsUnavailableAction : public IKxWrtFrontendAction {
public:
    std::string getActionName() const override { return m_actionName; }
    std::string getActionDescription() const override { return m_actionDescription; }

    /** Takes "kxAppId". Throws std::runtime_error if it is missing. */
    void setRequiredParameters(const boost::program_options::variables_map& vm) override;

    /** Appends the widgets of `pkgIds` to those already taken. */
    void setRequiredParameters(const std::vector<std::string>& pkgIds);

    void runAction() override;
    std::string getActionResult() const override;
    void cleanAction() override;
    void rollbackAction() noexcept override;

private:
    static const std::string m_actionName;
    static const std::string m_actionDescription;

    std::vector<ProcessedWidget> m_widgets;
};

}  // namespace ZelmarFrontend
