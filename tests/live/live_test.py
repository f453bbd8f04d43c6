#!/usr/bin/env python3
"""Tests `velo run` with real traffic between network namespaces.

usage: live_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import os
import statistics
import subprocess
import sys
import time
import unittest

from network import Agent, Namespace, Wire, has, link, udp, why_not

VELO = ""

OPEN = """ip access-list ALL
  permit ip any any
interface eth1
  ip access-group ALL in
"""


def rules(report, name):
    """Matches of a list by number: (in, out); the implicit drop's under 0."""
    found = next(entry for entry in report["lists"] if entry["name"] == name)
    counts = {rule["sequence"]: (rule["matches"]["in"], rule["matches"]["out"]) for rule in found["rules"]}
    implicit = found["implicitDrop"]["matches"]
    counts[0] = (implicit["in"], implicit["out"])
    return counts


def until(condition, patience=10.0, pause=0.05):
    """Whether a condition comes to hold within some seconds."""
    end = time.monotonic() + patience
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(pause)
    return True


class LiveTest(unittest.TestCase):
    """A namespace for the agent, and any number of stations around it: station n is on the agent's ethN."""

    offloads = False
    common = ()  # arguments of every agent
    in_order = True  # frames of different flows, too
    sockets = 1  # of each port
    queues = 1  # of each link

    def setUp(self):
        self.middle = self.namespace()
        self.stations = {}

    def namespace(self):
        made = Namespace()
        self.addCleanup(made.delete)
        return made

    def stations_are(self, *numbers):
        for number in numbers:
            self.stations[number] = self.namespace()
            link(self.stations[number], "e0", self.middle, f"eth{number}", self.offloads, self.queues)

    def port(self, number):
        """What the agent's port of a number is on."""
        return f"eth{number}"

    def agent(self, config, *arguments, ports=None):
        arguments += self.common
        for number in self.stations if ports is None else ports:
            arguments += ("--port", f"eth{number}={self.port(number)}")
        started = Agent(VELO, self.middle, config, *arguments)
        self.addCleanup(started.kill)
        return started

    def wire(self, number):
        opened = Wire(self.stations[number], "e0")
        self.addCleanup(opened.close)
        return opened

    def assert_frames(self, received, sent, *text):
        if not self.in_order:
            received, sent = sorted(received), sorted(sent)
        self.assertEqual(received, sent, *text)

    def addresses_are(self):
        for number, station in self.stations.items():
            station.ip6_is_on("e0")
            station.ip("addr", "add", f"10.0.0.{number}/24", "dev", "e0")
            station.ip("addr", "add", f"fd00::{number}/64", "dev", "e0", "nodad")


class Counting(LiveTest):
    def test_counters_are_what_was_sent(self):
        self.stations_are(1, 2)
        agent = self.agent("""ip access-list IN
  10 permit udp any any eq 10
  20 deny udp any any eq 20
  30 permit vlan 7 udp any any eq 30
  40 permit udp any any eq 40
ip access-list OUT
  10 deny udp any any eq 40
  20 permit ip any any
interface eth1
  ip access-group IN in
interface eth2
  ip access-group OUT out
""", "--patch", "eth1,eth2")
        a, b = self.wire(1), self.wire(2)
        passing = [udp(10, n, size=18 + n % 1400) for n in range(3000)] + [udp(30, n, vlan=7) for n in range(200)]
        a.send(udp(20, n) for n in range(300))
        a.send(udp(30, n) for n in range(50))
        a.send(udp(40, n, vlan=9) for n in range(70))
        a.send(passing)
        self.assert_frames(b.received(len(passing)), passing, "in order and whole, tags included")
        b.send(udp(99, n) for n in range(11))
        self.assertEqual(len(a.received(11)), 11)
        report = agent.stop()
        self.assertEqual(rules(report, "IN"), {10: (3000, 0), 20: (300, 0), 30: (200, 0), 40: (70, 0), 0: (50, 0)})
        self.assertEqual(rules(report, "OUT"), {10: (0, 70), 20: (0, 3200), 0: (0, 0)})
        self.assertEqual(report["ports"]["eth1"], {"received": 3620, "sent": 11, "dropped": {"in": 350, "out": 0},
                                                   "mirrored": 0})
        self.assertEqual(report["ports"]["eth2"], {"received": 11, "sent": 3200, "dropped": {"in": 0, "out": 70},
                                                   "mirrored": 0})
        self.assertEqual((report["frames"], report["passed"], report["dropped"]), (3631, 3211, 420))

    def test_what_the_host_sends_by_a_port_is_not_received(self):
        self.stations_are(1, 2)
        agent = self.agent(OPEN, "--patch", "eth1,eth2")
        a, b, host = self.wire(1), self.wire(2), Wire(self.middle, "eth1")
        self.addCleanup(host.close)
        host.send(udp(10, n) for n in range(10))
        self.assertEqual(len(a.received(10)), 10)
        a.send([udp(10, 99)])
        self.assertEqual(b.received(1), [udp(10, 99)], "what comes in by it is")
        self.assertEqual(agent.stop()["frames"], 1)

    def test_mirrored_frames_arrive_at_the_destination(self):
        self.stations_are(1, 2, 9)
        agent = self.agent("""ip access-list IN
  10 deny udp any any eq 10 mirror session S
  20 permit ip any any
interface eth1
  ip access-group IN in
mirror session S destination eth9
""", "--patch", "eth1,eth2")
        a, b, seen = self.wire(1), self.wire(2), self.wire(9)
        mirrored = [udp(10, n, size=100, vlan=5 if n % 2 else None) for n in range(200)]
        a.send(mirrored)
        a.send(udp(11, n) for n in range(100))
        self.assert_frames(seen.received(200), mirrored)
        self.assertEqual(len(b.received(100)), 100)
        report = agent.stop()
        self.assertEqual(report["ports"]["eth9"]["mirrored"], 200)
        self.assertEqual(rules(report, "IN"), {10: (200, 0), 20: (100, 0), 0: (0, 0)})

    def test_a_frame_too_large_for_the_port_is_only_that(self):
        self.stations_are(1, 2)
        self.middle.ip("link", "set", "eth2", "mtu", "1400")
        agent = self.agent(OPEN, "--patch", "eth1,eth2")
        a, b = self.wire(1), self.wire(2)
        small = [udp(10, n) for n in range(50)]
        for frame in small:
            a.send([udp(10, size=1450), frame])
        self.assertEqual(b.received(50), small)
        self.assertEqual(agent.stop()["ports"]["eth2"]["sent"], 100)

    def test_the_end_sends_what_has_come(self):
        self.stations_are(1, 2)
        agent = self.agent(OPEN, "--patch", "eth1,eth2")
        a, b = self.wire(1), self.wire(2)
        frames = [udp(10, n) for n in range(2000)]
        a.send(frames)
        report = agent.stop()
        self.assert_frames(b.received(len(frames)), frames)
        self.assertEqual(report["frames"], 2000)


class Following(LiveTest):
    def test_a_port_channel_does_without_a_cut_link(self):
        self.stations_are(1, 2, 3)
        self.agent(OPEN + "port-channel po1 members eth2 eth3\n", "--patch", "eth1,po1")
        a, b, c = (self.wire(number) for number in (1, 2, 3))

        def spread():
            """How many of 64 flows came by each member."""
            a.send(udp(10, n, source_port=2000 + n) for n in range(64))
            return len(b.received(64, quiet=0.3, patience=0.6)), len(c.received(64, quiet=0.1, patience=0.3))

        both = spread()
        self.assertEqual(sum(both), 64)
        self.assertGreater(min(both), 8, "flows use both members")
        self.stations[3].ip("link", "set", "e0", "down")
        self.assertTrue(until(lambda: spread()[0] == 64), "all flows leave by the other member")
        b.send(udp(10, n) for n in range(5))
        self.assertEqual(len(a.received(5)), 5)
        self.stations[3].ip("link", "set", "e0", "up")
        self.assertTrue(until(lambda: spread() == both), "as before")

    def test_a_device_that_goes_and_comes_back_is_followed(self):
        self.stations_are(1, 2, 3, 4)
        agent = self.agent(OPEN, "--patch", "eth1,eth2", "--patch", "eth3,eth4")
        a, c, d = self.wire(1), self.wire(3), self.wire(4)
        for _ in range(3):
            self.middle.ip("link", "del", "eth2")
            a.send(udp(10, n) for n in range(10))
            c.send([udp(10, 77)])
            self.assertEqual(len(d.received(1)), 1, "nothing else stops")
            link(self.stations[2], "e0", self.middle, "eth2", queues=self.queues)
            b = self.wire(2)

            def passes():
                a.send([udp(10, 88)])
                return b.received(1, patience=0.3) != []

            self.assertTrue(until(passes), "the port is on the new device")
            b.close()
        self.middle.ip("link", "set", "eth1", "down")
        self.middle.ip("link", "set", "eth1", "up")
        b = self.wire(2)
        self.assertTrue(until(lambda: (a.send([udp(10, 99)]), b.received(1, patience=0.3) != [])[1]), "down and up")
        self.assertEqual(agent.stop()["ports"]["eth3"]["received"], 3)

    def test_a_device_may_come_after_the_start(self):
        self.stations_are(1)
        self.agent(OPEN, "--patch", "eth1,eth2", ports=(1, 2))
        self.stations_are(2)
        a, b = self.wire(1), self.wire(2)
        self.assertTrue(until(lambda: (a.send([udp(10)]), b.received(1, patience=0.3) != [])[1]))

    def test_devices_are_left_as_they_were(self):
        self.stations_are(1, 2)
        agent = self.agent(OPEN, "--patch", "eth1,eth2")
        self.assertEqual(self.middle.promiscuity("eth1"), self.sockets)
        agent.stop()
        # Workers may take a moment longer to end than who has started them.
        self.assertTrue(until(lambda: self.middle.promiscuity("eth1") == 0, patience=3))

    def test_a_bridge_learns(self):
        self.stations_are(1, 2, 3)
        self.agent(OPEN, "--bridge", "eth1,eth2,eth3")
        a, b, c = (self.wire(number) for number in (1, 2, 3))
        a.send([udp(10, source=1, to=2)])
        self.assertEqual((len(b.received(1)), len(c.received(1))), (1, 1), "flooded")
        b.send([udp(10, source=2, to=1)])
        self.assertEqual((len(a.received(1)), len(c.received(0))), (1, 0), "learned")
        a.send(udp(10, n, source=1, to=2) for n in range(100))
        self.assertEqual((len(b.received(100)), len(c.received(0)), len(a.received(0))), (100, 0, 0))


class Behaving(LiveTest):
    def test_nothing_passes_while_the_agent_is_dead(self):
        self.stations_are(1, 2)
        agent = self.agent(OPEN, "--patch", "eth1,eth2")
        a, b = self.wire(1), self.wire(2)
        a.send([udp(10)])
        self.assertEqual(len(b.received(1)), 1)
        agent.kill()
        a.send(udp(10, n) for n in range(100))
        self.assertEqual(b.received(0), [])

    def test_a_wrong_configuration_refuses_to_start(self):
        self.stations_are(1, 2)
        for config, arguments in (("ip access-list A\n permitt ip any any\n", ("--patch", "eth1,eth2")),
                                  (OPEN, ("--patch", "eth1,eth1")), (OPEN, ("--bridge", "eth1")),
                                  (OPEN, ("--patch", "eth1,eth9")), (OPEN, ("--bridge", "eth1,eth2,po1")),
                                  (OPEN, ("--patch", "eth1,eth2,eth3")),
                                  (OPEN, ("--config", "/nowhere", "--patch", "eth1,eth2"))):
            refused = Agent(VELO, self.middle, config, "--port", "eth1=eth1", "--port", "eth2=eth2", *arguments,
                            check=False)
            self.addCleanup(refused.kill)
            self.assertFalse(refused.ready)
            self.assertEqual(refused.process.wait(10), 2, refused.process.stderr.read())

    def test_it_is_quick_and_idle_when_there_is_little_to_do(self):
        self.stations_are(1, 2)
        agent = self.agent(OPEN, "--patch", "eth1,eth2")
        a, b = self.wire(1), self.wire(2)
        times = []
        for number in range(300):
            begin = time.perf_counter()
            a.send([udp(10, number)])
            self.assertIsNotNone(b.next())
            times.append(time.perf_counter() - begin)
            time.sleep(0.001)
        # The quickest tenth, far above what they take and below a millisecond's timer: other work may run here.
        self.assertLess(statistics.quantiles(times, n=10)[0], 0.0008)
        before = agent.processor_time()
        time.sleep(1)
        self.assertLess(agent.processor_time() - before, 0.1)

    def test_it_keeps_one_capability(self):
        self.stations_are(1, 2)
        agent = self.agent(OPEN, "--patch", "eth1,eth2")
        with open(f"/proc/{agent.process.pid}/status", encoding="ascii") as file:
            status = dict(line.split(":\t", 1) for line in file.read().splitlines() if ":\t" in line)
        net_raw = 1 << 13
        self.assertEqual({name: int(status[name], 16) for name in ("CapEff", "CapPrm", "CapInh", "CapAmb")},
                         {"CapEff": net_raw, "CapPrm": net_raw, "CapInh": 0, "CapAmb": 0})
        self.assertEqual(status["NoNewPrivs"].strip(), "1")

    def test_a_tap_device_is_a_port(self):
        self.stations_are(1)
        self.addresses_are()
        self.agent(OPEN, "--port", "eth2=tap:vt0", "--patch", "eth1,eth2")
        self.middle.ip("addr", "add", "10.0.0.2/24", "dev", "vt0")
        self.stations[1].run("ping", "-q", "-c", "5", "-i", "0.05", "-W", "2", "10.0.0.2")


class Traffic(LiveTest):
    """Hosts with addresses, and their own protocols on top."""

    config = """ip access-list IN
  10 permit icmp any any
  20 permit tcp any any eq 5201
  30 permit udp any any eq 5201
ipv6 access-list IN6
  10 permit icmpv6 any any
  20 permit tcp any any eq 5201
  30 permit udp any any eq 5201
interface eth1
  ip access-group IN in
  ipv6 access-group IN6 in
"""

    def setUp(self):
        super().setUp()
        if not has("iperf3") or not has("ping"):
            self.skipTest("iperf3 and ping are not installed")
        self.stations_are(1, 2)
        self.addresses_are()
        self.started = self.agent(self.config, "--patch", "eth1,eth2")

    def server(self, port):
        made = subprocess.Popen(self.stations[2].command("iperf3", "-s", "-p", str(port)), stdout=subprocess.DEVNULL)
        self.addCleanup(made.wait)
        self.addCleanup(made.terminate)
        listening = lambda: f":{port} " in self.stations[2].run("ss", "-ltn").stdout
        self.assertTrue(until(listening))

    def client(self, address, port, *arguments, check=True):
        return self.stations[1].run("iperf3", "-c", address, "-p", str(port), "-t", "1", "--connect-timeout", "700",
                                    *arguments, check=check)

    def allowed(self, *arguments):
        """A server resets who comes while it still tidies up behind the last one."""
        self.assertTrue(until(lambda: self.client(*arguments, check=False).returncode == 0), arguments)

    def test_ping_and_iperf3(self):
        for address in ("10.0.0.2", "fd00::2"):
            self.stations[1].run("ping", "-q", "-c", "5", "-i", "0.02", "-W", "2", address)
        self.server(5201)
        self.server(5202)
        for address in ("10.0.0.2", "fd00::2"):
            self.allowed(address, 5201)
            self.allowed(address, 5201, "-u", "-b", "20M")
            denied = self.client(address, 5202, check=False)
            self.assertNotEqual(denied.returncode, 0, "port 5202 is denied")
        report = self.started.stop()
        for name in ("IN", "IN6"):
            counts = rules(report, name)
            for number in (10, 20, 30, 0):
                self.assertGreater(counts[number][0], 0, f"{name} {number}")


class TrafficWithOffloads(Traffic):
    """The same with segments that the devices are to cut, and checksums that they are to complete."""

    offloads = True


def main(description):
    """Runs the tests of the program, with the command line of the description."""
    global VELO
    if len(sys.argv) < 2:
        sys.exit(description)
    VELO = os.path.abspath(sys.argv.pop(1))
    reason = why_not()
    if reason:
        print(f"skipped: {reason}")
        sys.exit(77)
    result = unittest.main(verbosity=2, exit=False).result
    if result.testsRun == len(result.skipped) > 0:
        sys.exit(77)
    sys.exit(not result.wasSuccessful())


if __name__ == "__main__":
    main(__doc__)
