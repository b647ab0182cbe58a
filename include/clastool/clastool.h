#pragma once

#include <clastool/bayes.h>
#include <clastool/classifier.h>
#include <clastool/data_generators.h>
#include <clastool/decision_tree.h>
#include <clastool/foundation.h>
#include <clastool/nearest_neighbor.h>
#include <clastool/rule_table.h>
#include <clastool/training_data.h>
