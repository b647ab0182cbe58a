#pragma once

// The kit: what most programs write around a classifier, on top of <clastool/clastool.h>. A library of its own, target
// `clastool::kit`, and free functions and small classes alone: whoever needs something else writes it on the same public
// operations of the library below.

#include <clastool/clastool.h>
#include <clastool/kit/csv.h>
#include <clastool/kit/files.h>
#include <clastool/kit/learning.h>
#include <clastool/kit/patterns.h>
#include <clastool/kit/rejection.h>
#include <clastool/kit/runs.h>
#include <clastool/kit/scaler.h>
#include <clastool/kit/validation.h>
