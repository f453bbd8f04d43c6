#!/usr/bin/env python3
"""Tests what holds of all ports again over each other kind: GROUP over KIND is the test class KINDGROUP.

usage: kinds_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import json
import os
import tempfile

import live_test
import operating_test
from live_test import until
from network import Agent, Control

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


class Cutting:
    """Segments come whole and unfinished by one port, and the other one's kind leaves cutting them to the agent."""

    def stations_are(self, *numbers):
        for number in numbers:
            self.offloads = number == 1
            super().stations_are(number)

    def port(self, number):
        return "eth1" if number == 1 else f"xdp:eth{number}"

    def packets(self, number, way):
        shown = json.loads(self.stations[number].ip("-s", "-j", "link", "show", "e0").stdout)
        return shown[0]["stats64"][way]["packets"]

    def test_ping_and_iperf3(self):
        super().test_ping_and_iperf3()
        self.assertGreater(self.packets(2, "rx"), 2 * self.packets(1, "tx"), "what came whole arrived in pieces")


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


class DpdkMemif(Dpdk):
    """By memory in common with a neighbour, which has the links to the stations."""

    changes = 100

    def stations_are(self, *numbers):
        folder = tempfile.TemporaryDirectory(prefix="velo-kinds-")
        self.addCleanup(folder.cleanup)
        self.pipes, near = folder.name, []
        for number in numbers:
            self.stations[number] = self.namespace()
            live_test.link(self.stations[number], "e0", self.middle, f"link{number}")
            near += (f"--port=link{number}=link{number}", f"--port=m{number}={self.memif(number, 'server')}",
                     f"--patch=link{number},m{number}")
        path = os.path.join(self.pipes, "control")
        neighbour = Agent(live_test.VELO, self.middle, "", *NO_CARDS, "--control", path, *near)
        self.addCleanup(neighbour.kill)
        self.neighbour = Control(path)
        self.addCleanup(self.neighbour.close)

    def memif(self, number, role):
        return f"dpdk:net_memif{number},role={role},socket={self.pipes}/memif{number},socket-abstract=no,rsize=12"

    def port(self, number):
        return self.memif(number, "client")

    def agent(self, config, *arguments, ports=None):
        started = super().agent(config, *arguments, ports=ports)
        shown = lambda: self.neighbour.ask("show", what="ports")["ports"]
        self.assertTrue(until(lambda: all(shown()[f"m{number}"]["live"]["up"] for number in self.stations)))
        return started


Counting, Following, Traffic = live_test.Counting, live_test.Following, live_test.Traffic
UNDER_TRAFFIC = (operating_test.Changing, operating_test.Surviving, operating_test.Hostile)
MTU_IS_NOT_KNOWN = "test_a_frame_too_large_for_the_port_is_only_that"
HOST_IS_THE_OTHER_END = "test_what_the_host_sends_by_a_port_is_not_received"
NOT_FOLLOWED = ("test_a_port_channel_does_without_a_cut_link", "test_a_device_that_goes_and_comes_back_is_followed",
                "test_a_device_may_come_after_the_start", "test_devices_are_left_as_they_were")
SAME_FOR_ALL = ("test_a_damaged_state_is_set_aside", "test_it_ends_when_nobody_takes_its_traces")

# Of each kind the groups, and the tests of them that are of other kinds.
TABLE = (
    (Xdp, (Counting, Following, Traffic, *UNDER_TRAFFIC), ()),
    (Mixed, (Counting, *UNDER_TRAFFIC), ()),
    (Cutting, (Traffic,), ()),
    (Tap, (Counting, Traffic, *UNDER_TRAFFIC), (HOST_IS_THE_OTHER_END,)),
    # Its driver receives what the host sends, and does not notice when the device goes.
    (Dpdk, (Counting, Following, Traffic, *UNDER_TRAFFIC), (HOST_IS_THE_OTHER_END, *NOT_FOLLOWED)),
    # Its ring has no room for what these send at once.
    (DpdkXdp, (Counting, *UNDER_TRAFFIC), (MTU_IS_NOT_KNOWN, "test_counters_are_what_was_sent", "test_the_end_sends_what_has_come")),
    (DpdkTap, (Counting, *UNDER_TRAFFIC), (HOST_IS_THE_OTHER_END, MTU_IS_NOT_KNOWN)),
    # The neighbour hears late of a new start.
    (DpdkMemif, UNDER_TRAFFIC, ("test_counts_go_on",)),
)
for kind, groups, without in TABLE:
    for group in groups:
        name = kind.__name__ + group.__name__
        members = {test: None for test in (*without, *SAME_FOR_ALL) if hasattr(group, test)}
        members["kills"] = 2  # what is the same for all kinds, the group itself looks at more often
        globals()[name] = type(name, (kind, group), {"__module__": __name__, **members})
del Counting, Following, Traffic, kind, group, name  # no further tests

if __name__ == "__main__":
    live_test.main(__doc__)
