#pragma once

#include <kt/archive.h>
#include <kt/attention.h>
#include <kt/diagnostics.h>
#include <kt/exception.h>
#include <kt/failure.h>
#include <kt/handle.h>
#include <kt/matrix.h>
#include <kt/normal_density.h>
#include <kt/pair.h>
#include <kt/persistent.h>
#include <kt/random.h>
#include <kt/range.h>
#include <kt/version.h>
