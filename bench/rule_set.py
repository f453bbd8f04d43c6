#!/usr/bin/env python3
"""Turns a rule set and its trace (see velo-bench) into what bench/ports.sh measures with.

usage: rule_set.py NAME FOLDER     NAME.rules and NAME.uni.trace.gz are read

In FOLDER it makes set.pcap (1,024 frames of 60 octets, whose headers meet rules of the set), set.acl and set-both.acl (all
rules permit), set.ipv4 and set.ipv6 (the same for l3fwd: each rule is a route to the second port).
"""

import gzip
import struct
import sys

FRAMES = 1024
TCP, UDP = 6, 17
ACK = 0x10


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    total = (total & 0xFFFF) + (total >> 16)
    return ~(total + (total >> 16)) & 0xFFFF


def frame(source, destination, source_port, destination_port, protocol):
    ports = struct.pack("!HH", source_port, destination_port)
    behind = ports + (struct.pack("!IIBBHHH", 1, 1, 5 << 4, ACK, 1024, 0, 0) if protocol == TCP else struct.pack("!HH", 26, 0))
    ip = struct.pack("!BBHHHBBHII", 0x45, 0, 46, 0, 0, 64, protocol, 0, source, destination)
    ip = ip[:10] + struct.pack("!H", checksum(ip)) + ip[12:]
    return (bytes((2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1, 8, 0)) + ip + behind).ljust(60, b"x")


def headers(path):
    with gzip.open(path, "rt", encoding="ascii") as lines:
        for line in lines:
            *header, _, first_match = map(int, line.split())
            if first_match >= 0 and header[4] in (TCP, UDP):
                yield header


def rules(path):
    """Of each rule: source, destination, both ranges of ports, protocol or None."""
    with open(path, encoding="ascii") as lines:
        for line in lines:
            source, destination, source_ports, destination_ports, protocol = line[1:].split("\t")[:5]
            value, mask = (int(part, 16) for part in protocol.split("/"))
            yield (source, destination, source_ports.split(" : "), destination_ports.split(" : "),
                   value if mask else None)


def ports(pair):
    return "" if pair == ["0", "65535"] else f" range {pair[0]} {pair[1]}"


def network(prefix):
    """Without the bits of hosts, which may be set."""
    address, length = prefix.split("/")
    mask = 0xFFFFFFFF << (32 - int(length)) & 0xFFFFFFFF
    value = struct.unpack("!I", bytes(map(int, address.split("."))))[0] & mask
    return f"{'.'.join(map(str, struct.pack('!I', value)))}/{length}"


def main(name, folder):
    with open(f"{folder}/set.pcap", "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
        for _, header in zip(range(FRAMES), headers(f"{name}.uni.trace.gz")):
            file.write(struct.pack("<IIII", 0, 0, 60, 60) + frame(*header))
    lines, routes = [], []
    for source, destination, source_ports, destination_ports, protocol in rules(f"{name}.rules"):
        source, destination = network(source), network(destination)
        word = {TCP: "tcp", UDP: "udp", None: "ip"}.get(protocol, str(protocol))
        has_ports = protocol in (TCP, UDP)
        lines.append(f" permit {word} {source}{ports(source_ports) if has_ports else ''}"
                     f" {destination}{ports(destination_ports) if has_ports else ''}")
        number = "0x00/0x00" if protocol is None else f"0x{protocol:02X}/0xFF"
        routes.append(f"R{source} {destination} {' : '.join(source_ports)} {' : '.join(destination_ports)} {number} 1")
    text = "ip access-list L\n" + "\n".join(lines) + "\ninterface eth1\n ip access-group L in\n"
    for name, content in (("set.acl", text), ("set-both.acl", text + "interface eth2\n ip access-group L out\n"),
                          ("set.ipv4", "\n".join(routes) + "\n"), ("set.ipv6", "R0:0:0:0:0:0:0:0/0 0:0:0:0:0:0:0:0/0 0 : 65535 0 : 65535 0x00/0x00 1\n")):
        with open(f"{folder}/{name}", "w", encoding="ascii") as file:
            file.write(content)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
