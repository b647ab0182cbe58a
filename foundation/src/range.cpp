#include <kt/range.h>

ktArchive& operator||(ktArchive& archive, ktRange& range)
{
    const ktArchive::Pass pass(archive);
    return archive || range.low_ || range.high_;
}
