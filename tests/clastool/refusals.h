#pragma once

#include "support/test.h"

// Short ways to say which error an operation ends in.

namespace kt_test {

/// Expects that `operation` throws exactly an Error with this whole message:
///
///     kt_test::expectRefused<ktClassifierDefs::BadParams>([&] { costs.defaultMisclassificationCost(-1.0); }, "Costs must be >= 0.0");
template <class Error, class Operation>
void expectRefused(Operation operation, const std::string& message)
{
    expectThrows<Error>(message, operation);
}

}  // namespace kt_test
