// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>
#include <platform/zelmar_dao.h>
#include <ostream>
#include <string>
#include <type_traits>

/** What came of an operation: its answer, or the kind of exception with its message. A failed check prints all of it.
 */
struct Told {
    std::string outcome;
    std::string message;
};

inline bool operator==(const std::string& expected, const Told& told)
{
    return expected == told.outcome;
}

inline std::ostream& operator<<(std::ostream& out, const Told& told)
{
    return out << told.outcome << ": " << told.message;
}

/** An exception without a message is never what is expected. */
inline Told thrown(const std::string& kind, const std::string& message)
{
    return {message.empty() ? kind + " without a message" : kind, message};
}

template <typename Operation>
Told told(Operation operation)
{
    using Failure = ZelmarDB::KxWidgetDAOReadOnly::Exception;
    using Answer = decltype(operation());
    try {
        if constexpr (std::is_void_v<Answer>) {
            operation();
            return {"done", ""};
        } else if constexpr (std::is_same_v<Answer, std::wstring>) {
            return {DPL::ToUTF8String(operation()), ""};
        } else {
            return {testing::PrintToString(operation()), ""};
        }
    } catch (const Failure::WidgetNotExist& e) {
        return thrown("WidgetNotExist", e.message());
    } catch (const Failure::DatabaseError& e) {
        return thrown("DatabaseError", e.message());
    } catch (const DPL::DB::SqlConnection::Exception::Base& e) {
        return thrown("SqlException", e.message());
    } catch (const std::exception& e) {
        return thrown("std::exception", e.what());
    } catch (...) {
        return {"an unknown exception", ""};
    }
}

#define TELL(operation) told([&] { return operation; })
