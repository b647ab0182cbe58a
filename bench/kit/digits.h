#pragma once

#include "kit.h"

// Patterns that resemble scans of written digits: few degrees of freedom in many measurements, of which many are 0.

/// A category is a line of five corners in a square. A picture is that line shifted, turned, stretched and bent a little,
/// drawn with a soft pen on as many places as there are measurements (a square number), in whole numbers from 0 to 16. There
/// are 2000 of them, the same for all seeds; a pattern is one of them with noise of a standard deviation of 0.5 on each place.
LabelledPatterns drawDigits(long numPatterns, long numMeasurements, long numCategories, unsigned long seed);
