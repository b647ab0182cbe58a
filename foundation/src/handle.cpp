#include <kt/handle.h>

ktRepBase::~ktRepBase() = default;
