#!/usr/bin/env python3
"""Tests what an operator sees of `velo run`, by the commands that people type.

usage: seeing_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import json
import os
import re
import subprocess

import live_test
from live_test import until
from network import has, run, udp
from operating_test import OperatedTest

CONFIG = """ip access-list FROM-ALICE
  10 permit udp any any eq 10
  20 deny udp any any eq 20 mirror session S
  30 permit tcp any any
  40 permit udp any any eq 40
ip access-list UNBOUND
  10 permit ip any any
interface eth1
  ip access-group FROM-ALICE in
mirror session S destination eth9
"""


class SeenTest(OperatedTest):
    def velo(self, *words, check=True):
        """What a command prints."""
        return run(live_test.VELO, *words, "--control", self.socket, check=check).stdout

    def refusal(self, *words):
        done = subprocess.run([live_test.VELO, *words, "--control", self.socket], capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.returncode, 2, done.stderr)
        return done.stderr

    def received(self, port, count):
        self.assertTrue(until(lambda: self.control().ask("show", what="ports")["ports"][port]["received"] >= count))


class Seeing(SeenTest):
    def setUp(self):
        super().setUp()
        self.stations_are(1, 2, 3)

    def test_lists_are_selected_and_put_in_order(self):
        self.start(CONFIG)
        self.wire(1).send([udp(10, size=100)] * 3 + [udp(20, size=60)] * 5 + [udp(99)])
        self.received("eth1", 9)

        def shown(*options):
            document = json.loads(self.velo("show", "access-lists", "--json", *options))
            return [(entry["name"], [rule["sequence"] for rule in entry["rules"]]) for entry in document["lists"]]

        self.assertEqual(shown("--hit"), [("FROM-ALICE", [10, 20])])
        self.assertEqual(shown("--unused"), [("FROM-ALICE", [30, 40]), ("UNBOUND", [10])])
        self.assertEqual(shown("--top", "1"), [("FROM-ALICE", [20])])
        self.assertEqual(shown("--sort", "hits", "--interface", "eth1"), [("FROM-ALICE", [20, 10, 30, 40])])
        self.assertEqual(shown("--source", "cli", "--sort", "number"),
                         [("FROM-ALICE", [10, 20, 30, 40]), ("UNBOUND", [10])])
        lists = json.loads(self.velo("show", "access-lists", "FROM-ALICE", "--json"))["lists"]
        self.assertEqual([rule["bytes"]["in"] for rule in lists[0]["rules"]],
                         [3 * len(udp(10, size=100)), 5 * len(udp(20, size=60)), 0, 0])
        self.assertIn("there is no interface eht1 (did you mean eth1?)", self.refusal("show", "access-lists",
                                                                                     "--interface", "eht1"))
        self.assertIn("no rules to select", self.refusal("show", "drops", "--hit"))
        self.refusal("show", "access-lists", "--hit", "--unused")

    def test_rates_come_with_watch(self):
        self.start(CONFIG)
        stream = self.stream(500, lambda number: udp(10, number))
        watch = subprocess.Popen([live_test.VELO, "show", "access-lists", "FROM-ALICE", "--watch", "0.5", "--json",
                                  "--control", self.socket], stdout=subprocess.PIPE, text=True)
        self.addCleanup(watch.stdout.close)
        self.addCleanup(watch.wait)
        self.addCleanup(watch.kill)
        pictures = [json.loads(watch.stdout.readline())["lists"][0]["rules"] for _ in range(4)]
        stream.stop()
        self.assertIsNone(pictures[0][0]["rate"])
        self.assertGreater(pictures[-1][0]["rate"]["packets"], 0)
        self.assertGreater(pictures[-1][0]["rate"]["bytes"], pictures[-1][0]["rate"]["packets"])
        self.assertEqual(pictures[-1][1]["rate"], {"packets": 0, "bytes": 0})

    def test_counters_and_traces_name_the_rule(self):
        self.start(CONFIG)
        self.assertIn('there is no trace facility "Velo::Acls" (did you mean Velo::Acl?)',
                      self.refusal("trace", "Velo::Acls/0"))
        self.assertRegex(self.velo("show", "trace-facilities"), r"Velo::Acl +none\n")
        self.velo("trace", "Velo::Acl/0")
        self.assertRegex(self.velo("show", "trace-facilities"), r"Velo::Acl +0\n")
        self.wire(1).send([udp(20), udp(99)])
        self.received("eth1", 2)
        counters = self.velo("show", "counters")
        self.assertRegex(counters, r"in +ip +FROM-ALICE +20 +0x[0-9a-f]{16} +1 ")
        self.assertRegex(counters, r"in +ip +FROM-ALICE +implicit +0x[0-9a-f]{16} +1 ")
        self.assertRegex(self.velo("show", "trace"), r"Matched acl FROM-ALICE, rule 0x[0-9a-f]{16} on eth1.*"
                                                     r" \(rule 20 of ip access-list FROM-ALICE\)\n")

    def test_a_trace_to_standard_error_names_the_rule(self):
        agent = self.start(CONFIG, "--trace", "Velo::Acl/0")
        self.wire(1).send([udp(20)])
        self.received("eth1", 1)
        agent.stop()
        self.assertRegex(agent.errors, r"Matched acl FROM-ALICE, rule 0x[0-9a-f]{16} on eth1 "
                                                      r"\(rule 20 of ip access-list FROM-ALICE\)\n")

    def test_a_bridge_tells_what_it_has_learned(self):
        self.agent(CONFIG, "--bridge", "eth1,eth2,eth3", "--control", self.socket)
        self.wire(2).send([udp(10, source=2, to=1), udp(10, source=3, to=1, vlan=7)])
        self.received("eth2", 2)
        rows = re.findall(r"(\S+) +(\S+) +(\S+) +\d+ s ago\n", self.velo("show", "bridge"))
        self.assertEqual(rows, [("02:00:5e:00:00:02", "-", "eth2"), ("02:00:5e:00:00:03", "7", "eth2")])
        explained = self.velo("explain", "--port", "eth1", "--in",
                              "udp 10.0.0.1:5 > 10.0.0.2:10 to 02:00:5e:00:00:02")
        self.assertIn("02:00:5e:00:00:02 was learned on eth2, heard of ", explained)
        self.assertTrue(explained.endswith("\npasses by rule 10 of FROM-ALICE on eth1, and leaves by eth2\n"))

    def test_ports_tell_their_mtu_and_where_copies_are_lost(self):
        self.start(CONFIG)
        self.middle.ip("link", "set", "eth1", "mtu", "1300")
        self.assertTrue(until(lambda: re.search(r"eth1 +eth1 +up +1300 ", self.velo("show", "ports"))))
        self.assertIn("eth9 has no device: copies to it are lost (mirror session S)\n", self.velo("show", "ports"))
        self.assertIn("mirror session S to eth9 (no device: copies are lost)\n", self.velo("show", "interfaces"))

    def test_an_explanation_ends_with_a_sentence_and_takes_its_own_words(self):
        self.start(CONFIG)
        first = self.velo("explain", "--port", "eth1", "--in",
                          "udp 10.0.0.1:5 > 10.0.0.2:20 first fragment vlan 5 vlan 6")
        self.assertTrue(first.endswith("\ndropped on its way in by rule 20 of FROM-ALICE on eth1\n"), first)
        line = first.splitlines()[0]
        self.assertEqual(line, "udp 10.0.0.1:5 > 10.0.0.2:20, first fragment, vlan 5, inner vlan 6, 60 octets  on eth1")
        self.assertEqual(self.velo("explain", "--in", line), first)
        self.assertIn("the frame says on eth1", self.refusal("explain", "--port", "eth2", "--in", line))


    def test_rules_with_log_tell_what_they_match(self):
        logging = CONFIG.replace("eq 10\n", "eq 10 log\n").replace("eq 20 mirror", "eq 20 log mirror")
        agent = self.start(logging, "--log-drops", "--log-interval", "3600", "--log-rate", "50")
        self.wire(1).send([udp(10)] * 3 + [udp(20)] + [udp(40)] * 2 + [udp(99)] * 2)
        self.received("eth1", 8)
        self.control().apply(logging.replace("eq 10 log", "eq 10"))
        self.wire(1).send([udp(10, source_port=7)] * 2)
        self.received("eth1", 10)
        agent.stop()
        end = "udp 192.0.2.1(1024) -> 192.0.2.2"
        told = [line for line in agent.errors.splitlines() if "ACL_" in line]
        first, further = told[:3], told[3:]
        self.assertEqual(first, [
            f"velo: ACL_IPACCESS: list FROM-ALICE rule 10 permitted {end}(10) on eth1 in, 1 packet",
            f"velo: ACL_IPACCESS2: list FROM-ALICE rule 20 denied {end}(20) on eth1 in, 1 packet",
            f"velo: ACL_IPACCESS2: list FROM-ALICE implicit drop denied {end}(99) on eth1 in, 1 packet"])
        self.assertEqual(further, [
            f"velo: ACL_IPACCESS: list FROM-ALICE rule 10 permitted {end}(10) on eth1 in, 2 more packets",
            f"velo: ACL_IPACCESS2: list FROM-ALICE implicit drop denied {end}(99) on eth1 in, 1 more packet"])

    def test_options_of_the_log_have_limits(self):
        for option, value in (("--log-interval", "0"), ("--log-interval", "nan"), ("--log-interval", "1.5"),
                              ("--log-interval", "86401"), ("--log-rate", "-1"), ("--log-rate", "10001")):
            done = subprocess.run([live_test.VELO, "run", "--port", "eth1=eth1", option, value], capture_output=True,
                                  text=True, check=False)
            self.assertEqual(done.returncode, 2, (option, value))
            self.assertIn(option, done.stderr)


class SeeingSegments(SeenTest):
    offloads = True

    def test_segments_are_counted_beside_super_frames(self):
        if not has("iperf3"):
            self.skipTest("iperf3 is not installed")
        self.stations_are(1, 2)
        self.addresses_are()
        self.start(CONFIG)
        server = subprocess.Popen(self.stations[2].command("iperf3", "-s", "-1"), stdout=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        self.assertTrue(until(lambda: ":5201 " in self.stations[2].run("ss", "-ltn").stdout))
        self.stations[1].run("iperf3", "-c", "10.0.0.2", "-n", "20M")
        live = self.control().ask("show", what="ports")["ports"]["eth1"]["live"]["received"]
        payload = 1448  # of a full segment with time stamps, and an MTU of 1500
        self.assertGreater(live["segments"], 20_000_000 // (payload + 100))
        self.assertLess(live["frames"], live["segments"] / 2)
        self.assertRegex(self.velo("show", "ports"),
                         r"\neth1: \d+ frames in are \d+ segments.*; a frame that is still to be cut is one packet")


if __name__ == "__main__":
    live_test.main(__doc__)
