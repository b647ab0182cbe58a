#include <kt/random.h>

namespace {

/// A multiple of 2^-53 in [0, 1): 53 random bits are what a double can hold.
double uniform(std::mt19937_64& engine)
{
    return static_cast<double>(engine() >> 11) * 0x1p-53;
}

}  // namespace

ktRandomUniform::ktRandomUniform(unsigned long seed) : engine_(seed) {}

double ktRandomUniform::next(double low, double high)
{
    const double value = low + (high - low) * uniform(engine_);
    // Rounding can carry a draw near 1 up to the end that must not be reached.
    return value < high ? value : low;
}

ktRandomGaussian::ktRandomGaussian(unsigned long seed) : engine_(seed) {}

double ktRandomGaussian::next(double mean, double standardDeviation)
{
    return mean + standardDeviation * standardNormal();
}

/// True with probability exp(-1/2): the length of a falling run of uniform numbers below 1/2 is even.
bool ktRandomGaussian::halfExponential()
{
    bool even = true;
    for (double bound = 0.5;; even = !even) {
        const double draw = uniform(engine_);
        if (draw >= bound) {
            return even;
        }
        bound = draw;
    }
}

/// Karney's algorithm N. The result is +-(k + x): k >= 0 is drawn with probability proportional to exp(-k^2/2), and x in
/// [0, 1) accepted with probability exp(-x (2k + x) / 2); a refusal at any step starts over.
double ktRandomGaussian::standardNormal()
{
    for (;;) {
        int k = 0;
        while (halfExponential()) {
            ++k;
        }
        bool accepted = true;
        for (int i = 0; accepted && i < k * (k - 1); ++i) {
            accepted = halfExponential();
        }
        const double x = accepted ? uniform(engine_) : 0.0;
        // exp(-x (2k + x) / 2) as k + 1 independent trials of probability exp(-x (2k + x) / (2k + 2)).
        for (int trial = 0; accepted && trial <= k; ++trial) {
            bool even = true;
            for (double bound = x;; even = !even) {
                const double draw = uniform(engine_);
                if (draw >= bound || uniform(engine_) >= (2 * k + x) / (2 * k + 2)) {
                    break;
                }
                bound = draw;
            }
            accepted = even;
        }
        if (accepted) {
            return (engine_() >> 63) == 0 ? k + x : -(k + x);
        }
    }
}
