#pragma once

#include <kt/archive.h>

#include <functional>
#include <string>

// Shows that no damage to an archive does harm:
//
//     const kt_test::DamageReport report = kt_test::loadDamaged(kt_test::goldenBytes("costs"), [](ktArchive& archive) {
//         ktClassifierCosts costs;
//         archive || costs;
//     });
//     EXPECT_GT(report.refused, 0);

namespace kt_test {

/// Calls `visit(damaged, what)` with every prefix of the bytes, the bytes with every single bit flipped, and the bytes with
/// every four of them in a row set to 0, 1, 7FFFFFFF, 80000000 and FFFFFFFF. `what` says which it is.
void forEachDamage(const std::string& bytes,
                   const std::function<void(const std::string& damaged, const std::string& what)>& visit);

/// How many damaged archives loaded into a value all the same, and how many ended in a ktException.
struct DamageReport {
    long loaded = 0;
    long refused = 0;
};

/// Loads every damaged form of `bytes`, from a stream that tells its length and from one that cannot. `load` loads one
/// value from the archive, may use it, and destroys it before it returns. Expects of each form that
/// - `load` returns, or throws a ktException;
/// - it takes no more memory at once than 64 times the damaged bytes and 64 KiB;
/// - it leaves nothing allocated.
/// The undamaged bytes must load. Stops at the first form that fails.
DamageReport loadDamaged(const std::string& bytes, const std::function<void(ktArchive&)>& load);

/// Stores into a sink that refuses, or throws, at each byte in turn, and loads from a source that ends, or throws, at each
/// byte in turn. Expects StreamFailed, or Corrupt at an early end, and nothing left allocated.
void failEachByte(const std::function<void(ktArchive&)>& store, const std::function<void(ktArchive&)>& load);

}  // namespace kt_test
