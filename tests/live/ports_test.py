#!/usr/bin/env python3
"""Tests of what only one kind of port has.

usage: ports_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
environment: VELO_LIVE_REPEAT asks for more thousands of frames at line rate than fit into a build.
"""

import os
import shutil
import statistics
import struct
import tempfile
import time

import live_test
from kinds_test import NO_CARDS, has_dpdk
from live_test import OPEN, LiveTest, until
from napis import AS_USUAL, CAN_BE_SET, Napis
from network import Agent, Control, Wire, udp
from operating_test import ALWAYS, NEVER, OperatedTest, alternating, rules_of, wanted

DROP_ALL = "ip access-list NONE\n  deny ip any any\ninterface eth1\n  ip access-group NONE in\n"


def write_capture(path, frames):
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
        for number, frame in enumerate(frames):
            file.write(struct.pack("<IIII", 1, number, len(frame), len(frame)) + frame)


class Kinds(LiveTest):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory(prefix="velo-ports-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def napis(self):
        if not CAN_BE_SET:
            self.skipTest("the kernel has no such setting")
        opened = Napis(self.middle)
        self.addCleanup(opened.close)
        return opened

    def live(self, sock):
        client = Control(sock)
        self.addCleanup(client.close)
        return {name: port["live"] for name, port in client.ask("show", what="ports")["ports"].items()}

    def test_nothing_passes_by_xdp_while_the_agent_is_dead_and_the_next_one_begins(self):
        self.stations_are(1, 2)
        a, b = self.wire(1), self.wire(2)
        for _ in range(3):
            agent = Agent(live_test.VELO, self.middle, OPEN, "--port", "eth1=xdp:eth1", "--port", "eth2=xdp:eth2",
                          "--patch", "eth1,eth2")
            self.addCleanup(agent.kill)
            self.assertTrue(until(lambda: (a.send([udp(10)]), b.received(1, patience=0.3) != [])[1]))
            self.assertIn('"xdp"', self.middle.ip("-d", "-j", "link", "show", "eth1").stdout)
            agent.kill()
            self.assertTrue(until(lambda: '"xdp"' not in self.middle.ip("-d", "-j", "link", "show", "eth1").stdout),
                            "the program is taken off")
            b.received(0)
            a.send(udp(10, n) for n in range(100))
            self.assertEqual(b.received(0), [])

    def test_an_mtu_that_is_too_large_for_xdp_closes_the_port_until_it_fits(self):
        self.stations_are(1, 2)
        sock = self.path("sock")
        self.agent(OPEN, "--patch", "eth1,eth2", "--control", sock, "--port", "eth1=xdp:eth1", "--port", "eth2=eth2",
                   ports=())
        self.middle.ip("link", "set", "eth1", "mtu", "9000")
        self.assertTrue(until(lambda: not self.live(sock)["eth1"]["present"]))
        self.assertIn("MTU of 9000", self.live(sock)["eth1"]["wrong"])
        self.middle.ip("link", "set", "eth1", "mtu", "1500")
        self.assertTrue(until(lambda: self.live(sock)["eth1"]["present"]))
        self.assertEqual(self.live(sock)["eth1"]["how"], "copy, queue 0" + AS_USUAL)
        a, b = self.wire(1), self.wire(2)
        self.assertTrue(until(lambda: (a.send([udp(10)]), b.received(1, patience=0.3) != [])[1]))

    def test_a_capture_goes_to_null_as_often_as_asked(self):
        frames = [udp(10, number, size=18 + number) for number in range(100)]
        write_capture(self.path("in.pcap"), frames)
        for config, passed in ((OPEN, 300), (DROP_ALL, 0)):
            sock = self.path(f"sock{passed}")
            agent = self.agent(config, "--control", sock, "--port", f"eth1=pcap:{self.path('in.pcap')},repeat=3",
                               "--port", "eth2=null:", "--patch", "eth1,eth2", ports=())
            self.assertTrue(until(lambda: self.live(sock)["eth1"]["received"]["frames"] == 300))
            live = self.live(sock)
            self.assertEqual((live["eth1"]["kind"], live["eth1"]["how"]), ("pcap", "at its end"))
            self.assertEqual((live["eth2"]["kind"], live["eth2"]["sent"]["frames"]), ("null", passed))
            self.assertEqual(live["eth1"]["received"]["bytes"], 3 * sum(map(len, frames)))
            before = agent.processor_time()
            time.sleep(0.5)
            self.assertLess(agent.processor_time() - before, 0.1, "at rest when all has come")
            self.assertEqual(agent.stop()["frames"], 300)

    def test_an_endless_capture_ends_with_the_agent(self):
        write_capture(self.path("in.pcap"), [udp(10, number) for number in range(10)])
        agent = self.agent(OPEN, "--port", f"eth1=pcap:{self.path('in.pcap')},endless", "--port", "eth2=null:",
                           "--patch", "eth1,eth2", ports=())
        time.sleep(0.3)
        report = agent.stop()
        self.assertGreater(report["frames"], 10000)
        self.assertEqual(report["ports"]["eth2"]["sent"], report["frames"])

    def test_two_agents_are_joined_by_memif(self):
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        self.stations_are(1, 2)
        pipe = self.path("memif")
        device = f"socket={pipe},socket-abstract=no"
        for number, role in ((1, "server"), (2, "client")):
            self.agent(OPEN.replace("eth1", "m"), *NO_CARDS, "--port", f"eth{number}=eth{number}",
                       "--port", f"m=dpdk:net_memif0,role={role},{device}", "--patch", f"eth{number},m", ports=())
        a, b = self.wire(1), self.wire(2)
        self.assertTrue(until(lambda: (a.send([udp(10)]), b.received(1, patience=0.3) != [])[1]))
        b.received(0)
        frames = [udp(10, number, size=18 + number) for number in range(500)]
        a.send(frames)
        self.assertEqual(b.received(len(frames)), frames)

    def test_what_goes_into_a_ring_of_dpdk_comes_out_of_it(self):
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        self.stations_are(1)
        agent = self.agent(OPEN, *NO_CARDS, "--port", "ring=dpdk:net_ring0", "--patch", "eth1,ring")
        a, frames = self.wire(1), [udp(10, number, size=18 + number) for number in range(200)]
        a.send(frames)
        self.assertEqual(a.received(len(frames)), frames)
        self.assertEqual(agent.stop()["ports"]["ring"]["received"], 200)

    def test_cards_are_left_alone_that_are_no_port(self):
        """The environment looks at the cards of the machine, and has none of them."""
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        drivers = lambda: {card: os.path.realpath(f"/sys/bus/pci/devices/{card}/driver") for card in os.listdir("/sys/bus/pci/devices")}
        before = drivers() if os.path.isdir("/sys/bus/pci/devices") else self.skipTest("no PCI here")
        sock = self.path("sock")
        agent = self.agent(OPEN, "--dpdk-args", "--no-huge -m 256", "--control", sock, "--patch", "eth1,eth2", "--port",
                           "eth1=dpdk:net_null0,size=64", "--port", "eth2=null:", ports=())
        self.assertTrue(until(lambda: self.live(sock)["eth2"]["sent"]["frames"] > 1000))
        self.assertEqual(drivers(), before)
        agent.stop()
        self.assertNotIn("EAL:", agent.errors)

    def test_captures_and_nothing_of_dpdk_are_ports(self):
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        frames = [udp(10, number, size=18 + number) for number in range(100)]
        write_capture(self.path("in.pcap"), frames)
        sock = self.path("sock")
        agent = self.agent(OPEN, *NO_CARDS, "--control", sock, "--patch", "eth1,eth2", "--patch", "eth3,eth4", "--port",
                           f"eth1=dpdk:net_pcap0,rx_pcap={self.path('in.pcap')},tx_pcap={self.path('in2.pcap')}", "--port",
                           f"eth2=dpdk:net_pcap1,tx_pcap={self.path('out.pcap')}", "--port", "eth3=dpdk:net_null0,size=64",
                           "--port", "eth4=null:", ports=())
        self.assertTrue(until(lambda: self.live(sock)["eth2"]["sent"]["frames"] == len(frames)))
        self.assertTrue(until(lambda: self.live(sock)["eth4"]["sent"]["frames"] > 1000))
        self.assertEqual(self.live(sock)["eth3"]["how"], "net_null")
        report = agent.stop()
        self.assertEqual(report["ports"]["eth2"]["sent"], len(frames))
        with open(self.path("out.pcap"), "rb") as file:
            written = file.read()
        self.assertEqual(len(written), 24 + sum(16 + len(frame) for frame in frames))
        self.assertTrue(all(frame in written for frame in frames))

    def test_zerocopy_where_the_driver_has_none_is_refused(self):
        self.stations_are(1)
        refused = Agent(live_test.VELO, self.middle, OPEN, "--port", "eth1=xdp:eth1,zerocopy", "--port", "eth2=null:",
                        check=False)
        self.addCleanup(refused.kill)
        self.assertEqual(refused.process.wait(10), 1)
        self.assertIn("eth1: queue 0: the driver does not do without a copy", refused.process.stderr.read())
        self.assertNotIn('"xdp"', self.middle.ip("-d", "-j", "link", "show", "eth1").stdout)

    def test_frames_gather_for_as_long_as_asked_and_what_was_set_is_put_back(self):
        """Where the driver has its NAPI for other things than XDP, too, so that it stays."""
        self.stations_are(1)
        self.middle.gro_is_on("eth1")
        napis = self.napis()
        none, others, of_killed = (0, 0), (5, 20000), (1, 70001)
        for option, found, gathers, in_force, after in (
                ("", none, 50, (1, 50001), none),
                (",gather=0", none, 0, none, none),
                (",gather=200", none, 200, (1, 200001), none),
                ("", others, 0, others, others),
                (",gather=0", others, 0, others, others),
                (",gather=200", others, 200, (1, 200001), others),
                ("", of_killed, 50, (1, 50001), none),
                (",gather=0", of_killed, 0, none, none),
                (",gather=70", of_killed, 70, of_killed, none)):
            with self.subTest(option=option, found=found):
                napis.are("eth1", found)
                sock = self.path("sock")
                agent = self.agent(OPEN, "--control", sock, "--port", f"eth1=xdp:eth1{option}", ports=())
                how = self.live(sock)["eth1"]["how"]
                self.assertEqual(how, "copy, queue 0" + (f", gathers {gathers} us" if gathers else ""))
                self.assertEqual(napis.of("eth1"), [in_force])
                agent.stop()
                self.assertEqual(napis.of("eth1"), [after])

    def test_what_a_killed_agent_has_set_is_put_back_by_the_next_one(self):
        self.stations_are(1)
        self.middle.gro_is_on("eth1")
        napis = self.napis()
        killed = self.agent(OPEN, "--port", "eth1=xdp:eth1,gather=70", ports=())
        killed.kill()
        self.assertEqual(napis.of("eth1"), [(1, 70001)])
        self.agent(OPEN, "--port", "eth1=xdp:eth1", ports=()).stop()
        self.assertEqual(napis.of("eth1"), [(0, 0)])

    def test_frames_gather_again_when_a_device_was_off(self):
        self.queues = 2
        self.stations_are(1)
        napis, sock = self.napis(), self.path("sock")
        self.agent(OPEN, "--control", sock, "--port", "eth1=xdp:eth1", ports=())
        for state, inside in (("up", [(1, 50001)] * 2), ("down", []), ("up", [(1, 50001)] * 2)):
            self.middle.ip("link", "set", "eth1", state)
            self.assertTrue(until(lambda wanted=inside: napis.of("eth1") == wanted), napis.of("eth1"))
            gathers = ", gathers 50 us" in self.live(sock)["eth1"]["how"]
            self.assertEqual(gathers, state == "up")

    def test_a_device_whose_frames_cannot_be_gathered_is_refused_where_that_was_asked_for(self):
        self.queues = 2
        self.stations_are(1)
        self.middle.queues_are("eth1", rx=1)  # fewer than who sends has: so it is not the driver that does XDP
        sock = self.path("sock")
        agent = self.agent(OPEN, "--control", sock, "--port", "eth1=xdp:eth1", ports=())
        self.assertEqual(self.live(sock)["eth1"]["how"], "copy, generic, queue 0")
        agent.stop()
        refused = Agent(live_test.VELO, self.middle, OPEN, "--port", "eth1=xdp:eth1,gather=50", check=False)
        self.addCleanup(refused.kill)
        self.assertEqual(refused.process.wait(10), 1)
        self.assertIn("eth1: frames cannot be gathered (gather): Operation not supported", refused.process.stderr.read())
        self.assertNotIn('"xdp"', self.middle.ip("-d", "-j", "link", "show", "eth1").stdout)

    def test_nothing_waits_in_xdp_for_a_link_that_is_down(self):
        self.stations_are(1, 2)
        sock = self.path("sock")
        agent = self.agent(OPEN, "--patch", "eth1,eth2", "--control", sock, "--port", "eth1=xdp:eth1", "--port",
                           "eth2=xdp:eth2", ports=())
        a, b = self.wire(1), self.wire(2)
        self.middle.ip("link", "set", "eth2", "down")
        self.assertTrue(until(lambda: not self.live(sock)["eth2"]["up"]))
        before = agent.processor_time()
        a.send(udp(10, number) for number in range(100))
        self.assertTrue(until(lambda: self.live(sock)["eth2"]["lost"]["sendFailed"] == 100), self.live(sock)["eth2"])
        self.assertEqual(self.live(sock)["eth2"]["sent"]["frames"], 0)
        time.sleep(1)
        self.assertLess(agent.processor_time() - before, 0.3, "at rest")
        self.middle.ip("link", "set", "eth2", "up")
        self.assertTrue(until(lambda: self.live(sock)["eth2"]["up"]))
        self.assertEqual(b.received(1, patience=0.5), [])
        a.send([udp(10, 77)])
        self.assertEqual(b.received(1), [udp(10, 77)])

    def test_a_device_with_more_queues_than_there_is_memory_for_stays_closed(self):
        """Frames that came by the others would not meet the lists."""
        sock = self.path("sock")
        self.stations_are(1)
        self.agent(OPEN, "--patch", "eth1,eth2", "--control", sock, "--port", "eth1=eth1", "--port", "eth2=xdp:eth2", ports=())
        live = lambda: self.live(sock)["eth2"]
        self.queues = 5
        self.stations_are(2)
        self.assertTrue(until(lambda: "more queues than there is memory for since the start, 4" in (live()["wrong"] or "")))
        self.assertFalse(live()["present"])
        self.middle.ip("link", "del", "eth2")
        self.queues = 3
        self.stations_are(2)
        self.assertTrue(until(lambda: live()["present"]), live())
        self.assertEqual((live()["wrong"], live()["how"]), (None, "copy, queues 0-2" + AS_USUAL))
        a, b = self.wire(1), self.wire(2)
        b.send(udp(10, n, source=2, to=1, source_port=2000 + n) for n in range(256))
        self.assertEqual(len(a.received(256)), 256, "by all three")

    def test_queues_that_come_are_the_ports_own_or_close_it(self):
        """The host does not get what comes by them while the port is open."""
        sock = self.path("sock")
        self.queues = 4
        self.stations_are(1, 2)
        self.assertTrue(self.queues_are(3))
        self.agent(OPEN, "--patch", "eth1,eth2", "--control", sock, "--port", "eth1=xdp:eth1", "--port", "eth2=eth2", ports=())
        live = lambda: self.live(sock)["eth1"]
        self.assertEqual(live()["how"], "copy, queues 0-2" + AS_USUAL)
        # The kernel takes no queue away that a socket has.
        self.middle.ip("link", "set", "eth1", "mtu", "9000")
        self.assertTrue(until(lambda: not live()["present"]))
        self.assertTrue(until(lambda: self.queues_are(1)), "it gives up what is closed a little later")
        self.middle.ip("link", "set", "eth1", "mtu", "1500")
        self.assertTrue(until(lambda: live()["how"] == "copy, queue 0" + AS_USUAL), live())
        a, b, host = self.wire(1), self.wire(2), Wire(self.middle, "eth1")
        self.addCleanup(host.close)
        self.assertTrue(self.queues_are(3))
        self.assertTrue(until(lambda: live()["how"] == "copy, queues 0-2" + AS_USUAL), live())
        host.received(0)
        a.send(frames := [udp(10, n, source_port=2000 + n) for n in range(256)])
        self.assertEqual(sorted(b.received(len(frames))), sorted(frames), "by all three")
        self.assertEqual(host.received(0), [])
        self.assertTrue(self.queues_are(4))
        self.assertTrue(until(lambda: not live()["present"]))
        self.assertIn("more queues than there is memory for since the start, 3", live()["wrong"])

    def queues_are(self, count):
        """Of station 1 and its port; returns whether the kernel did it. Where the sender has more than the receiver, XDP is not done by the driver."""
        try:
            self.stations[1].queues_are("e0", tx=1)
            self.middle.queues_are("eth1", rx=count)
            self.stations[1].queues_are("e0", tx=count)
        except OSError:
            return False
        return True

    def test_a_program_without_the_library_says_what_is_missing(self):
        for name in ("velo", "VeloAcl.so", "libvelo-platform.so"):
            shutil.copy(os.path.join(os.path.dirname(live_test.VELO), name), self.path(name))
        refused = Agent(self.path("velo"), self.middle, OPEN, "--port", "eth1=dpdk:net_null0", "--port", "eth2=null:",
                        check=False)
        self.addCleanup(refused.kill)
        self.assertEqual(refused.process.wait(10), 2)
        self.assertIn("eth1: this kind of port is not installed: there is no ", refused.process.stderr.read())
        with open(self.path("VeloDpdk.so"), "wb") as file:
            file.write(b"x")
        refused = Agent(self.path("velo"), self.middle, OPEN, "--port", "eth1=dpdk:net_null0", check=False)
        self.addCleanup(refused.kill)
        self.assertEqual(refused.process.wait(10), 2)
        self.assertIn("eth1: what this kind of port needs is missing: ", refused.process.stderr.read())


class LineRate(OperatedTest):
    """Operators while frames come as fast as they are taken. Each list permits half of them, any mixture another part."""

    def operated(self, *arguments):
        frames = [udp((ALWAYS, NEVER)[number % 2], number, source_port=1024 + number) for number in range(1000)]
        repeat = wanted("REPEAT", 30000)
        capture, total = os.path.join(self.folder, "in.pcap"), len(frames) * repeat
        write_capture(capture, frames)
        agent = self.agent(alternating(False, 1000), "--control", self.socket, "--port", f"eth1=pcap:{capture},repeat={repeat}",
                           "--port", "eth2=null:", "--patch", "eth1,eth2", *arguments, ports=())
        begin, client = time.monotonic(), self.control()
        received = lambda: client.ask("show", what="ports")["ports"]["eth1"]["live"]["received"]["frames"]
        shows, changes = [], 0
        while not shows or received() < total:
            self.assertTrue(client.apply(alternating(changes % 2 == 0, 1000))["applied"])
            changes += 1
            asked = time.monotonic()
            rules = rules_of(client.ask("show", what="access-lists"))
            shows.append(time.monotonic() - asked)
        taken = time.monotonic() - begin
        self.assertGreater(changes, 4, "while frames came")
        self.assertLess(statistics.median(shows), 1)
        self.assertTrue(until(lambda: client.ask("show", what="ports")["ports"]["eth1"]["received"] == total))
        self.assertEqual(set(rules) & {50, 100}, {50, 100} if changes % 2 else {100})
        ports = agent.stop()["ports"]
        self.assertEqual((ports["eth1"]["received"], ports["eth1"]["dropped"]["in"], ports["eth2"]["sent"]),
                         (total, total // 2, total // 2))
        print(f"{total} frames in {taken:.1f} s, {changes} changes, show {statistics.median(shows) * 1e3:.0f} ms, "
              f"the longest {max(shows) * 1e3:.0f}", flush=True)

    def test_of_one_process(self):
        self.operated()

    def test_of_workers(self):
        self.operated("--workers", "2")


if __name__ == "__main__":
    live_test.main(__doc__)
