#pragma once

#include <agent/change/Warnings.h>

#include <string>

namespace Agent {

/// The openings of a change, and nothing else: what stays open as `lasting`, what it opens as `openings`.
/// `was` and `is`: what was filtered before, and what is afterwards.
ChangeWarnings openings(const Effective& before, const Filtering& was, const Effective& after, Filtering is,
                        const PortNames* ports);

/// What was probably meant by a name that is none of these: the port whose device it is, or the nearest
/// ports; empty when none is near.
///   " (the device of port p1)"
///   " (did you mean eth1?)"
std::string nearestPorts(const PortNames& ports, const std::string& name);

}  // namespace Agent
