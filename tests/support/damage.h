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

/// Calls `visit(damaged, what)` with every damaged form of the bytes, `what` saying which it is:
/// - every prefix;
/// - the bytes with every single bit flipped;
/// - with every byte set to 00, 7F, 80 and FF;
/// - with every four of them in a row set to 0, 1, 7FFFFFFF, 80000000 and FFFFFFFF, and to one less and one more than they are;
/// - with every name of a registered class, as a pointer record has it, exchanged for that of each other class;
/// - with all that reads like a reference leading to each other object of the archive, and to one that there is not.
void forEachDamage(const std::string& bytes,
                   const std::function<void(const std::string& damaged, const std::string& what)>& visit);

/// Whether the environment asks for every damaged form (KT_EVERY_CASE is set). Else `forEachChosenDamage` visits every tenth.
bool everyCaseIsAsked();

/// The same for every damaged form if that is asked for, else for one in ten: always the same ones, and some of every kind.
void forEachChosenDamage(const std::string& bytes,
                         const std::function<void(const std::string& damaged, const std::string& what)>& visit);

/// How many damaged archives loaded, and how many ended in a ktException.
struct DamageReport {
    long loaded = 0;
    long refused = 0;
};

/// Loads the chosen damaged forms of `bytes`, from a stream that tells its length and from one that cannot. `load` loads one
/// value from the archive, may use it, and destroys it before it returns. Expects of each form that
/// - `load` returns, or throws a ktException;
/// - it takes no more memory at once than 64 times the damaged bytes and 64 KiB;
/// - it leaves nothing allocated.
/// The undamaged bytes must load. Stops at the first form that fails.
DamageReport loadDamaged(const std::string& bytes, const std::function<void(ktArchive&)>& load);

/// Stores into a sink that refuses, or throws, at each byte in turn, and loads from a source that ends, or throws, at each
/// byte in turn. Expects of each
/// - StreamFailed, or Corrupt with "unexpected end" at an early end;
/// - that the sink got the bytes before, and no others;
/// - that `store`, or `load`, succeeds right after with a good stream, and that the same bytes are stored as ever;
/// - that nothing is left allocated beyond what a load that succeeds leaves.
/// `load` may load into objects that live on, to show that they are usable after a load that failed.
void failEachByte(const std::function<void(ktArchive&)>& store, const std::function<void(ktArchive&)>& load);

}  // namespace kt_test
