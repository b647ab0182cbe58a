#pragma once

#include <atomic>

/// Advances whenever a pattern that some compact copy holds is assigned or loaded over. Copies made before compare it with
/// the value that they saw.
extern std::atomic<unsigned long> kt_patternRevision;
