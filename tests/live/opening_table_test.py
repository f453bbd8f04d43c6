#!/usr/bin/env python3
"""A table of openings and near-openings, carried out by the real program, with real packets.

What is an opening is judged by the packets alone: a path and kind of packet of which some were dropped before the
change, and none are after it. Such a change must be refused, any other one must not.

usage: opening_table_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import collections
import os
import re
import signal
import struct
import threading

import live_test
from live_test import until
from network import Agent, Control, mac, udp
from operating_test import OperatedTest

# Of each kind of packet a list permits the first and denies the second.
PASS, DROP = 10, 20
TYPES = {PASS: 0x88B5, DROP: 0x88B6}

A = f"ip access-list A\n  10 permit udp any any eq {PASS}\n  20 deny udp any any eq {DROP}\n"
B = A.replace("list A", "list B")
SIX = f"ipv6 access-list A\n  10 permit udp any any eq {PASS}\n"
MAC = f"mac access-list A\n  10 deny any any {TYPES[DROP]:#x}\n  20 permit any any\n"
ALL = "ip access-list ALL\n  10 permit ip any any\n"
A_ALL = ALL.replace("ALL", "A")
EMPTY = "ip access-list A\n"
HALF, OTHER_HALF = "  1 permit ip any 0.0.0.0/1\n", "  2 permit ip any 128.0.0.0/1\n"
PO1, PO2, PO12 = (f"port-channel po1 members {members}\n" for members in ("eth1", "eth2", "eth1 eth2"))
NO_PORT = "port-channel po1 members eht1\n"


def at(interface, *bound):
    return f"interface {interface}\n" + "".join(f"  {one}\n" for one in bound)


IN, OUT, SIX_IN, MAC_IN = ("ip access-group A in", "ip access-group A out", "ipv6 access-group A in",
                           "mac access-group A in")
B_IN, ALL_IN, NONE_IN = (f"ip access-group {name} in" for name in ("B", "ALL", "NONE"))
BOUND = A + at("eth1", IN)

LOST, DROPPED, GONE = "filter-lost", "list-dropped", "list-file-gone"
UNDEFINED, UNKNOWN = "list-undefined", "interface-unknown"

Row = collections.namedtuple("Row", "why before after codes")

# By apply: the text before and the one that is applied; the openings by which it is refused.
APPLIED = (
    Row("the list's name with a typing mistake", BOUND, A + at("eth1", "ip access-group AA in"), UNDEFINED),
    Row("the list's name in other letters", BOUND, A + at("eth1", "ip access-group a in"), UNDEFINED),
    Row("a list of another kind has the name", A, A + at("eth1", SIX_IN), UNDEFINED),
    Row("bound where nothing filtered, and not there", A, A + at("eth2", B_IN), UNDEFINED),
    Row("bound and defined at once", "! nothing\n", BOUND, ""),
    Row("the binding without its list", BOUND, at("eth1", IN), DROPPED),
    Row("the list gets another name, and its binding does not", BOUND, B + at("eth1", IN), DROPPED),
    Row("list and binding get another name", BOUND, B + at("eth1", B_IN), ""),
    Row("a list that is bound nowhere goes", B + BOUND, BOUND, ""),
    Row("nothing at all", BOUND, "! nothing\n", LOST),
    Row("the list alone", BOUND, A, LOST),
    Row("a comment more", BOUND, "! again\n" + BOUND, ""),
    Row("another interface", BOUND, A + at("eth2", IN), LOST),
    Row("another interface besides", BOUND, BOUND + at("eth2", IN), ""),
    Row("the other direction", BOUND, A + at("eth1", OUT), LOST),
    Row("one of two directions", A + at("eth1", IN, OUT), BOUND, LOST),
    Row("one of two kinds, of IPv6", A + SIX + at("eth1", IN, SIX_IN), A + SIX + at("eth1", IN), LOST),
    Row("one of two kinds, of MAC", A + MAC + at("eth1", IN, MAC_IN), A + MAC + at("eth1", IN), LOST),
    Row("a list of another kind in its place", A + MAC + at("eth1", IN), A + MAC + at("eth1", MAC_IN), LOST),
    Row("another list in its place", A + B + at("eth1", IN), A + B + at("eth1", B_IN), ""),
    Row("an empty list in its place", BOUND, EMPTY + at("eth1", IN), ""),
    Row("an interface with a typing mistake", BOUND, A + at("eht1", IN), f"{UNKNOWN} {LOST}"),
    Row("a new binding at an interface with a typing mistake", BOUND, BOUND + at("eht2", IN), UNKNOWN),
    Row("an interface that has always been none", A + at("eht1", IN), A + B + at("eht1", IN), ""),
    Row("a port-channel that there is not", A, A + at("po1", IN), UNKNOWN),
    Row("the same by a port-channel", BOUND, A + PO1 + at("po1", IN), ""),
    Row("by a port-channel of another port", BOUND, A + PO2 + at("po1", IN), LOST),
    Row("the list of a port-channel", A + PO12 + at("po1", IN), A + PO12, f"{LOST} {LOST}"),
    Row("the port-channel goes", A + PO1 + at("po1", IN), A + at("po1", IN), f"{UNKNOWN} {LOST}"),
    Row("its only member with a typing mistake", A + PO1 + at("po1", IN), A + NO_PORT + at("po1", IN),
        f"{UNKNOWN} {LOST}"),
    Row("a member leaves", A + PO12 + at("po1", IN), A + PO2 + at("po1", IN), LOST),
    Row("a member leaves with a list of its own", A + B + PO12 + at("po1", IN),
        A + B + PO2 + at("po1", IN) + at("eth1", B_IN), ""),
    Row("a member joins", A + PO2 + at("po1", IN), A + PO12 + at("po1", IN), ""),
    Row("the port-channel's list goes, the member's own stays", A + B + PO1 + at("po1", IN) + at("eth1", B_IN),
        A + B + PO1 + at("eth1", B_IN), ""),
    Row("the port-channel's list goes, the member's own has always been open",
        A + PO1 + at("po1", IN) + at("eth1", NONE_IN), A + PO1 + at("eth1", NONE_IN), f"{UNDEFINED} {LOST}"),
    # Lists that permit everything.
    Row("a list that permits everything in its place", A + ALL + at("eth1", IN), A + ALL + at("eth1", ALL_IN), LOST),
    Row("such a list is bound where nothing filtered", ALL, ALL + at("eth1", ALL_IN), ""),
    Row("such a list goes", ALL + at("eth1", ALL_IN), ALL, ""),
    Row("the one beside such a list goes", A + ALL + PO1 + at("po1", ALL_IN) + at("eth1", IN),
        A + ALL + PO1 + at("po1", ALL_IN), LOST),
    Row("its rules permit everything", BOUND, A_ALL + at("eth1", IN), LOST),
    Row("a first rule that permits everything", BOUND, BOUND + EMPTY + "  5 permit ip any any\n", LOST),
    Row("a last rule that permits everything", BOUND, BOUND + EMPTY + "  30 permit ip any any\n", ""),
    Row("the last rule that denies goes", BOUND + EMPTY + "  30 permit ip any any\n",
        EMPTY + "  10 permit udp any any eq 10\n  30 permit ip any any\n" + at("eth1", IN), LOST),
    Row("an empty list gets a rule that permits everything", EMPTY + at("eth1", IN), A_ALL + at("eth1", IN), LOST),
    Row("its rules permit both halves of everything", BOUND, BOUND + EMPTY + HALF + OTHER_HALF, LOST),
    Row("its rules permit one half, and the sender's other one", BOUND,
        EMPTY + HALF + "  2 permit ip 0.0.0.0/1 any\n" + at("eth1", IN), ""),
    Row("it permits everything, and the port-channel's list filters", A + B + PO1 + at("po1", B_IN) + at("eth1", IN),
        A_ALL + B + PO1 + at("po1", B_IN) + at("eth1", IN), ""),
    Row("its rules permit everything, of IPv6", SIX + at("eth1", SIX_IN),
        "ipv6 access-list A\n  permit ipv6 any any\n" + at("eth1", SIX_IN), LOST),
    Row("its rules permit everything, of MAC", MAC + at("eth1", MAC_IN),
        "mac access-list A\n  permit any any\n" + at("eth1", MAC_IN), LOST),
)

# By edit: the text before, and the commands for A.
EDITED = (
    Row("a first rule that permits everything", BOUND, ("5 permit ip any any",), LOST),
    Row("a last rule that permits everything", BOUND, ("30 permit ip any any",), ""),
    Row("the rule that denies goes", BOUND + EMPTY + "  30 permit ip any any\n", ("no 20",), LOST),
    Row("the rule that permits everything moves to the front", BOUND + EMPTY + "  30 permit ip any any\n",
        ("move 30 before 10",), LOST),
    Row("other numbers", BOUND + EMPTY + "  30 permit ip any any\n", ("resequence",), ""),
    Row("no rule is left", BOUND, ("no 10", "no 20"), ""),
    Row("one half", BOUND + EMPTY + HALF, ("no 20",), ""),
    Row("the other half", BOUND + EMPTY + HALF, ("2 permit ip any 128.0.0.0/1",), LOST),
    Row("of a list that is bound nowhere", A, ("5 permit ip any any",), ""),
)

# By rollback: the text to which it leads, and the one that is in force.
ROLLED_BACK = (
    Row("to a time before the binding", BOUND, A, LOST),
    Row("to a time before the list", BOUND, "! nothing\n", LOST),
    Row("to a list that permits everything", BOUND, A_ALL + at("eth1", IN), LOST),
    Row("to another list", A + B + at("eth1", B_IN), A + B + at("eth1", IN), ""),
    Row("to a time when nothing was open that is closed", BOUND + at("eth2", IN), BOUND, LOST),
    Row("to more filters", A, BOUND, ""),
)

# By SIGHUP: the file of --config before and after.
RELOADED = (
    Row("the list alone", BOUND, A, LOST),
    Row("the list's name with a typing mistake", BOUND, A + at("eth1", "ip access-group AA in"), UNDEFINED),
    Row("its rules permit everything", BOUND, A_ALL + at("eth1", IN), LOST),
    Row("a rule more", BOUND, BOUND + EMPTY + "  30 deny ip any any\n", ""),
    Row("an empty file", BOUND, "", LOST),
)

# In the directory: the files before, and those after it.
IN_DIRECTORY = (
    Row("the file of list and binding goes", {"a": BOUND}, {}, LOST),
    Row("the file of the list goes", {"a": A, "b": at("eth1", IN)}, {"b": at("eth1", IN)}, GONE),
    Row("the file of the list goes, and another one has it", {"a": A, "b": BOUND}, {"b": BOUND}, ""),
    Row("the list goes from its file", {"a": A, "b": at("eth1", IN)}, {"a": "", "b": at("eth1", IN)}, DROPPED),
    Row("the binding goes from its file", {"a": A, "b": at("eth1", IN)}, {"a": A, "b": ""}, LOST),
    Row("the rules of a file permit everything", {"a": A, "b": at("eth1", IN)}, {"a": A_ALL, "b": at("eth1", IN)}, LOST),
    Row("the rules of a file deny everything", {"a": A, "b": at("eth1", IN)}, {"a": EMPTY, "b": at("eth1", IN)}, ""),
    Row("a file binds a list that is not there", {"a": A}, {"a": A, "b": at("eth1", B_IN)}, UNDEFINED),
    Row("a file in front has another list of the name", {"b": BOUND}, {"a": A_ALL, "b": BOUND}, LOST),
)

# At a restart with --state: the file of --config before and after.
RESTARTED = (
    Row("the list alone", BOUND, A, LOST),
    Row("another interface", BOUND, A + at("eth2", IN), LOST),
    Row("its rules permit everything", BOUND, A_ALL + at("eth1", IN), LOST),
    Row("the list's name with a typing mistake", BOUND, A + at("eth1", "ip access-group AA in"), UNDEFINED),
    Row("another list", BOUND, B + at("eth1", B_IN), ""),
    Row("what was open already", A, B, ""),
)


def other(kind, frame):
    """A frame of udp() made one of another kind: IPv6, or with an EtherType of no protocol."""
    port = struct.unpack("!H", frame[36:38])[0]
    if kind == "ipv6":
        payload = frame[34:]
        return (frame[:12] + b"\x86\xdd" + struct.pack("!IHBB", 6 << 28, len(payload), 17, 64)
                + bytes.fromhex("fd000000000000000000000000000001fd000000000000000000000000000002") + payload)
    return frame[:12] + struct.pack("!H", TYPES[port]) + frame[14:] if kind == "mac" else frame


PROBES = [(kind, port) for kind in ("ip", "ipv6", "mac") for port in (PASS, DROP)]
FRAMES = {probe: other(probe[0], udp(probe[1])) for probe in PROBES}
WHICH = {frame: probe for probe, frame in FRAMES.items()}


class OpeningTable(OperatedTest):
    def setUp(self):
        super().setUp()
        self.stations_are(1, 2)
        self.wires = {1: self.wire(1), 2: self.wire(2)}
        self.log = []
        self.running = None

    def begin(self, config, *arguments, check=True):
        """An agent whose log is noted, in place of the one before. Returns whether it is ready."""
        if self.running:
            self.end()
        words = [word for number in (1, 2) for word in ("--port", f"eth{number}=eth{number}")]
        self.running = Agent(live_test.VELO, self.middle, config, "--patch", "eth1,eth2", "--control", self.socket, *words,
                             *arguments, check=check)
        self.addCleanup(self.running.kill)
        self.log = log = []
        errors = self.running.process.stderr
        self.reader = threading.Thread(target=lambda: log.extend(errors), daemon=True)
        self.reader.start()
        self.client = Control(self.socket) if self.running.ready else None
        return self.running.ready

    def end(self, number=signal.SIGKILL):
        if self.client:
            self.client.close()
        self.running.process.send_signal(number)
        self.running.process.wait(timeout=30)
        self.reader.join()
        self.running.kill()
        self.running = None

    def frames(self):
        """How many frames the agent has received by its ports, and sent by each."""
        ports = self.client.ask("show", what="ports")["ports"]
        return sum(port["received"] for port in ports.values()), {name: port["sent"] for name, port in ports.items()}

    def passing(self):
        """Of each path and kind, the probes that pass now."""
        passed = {(path, kind): set() for path in ("to 1", "to 2") for kind, _ in PROBES}
        received, sent = self.frames()
        for wire in self.wires.values():
            wire.send(FRAMES.values())
        self.assertTrue(until(lambda: self.frames()[0] == received + 2 * len(FRAMES), pause=0.005))
        _, sent_now = self.frames()
        for number, wire in self.wires.items():
            count = sent_now[f"eth{number}"] - sent[f"eth{number}"]
            for _ in range(count):
                kind, port = WHICH[wire.next(5)]
                passed[f"to {number}", kind].add(port)
            self.assertIsNone(wire.next(0), "no more comes than was sent")
        return passed

    def judge(self, row, was, now, carried_out):
        """Whether what the packets show of a change is what was said of it."""
        opened = [where for where, passed in now.items() if len(passed) == 2 and len(was[where]) < 2]
        if not carried_out:
            self.assertEqual(now, was, "nothing passes that did not before, and nothing is dropped")
        elif any(code in row.codes for code in (LOST, DROPPED, GONE)):
            self.assertNotEqual(opened, [], "it was refused for a reason")
        elif not row.codes:
            self.assertEqual(opened, [], "what is not refused opens nothing")

    def said(self, do, text=None, **members):
        """The answer to a change: whether it is carried out, its warnings, and the refusal if it is not."""
        if text is not None:
            self.client.ask("text", name="new", text=text)
        answer = self.client.answer({"do": do, **members})
        if answer["ok"]:
            return answer["document"]["applied"], answer["document"]["warnings"], ""
        return False, answer["error"]["warnings"], answer["error"]["text"]

    def set_to(self, text):
        self.assertTrue(self.said("apply", text, allowOpen=True)[0])

    def carry_out(self, rows, begin, change):
        """Each row refused or not, and then with the word of the operator. `begin(row)`; `change(row, **options)` returns
        what said() does."""
        for row in rows:
            with self.subTest(row.why):
                begin(row)
                was = self.passing()
                applied, warnings, refused = change(row)
                opened = " ".join(one["code"] for one in warnings if one["consequence"] == "opening")
                self.assertEqual((applied, row.codes or opened), (not row.codes, opened), refused)
                self.judge(row, was, self.passing(), applied)
                if not applied:
                    self.assertIn("--allow-open carries it out", refused)
                    self.assertTrue(change(row, allowOpen=True)[0])
                    self.judge(row, was, self.passing(), True)

    def test_apply_edit_and_rollback(self):
        self.begin("! nothing\n")
        before = lambda row: self.set_to(row.before)
        self.carry_out(APPLIED, before, lambda row, **leave: self.said("apply", row.after, **leave))
        self.carry_out(EDITED, before, lambda row, **leave: self.said("edit", "\n".join(row.after), list="A", **leave))

        def back(row):
            self.set_to("interface eth1\n  description aside\n")
            self.set_to(row.after)
            self.number = self.client.ask("show", what="history")["changes"][-1]["number"]
            self.set_to(row.before)
        self.carry_out(ROLLED_BACK, back, lambda row, **leave: self.said("rollback", number=self.number, **leave))
        refused = [row for row in APPLIED + EDITED + ROLLED_BACK if row.codes]
        self.end(signal.SIGTERM)
        self.assertEqual(len([line for line in self.log if re.search(r"cli not changed by uid 0, .*--allow-open", line)]),
                         len(refused))

    def test_sighup(self):
        self.begin(BOUND)
        path = os.path.join(self.running.folder.name, "live.acl")
        for row in RELOADED:
            with self.subTest(row.why):
                self.set_to(row.before)
                was, known = self.passing(), len(self.log)
                with open(path, "w", encoding="utf-8") as file:
                    file.write(row.after)
                answered = self.running.notified().count("READY=1")
                self.running.process.send_signal(signal.SIGHUP)
                self.assertTrue(until(lambda: self.running.notified().count("READY=1") == answered + 1))
                self.assertTrue(until(lambda: any("by SIGHUP" in line for line in self.log[known:])))
                self.assertEqual(any("not changed by SIGHUP" in line for line in self.log[known:]), bool(row.codes))
                self.judge(row, was, self.passing(), not row.codes)

    def test_the_directory(self):
        for number, row in enumerate(IN_DIRECTORY):
            with self.subTest(row.why):
                folder = os.path.join(self.folder, str(number))
                os.mkdir(folder)
                self.put(folder, {}, row.before)
                self.begin(None, "--config-dir", folder)
                was = self.passing()
                self.put(folder, row.before, row.after)
                known = len(self.log)
                changed = re.compile(r"velo: \w+ (not )?changed by " + re.escape(folder))
                self.assertTrue(until(lambda: any(changed.search(line) for line in self.log)))
                self.assertEqual(any("not changed" in line for line in self.log), bool(row.codes), self.log[known:])
                self.judge(row, was, self.passing(), not row.codes)

    def put(self, folder, before, after):
        for name in before.keys() - after.keys():
            os.remove(os.path.join(folder, name))
        for name, text in after.items():
            if before.get(name) == text:
                continue
            aside = os.path.join(self.folder, "aside")
            with open(aside, "w", encoding="utf-8") as file:
                file.write(text)
            os.rename(aside, os.path.join(folder, name))

    def test_a_restart(self):
        for number, row in enumerate(RESTARTED):
            with self.subTest(row.why):
                state = os.path.join(self.folder, f"state{number}")
                self.begin(row.before, "--state", state)
                was = self.passing()
                self.end(signal.SIGTERM)
                ready = self.begin(row.after, "--state", state, check=False)
                self.assertEqual(ready, not row.codes)
                if not ready:
                    self.assertEqual(self.running.process.wait(timeout=30), 2)
                    for wire in self.wires.values():
                        wire.send(FRAMES.values())
                        self.assertIsNone(wire.next(0.02), "what does not run lets nothing pass")
                    self.end()
                    self.begin(row.after, "--state", state, "--allow-open")
                self.judge(row, was, self.passing(), True)

    def test_the_table_is_long(self):
        rows = [*APPLIED, *EDITED, *ROLLED_BACK, *RELOADED, *IN_DIRECTORY, *RESTARTED]
        refused = sum(bool(row.codes) for row in rows)
        self.assertGreaterEqual(min(refused, len(rows) - refused), 20)
        self.assertGreaterEqual(len(rows), 80)


if __name__ == "__main__":
    live_test.main(__doc__)
