#pragma once

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace examples {

/// Whether the standard output is a terminal, where a line can be written over, and not a file or a pipe.
inline bool printsToTerminal()
{
#if defined(_WIN32)
    return _isatty(1) != 0;
#else
    return isatty(STDOUT_FILENO) != 0;
#endif
}

}  // namespace examples
