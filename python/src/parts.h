#pragma once

#include <nanobind/nanobind.h>

class ktDecisionTree;

namespace nb = nanobind;

// The parts of the extension module, each in a file of its own. An order of calls is an order of classes: what names a class in a
// signature comes behind it.

void bindErrors();
void bindPatterns(nb::module_& module);
void bindCosts(nb::module_& module);
void bindResults(nb::module_& module);
void bindParams(nb::module_& module);
void bindTrees(nb::module_& module);
void bindRules(nb::module_& module);
void bindGenerators(nb::module_& module);
void bindTool(nb::module_& module);

/// A copy of the tree as a Python object of its class, which shares what is below it.
nb::object treeObjectOf(const ktDecisionTree* tree);
