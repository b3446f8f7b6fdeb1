// SPDX-License-Identifier: Apache-2.0

#include "report.h"

#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>

#include "failure.h"

namespace ZelmarWidgets {

namespace {

using nlohmann::ordered_json;
using Row = std::array<std::string, 5>;

std::string word(State state)
{
    switch (state) {
        case State::AVAILABLE:
            return "available";
        case State::UNAVAILABLE:
            return "unavailable";
        case State::ON_DEVICE:
            return "on-device";
        default:
            return "unknown";
    }
}

/** The columns that the text takes on a terminal: continuation bytes of UTF-8 take none. */
std::size_t width(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xc0) != 0x80; }));
}

ordered_json textOrNull(const std::string& text)
{
    return text.empty() ? ordered_json() : ordered_json(text);
}

/** Names need not be UTF-8; what is not, JSON shows as replacement characters. */
void print(const ordered_json& json)
{
    std::cout << json.dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace

void printTable(const std::vector<Widget>& widgets)
{
    std::vector<Row> rows{{"IDENTIFIER", "STATE", "STICK", "LINKS", "WRONG"}};
    for (const Widget& widget : widgets) {
        rows.push_back({printable(widget.identifier), word(widget.state),
                        widget.stick.empty() ? "-" : printable(widget.stick), std::to_string(widget.links.size()),
                        widget.wrong.empty() ? "-" : joined(widget.wrong)});
    }
    const std::size_t last = rows[0].size() - 1;
    std::array<std::size_t, 5> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < last; ++column) {
            widths[column] = std::max(widths[column], width(row[column]));
        }
    }
    const char* const noColor = std::getenv("NO_COLOR");
    const bool coloured = isatty(STDOUT_FILENO) != 0 && (noColor == nullptr || *noColor == '\0');
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < last; ++column) {
            std::cout << row[column] << std::string(widths[column] - width(row[column]) + 2, ' ');
        }
        const bool red = coloured && &row != &rows.front() && row[last] != "-";
        std::cout << (red ? "\033[31m" : "") << row[last] << (red ? "\033[m" : "") << '\n';
    }
}

void printJson(const std::vector<Widget>& widgets)
{
    ordered_json list = ordered_json::array();
    for (const Widget& widget : widgets) {
        list.push_back({{"identifier", widget.identifier},
                        {"state", word(widget.state)},
                        {"stick", textOrNull(widget.stick)},
                        {"links", widget.links.size()},
                        {"wrong", widget.wrong}});
    }
    print({{"widgets", list}});
}

void printLines(const std::vector<ReportLine>& lines)
{
    for (const ReportLine& line : lines) {
        std::cout << printable(line.identifier) << ": " << line.result
                  << (line.stick.empty() ? "" : " from " + printable(line.stick))
                  << (line.advice.empty() ? "" : ": " + printable(line.advice)) << '\n';
    }
    if (lines.empty()) {
        std::cout << "nothing to do\n";
    }
}

void printJson(const std::vector<ReportLine>& lines)
{
    ordered_json list = ordered_json::array();
    for (const ReportLine& line : lines) {
        list.push_back({{"identifier", line.identifier},
                        {"result", line.result},
                        {"stick", textOrNull(line.stick)},
                        {"code", textOrNull(line.code)},
                        {"advice", textOrNull(line.advice)}});
    }
    print({{"widgets", list}});
}

std::string printable(const std::string& text)
{
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool secondOfControl = (byte & 0xe0U) == 0x80 && !shown.empty() && shown.back() == '\xc2';
        if (byte < ' ' || byte == 0x7f || secondOfControl) {
            shown += std::string("\\x") + DIGITS[byte >> 4U] + DIGITS[byte & 0xfU];
        } else {
            shown += character;
        }
    }
    return shown;
}

void finishOutput()
{
    if (!std::cout.flush()) {
        throw Failure(COULD_NOT_WORK, "cannot write to standard output; free some space, or redirect it elsewhere");
    }
}

}  // namespace ZelmarWidgets
