#pragma once

#include <kt/config.h>

// KT_KIT_API marks what the kit exports, as KT_API does for the library below.
#if defined(KT_KIT_BUILD)
#define KT_KIT_API KT_EXPORT
#else
#define KT_KIT_API KT_IMPORT
#endif
