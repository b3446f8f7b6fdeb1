// SPDX-License-Identifier: Apache-2.0

#include "make_all_widgets_unavailable_action.h"

#include <platform/dpl.h>
#include <platform/zelmar_dao.h>
#include <vector>

#include "log.h"
#include "make_widgets_unavailable_action.h"
#include "zelmar_frontend_constants.h"

using ZelmarDB::KxWidgetDAOReadOnly;

namespace ZelmarFrontend {

const std::string MakeAllWidgetsUnavailableAction::m_actionName("make-all-unavailable");
const std::string MakeAllWidgetsUnavailableAction::m_actionDescription("Changes all external widgets as unavailable");

void MakeAllWidgetsUnavailableAction::setRequiredParameters(const boost::program_options::variables_map&) {}

void MakeAllWidgetsUnavailableAction::runAction()
{
    std::vector<std::string> pkgIds;
    for (const auto& dao : KxWidgetDAOReadOnly::getAvailableWidgets()) {
        try {
            ZELMAR_DEBUG("Dao handle: %s", DPL::ToUTF8String(dao->getTizenAppId()).c_str());
            if (const auto kxAppId = dao->getKxAppId()) {
                pkgIds.push_back(DPL::ToUTF8String(*kxAppId));
            }
        } catch (const KxWidgetDAOReadOnly::Exception::WidgetNotExist& e) {
            ZELMAR_DEBUG("Widget not exist: %s", e.message().c_str());
        } catch (const KxWidgetDAOReadOnly::Exception::DatabaseError& e) {
            ZELMAR_DEBUG("Database error: %s", e.message().c_str());
        }
    }
    if (pkgIds.empty()) {
        return;
    }

    MakeWidgetsUnavailableAction action;
    action.setRequiredParameters(pkgIds);
    action.runAction();
    action.cleanAction();
    action.getActionResult().swap(m_actionResult);
}

void MakeAllWidgetsUnavailableAction::cleanAction()
{
    ZELMAR_DEBUG("Action's clean is not required.");
}

void MakeAllWidgetsUnavailableAction::rollbackAction() noexcept
{
    ZELMAR_DEBUG("No action required");
}

}  // namespace ZelmarFrontend
