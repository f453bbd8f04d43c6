#!/usr/bin/env python3
"""Tests what an operator sees of `velo run`, by the commands that people type.

usage: seeing_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import json
import os
import re
import signal
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
        self.assertTrue(until(lambda: re.search(r"eth1 +packet +eth1 +up +1300 ", self.velo("show", "ports"))))
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


class Tailing(SeenTest):
    def setUp(self):
        super().setUp()
        self.stations_are(1, 2)

    def tail(self, *options):
        process = subprocess.Popen([live_test.VELO, "tail", *options, "--control", self.socket],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def looking(self, *options):
        """`velo tail` that has shown a packet, when no more are sent."""
        stream = self.stream(200, lambda number: udp(10, number))
        process = self.tail(*options)
        process.stdout.readline()
        stream.stop()
        return process

    def ended(self, process):
        """What it has printed, when it has ended by itself."""
        out, errors = process.communicate(timeout=30)
        self.assertEqual(process.returncode, 0, errors)
        return out

    def test_a_ping_that_is_dropped_is_seen(self):
        self.addresses_are()
        self.start(CONFIG)
        tail = self.tail("--list", "FROM-ALICE", "--rule", "implicit", "--drops", "--count", "2")
        ping = subprocess.Popen(self.stations[1].command("ping", "-i", "0.2", "-W", "1", "10.0.0.2"),
                                stdout=subprocess.DEVNULL)
        self.addCleanup(ping.wait)
        self.addCleanup(ping.kill)
        # Only an address that was resolved is pinged; ARP meets no IP list.
        lines = self.ended(tail).splitlines()
        self.assertEqual(len(lines), 2, lines)
        for line in lines:
            self.assertRegex(line, r"^\d\d:\d\d:\d\d\.\d{6}  eth1  drop  FROM-ALICE implicit +"
                                   r"icmp 10\.0\.0\.1 > 10\.0\.0\.2 type 8 code 0, 98 octets$")

    def test_a_file_has_frames_with_their_verdicts(self):
        self.start(CONFIG)
        stream = self.stream(200, lambda number: udp((10, 20, 99)[number % 3], number, size=1000))
        path = os.path.join(self.folder, "seen.pcapng")
        lines = [json.loads(line) for line in
                 self.ended(self.tail("--json", "--count", "30", "--write", path)).splitlines()]
        stream.stop()
        self.assertEqual(len(lines), 30)
        self.assertTrue(all(list(line)[0] == "version" and line["port"] == "eth1" for line in lines))
        sentences = {line["packet"]: line["sentence"] for line in lines}
        self.assertEqual(sentences, {
            "udp 192.0.2.1:1024 > 192.0.2.2:10, 1042 octets": "passes by rule 10 of FROM-ALICE on eth1, and leaves by eth2",
            "udp 192.0.2.1:1024 > 192.0.2.2:20, 1042 octets": "dropped on its way in by rule 20 of FROM-ALICE on eth1",
            "udp 192.0.2.1:1024 > 192.0.2.2:99, 1042 octets":
                "dropped on its way in because no rule of FROM-ALICE on eth1 matches"})
        self.assertEqual({line["packet"][-16:] for line in lines if line["mirrored"] == ["S"]}, {":20, 1042 octets"})
        if not has("tshark"):
            self.skipTest("tshark is not installed")
        fields = [word for field in ("frame.interface_name", "frame.len", "frame.cap_len", "udp.dstport", "frame.comment")
                  for word in ("-e", field)]
        told = subprocess.run(["tshark", "-r", path, "-T", "fields", "-E", "separator=|", *fields], check=True,
                              capture_output=True, text=True).stdout.splitlines()
        self.assertEqual(told, [f"eth1|1042|1042|{re.search(r':([0-9]+),', line['packet'])[1]}|{line['sentence']}"
                                for line in lines])

    def test_an_interrupt_ends_it_well(self):
        self.start(CONFIG)
        path = os.path.join(self.folder, "seen.pcapng")
        for end in (signal.SIGINT, signal.SIGTERM):
            tail = self.looking("--write", path)
            tail.send_signal(end)
            self.assertEqual(tail.communicate(timeout=30)[1], "")
            self.assertEqual(tail.returncode, 0)
            replay = json.loads(run(live_test.VELO, "replay", "--config", "/dev/null", "--port", f"eth1={path}",
                                    "--json").stdout)
            self.assertGreater(replay["frames"], 0)

    def test_who_does_not_read_is_not_waited_for(self):
        self.start(CONFIG)
        self.looking("--json").send_signal(signal.SIGSTOP)
        sink = self.sink()
        client = self.control()
        client.ask("tail")

        def received():
            # By this client: the agent holds a bounded number of them, and lets the quietest go.
            return client.ask("show", what="ports")["ports"]["eth1"]["received"]

        before = received()
        wire = self.wire(1)
        for sent in range(0, 5000, 250):
            wire.send([udp(10, number) for number in range(sent, sent + 250)])
            self.assertTrue(until(lambda end=before + sent + 250: received() >= end))
        sink.stop()
        self.assertEqual(len(sink.seen), 5000)
        document = client.ask("frames")
        self.assertEqual(len(document["frames"]), 256)
        self.assertEqual(document["passedOver"], 5000 - 256)

    def test_mistakes_are_told(self):
        agent = self.start(CONFIG)
        for options, words in (
                (("--list", "FROM-ALIEC"), "there is no list FROM-ALIEC (did you mean FROM-ALICE?)"),
                (("--list", "FROM-ALICE", "--rule", "25"), "FROM-ALICE has no rule 25 (did you mean 20 or 30?)"),
                (("--rule", "10"), "--list"),
                (("--count", "0"), "--count")):
            path = os.path.join(self.folder, "none.pcapng")
            self.assertIn(words, self.refusal("tail", *options, "--write", path))
            self.assertFalse(os.path.exists(path), "a mistake leaves files as they are")
        tail = self.tail("--write", os.path.join(self.folder, "none/x"))
        self.assertIn("none/x: No such file", tail.communicate(timeout=30)[1])
        self.assertEqual(tail.returncode, 1)
        tail = self.looking()
        agent.stop()
        self.assertIn("the agent closed the connection", tail.communicate(timeout=30)[1])
        self.assertEqual(tail.returncode, 1)


class SeeingSegments(SeenTest):
    offloads = True

    def test_a_super_frame_is_one_line(self):
        if not has("iperf3"):
            self.skipTest("iperf3 is not installed")
        self.stations_are(1, 2)
        self.addresses_are()
        self.start(CONFIG)
        self.segments_flow(self.looking_for_segments)

    def looking_for_segments(self):
        client = self.control()
        client.ask("tail", list="FROM-ALICE", rule="30")
        for _ in range(1000):
            for frame in client.ask("frames")["frames"]:
                if frame["segments"] > 1:
                    self.assertRegex(frame["packet"], r"^tcp 10\.0\.0\.1:\d+ > 10\.0\.0\.2:5201 .*, "
                                                      rf"{frame['wireLength']} octets, {frame['segments']} segments$")
                    self.assertAlmostEqual(frame["wireLength"] / frame["segments"], 1450, delta=750)
                    self.velo("explain", "--port", "eth1", "--in", frame["packet"])
                    return
        self.fail("no super-frame was seen")

    def test_segments_are_counted_beside_super_frames(self):
        if not has("iperf3"):
            self.skipTest("iperf3 is not installed")
        self.stations_are(1, 2)
        self.addresses_are()
        self.start(CONFIG)
        self.segments_flow(lambda: None)
        live = self.control().ask("show", what="ports")["ports"]["eth1"]["live"]["received"]
        payload = 1448  # of a full segment with time stamps, and an MTU of 1500
        # Who sends ends when all is sent, and does not wait until it has come.
        self.assertGreater(live["bytes"], 10_000_000)
        self.assertGreater(live["segments"], live["bytes"] // (payload + 100))
        self.assertLess(live["frames"], live["segments"] / 2)
        self.assertRegex(self.velo("show", "ports"),
                         r"\neth1: \d+ frames in are \d+ segments.*; a frame that is still to be cut is one packet")

    def segments_flow(self, meanwhile):
        """Sends 20 MB through the agent."""
        server = subprocess.Popen(self.stations[2].command("iperf3", "-s", "-1"), stdout=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)
        self.assertTrue(until(lambda: ":5201 " in self.stations[2].run("ss", "-ltn").stdout))
        client = subprocess.Popen(self.stations[1].command("iperf3", "-c", "10.0.0.2", "-n", "20M"),
                                  stdout=subprocess.DEVNULL)
        self.addCleanup(client.wait)
        self.addCleanup(client.terminate)
        meanwhile()
        self.assertEqual(client.wait(), 0)


if __name__ == "__main__":
    live_test.main(__doc__)
