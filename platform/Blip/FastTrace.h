#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Blip {

/// Fast traces are short marks in the ring that cost no formatting: a place and a few texts. They are
/// switched on and off by facility name; a switch may be set before anybody uses its facility and holds for
/// the life of the process.
bool fastTraceOn(std::string_view facility);
/// At most `mostFastTraces` can be on, because any name is accepted; false when there would be more.
bool fastTraceIs(std::string_view facility, bool on);
inline constexpr size_t mostFastTraces = 100;
/// The facilities that anybody has asked for so far with fastTraceOn(), by name.
std::vector<std::string> fastTraceFacilities();

/// Writes one record to ring(): the line "FILE:LINE" and the arguments, separated by blanks. The texts are
/// copied. To be called only when fastTraceOn() is true.
void fastTrace(std::string_view file, int line, std::initializer_list<std::string_view> args = {});

}  // namespace Blip
