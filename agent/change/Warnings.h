#pragma once

#include <agent/change/Sources.h>

#include <string>
#include <vector>

namespace Agent {

/// What is probably not meant by sources that have no mistake, each as a sentence that says what follows from
/// it. A further warning is a function in Warnings.cpp and a row in the table there.
std::vector<std::string> warningsOf(const Sources& sources);

}  // namespace Agent
