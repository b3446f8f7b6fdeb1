// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "action_support.h"
#include "i_kx_wrt_frontend_action.h"
#include "processed_widget.h"

namespace ZelmarFrontend {

/** "make-available": links the widgets' content on a mounted stick into their image directories. */
class MakeWidgetsAvailableAction : public IKxWrtFrontendAction {
public:
    std::string getActionName() const override { return m_actionName; }
    std::string getActionDescription() const override { return m_actionDescription; }

    /** Takes "path", an existing directory, and "kxAppId". Throws std::runtime_error if one is missing or bad. */
    void setRequiredParameters(const boost::program_options::variables_map& vm) override;
    void runAction() override;
    std::string getActionResult() const override;
    void cleanAction() override;
    void rollbackAction() noexcept override;

private:
    /**
     * Links and labels the widget's files that are on the stick. Throws KxWrtFrontendActionException, with an
     * empty message, at the first link that fails; the removal of those made so far is registered. Throws another
     * std::exception, before any link, if "path" is not UTF-8.
     */
    void createSymlinks(const std::string& pkgId);

    static const std::string m_actionName;
    static const std::string m_actionDescription;

    std::string m_externalPath;
    // Never grows once the run has begun: the undo calls below point into it.
    std::vector<ProcessedWidget> m_widgets;
    ActionSupport m_actionSupport;
};

}  // namespace ZelmarFrontend
