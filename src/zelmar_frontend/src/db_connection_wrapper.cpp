// SPDX-License-Identifier: Apache-2.0

#include "db_connection_wrapper.h"

#include <platform/dpl.h>
#include <platform/zelmar_dao.h>
#include <exception>

#include "log.h"
#include "zelmar_frontend_constants.h"

namespace ZelmarFrontend {

bool DbConnectionWrapper::attachToThread()
{
    try {
        ZelmarDB::KxDatabase::attachToThreadRW();
        m_attached = true;
    } catch (const DPL::DB::SqlConnection::Exception::Base& e) {
        ZELMAR_DEBUG_AT(40, "SqlException caught: %s", e.message().c_str());
    } catch (const std::exception& e) {
        ZELMAR_DEBUG_AT(44, "Exception caught: %s", e.what());
    } catch (...) {
        ZELMAR_DEBUG_AT(48, "Unknown exception caught! Cannot attach DB to thread!");
    }
    return m_attached;
}

DbConnectionWrapper::~DbConnectionWrapper()
{
    if (!m_attached) {
        return;
    }
    try {
        ZelmarDB::KxDatabase::detachFromThread();
    } catch (const std::exception& e) {
        ZELMAR_DEBUG_AT(63, "Error, exception caught: %s", e.what());
    } catch (...) {
        ZELMAR_DEBUG_AT(67, "Unknown exception caught");
    }
}

}  // namespace ZelmarFrontend
