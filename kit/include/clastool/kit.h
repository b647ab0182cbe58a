#pragma once

// The kit: what most programs write around a classifier, on top of <clastool/clastool.h>. It is a library of its own, target
// `clastool::kit`, and consists of free functions and small classes. A program that needs something else writes it on the public
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
