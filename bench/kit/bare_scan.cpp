#include "bare_scan.h"

// Nothing from another header: an inline function compiled here for wider vectors could end up in the whole program.

float BARE_SCAN(const float* blocks, std::size_t numBlocks, const float* query, std::size_t numMeasurements)
{
    float lowest[bareScanRows];
    for (float& value : lowest) {
        value = 3.4e38f;
    }
    for (std::size_t block = 0; block < numBlocks; ++block) {
        const float* column = blocks + block * numMeasurements * bareScanRows;
        float sums[bareScanRows] = {};
        for (std::size_t j = 0; j < numMeasurements; ++j, column += bareScanRows) {
            const float centre = query[j];
            for (std::size_t row = 0; row < bareScanRows; ++row) {
                const float difference = column[row] - centre;
                sums[row] += difference * difference;
            }
        }
        for (std::size_t row = 0; row < bareScanRows; ++row) {
            lowest[row] = sums[row] < lowest[row] ? sums[row] : lowest[row];
        }
    }
    float smallest = lowest[0];
    for (const float value : lowest) {
        smallest = value < smallest ? value : smallest;
    }
    return smallest;
}
