// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>
#include <platform/zelmar_dao.h>
#include <unistd.h>
#include <string>
#include <type_traits>

/** The message of the last exception that told() caught. */
inline std::string g_message;

/** An exception without a message is never what is expected. */
inline std::string thrown(const std::string& kind, const std::string& message)
{
    g_message = message;
    return message.empty() ? kind + " without a message" : kind;
}

/** What came of an operation: its answer, or the kind of exception. */
template <typename Operation>
std::string told(Operation operation)
{
    using Failure = ZelmarDB::KxWidgetDAOReadOnly::Exception;
    g_message.clear();
    try {
        if constexpr (std::is_void_v<decltype(operation())>) {
            operation();
            return "done";
        } else if constexpr (std::is_same_v<decltype(operation()), std::wstring>) {
            return DPL::ToUTF8String(operation());
        } else if constexpr (std::is_same_v<decltype(operation()), std::string>) {
            return operation();
        } else {
            return testing::PrintToString(operation());
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
        return "an unknown exception";
    }
}

/** Shows in the trace that tests/check-durability reads. */
inline void mark(const char* instant)
{
    static_cast<void>(access(instant, F_OK));
}

/** A failure prints the operation, what came of it, and the message. */
#define EXPECT_TOLD(outcome, operation) EXPECT_EQ(outcome, told([&] { return operation; })) << g_message << '\n'
