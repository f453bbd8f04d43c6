#!/usr/bin/env python3
"""Tests that an operator can live with `velo run`: changes, deaths and hostile clients under real traffic.

usage: operating_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
environment: VELO_LIVE_CHANGES, VELO_LIVE_KILLS, VELO_LIVE_ROUNDS and VELO_LIVE_CLIENTS ask for more of each than fits into a build.
"""

import errno
import fcntl
import json
import os
import random
import signal
import socket
import struct
import tempfile
import threading
import time

import live_test
from live_test import LiveTest
from network import Control, Flood, Sink, Stream, as_user, run, udp


def wanted(what, usually):
    return int(os.environ.get(f"VELO_LIVE_{what}", usually))


# Ports: what every configuration permits, what one of two permits, and what every one denies.
ALWAYS, FIRST, SECOND, NEVER = 10, 20, 30, 40
PORTS = (ALWAYS, FIRST, SECOND, NEVER)


def numbered(number):
    """Frames of the four ports in turn."""
    return udp(PORTS[number % 4], number)


def alternating(second, size):
    """One of two lists of a size, such that a mixture of them would permit or deny what neither does."""
    rules = {2: "permit udp any any eq 11"}
    if second:
        rules.update({50: "permit udp any any eq 10", 100: "deny udp any any eq 10", 200: "deny udp any any eq 20",
                      210: "permit udp any any eq 30", 350: "deny udp any any eq 40", 360: "permit udp any any eq 40"})
    else:
        rules.update({100: "permit udp any any eq 10", 110: "deny udp any any eq 10", 200: "permit udp any any eq 20",
                      210: "deny udp any any eq 30", 300: "deny udp any any eq 40", 350: "permit udp any any eq 40"})
    for number in range(size - len(rules)):
        changing = 7 if second and number % 10 == 0 else 9
        rules[1000 + number] = f"deny tcp host 10.{changing}.{number // 250}.{number % 250} any eq {number + 1}"
    lines = [f"  {number} {text}" for number, text in sorted(rules.items())]
    return "\n".join(["ip access-list A", *lines, "interface eth1", "  ip access-group A in", ""])


class OperatedTest(LiveTest):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory(prefix="velo-operating-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.socket = os.path.join(self.folder, "control")

    def start(self, config, *arguments):
        return self.agent(config, "--patch", "eth1,eth2", "--control", self.socket, *arguments)

    def control(self):
        client = Control(self.socket)
        self.addCleanup(client.close)
        return client

    def stream(self, rate, frame=numbered):
        made = Stream(self.wire(1), frame, rate)
        self.addCleanup(made.stop)
        return made

    def sink(self):
        made = Sink(self.wire(2))
        self.addCleanup(made.stop)
        return made


def rules_of(lists):
    """The rules of a document with one list, by number."""
    return {rule["sequence"]: rule for rule in lists["lists"][0]["rules"]}


class Operating(OperatedTest):
    config = """ip access-list A
  10 permit udp any any eq 10
  20 deny udp any any eq 20
interface eth1
  ip access-group A in
"""

    def setUp(self):
        super().setUp()
        self.stations_are(1, 2)
        self.agent_is = self.start(self.config)
        self.client = self.control()

    def pass_frames(self):
        frames = [udp(10, n) for n in range(30)] + [udp(20, n) for n in range(20)] + [udp(30, n) for n in range(5)]
        self.wire(1).send(frames)
        self.assertTrue(live_test.until(lambda: self.client.ask("show", what="ports")["ports"]["eth1"]["received"] == 55))
        return frames

    def replayed(self, frames):
        """The document of `velo replay` for the same frames."""
        capture = os.path.join(self.folder, "in.pcap")
        with open(capture, "wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
            for frame in frames:
                file.write(struct.pack("<IIII", 1700000000, 0, len(frame), len(frame)) + frame)
        config = os.path.join(self.folder, "replay.acl")
        with open(config, "w", encoding="utf-8") as file:
            file.write(self.config)
        return json.loads(run(live_test.VELO, "replay", "--config", config, "--port", f"eth1={capture}", "--patch",
                              "eth1,eth2", "--json").stdout)

    def test_it_shows_what_a_replay_of_the_same_frames_shows(self):
        replay = self.replayed(self.pass_frames())
        shown = self.client.ask("show", what="access-lists")
        self.assertEqual(shown["undefined"], replay["undefined"])
        own = ("published", "remarks", "cleared", "lastMatch", "id")

        def comparable(value):
            if isinstance(value, dict):
                return {name: comparable(part) for name, part in value.items() if name not in own}
            return [comparable(part) for part in value] if isinstance(value, list) else value

        self.assertEqual(comparable(shown["lists"]), comparable(replay["lists"]))
        self.assertEqual(self.client.ask("show", what="drops")["drops"], replay["drops"])
        ports = self.client.ask("show", what="ports")["ports"]
        for name, port in replay["ports"].items():
            self.assertEqual({key: ports[name][key] for key in port}, port)
        status = self.client.ask("show", what="status")["status"]
        self.assertEqual(status.keys(), replay["status"].keys())
        self.assertEqual(status["status"]["ip"]["intf"], replay["status"]["status"]["ip"]["intf"])

    def test_a_change_is_a_difference(self):
        self.pass_frames()
        before = rules_of(self.client.ask("show", what="access-lists"))
        done = self.client.apply(self.config.replace("20 deny udp any any eq 20", "20 permit udp any any eq 20"))
        self.assertTrue(done["applied"])
        self.assertEqual([entry["sequence"] for entry in done["difference"]["lists"]["changed"][0]["rules"]["changed"]],
                         [20])
        after = rules_of(self.client.ask("show", what="access-lists"))
        self.assertEqual((after[10]["id"], after[10]["matches"]), (before[10]["id"], {"in": 30, "out": 0}))
        self.assertNotEqual(after[20]["id"], before[20]["id"])
        published = lambda: self.client.ask("show", what="status")["status"]["status"]["ip"]["acl"]["A"]["ruleStatus"]
        self.assertTrue(live_test.until(lambda: set(published()) == {rule["id"] for rule in after.values()}))
        counted = {counter["id"] for counter in self.client.ask("show", what="counters")["counters"]}
        self.assertNotIn(before[20]["id"], counted, "what is gone is not counted for")
        sink = self.wire(2)
        self.wire(1).send([udp(20)])
        self.assertEqual(len(sink.received(1)), 1, "and holds for the next packet")
        with self.assertRaisesRegex(RuntimeError, "mistakes"):
            self.client.apply("ip access-list A\n 10 permitt ip any any\n")
        self.assertEqual(rules_of(self.client.ask("show", what="access-lists"))[20]["id"], after[20]["id"])

    def test_files_of_the_directory_are_followed(self):
        folder = os.path.join(self.folder, "conf.d")
        os.mkdir(folder)
        self.client.close()
        self.agent_is.stop()
        self.start(self.config, "--config-dir", folder)
        client = self.control()

        def put(text):
            with open(os.path.join(self.folder, "aside"), "w", encoding="utf-8") as file:
                file.write(text)
            os.rename(os.path.join(self.folder, "aside"), os.path.join(folder, "more"))

        lists = lambda: [entry["name"] for entry in client.ask("show", what="access-lists")["lists"]]
        bad = lambda: client.ask("show", what="status")["configuration"]["bad"]
        put("ip access-list MORE\n 10 permit ip any any\n")
        self.assertTrue(live_test.until(lambda: lists() == ["A", "MORE"]))
        put("ip access-list MORE\n 10 permitt ip any any\n")
        self.assertTrue(live_test.until(bad))
        self.assertEqual((lists(), bad()[0]["name"], bad()[0]["kept"]), (["A", "MORE"], "more", True))
        os.remove(os.path.join(folder, "more"))
        self.assertTrue(live_test.until(lambda: lists() == ["A"] and not bad()))

    def test_a_pipe_in_the_directory_is_not_waited_for(self):
        folder = os.path.join(self.folder, "conf.d")
        os.mkdir(folder)
        self.client.close()
        self.agent_is.stop()
        agent = self.start(self.config, "--config-dir", folder)
        client = self.control()
        os.mkfifo(os.path.join(folder, "pipe"))
        bad = lambda: client.ask("show", what="status")["configuration"]["bad"]
        self.assertTrue(live_test.until(bad))
        self.assertIn("is a pipe", bad()[0]["mistakes"][0])
        self.assertTrue(client.apply(self.config)["applied"])
        client.close()
        agent.stop()

    def test_it_ends_in_the_middle_of_a_large_change(self):
        rules = "".join(f"deny tcp host 10.{n >> 16}.{n >> 8 & 255}.{n & 255} any eq 5\n" for n in range(400000))
        for begin in range(0, len(rules), 30000):
            self.client.ask("text", name="new", text=(("ip access-list A\n" if not begin else "")
                                                      + rules[begin:begin + 30000]))
        self.client.socket.sendall(b'{"do":"apply"}\n')
        other = self.control()
        self.assertTrue(live_test.until(lambda: other.ask("show", what="status")["configuration"]["changing"]))
        begin = time.monotonic()
        self.agent_is.stop()
        took = time.monotonic() - begin
        print(f"ended in {took:.2f} s", flush=True)
        self.assertLess(took, 2)

    def test_an_explanation_counts_nothing(self):
        self.pass_frames()
        explained = self.client.ask("explain", port="eth1", frame=udp(20).hex())
        self.assertEqual((explained["verdict"], explained["asked"][0]["rule"]), ("drop", 20))
        passes = self.client.ask("explain", port="eth1", frame="udp 192.0.2.1:5 > 192.0.2.2:10")
        self.assertEqual([end["port"] for end in passes["egress"]], ["eth2"])
        self.assertEqual(rules_of(self.client.ask("show", what="access-lists"))[20]["matches"]["in"], 20)

    def test_it_answers_and_counts_while_it_is_flooded(self):
        flood = Flood(self.wire(1), udp(10))
        self.addCleanup(flood.stop)

        def counted():
            """Matches of the rule that all of the flood meets, and what the status has of them."""
            rule = rules_of(self.client.ask("show", what="access-lists", name="A"))[10]
            status = self.client.ask("show", what="status")["status"]["status"]["ip"]["acl"]["A"]["ruleStatus"]
            return rule["matches"]["in"], status[rule["id"]]["packets"]

        shown = [counted()]
        end = time.monotonic() + 4
        while time.monotonic() < end:
            shown.append(counted())
        flood.stop()
        for before, after in zip(shown, shown[1:]):
            self.assertTrue(before[0] <= after[0] and before[1] <= after[1], (before, after))
        self.assertGreater(shown[-1][1], shown[0][0], "the status is not four seconds old")
        self.assertGreater(len(shown), 4, "and a show takes less than a second")
        received = lambda: self.client.ask("show", what="ports")["ports"]["eth1"]["received"]
        self.assertTrue(live_test.until(lambda: counted() == (received(), received())), "in the end every frame counts")
        print(f"{received()} frames, {len(shown)} shows", flush=True)

    def test_changes_are_for_root_and_the_group_of_the_socket(self):
        somebody, group = 65534, 64123
        os.chmod(self.folder, 0o755)
        requests = ({"do": "show", "what": "drops"}, {"do": "explain", "port": "eth1", "frame": udp(20).hex()},
                    {"do": "clear"}, {"do": "trace", "off": True}, {"do": "text", "name": "a", "text": ""},
                    {"do": "apply", "allowOpen": True})

        def codes(gid, *groups):
            told = as_user(somebody, gid, list(groups), self.socket, requests)
            return told if isinstance(told, int) else [answer.get("error", {}).get("code") for answer in told]

        self.assertEqual(codes(somebody), errno.EACCES, "the file is for its owner and group alone")
        os.chmod(self.socket, 0o666)
        refused = [None, None] + ["not-allowed"] * 4
        self.assertEqual(codes(somebody), refused, "who may speak may ask, and change nothing")
        self.assertEqual(codes(group), refused)
        os.chown(self.socket, -1, group)
        self.assertEqual(codes(group), [None] * 6, "its group")
        self.assertEqual(codes(somebody, group), [None] * 6, "a further group of the client")
        self.assertEqual(self.client.ask("show", what="access-lists")["lists"], [], "and what it applied holds")

    def test_cleared_counters_begin_again_above_the_line(self):
        self.pass_frames()
        self.client.ask("clear")
        self.assertEqual(rules_of(self.client.ask("show", what="access-lists"))[10]["matches"]["in"], 0)
        self.wire(1).send([udp(10)])
        shown = lambda: rules_of(self.client.ask("show", what="access-lists"))[10]["matches"]["in"]
        self.assertTrue(live_test.until(lambda: shown() == 1))
        self.assertEqual(live_test.rules(self.agent_is.stop(), "A")[10], (31, 0), "the counters are untouched")


class Changing(OperatedTest):
    changes = 250

    def test_no_packet_meets_a_mixture(self):
        changes = wanted("CHANGES", self.changes)
        self.stations_are(1, 2)
        sizes = (10, 1000)
        self.start(alternating(False, sizes[0]))
        client = self.control()
        sink, stream = self.sink(), self.stream(4000)
        slowest = 0
        for number in range(changes):
            done = client.apply(alternating(number % 2 == 0, sizes[number // 10 % 2]))
            self.assertTrue(done["applied"])
            slowest = max(slowest, done["commitSeconds"])
            time.sleep(0.02)
        stream.stop()
        sink.stop()
        seen = {port: {number for which, number in sink.seen if which == port} for port in PORTS}
        sent = {port: {n for n in range(stream.sent) if PORTS[n % 4] == port} for port in PORTS}
        self.assertEqual(sent[ALWAYS] - seen[ALWAYS], set(), "permitted by both: none is lost")
        self.assertEqual(seen[NEVER], set(), "denied by both")
        self.assertEqual(len(sink.seen), sum(map(len, seen.values())), "none comes twice")
        neighbours = [(n in seen[FIRST], n + 1 in seen[SECOND]) for n in sent[FIRST] if n + 1 < stream.sent]
        mixed = sum(first == second for first, second in neighbours)
        self.assertLessEqual(mixed, changes, "of two neighbours one passes, but where a change came between")
        print(f"{changes} changes, {stream.sent} packets, {mixed} changes between neighbours, "
              f"longest commit {slowest * 1e3:.1f} ms", flush=True)



class TakingBack(OperatedTest):
    """Changes from the command line, and back."""

    OLD = ("ip access-list A\n   remark the one that is watched\n   10 permit udp any any eq 10\n"
           "   20 deny udp any any eq 20\ninterface eth1\n   ip access-group A in\n")
    NEW = OLD.replace("10 permit", "10 deny").replace("20 deny", "20 permit")

    def setUp(self):
        super().setUp()
        self.stations_are(1, 2)
        self.state = os.path.join(self.folder, "state")

    def velo(self, *arguments, check=True):
        return run(live_test.VELO, *arguments, "--control", self.socket, check=check).stdout

    def text(self, content, name="given.acl"):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)
        return path

    def passed(self):
        """Which of the ports 10 and 20 gets through."""
        sink = self.wire(2)
        self.wire(1).send([udp(10), udp(20)])
        received = sink.received(1)
        self.assertEqual(len(received), 1)
        return struct.unpack("!H", received[0][36:38])[0]

    def test_what_is_not_confirmed_does_not_survive_a_kill(self):
        agent = self.start(self.OLD, "--state", self.state)
        self.assertEqual(self.passed(), 10)
        self.assertIn("velo confirm keeps it", self.velo("apply", self.text(self.NEW), "--confirm", "3600"))
        self.assertEqual(self.passed(), 20)
        agent.process.send_signal(signal.SIGKILL)
        agent.process.wait()
        # The file says the new one: it was edited before it was applied.
        agent = self.start(self.NEW, "--state", self.state)
        self.assertEqual(self.passed(), 10)
        self.assertEqual(self.velo("show", "configuration", "--source", "cli"), self.OLD)
        self.velo("apply", self.text(self.NEW), "--confirm", "3600")
        self.assertEqual(self.velo("confirm"), "confirmed\n")
        agent.process.send_signal(signal.SIGKILL)
        agent.process.wait()
        self.start(self.NEW, "--state", self.state)
        self.assertEqual(self.passed(), 20)

    def test_it_goes_back_by_itself(self):
        self.start(self.OLD)
        self.velo("apply", self.text(self.NEW), "--confirm", "1")
        self.assertTrue(live_test.until(lambda: self.velo("show", "configuration") == self.OLD))
        self.assertEqual(self.passed(), 10)

    def test_rules_are_edited_and_changes_taken_back(self):
        agent = self.start(self.OLD, "--state", self.state)
        self.assertEqual(self.passed(), 10)
        before = rules_of(self.control().ask("show", what="access-lists"))
        self.assertIn("100 permit udp any any eq 10  (was: 10)", self.velo("edit", "A", "resequence 100", "move 110 before 100"))
        after = rules_of(self.control().ask("show", what="access-lists"))
        self.assertEqual((after[100]["id"], after[100]["matches"]["in"]), (before[10]["id"], 1))
        self.assertEqual(after[50]["id"], before[20]["id"])
        refused = self.velo("edit", "A", "no 100", "110 permitt", check=False)
        self.assertIn("edit:2:5: found \"permitt\"", refused)
        self.assertIn("a restart would not be the same", self.velo("show", "status"))
        self.assertIn("saved in ", self.velo("save"))
        self.assertNotIn("a restart would not be the same", self.velo("show", "status"))
        self.assertIn("~   20 deny udp any any eq 20  (was: 50)", self.velo("rollback"))
        self.assertEqual(self.velo("show", "configuration"), self.OLD)
        listed = self.velo("history")
        for what in ("start", "edit", "rollback"):
            self.assertIn(what, listed)
        self.assertIn(", velo", listed)
        agent.process.send_signal(signal.SIGKILL)
        agent.process.wait()
        self.start(self.OLD, "--state", self.state)
        self.assertIn("rollback", self.velo("history"), "kept in the state file")
        self.assertIn("+ ip access-list A (2 rules)", self.velo("show", "history", "1"))

    def test_standard_input_is_a_file(self):
        self.start(self.OLD)
        piped = run(live_test.VELO, "apply", "-", "--control", self.socket, input=self.NEW).stdout
        self.assertIn("~   10 deny udp any any eq 10", piped)
        self.assertEqual(self.passed(), 20)


class Surviving(OperatedTest):
    kills = 4

    def check_status(self, client):
        """Shows exactly the rules that are in force, by their ids; returns them by number."""
        rules = rules_of(client.ask("show", what="access-lists"))
        status = client.ask("show", what="status")["status"]["status"]
        self.assertEqual(list(status), ["ip"])
        self.assertEqual(list(status["ip"]["acl"]), ["A"])
        self.assertEqual(set(status["ip"]["acl"]["A"]["ruleStatus"]), {rule["id"] for rule in rules.values()})
        self.assertEqual(status["ip"]["intf"], {"in": {"intf": {"eth1": "A"}}})
        self.assertIn("drop", status["ip"]["acl"]["A"]["implicitRuleId"])
        return rules

    def test_killed_at_any_moment(self):
        kills = wanted("KILLS", self.kills)
        self.stations_are(1, 2)
        chance = random.Random(int(os.environ.get("VELO_LIVE_SEED", "1")))
        sink, stream = self.sink(), self.stream(1000)
        stays = None  # the id of a rule that is in every configuration
        known = {}    # what every id ever stood for, under whatever number
        for number in range(kills + 1):
            second = chance.random() < 0.5
            size = chance.choice((10, 300))
            begin = time.monotonic()
            agent = self.start(alternating(second, size), "--state", os.path.join(self.folder, "state"))
            client = Control(self.socket)
            rules = self.check_status(client)
            self.assertLess(time.monotonic() - begin, 5)
            self.assertEqual(rules[2]["id"], stays or rules[2]["id"], "the same rule, the same id")
            stays = rules[2]["id"]
            for rule in rules.values():
                self.assertEqual(known.setdefault(rule["id"], rule["text"]), rule["text"], "whatever its number")
            if number == kills:
                client.close()
                break
            end = time.monotonic() + chance.uniform(0.05, 2)
            changing = chance.random() < 0.7
            while time.monotonic() < end:
                if changing:
                    client.apply(alternating(chance.random() < 0.5, size))
                    for rule in rules_of(client.ask("show", what="access-lists")).values():
                        self.assertEqual(known.setdefault(rule["id"], rule["text"]), rule["text"])
                time.sleep(chance.uniform(0, 0.1))
            agent.process.send_signal(signal.SIGKILL)
            agent.process.wait()
            client.close()
            time.sleep(0.1)
            before, sent = len(sink.seen), stream.sent
            time.sleep(0.2)
            self.assertEqual(len(sink.seen), before, "closed while dead")
            self.assertGreater(stream.sent, sent, "though packets came")
        stream.stop()
        sink.stop()
        self.assertEqual([number for port, number in sink.seen if port == NEVER], [], "denied by every configuration")
        self.assertGreater(len([number for port, number in sink.seen if port == ALWAYS]), 0)
        print(f"{kills} kills, {stream.sent} packets, {len(known)} ids", flush=True)

    def test_counts_go_on(self):
        self.stations_are(1, 2)
        config = alternating(False, 10)
        state = os.path.join(self.folder, "state")
        agent = self.start(config, "--state", state)
        first, second = self.wire(1), self.wire(2)
        for round_number in range(1, 4):
            first.send(udp(10, n) for n in range(100))
            self.assertEqual(len(second.received(100)), 100)
            client = Control(self.socket)
            count = lambda asked=client: rules_of(asked.ask("show", what="access-lists"))[100]["matches"]["in"]
            shown = rules_of(client.ask("show", what="access-lists"))[100]
            self.assertTrue(live_test.until(lambda c=count, n=round_number: c() == 100 * n))
            time.sleep(1.5)
            agent.process.send_signal(signal.SIGKILL)
            agent.process.wait()
            client.close()
            agent = self.start(config, "--state", state)
            client = Control(self.socket)
            after = rules_of(client.ask("show", what="access-lists"))[100]
            self.assertEqual((after["id"], after["matches"]["in"]), (shown["id"], 100 * round_number))
            status = client.ask("show", what="status")["status"]["status"]["ip"]["acl"]["A"]
            self.assertEqual(status["ruleStatus"][after["id"]]["packets"], 100 * round_number)
            client.close()
            first, second = self.wire(1), self.wire(2)
        agent.stop()
        # Without a kill not even the last packet is missing.
        agent = self.start(config, "--state", state)
        time.sleep(0.1)  # the copy of the beginning is behind it
        first.send(udp(10, n) for n in range(50))
        agent.stop()
        self.start(config, "--state", state)
        self.assertEqual(rules_of(self.control().ask("show", what="access-lists"))[100]["matches"]["in"], 350)

    def end_by_signal(self, agent):
        """Of an agent that hangs: its status, and the seconds that it took."""
        begin = time.monotonic()
        agent.process.send_signal(signal.SIGTERM)
        return agent.process.wait(timeout=20), time.monotonic() - begin

    def test_it_ends_when_nobody_takes_its_report(self):
        self.stations_are(1, 2)
        agent = self.start(alternating(False, 300))
        fcntl.fcntl(agent.process.stdout, fcntl.F_SETPIPE_SZ, 4096)
        status, seconds = self.end_by_signal(agent)
        self.assertEqual(status, 1)
        self.assertLess(seconds, 5)  # a second, and what it takes to close devices of any kind on a busy machine
        self.assertIn("velo: ended before everything was written", agent.process.stderr.read())

    def test_it_ends_when_nobody_takes_its_traces(self):
        self.stations_are(1, 2)
        agent = self.start(alternating(False, 10), "--trace", "DpAclStatusVelo/9")
        client = self.control()
        client.socket.settimeout(3)
        with self.assertRaises(TimeoutError):  # once the loop waits for room
            for number in range(1, 100):
                client.apply(alternating(number % 2 == 1, 300))
        status, seconds = self.end_by_signal(agent)
        self.assertEqual(status, 1)
        self.assertLess(seconds, 5)

    def test_a_damaged_state_is_set_aside(self):
        self.stations_are(1, 2)
        state = os.path.join(self.folder, "state")
        with open(state, "wb") as file:
            file.write(b"no database" * 1000)
        agent = self.start(alternating(False, 10), "--state", state)
        self.check_status(self.control())
        self.assertTrue(os.path.exists(state + ".aside"))
        agent.stop()
        self.assertIn("is set aside", agent.errors)


class Remembering(OperatedTest):
    """Edits, applies, rollbacks and kills in any order, with packets in between, against a model: as long as a rule
    says the same it keeps its id and its count, whatever its number."""

    def setUp(self):
        super().setUp()
        self.stations_are(1, 2)
        self.sender = self.wire(1)
        self.chance = random.Random(int(os.environ.get("VELO_LIVE_SEED", "1")))
        self.config = os.path.join(self.folder, "a.acl")
        self.rules = {}          # what each number says: the port of its rule
        self.counts = {}         # by port, while the rule is in force
        self.ids = {}            # likewise
        self.meanings = {}       # the port that an id ever stood for
        self.past = [{}]         # what was in force behind every change
        self.saved = {}
        self.save()

    @staticmethod
    def text(rules):
        lines = [f"  {number} permit udp any any eq {port}" for number, port in sorted(rules.items())]
        return "\n".join(["ip access-list A", *lines, "interface eth1", "  ip access-group A in", ""])

    def save(self):
        self.saved = dict(self.rules)
        with open(self.config, "w", encoding="utf-8") as file:
            file.write(self.text(self.saved))

    def became(self, rules):
        if rules == self.rules:
            return
        self.rules = dict(rules)
        self.past.append(self.rules)
        ports = set(rules.values())
        self.counts = {port: self.counts.get(port, 0) for port in ports}
        self.ids = {port: self.ids.get(port) for port in ports}

    def begin(self):
        self.running = self.start(self.text(self.saved), "--state", os.path.join(self.folder, "state"))
        self.client = Control(self.socket)
        self.became(self.saved)

    def kill(self):
        time.sleep(1.2)  # longer than what was last may go unsaved
        self.running.process.send_signal(signal.SIGKILL)
        self.running.process.wait()
        self.client.close()
        self.begin()

    def free_port(self):
        return self.chance.choice([port for port in range(100, 140) if port not in self.rules.values()])

    def some(self):
        return self.chance.choice(sorted(self.rules))

    def edit(self):
        rules = dict(self.rules)
        what = self.chance.choice(("add", "no", "move", "resequence") if rules else ("add",))
        if what == "add" and len(rules) < 30:
            number = self.chance.randint(1, 200)
            rules[number] = self.free_port()
            command = f"{number} permit udp any any eq {rules[number]}"
        elif what == "no":
            number = self.some()
            del rules[number]
            command = f"no {number}"
        elif what == "resequence":
            first, step = self.chance.randint(1, 40), self.chance.randint(1, 40)
            rules = {first + step * place: rules[number] for place, number in enumerate(sorted(rules))}
            command = f"resequence {first} {step}"
        else:
            return self.move()
        self.client.ask("text", name="edit", text=command)
        self.assertTrue(self.client.ask("edit", list="A")["applied"], command)
        self.became(rules)

    def move(self):
        """The agent chooses the number; the model knows the order."""
        number, to = self.some(), self.some()
        if number == to:
            return
        side = self.chance.choice(("before", "after"))
        self.client.ask("text", name="edit", text=f"move {number} {side} {to}")
        try:
            self.client.ask("edit", list="A")
        except RuntimeError as refused:
            return self.assertIn("free number", str(refused))
        order = [self.rules[at] for at in sorted(self.rules) if at != number]
        order.insert(order.index(self.rules[to]) + (side == "after"), self.rules[number])
        shown = rules_of(self.client.ask("show", what="access-lists"))
        is_now = {at: int(rule["text"].split()[-1]) for at, rule in shown.items()}
        self.assertEqual([is_now[at] for at in sorted(is_now)], order)
        self.became(is_now)

    def apply(self):
        rules = {number + self.chance.randint(0, 20): port for number, port in self.rules.items() if self.chance.random() < 0.7}
        for _ in range(self.chance.randint(0, 4)):
            number, port = self.chance.randint(1, 200), self.free_port()
            if port not in rules.values():
                rules[number] = port
        self.client.apply(self.text(rules))
        self.became(rules)

    def roll_back(self):
        changes = self.client.ask("show", what="history")["changes"]
        back = self.chance.randrange(min(len(changes), len(self.past), 20))
        rules = self.past[-1 - back]
        self.client.ask("rollback", number=changes[-1 - back]["number"])
        self.became(rules)

    def packets(self):
        ports = self.chance.choices(sorted(self.rules.values()) + [99], k=5)
        self.sender.send([udp(port) for port in ports])
        for port in ports:
            if port in self.counts:
                self.counts[port] += 1

    def check(self, why):
        def shown():
            rules = rules_of(self.client.ask("show", what="access-lists"))
            return {number: (int(rule["text"].split()[-1]), rule["matches"]["in"]) for number, rule in rules.items()}
        wanted_now = {number: (port, self.counts[port]) for number, port in self.rules.items()}
        if not live_test.until(lambda: shown() == wanted_now, 3):
            self.assertEqual(shown(), wanted_now, why)
        for rule in rules_of(self.client.ask("show", what="access-lists")).values():
            port = int(rule["text"].split()[-1])
            self.assertEqual(self.meanings.setdefault(rule["id"], port), port, why)
            if self.ids[port] is None:
                self.assertNotIn(rule["id"], self.ids.values(), why)
                self.ids[port] = rule["id"]
            self.assertEqual(rule["id"], self.ids[port], why)

    def test_ids_and_counts_are_never_lost_and_never_mixed_up(self):
        rounds, kills = wanted("ROUNDS", 60), 0
        self.begin()
        for number in range(rounds):
            chance = self.chance.random()
            if chance < 0.05:
                self.kill()
                kills += 1
            elif chance < 0.15:
                self.roll_back()
            elif chance < 0.3:
                self.apply()
            elif chance < 0.35:
                self.save()
            else:
                self.edit()
            self.packets()
            self.check(f"round {number}")
        self.client.close()
        self.assertGreater(kills, 0)
        print(f"{rounds} rounds, {kills} kills, {len(self.meanings)} ids", flush=True)


class Hostile(OperatedTest):
    """Clients that are no clients."""

    def attack(self, number):
        """One of them; returns the connection when it stays."""
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        client.settimeout(0.05)
        try:
            client.connect(self.socket)
            kind = number % 5
            if kind == 0:
                client.sendall(os.urandom(5000) + b"\n")
            elif kind == 1:
                client.sendall(b'{"do":"show","what":')
            elif kind == 2:
                client.sendall(b"x" * 1000000)
            elif kind == 3:
                client.sendall(b'{"do":"show","what":"access-lists"}\n' * 200)  # and takes none of the answers
            return client
        except OSError:
            client.close()
            return None

    def test_traffic_does_not_notice(self):
        clients = wanted("CLIENTS", 100)
        self.stations_are(1, 2)
        agent = self.start(alternating(False, 1000))
        sink = self.sink()

        def delivered(during):
            """Of a stream of packets that pass, the part that arrives while something goes on."""
            before = len(sink.seen)
            stream = self.stream(3000, lambda number: udp(ALWAYS, number))
            during()
            stream.stop()
            time.sleep(0.3)
            return (len(sink.seen) - before) / stream.sent

        held = []

        def attacks():
            end = time.monotonic() + 2
            for number in range(clients):
                held.append(self.attack(number))
                if len(held) > 60:
                    gone = held.pop(0)
                    if gone:
                        gone.close()
            time.sleep(max(0.0, end - time.monotonic()))

        quiet = delivered(lambda: time.sleep(2))
        attacks_first = threading.Thread(target=attacks)  # what is kept for clients comes with the first of them
        attacks_first.start()
        attacks_first.join()
        memory = agent.memory()
        loud = delivered(attacks)
        grown = agent.memory() - memory
        self.assertGreater(loud, quiet - 0.02)
        self.assertLess(grown, 4 << 20)
        for client in filter(None, held):
            client.close()
        self.assertEqual(len(self.control().ask("show", what="access-lists")["lists"]), 1, "who asks is answered")
        print(f"{clients} clients, {quiet:.4f} delivered without and {loud:.4f} with them, memory {grown / 1024:+.0f} KiB",
              flush=True)


if __name__ == "__main__":
    live_test.main(__doc__)
