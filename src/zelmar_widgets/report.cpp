// SPDX-License-Identifier: Apache-2.0

#include "report.h"

#include <unistd.h>
#include <algorithm>
#include <array>
#include <boost/locale/utf.hpp>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>

namespace ZelmarWidgets {

namespace {

using nlohmann::ordered_json;
using Row = std::array<std::string, 5>;

std::string stateOf(const WidgetFacts& widget)
{
    switch (widget.home) {
        case Home::TELEVISION:
            return "on-device";
        case Home::UNKNOWN:
            return "unknown";
        case Home::STICK:
            break;
    }
    return widget.available ? "available" : "unavailable";
}

std::string nameOf(Result result)
{
    switch (result) {
        case Result::AVAILABLE:
            return "available";
        case Result::UNAVAILABLE:
            return "unavailable";
        case Result::CLEARED:
            return "cleared";
        case Result::FAILED:
            break;
    }
    return "failed";
}

std::string nameOf(Failure::Kind kind)
{
    switch (kind) {
        case Failure::Kind::COMMAND_LINE:
            return "command-line";
        case Failure::Kind::SYSTEM:
            return "system";
        case Failure::Kind::DATABASE:
            return "database";
        case Failure::Kind::TOOL:
            return "tool";
        case Failure::Kind::WIDGET:
            break;
    }
    return "widget";
}

/** The stick that the widget is available from, or else the one that it could be available from. */
std::string stickOf(const WidgetStatus& widget)
{
    return widget.facts.home == Home::STICK && widget.facts.available ? widget.facts.rowStick : widget.plan.stick;
}

/** The columns that the text takes on a terminal: continuation bytes of UTF-8 take none. */
std::size_t width(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xc0) != 0x80; }));
}

std::string hexadecimal(char byte)
{
    constexpr char DIGITS[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    return {DIGITS[value >> 4U], DIGITS[value & 0xfU]};
}

/** The text with each character, or byte that belongs to none, as `shown` gives it. */
template <typename Function>
std::string translated(const std::string& text, Function shown)
{
    namespace utf = boost::locale::utf;
    std::string translation;
    for (auto at = text.begin(); at != text.end();) {
        auto next = at;
        const utf::code_point character = utf::utf_traits<char>::decode(next, text.end());
        if (!utf::is_valid_codepoint(character)) {
            next = at + 1;
        }
        translation += shown(std::string(at, next), character);
        at = next;
    }
    return translation;
}

ordered_json textOrNull(const std::string& text)
{
    return text.empty() ? ordered_json() : ordered_json(textForJson(text));
}

ordered_json textsOf(const std::vector<std::string>& texts)
{
    ordered_json list = ordered_json::array();
    for (const std::string& text : texts) {
        list.push_back(textOrNull(text));
    }
    return list;
}

ordered_json linksOf(const WidgetFacts& widget)
{
    ordered_json links = ordered_json::object();
    const auto names = fileNames(widget.identifier);
    for (std::size_t file = 0; file < FILE_COUNT; ++file) {
        if (const auto& link = widget.links[file]) {
            links[textForJson(names[file])] = {{"target", textOrNull(link->target)}, {"labelled", link->labelled}};
        }
    }
    return links;
}

void print(const ordered_json& json)
{
    std::cout << json.dump(2) << '\n';
}

}  // namespace

void printTable(const std::vector<WidgetStatus>& widgets)
{
    std::vector<Row> rows{{"IDENTIFIER", "STATE", "STICK", "LINKS", "FAULTS"}};
    for (const WidgetStatus& widget : widgets) {
        const std::string stick = stickOf(widget);
        const auto& links = widget.facts.links;
        const auto count = std::count_if(links.begin(), links.end(), [](const auto& link) { return link.has_value(); });
        rows.push_back({printable(widget.facts.identifier), stateOf(widget.facts),
                        stick.empty() ? "-" : printable(stick), std::to_string(count),
                        widget.plan.faults.empty() ? "-" : namesOf(widget.plan.faults)});
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

void printJson(const std::vector<WidgetStatus>& widgets, const std::vector<std::string>& troubles)
{
    ordered_json list = ordered_json::array();
    for (const WidgetStatus& widget : widgets) {
        const std::string& identifier = widget.facts.identifier;
        const std::string stick = stickOf(widget);
        ordered_json faults = ordered_json::array();
        for (const Fault fault : widget.plan.faults) {
            faults.push_back(nameOf(fault));
        }
        list.push_back({{"identifier", textOrNull(identifier)},
                        {"application", textOrNull(widget.facts.application)},
                        {"state", stateOf(widget.facts)},
                        {"stick", textOrNull(stick)},
                        {"image_directory", textOrNull(imageDirectory(identifier))},
                        {"content_directory", textOrNull(stick.empty() ? "" : contentDirectory(stick, identifier))},
                        {"links", linksOf(widget.facts)},
                        {"faults", faults}});
    }
    print({{"format", JSON_FORMAT}, {"widgets", list}, {"troubles", textsOf(troubles)}});
}

void printLines(const Report& report)
{
    for (const ReportLine& line : report.lines) {
        std::cout << printable(line.identifier) << ": " << (report.isDryRun ? "would be " : "") << nameOf(line.result)
                  << (line.stick.empty() ? "" : " from " + printable(line.stick))
                  << (line.advice.empty() ? "" : ": " + printable(line.advice)) << '\n';
    }
    if (report.lines.empty()) {
        std::cout << "nothing to do\n";
    }
}

void printJson(const Report& report)
{
    ordered_json list = ordered_json::array();
    for (const ReportLine& line : report.lines) {
        list.push_back({{"identifier", textOrNull(line.identifier)},
                        {"application", textOrNull(line.application)},
                        {"result", nameOf(line.result)},
                        {"stick", textOrNull(line.stick)},
                        {"code", textOrNull(line.code)},
                        {"advice", textOrNull(line.advice)}});
    }
    print({{"format", JSON_FORMAT},
           {"dry_run", report.isDryRun},
           {"widgets", list},
           {"troubles", textsOf(report.troubles)}});
}

void printLine(const Check& check)
{
    std::cout << check.subject << ": " << printable(check.finding)
              << (check.advice.empty() ? ": ok" : "; " + printable(check.advice)) << std::endl;
}

void printJson(const std::vector<Check>& checks)
{
    ordered_json list = ordered_json::array();
    for (const Check& check : checks) {
        list.push_back({{"subject", check.subject},
                        {"finding", textForJson(check.finding)},
                        {"advice", textOrNull(check.advice)}});
    }
    print({{"format", JSON_FORMAT}, {"checks", list}});
}

void printJson(const Failure& failure)
{
    print({{"format", JSON_FORMAT},
           {"failure",
            {{"kind", nameOf(failure.kind())},
             {"message", textOrNull(failure.what())},
             {"advice", textOrNull(failure.advice())}}}});
}

std::string textForJson(const std::string& text)
{
    return translated(text, [](const std::string& bytes, boost::locale::utf::code_point character) {
        const std::string replacement = "\ufffd";
        if (!boost::locale::utf::is_valid_codepoint(character)) {
            return replacement + hexadecimal(bytes[0]);
        }
        return bytes == replacement ? replacement + replacement : bytes;
    });
}

std::string printable(const std::string& text)
{
    return translated(text, [](const std::string& bytes, boost::locale::utf::code_point character) {
        if (character == '\\') {
            return std::string("\\\\");
        }
        const bool isControl = character < ' ' || (character >= 0x7f && character < 0xa0);
        if (!isControl && boost::locale::utf::is_valid_codepoint(character)) {
            return bytes;
        }
        std::string shown;
        for (const char byte : bytes) {
            shown += "\\x" + hexadecimal(byte);
        }
        return shown;
    });
}

void finishOutput()
{
    if (!std::cout.flush()) {
        throw Failure(COMMAND_FAILED, Failure::Kind::SYSTEM, "cannot write to standard output",
                      "free some space, or redirect it elsewhere");
    }
}

}  // namespace ZelmarWidgets
