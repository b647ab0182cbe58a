#pragma once

#include "support/test.h"

namespace documents {

/// An error as docs/errors.md gives its text, and an operation that ends in it.
struct Provocation {
    std::string text;
    std::function<void()> operation;
};

std::vector<Provocation> provocationsOfClassification();
std::vector<Provocation> provocationsOfFoundation();

inline std::vector<Provocation> allProvocations()
{
    std::vector<Provocation> all = provocationsOfClassification();
    const std::vector<Provocation> more = provocationsOfFoundation();
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

}  // namespace documents
