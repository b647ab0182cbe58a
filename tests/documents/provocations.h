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

}  // namespace documents
