#pragma once

#include "support/golden.h"
#include "support/test.h"

#include <typeindex>

// The rows of docs/errors.md, and how errors are compared with these.

namespace documents {

inline void replaceAll(std::string& text, const std::string& what, const std::string& with)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
}

/// A row of the page, under the heading of its class.
struct ErrorRow {
    std::string errorClass;
    long number;
    std::string text;
};

inline bool operator<(const ErrorRow& a, const ErrorRow& b)
{
    return std::tie(a.errorClass, a.number, a.text) < std::tie(b.errorClass, b.number, b.text);
}

inline std::ostream& operator<<(std::ostream& out, const ErrorRow& row)
{
    return out << row.errorClass << " 0x" << std::hex << row.number << std::dec << " \"" << row.text << "\"";
}

/// Headings are `### class, number`, rows begin with the text in backticks. A bar inside a text is written `\|`.
inline std::set<ErrorRow> rowsOfPage()
{
    std::set<ErrorRow> rows;
    std::istringstream page(kt_test::fileBytes(kt_test::projectFolder() + "/docs/errors.md"));
    ErrorRow row;
    for (std::string line; std::getline(page, line);) {
        const auto comma = line.find(", 0x");
        if (line.rfind("## ", 0) == 0) {
            row.errorClass.clear();
        } else if (line.rfind("### ", 0) == 0 && comma != std::string::npos) {
            row.errorClass = line.substr(4, comma - 4);
            row.number = std::strtol(line.c_str() + comma + 2, nullptr, 16);
        } else if (row.errorClass.empty()) {
            continue;
        } else if (line.rfind("| `", 0) == 0) {
            replaceAll(line, "\\|", "|");
            row.text = line.substr(3, line.find("` | ") - 3);
            rows.insert(row);
        } else if (line.rfind("| (no text) |", 0) == 0) {
            row.text.clear();
            rows.insert(row);
        }
    }
    return rows;
}

/// Whether the message is the text, where `<...>` stands for anything.
inline bool isText(const std::string& message, const std::string& text)
{
    const auto open = text.find('<');
    const auto close = text.find('>', open);
    if (open == std::string::npos || close == std::string::npos || text.find(' ', open) < close) {
        return message == text;
    }
    if (message.compare(0, open, text, 0, open) != 0) {
        return false;
    }
    const std::string rest = text.substr(close + 1);
    for (std::size_t end = open + 1; end <= message.size(); ++end) {
        if (isText(message.substr(end), rest)) {
            return true;
        }
    }
    return false;
}

/// The name of the error's class as a program writes it.
inline std::string className(const ktException& error)
{
    static const std::map<std::type_index, std::string> foundation = {
        {typeid(ktArchive::UnknownVersion), "ktArchive::UnknownVersion"},
        {typeid(ktArchive::Corrupt), "ktArchive::Corrupt"},
        {typeid(ktArchive::OutOfRange), "ktArchive::OutOfRange"},
        {typeid(ktArchive::TooDeep), "ktArchive::TooDeep"},
        {typeid(ktArchive::Conflict), "ktArchive::Conflict"},
        {typeid(ktArchive::StreamFailed), "ktArchive::StreamFailed"},
        {typeid(ktBadPointer), "ktBadPointer"},
        {typeid(ktFailure), "ktFailure"},
    };
    if (const kt_Instantiator* entry = kt_Instantiator::find(typeid(error))) {
        return entry->name();
    }
    const auto place = foundation.find(typeid(error));
    return place == foundation.end() ? "a class of another name" : place->second;
}

/// What no test brings about.
inline bool isBeyondTesting(const ErrorRow& row)
{
    return row.text.find("more objects than 32 bits can count") != std::string::npos ||
           (LONG_MAX == 2147483647L && row.text.find("does not fit 32 bits") != std::string::npos);
}

}  // namespace documents
