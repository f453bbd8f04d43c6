#!/usr/bin/env python3
"""Tests what holds of all ports again over each other kind: GROUP over KIND is the test class KINDGROUP.

usage: kinds_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import json
import os

import live_test
import operating_test
from live_test import until

NO_CARDS = ("--dpdk-args", "--no-huge -m 256 --no-pci")


def has_dpdk():
    return os.path.exists(os.path.join(os.path.dirname(live_test.VELO), "VeloDpdk.so"))


class Xdp:
    def port(self, number):
        return f"xdp:eth{number}"


class Mixed:
    """Ports of two kinds joined with each other."""

    def port(self, number):
        return f"xdp:eth{number}" if number % 2 else f"packet:eth{number}"


class Bridged:
    """Ports on devices whose other end is the host's: a bridge of the kernel joins each with its station."""

    def stations_are(self, *numbers):
        for number in numbers:
            self.stations[number] = self.namespace()
            live_test.link(self.stations[number], "e0", self.middle, f"link{number}")
            self.middle.ip("link", "add", f"br{number}", "type", "bridge", "ageing_time", "0", "mcast_snooping", "0")
            self.middle.ip("link", "set", f"link{number}", "master", f"br{number}")
            self.middle.ip("link", "set", f"br{number}", "up")
            self.prepare(f"eth{number}", f"br{number}")

    def prepare(self, device, bridge):
        """Makes the device that the port is on, where the port does not make it itself."""

    def joined(self, device, bridge):
        # Room for what a test sends at once.
        self.middle.ip("link", "set", device, "txqueuelen", "10000", "master", bridge, "up")

    def agent(self, config, *arguments, ports=None):
        started = super().agent(config, *arguments, ports=ports)
        for number in self.stations:
            self.joined(f"eth{number}", f"br{number}")
        self.assertTrue(until(lambda: all(self.forwards(f"eth{number}") for number in self.stations)))
        return started

    def forwards(self, device):
        shown = json.loads(self.middle.ip("-d", "-j", "link", "show", device).stdout)[0]
        return shown["linkinfo"].get("info_slave_data", {}).get("state") == "forwarding"


class Tap(Bridged):
    several = ()  # the word for a device that processes have together

    def prepare(self, device, bridge):
        self.middle.ip("tuntap", "add", device, "mode", "tap", *self.several)
        self.joined(device, bridge)

    def port(self, number):
        return f"tap:eth{number}"


class Dpdk:
    """By a driver that sends and receives by the kernel's devices."""

    common = NO_CARDS

    def setUp(self):
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        super().setUp()

    def port(self, number):
        return f"dpdk:net_af_packet{number},iface=eth{number},framecnt=4096"


class DpdkXdp(Dpdk):
    """By DPDK's own driver for AF_XDP."""

    def port(self, number):
        return f"dpdk:net_af_xdp{number},iface=eth{number}"


class DpdkTap(Bridged, Dpdk):
    """By DPDK's own driver for TAP devices."""

    def port(self, number):
        return f"dpdk:net_tap{number},iface=eth{number}"


Counting, Following = live_test.Counting, live_test.Following
UNDER_TRAFFIC = (operating_test.Changing, operating_test.Surviving, operating_test.Hostile)
MTU_IS_NOT_KNOWN = "test_a_frame_too_large_for_the_port_is_only_that"
HOST_IS_THE_OTHER_END = "test_what_the_host_sends_by_a_port_is_not_received"
NOT_FOLLOWED = ("test_a_port_channel_does_without_a_cut_link", "test_a_device_that_goes_and_comes_back_is_followed",
                "test_a_device_may_come_after_the_start", "test_devices_are_left_as_they_were")

# Of each kind the groups, and the tests of them that are of other kinds.
TABLE = (
    (Xdp, (Counting, Following, *UNDER_TRAFFIC), ()),
    (Mixed, (Counting, *UNDER_TRAFFIC), ()),
    (Tap, (Counting, *UNDER_TRAFFIC), (HOST_IS_THE_OTHER_END,)),
    # Its driver receives what the host sends, and does not notice when the device goes.
    (Dpdk, (Counting, Following, *UNDER_TRAFFIC), (HOST_IS_THE_OTHER_END, *NOT_FOLLOWED)),
    # Its ring has no room for what these send at once.
    (DpdkXdp, (Counting, *UNDER_TRAFFIC), (MTU_IS_NOT_KNOWN, "test_counters_are_what_was_sent", "test_the_end_sends_what_has_come")),
    (DpdkTap, (Counting, *UNDER_TRAFFIC), (HOST_IS_THE_OTHER_END, MTU_IS_NOT_KNOWN)),
)
for kind, groups, without in TABLE:
    for group in groups:
        name = kind.__name__ + group.__name__
        members = {test: None for test in without if hasattr(group, test)}
        members["kills"] = 2  # what is the same for all kinds, the group itself looks at more often
        globals()[name] = type(name, (kind, group), {"__module__": __name__, **members})
del Counting, Following, kind, group, name  # no further tests

if __name__ == "__main__":
    live_test.main(__doc__)
