#pragma once

#include "Dice.h"
#include "Frames.h"

#include <cstdint>

/// Frames of a few addresses, ports and values, so that rules that are made of the same ones have to do with
/// them.
namespace TestSupport {

constexpr const char* addresses4[] = {"192.0.2.1", "192.0.2.2", "192.0.2.130", "198.51.100.7", "0.0.0.0"};
constexpr const char* addresses6[] = {"2001:db8::1", "2001:db8::2", "2001:db8:0:1::1", "fe80::1", "::"};
constexpr const char* macs[] = {"02:00:5e:00:00:01", "02:00:5e:00:00:02", "02:00:5e:00:01:01",
                                "ff:ff:ff:ff:ff:ff"};
constexpr uint16_t ports[] = {0, 22, 53, 80, 81, 443, 1023, 1024, 65535};
constexpr uint8_t hops[] = {0, 1, 63, 64, 255};
constexpr uint8_t classes[] = {0, 0x20, 46 << 2, 0x2f, 0xff};
constexpr uint16_t vlans[] = {0, 1, 100, 101, 4095};
constexpr uint8_t protocols[] = {6, 17, 1, 58, 132, 99};

/// Right in every octet, with up to two tags: IPv4 and IPv6 with fragments and extension headers, or any.
Bytes randomIp4Frame(Dice& dice);
Bytes randomIp6Frame(Dice& dice);
Bytes randomFrame(Dice& dice);

/// Cuts it off, makes it longer, or changes some octets.
void damage(Bytes& frame, Dice& dice);

}  // namespace TestSupport
