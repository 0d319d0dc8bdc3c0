// SPDX-License-Identifier: MIT
#include "zorvan/workflow/documenttext.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace prereg {

namespace {

constexpr const char* sCommonForm = "write it as { \"name\" : value, ... }, with # before comments";

constexpr const char* sValueForms = "give a number, true, false, null, '\"word\"' or '{\"name\" : value, ...}'";

/// Line ends and a mark at the start as editors of other systems write them.
std::string withPlainLines(const std::string& text)
{
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    std::string_view rest = text;
    if (rest.substr(0, mark.size()) == mark) rest.remove_prefix(mark.size());
    std::string plain;
    while (!rest.empty()) plain.append(Zorvan::NextLine(rest)).push_back('\n');
    if (!text.ends_with('\n') && !plain.empty()) plain.pop_back();
    return plain;
}

/// By way of the frozen form: type, name, value.
bson::element renamed(const bson::element& e, const std::string& name)
{
    std::string bytes(1, static_cast<char>(e.type()));
    bytes.append(name).push_back('\0');
    bytes.append(e.raw_value(), e.raw_value() + e.size_of_value());
    bson::memory_input_stream in(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return bson::element::unfreeze(in);
}

/// Of any type but a document.
bson::element shown(const bson::element& e)
{
    const std::string name = Zorvan::ToShown(e.name_string());
    if (e.type() == bson::element::eString) return {name, Zorvan::ToShown(e.as_string())};
    if (e.type() == bson::element::eInt8 || e.type() == bson::element::eUInt8)
        return bson::element::make_int32(name, 0).coerce(e, nullptr);
    return name == e.name_string() ? e : renamed(e, name);
}

/// The blanks of a document that is nested very deep would take more memory than there is.
std::string blanks(std::size_t level)
{
    constexpr std::size_t uiMaxLevel = 50;
    return std::string(2 * std::min(level, uiMaxLevel), ' ');
}

/// The nesting comes from outside, so what is open stands in a vector and not on the stack.
std::string lines(const bson::object& document)
{
    std::vector<std::pair<bson::object, std::size_t>> open{{document, 0}}; // each with its next element
    std::string text = "{\n";
    while (!open.empty()) {
        auto& [innermost, next] = open.back();
        if (next == innermost.num_elements()) {
            if (next != 0) text += '\n';
            open.pop_back();
            text += blanks(open.size()) + '}';
            continue;
        }
        if (next != 0) text += ",\n";
        const bson::element& e = innermost.begin()[next++];
        text += blanks(open.size());
        if (e.type() == bson::element::eObject) {
            text += '"' + Zorvan::ToShown(e.name_string()) + "\" : {\n";
            open.emplace_back(e.as_object(), 0);
        } else {
            text += shown(e).dump();
        }
    }
    return text;
}

} // namespace

void RefuseAt(const std::string& source, TextPlace place, const std::string& why, const std::string& advice)
{
    std::string where = place.iLine > 0 ? "line " + std::to_string(place.iLine) : std::string();
    if (place.iColumn > 0) where += ", column " + std::to_string(place.iColumn);
    throw Zorvan::CInputError(source, where + (where.empty() ? "" : ": ") + why, advice);
}

DocumentText ReadDocumentText(const std::string& handWritten, const std::string& source)
{
    if (handWritten.find('\0') != std::string::npos)
        throw Zorvan::CInputError(source, "no text", "give a file written by hand");
    const std::string text = withPlainLines(handWritten);
    try {
        return bson::read_text(bson::convert(text), bson::ETextRules::Strict);
    } catch (const bson::text_error& error) {
        RefuseAt(source, error.place(), error.what(), sCommonForm);
    } catch (const std::range_error&) {
        throw Zorvan::CInputError(source, "not UTF-8 text", "save it as UTF-8");
    }
}

bson::element ReadValueText(const std::string& text, const std::string& name)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && text[first] == '{') return {name, ReadDocumentText(text, "VALUE").document};
    try {
        // The brace stands on a line of its own, so that a comment cannot hide it.
        const bson::object document = ReadDocumentText("{'value' : " + text + "\n}", "VALUE").document;
        if (document.num_elements() == 1) return renamed(*document.begin(), name);
    } catch (const Zorvan::CInputError&) {
        // Its place would be one in our text, not in the user's.
    }
    throw Zorvan::CInputError("VALUE: " + Zorvan::Quoted(text) + " is no value; " + sValueForms);
}

std::string ToPrintable(const std::string& text)
{
    std::string lines;
    std::string_view rest = text;
    while (!rest.empty()) lines += Zorvan::ToShown(Zorvan::NextLine(rest)) + '\n';
    if (!text.ends_with('\n') && !lines.empty()) lines.pop_back();
    return lines;
}

std::string ToPrintable(const bson::object& document) { return ToPrintable(lines(document)); }

} // namespace prereg
