#pragma once

// What nearly every test includes: the library, GoogleTest, the standard library, and what most tests share.

#include "support/allocations.h"
#include "support/archives.h"
#include "support/attention.h"
#include "support/bytes.h"
#include "support/failures.h"
#include "support/training.h"

#include <clastool/clastool.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <typeinfo>
#include <vector>

namespace kt_test {

inline constexpr double infinity = std::numeric_limits<double>::infinity();
inline constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

}  // namespace kt_test
