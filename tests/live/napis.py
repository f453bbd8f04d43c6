"""What the kernel receives frames of a device by, and how long it lets them gather there."""

import os
import socket
import struct

NETLINK_GENERIC = 16
CONTROL, GET_FAMILY = 16, 3
GET, SET = 11, 14
DEVICE, ID, EMPTY_LOOKS, PAUSE = 1, 2, 5, 6
REQUEST, ACK, DUMP = 1, 4, 0x300
ERROR, DONE = 2, 3

CAN_BE_SET = tuple(int(number) for number in os.uname().release.split(".")[:2]) >= (6, 13)
# What a port says of a veth device when nothing is asked for.
AS_USUAL = ", gathers 50 us" if CAN_BE_SET else ""


def attribute(kind, value):
    data = value if isinstance(value, bytes) else struct.pack("I", value)
    return struct.pack("HH", 4 + len(data), kind) + data.ljust(-(-len(data) // 4) * 4, b"\0")


def attributes(data):
    found = {}
    while data:
        size, kind = struct.unpack_from("HH", data)
        found[kind & 0x3FFF] = int.from_bytes(data[4:size], "little") if size <= 12 else data[4:size]
        data = data[-(-size // 4) * 4:]
    return found


class Napis:
    """Those of the devices of a namespace, by netlink."""

    def __init__(self, namespace):
        self.namespace = namespace
        with namespace.entered():
            self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, NETLINK_GENERIC)
        self.close = self.socket.close
        self.family = CONTROL
        _, answers = self.ask(GET_FAMILY, attribute(2, b"netdev\0"))
        self.family = answers[0][1]

    def ask(self, command, what, flags=0):
        """The error, 0 for none, and the attributes of each answer."""
        request = struct.pack("BBH", command, 1, 0) + what
        self.socket.send(struct.pack("IHHII", 16 + len(request), self.family, REQUEST | ACK | flags, 1, 0) + request)
        answers = []
        while True:
            data = self.socket.recv(65536)
            while data:
                size, kind = struct.unpack_from("IH", data)
                if kind in (ERROR, DONE):
                    return -struct.unpack_from("i", data, 16)[0], answers
                answers.append(attributes(data[20:size]))
                data = data[-(-size // 4) * 4:]

    def all(self, device):
        with self.namespace.entered():
            index = socket.if_nametoindex(device)
        return self.ask(GET, attribute(DEVICE, index), DUMP)[1]

    def of(self, device):
        """The looks in vain, and the nanoseconds before each, of every one that the device has."""
        return [(each[EMPTY_LOOKS], each[PAUSE]) for each in self.all(device)]

    def are(self, device, values):
        """Sets all of a device. Returns the error, 0 for none."""
        looks, pause = values
        return max(self.ask(SET, attribute(ID, each[ID]) + attribute(EMPTY_LOOKS, looks) + attribute(PAUSE, pause))[0]
                   for each in self.all(device))
