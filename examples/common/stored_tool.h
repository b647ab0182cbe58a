#pragma once

#include <clastool/clastool.h>

#include <istream>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace examples {

/// Stores a tool. A file is opened binary, and closed before its state tells whether the disk took everything.
inline void store(ktClassifierTool& tool, std::ostream& stream)
{
    ktArchive archive(stream);
    archive || tool;
}

/// Loads a tool that can run. What is wrong with the bytes ends in an error of ktArchive, which says what and where. An
/// untrained tool can be stored and loaded like any other, so one question is left; `name` is that of the file.
inline ktClassifierTool load(std::istream& stream, const std::string& name)
{
    ktArchive archive(stream);
    ktClassifierTool tool;
    archive || tool;
    if (!tool.isTrained()) {
        throw std::runtime_error(name + ": the stored tool is not trained");
    }
    return tool;
}

/// The bytes of a stored tool.
inline std::string bytesOf(ktClassifierTool& tool)
{
    std::ostringstream stream;
    store(tool, stream);
    return stream.str();
}

/// Loads a tool from bytes.
inline ktClassifierTool toolFrom(const std::string& bytes)
{
    std::istringstream stream(bytes);
    return load(stream, "memory");
}

}  // namespace examples
