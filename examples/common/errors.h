#pragma once

#include <clastool/kit.h>

#include <cstdint>
#include <exception>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <typeindex>
#include <typeinfo>

namespace examples {

/// The name of an error's class, as the documents spell it. The registry of archivable classes knows most of them; a type's
/// own name is spelt by each compiler in its own way.
inline std::string className(const ktException& error)
{
    static const std::map<std::type_index, std::string> others = {
        {typeid(ktBadPointer), "ktBadPointer"},
        {typeid(ktFailure), "ktFailure"},
        {typeid(ktArchive::UnknownVersion), "ktArchive::UnknownVersion"},
        {typeid(ktArchive::Corrupt), "ktArchive::Corrupt"},
        {typeid(ktArchive::OutOfRange), "ktArchive::OutOfRange"},
        {typeid(ktArchive::TooDeep), "ktArchive::TooDeep"},
        {typeid(ktArchive::Conflict), "ktArchive::Conflict"},
        {typeid(ktArchive::StreamFailed), "ktArchive::StreamFailed"},
        {typeid(ktKit::FileError), "ktKit::FileError"},
    };
    if (const kt_Instantiator* entry = kt_Instantiator::find(typeid(error))) {
        return entry->name();
    }
    const auto place = others.find(typeid(error));
    return place == others.end() ? typeid(error).name() : place->second;
}

/// One line on stderr for whatever ended an example: of the library's errors class, number and text. Returns the program's
/// exit status.
inline int reportError(const std::exception& error)
{
    std::cout.flush();
    std::cerr << "error: ";
    if (const auto* own = dynamic_cast<const ktException*>(&error)) {
        std::cerr << className(*own) << ", number 0x" << std::hex << std::uppercase
                  << static_cast<std::uint32_t>(own->errorNumber()) << std::dec << ": ";
    }
    const std::string text = error.what();
    std::cerr << (text.empty() ? "(no text)" : text) << "\n";
    return 1;
}

}  // namespace examples
