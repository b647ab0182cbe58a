#pragma once

#include <nanobind/nanobind.h>

class ktDecisionTree;

namespace nb = nanobind;

// The parts of the extension module, one file for each. The order of the calls matters: a class must be bound before another part names it
// in a signature.

void bindErrors();
void bindPatterns(nb::module_& module);
void bindCosts(nb::module_& module);
void bindResults(nb::module_& module);
void bindParams(nb::module_& module);
void bindTrees(nb::module_& module);
void bindRules(nb::module_& module);
void bindGenerators(nb::module_& module);
void bindTool(nb::module_& module);

/// A Python object of the tree's own class. It holds a copy, which shares the children.
nb::object treeObjectOf(const ktDecisionTree* tree);
