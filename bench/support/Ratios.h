#pragma once

#include <string>

namespace Bench {

/// Has the ratio of two benchmarks printed after the run, with the limit that it is compared with: the median
/// of their processor time (of the time that they measure themselves, when they do), or of the user counter
/// `counter` when that is named. A benchmark that did not run, by its name as it is printed, leaves its ratio
/// out.
void ratio(std::string text, std::string numerator, std::string denominator, double limit,
           std::string counter = {});

}  // namespace Bench
