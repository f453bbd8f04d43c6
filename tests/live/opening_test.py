#!/usr/bin/env python3
"""Tests that nothing opens in silence: changes that would let traffic pass, with real packets, and what the log says.

usage: opening_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import contextlib
import ctypes
import fcntl
import json
import os
import re
import signal
import socket
import struct
import subprocess

import live_test
from live_test import until
from network import Agent, run, udp
from operating_test import OperatedTest

PASS, DROP = 10, 20
LIST = f"ip access-list A\n  10 permit udp any any eq {PASS}\n  20 deny udp any any eq {DROP}\n"
BOUND = "interface eth1\n  ip access-group A in\n"
CONFIG = LIST + BOUND

# What is applied over CONFIG, whether it is refused, and the warning that says so.
APPLIED = (
    ("the list's name with a typing mistake", LIST + BOUND.replace("A in", "AA in"), "list-undefined"),
    ("nothing at all", "! nothing\n", "filter-lost"),
    ("an interface with a typing mistake", LIST + BOUND.replace("eth1", "eht1"), "interface-unknown filter-lost"),
    ("another list", LIST.replace("list A", "list B") + BOUND.replace("A in", "B in"), ""),
    ("its rules permit everything", LIST + "  5 permit ip any any\n" + BOUND, "filter-lost"),
)


def stderr_of(agent):
    """All that it has written, once it is dead."""
    agent.process.send_signal(signal.SIGTERM)
    return agent.process.communicate(timeout=30)[1]


class Hanging:
    """A folder whose file system does not answer: nobody reads the requests of the kernel."""

    def __init__(self, folder):
        libc = ctypes.CDLL(None, use_errno=True)
        self.device = os.open("/dev/fuse", os.O_RDWR)
        self.folder = folder
        options = f"fd={self.device},rootmode=40000,user_id=0,group_id=0".encode()
        if libc.mount(b"none", folder.encode(), b"fuse", 0, options) != 0:
            os.close(self.device)
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))

    def end(self):
        """Whoever waits gets an error; then the folder is what it was."""
        if self.device is None:
            return
        os.close(self.device)
        self.device = None
        subprocess.run(["umount", "-l", self.folder], check=True)


class Opening(OperatedTest):
    def setUp(self):
        super().setUp()
        self.stations_are(1, 2)

    def velo(self, *words, text=None):
        """One of the commands: its exit status, output and complaints."""
        if text is not None:
            path = os.path.join(self.folder, "new.acl")
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
            words = (words[0], path, *words[1:])
        return subprocess.run([live_test.VELO, *words, "--control", self.socket], text=True, capture_output=True,
                              check=False)

    def passing(self):
        """The ports, of those that CONFIG permits and denies, whose frames pass now."""
        first, second = self.wire(1), self.wire(2)
        first.send([udp(DROP), udp(PASS)])
        seen = {int.from_bytes(frame[36:38], "big") for frame in second.received(1)}
        first.close()
        second.close()
        return seen

    def warnings(self):
        shown = json.loads(self.velo("show", "status", "--json").stdout)
        return [warning["code"] for warning in shown["configuration"]["warnings"]]

    def test_what_apply_refuses(self):
        agent = self.start(CONFIG)
        refusals = 0
        for why, text, codes in APPLIED:
            with self.subTest(why):
                self.assertEqual(self.velo("apply", "--allow-open", text=CONFIG).returncode, 0)
                self.assertEqual(self.passing(), {PASS})
                done = self.velo("apply", "--json", text=text)
                document = json.loads(done.stdout)
                opened = " ".join(warning["code"] for warning in document["warnings"]
                                  if warning["consequence"] == "opening")
                self.assertEqual((done.returncode, opened), (2 if codes else 0, codes))
                if not codes:
                    self.assertNotIn(DROP, self.passing())
                    continue
                refusals += 1
                self.assertIn("--allow-open", document["refused"])
                self.assertEqual(self.passing(), {PASS}, "nothing passes that did not before")
                dry = self.velo("apply", "--dry-run", "--allow-open", text=text)
                self.assertEqual((dry.returncode, self.passing()), (0, {PASS}), dry.stderr)
                told = self.velo("apply", "--allow-open", text=text)
                self.assertEqual(told.returncode, 0, told.stderr)
                self.assertIn(": opening: " if "undefined" in codes or "unknown" in codes else "opening: ", told.stderr)
                self.assertEqual(self.passing(), {PASS, DROP}, "the operator has said so")
        log = stderr_of(agent)
        self.assertEqual(len(re.findall(r"cli not changed by uid 0, pid \d+, velo: .*--allow-open", log)), refusals)
        self.assertRegex(log, r"cli changed by uid 0, pid \d+, velo: 1 binding changed\n")

    def test_a_list_that_permits_everything_filters_nothing(self):
        everything = "ip access-list ALL\n  permit ip any any\n"
        own, channel = BOUND, "port-channel po1 members eth1\ninterface po1\n  ip access-group ALL in\n"
        self.start(LIST + everything + channel + own)
        self.assertEqual(self.passing(), {PASS})
        beside = self.velo("apply", text=LIST + everything + channel)
        self.assertEqual(beside.returncode, 2)
        self.assertIn("interface eth1 loses its last ip list in (A), and ip access-list ALL permits everything", beside.stderr)
        self.assertEqual(self.passing(), {PASS}, "nothing passes that did not before")
        self.assertEqual(self.velo("apply", text=LIST + own).returncode, 0, "that of the port-channel drops nothing")
        self.assertEqual(self.passing(), {PASS})
        by_now = "interface eth1: ip access-list A is bound in and permits everything by now: everything passes there"
        for words, text in ((("apply",), everything.replace("ALL", "A") + own), (("edit", "A", "5 permit ip any any"), None)):
            refused = self.velo(*words, text=text)
            self.assertEqual((refused.returncode, self.passing()), (2, {PASS}))
            self.assertIn(by_now, refused.stderr)
        said = self.velo("edit", "A", "5 permit ip any any", "--allow-open")
        self.assertEqual(said.returncode, 0, said.stderr)
        self.assertEqual(self.passing(), {PASS, DROP}, "the operator has said so")
        self.assertIn("list-filters-nothing", self.warnings())
        self.assertIn("warning: interface eth1: ip access-list A is bound in and permits everything: it filters nothing there",
                      self.velo("show", "status").stdout)
        self.assertEqual(self.velo("apply", text="! nothing\n").returncode, 0, "nothing opens by that")

    def test_what_run_refuses(self):
        open_config = LIST + BOUND.replace("A in", "AA in")
        refused = Agent(live_test.VELO, self.middle, open_config, "--port", "eth1=eth1", "--port", "eth2=eth2", "--patch",
                        "eth1,eth2", check=False)
        self.addCleanup(refused.kill)
        errors = refused.process.communicate(timeout=30)[1]
        self.assertEqual(refused.process.returncode, 2)
        self.assertRegex(errors, r"live\.acl:5:19: opening: interface eth1: ip access-list AA is bound in but not defined")
        self.assertIn("--allow-open carries it out", errors)
        self.start(open_config, "--allow-open")
        shown = self.velo("show", "access-lists").stdout
        self.assertIn("ip access-list AA is bound (eth1 in) but not defined: everything passes it", shown)
        self.assertIn("live.acl:5:19: opening: ", self.velo("show", "status").stdout)
        self.assertEqual(self.passing(), {PASS, DROP})
        self.assertEqual(self.warnings(), ["list-undefined", "list-unbound"])
        self.assertEqual(self.velo("apply", text=open_config + "! again\n").returncode, 0, "what was open stays so")
        self.assertEqual(self.velo("apply", text=CONFIG).returncode, 0)
        self.assertEqual(self.warnings(), [])
        strict = self.velo("apply", "--strict", text=CONFIG + "ip access-list FREE\n")
        self.assertEqual(strict.returncode, 2)
        self.assertIn("refused because of --strict", strict.stderr)

    def test_what_a_restart_would_no_longer_filter(self):
        folder, state = os.path.join(self.folder, "conf.d"), os.path.join(self.folder, "state")
        edge = os.path.join(folder, "edge")
        for number, (what, before, after) in enumerate((
                ("the file of list and binding has gone", LIST + BOUND, None),
                ("the file has the list alone", LIST + BOUND, LIST),
                ("the file has another interface", LIST + BOUND, LIST + BOUND.replace("eth1", "eth2")))):
            with self.subTest(what):
                where = state + str(number)
                os.makedirs(folder, exist_ok=True)
                for name in os.listdir(folder):
                    os.remove(os.path.join(folder, name))
                with open(edge, "w", encoding="utf-8") as file:
                    file.write(before)
                words = ("--config-dir", folder, "--state", where)
                agent = self.start(None, *words)
                self.assertEqual(self.passing(), {PASS})
                os.remove(edge)
                if after is not None:
                    with open(edge, "w", encoding="utf-8") as file:
                        file.write(after)
                self.assertTrue(until(lambda: "a restart would be refused: interface eth1 loses its last ip list in (A)"
                                      in self.velo("show", "status").stdout), "said beforehand")
                self.assertEqual(self.passing(), {PASS})
                agent.process.kill()
                agent.kill()
                for _ in range(2):
                    refused = Agent(live_test.VELO, self.middle, None, *words, "--port", "eth1=eth1", "--port", "eth2=eth2",
                                    "--patch", "eth1,eth2", check=False)
                    self.addCleanup(refused.kill)
                    errors = refused.process.communicate(timeout=30)[1]
                    self.assertEqual(refused.process.returncode, 2)
                    self.assertIn("interface eth1 loses its last ip list in (A): everything passes there "
                                  "(--allow-open carries it out); --state has what was filtered before\n", errors)
                    self.assertEqual(self.passing(), set(), "what does not run lets nothing pass")
                agent = self.start(None, *words, "--allow-open")
                self.assertEqual(self.passing(), {PASS, DROP})
                agent.kill()
                agent = self.start(None, *words)
                self.assertIn(DROP, self.passing(), "it was said once")
                agent.kill()

    def test_nobody_waits_for_a_file_system_that_hangs(self):
        folder = os.path.join(self.folder, "conf.d")
        os.mkdir(folder)
        agent = self.start(CONFIG, "--config-dir", folder)
        self.assertEqual(self.velo("show", "status").returncode, 0)
        try:
            hanging = Hanging(folder)
        except OSError as error:
            self.skipTest(f"no file system can be had that hangs: {error}")
        self.addCleanup(hanging.end)
        unknown = "what a restart would make is not known yet: the files are being looked at, for"
        for words, text in ((("show", "status"), None), (("apply",), CONFIG + "ip access-list A\n  30 deny ip any any\n"),
                            (("edit", "A", "no 30"), None), (("show", "status"), None)):
            done = self.velo(*words, text=text)
            self.assertEqual((done.returncode, unknown in done.stdout), (0, True), (words, done))
        self.assertEqual(self.passing(), {PASS})
        agent.process.send_signal(signal.SIGUSR1)
        self.velo("show", "ports")
        hanging.end()
        self.assertTrue(until(lambda: unknown not in self.velo("show", "status").stdout))
        self.assertIn(unknown, stderr_of(agent))

    def test_what_is_open_already_hides_no_opening(self):
        channel = LIST + "port-channel po1 members eth1\n"
        bound = "interface po1\n  ip access-group A in\n"
        for why, open_binding, filters in (("the member's own", BOUND.replace("A in", "NONE in"), bound),
                                           ("the port-channel's", bound.replace("A in", "NONE in"), BOUND)):
            with self.subTest(why):
                agent = self.start(channel + open_binding + filters, "--allow-open")
                self.assertEqual(self.passing(), {PASS})
                refused = self.velo("apply", text=channel + open_binding)
                self.assertEqual(refused.returncode, 2, refused.stderr)
                self.assertIn("interface eth1 loses its last ip list in", refused.stderr)
                self.assertEqual(self.passing(), {PASS})
                agent.kill()

    def test_what_the_directory_refuses(self):
        folder = os.path.join(self.folder, "conf.d")
        os.mkdir(folder)

        def put(name, text):
            aside = os.path.join(self.folder, "aside")
            with open(aside, "w", encoding="utf-8") as file:
                file.write(text)
            os.rename(aside, os.path.join(folder, name))

        put("lists", LIST)
        agent = self.start(BOUND, "--config-dir", folder)
        bad = lambda: {one["name"]: one for one in
                       json.loads(self.velo("show", "status", "--json").stdout)["configuration"]["bad"]}
        self.assertEqual(self.passing(), {PASS})
        os.remove(os.path.join(folder, "lists"))
        self.assertTrue(until(lambda: "lists" in bad()))
        self.assertTrue(bad()["lists"]["kept"])
        self.assertIn("goes with its file lists", bad()["lists"]["mistakes"][0])
        self.assertEqual(self.passing(), {PASS}, "its last good content filters")
        put("more", LIST)
        self.assertTrue(until(lambda: not bad()), "another file has the list, so the first may go")
        put("more", LIST.replace("list A", "list B"))
        self.assertTrue(until(lambda: "more" in bad()))
        self.assertEqual(self.passing(), {PASS})
        os.rename(os.path.join(folder, "more"), os.path.join(self.folder, "gone"))
        put("again", LIST)
        self.assertTrue(until(lambda: not bad() and self.passing() == {PASS}))
        log = stderr_of(agent)
        self.assertEqual(log.count("velo: lists not changed by "), 1, "told once, not every second")
        self.assertRegex(log, r"again changed by .*/conf\.d/again: \+1 list")

    def test_an_agent_that_may_open_lets_its_directory(self):
        folder = os.path.join(self.folder, "conf.d")
        os.mkdir(folder)
        with open(os.path.join(folder, "lists"), "w", encoding="utf-8") as file:
            file.write(LIST)
        self.start(BOUND, "--config-dir", folder, "--allow-open")
        self.assertEqual(self.passing(), {PASS})
        os.remove(os.path.join(folder, "lists"))
        self.assertTrue(until(lambda: self.warnings() == ["list-undefined"]))
        self.assertEqual(self.passing(), {PASS, DROP})


class Signals(OperatedTest):
    def setUp(self):
        super().setUp()
        self.stations_are(1, 2)

    def rewrite(self, agent, text):
        with open(os.path.join(agent.folder.name, "live.acl"), "w", encoding="utf-8") as file:
            file.write(text)
        agent.process.send_signal(signal.SIGHUP)

    def test_reload(self):
        agent = self.start(CONFIG)
        client = self.control()
        rules = lambda: [len(entry["rules"]) for entry in client.ask("show", what="access-lists")["lists"]]
        notices = lambda: agent.notified()
        self.rewrite(agent, CONFIG + "ip access-list A\n  30 deny ip any any\n")
        self.assertTrue(until(lambda: rules() == [3]))
        self.assertTrue(until(lambda: "READY=1" in notices()))
        self.assertRegex("\n".join(notices()), r"^RELOADING=1\nMONOTONIC_USEC=\d+\nREADY=1$")
        self.rewrite(agent, "ip access-list A\n  10 permitt ip any any\n")
        self.rewrite(agent, LIST)
        self.rewrite(agent, CONFIG + "ip access-list A\n  40 deny ip any any\n  50 deny ip any any\n")
        self.assertTrue(until(lambda: rules() == [4]))
        log = stderr_of(agent)
        self.assertIn("cli changed by SIGHUP: +1 rule\n", log)

    def test_what_a_reload_refuses(self):
        agent = self.start(CONFIG)
        client = self.control()
        answered = lambda count: until(lambda: agent.notified().count("READY=1") == count)
        self.rewrite(agent, "ip access-list A\n  10 permitt ip any any\n")
        self.assertTrue(answered(1))
        self.rewrite(agent, LIST)
        self.assertTrue(answered(2))
        shown = client.ask("show", what="access-lists")["lists"][0]
        self.assertEqual((len(shown["rules"]), len(shown["bindings"])), (2, 1))
        log = stderr_of(agent)
        self.assertRegex(log, r"cli not changed by SIGHUP: \S+live\.acl:2:6: found \"permitt\"")
        refusal = "interface eth1 loses its last ip list in"
        self.assertRegex(log, rf"cli not changed by SIGHUP: {refusal} .*--allow-open")
        self.assertEqual(log.count(refusal), 1, "told once")

    def test_a_reload_of_what_cannot_be_read_again_leaves_everything(self):
        folder = os.path.join(self.folder, "conf.d")
        os.mkdir(folder)
        for words, config, why in (
                (("--config-dir", folder), None, "there is nothing to read again (velo run had no --config)"),
                (("--config", "-"), "! nothing\n", "standard input cannot be read again")):
            with self.subTest(why):
                agent = self.start(config, *words)
                client = self.control()
                client.apply(CONFIG)
                for count in (1, 2):
                    agent.process.send_signal(signal.SIGHUP)
                    self.assertTrue(until(lambda: agent.notified().count("READY=1") == count))
                shown = client.ask("show", what="access-lists")["lists"][0]
                self.assertEqual((len(shown["rules"]), len(shown["bindings"])), (2, 1))
                restart = client.ask("show", what="status")["configuration"]["restart"]
                self.assertEqual(restart["why"], ["what is in force is in no file (velo run had no --config)"]
                                 if config is None else [why])
                self.assertIn(f"velo: cli not changed by SIGHUP: {why}", stderr_of(agent))

    def test_status_goes_to_the_log_and_nothing_else_ends_it(self):
        agent = self.start(CONFIG)
        for number in (signal.SIGUSR1, signal.SIGPIPE):
            agent.process.send_signal(number)
        client = self.control()
        self.assertEqual(len(client.ask("show", what="access-lists")["lists"]), 1)
        with open(os.path.join(agent.folder.name, "live.acl"), "w", encoding="utf-8") as file:
            file.write("permit\n")
        # A signal while an earlier status is being told is that one's.
        for _ in range(20):
            client.ask("show", what="status")
        agent.process.send_signal(signal.SIGUSR1)
        for _ in range(20):
            client.ask("show", what="status")
        log = stderr_of(agent)
        self.assertRegex(log, r"velo: a restart would be refused: \S+live.acl:1:1: found \"permit\"")
        self.assertRegex(log, r"velo: cli +1 list, 2 rules, 1 binding")
        self.assertRegex(log, r"velo: ip +A +2 +0 +eth1 in")
        self.assertEqual(agent.process.returncode, 0)

    @contextlib.contextmanager
    def journaled(self, text):
        """An agent with its log in a journal; gives the journal, whose messages are received as dictionaries."""
        files = [os.path.join(self.folder, name) for name in ("journal", "stderr")]
        os.makedirs(files[0], exist_ok=True)
        with contextlib.suppress(OSError):
            os.remove(os.path.join(files[0], "socket"))
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as journal, open(files[1], "wb") as errors:
            journal.bind(os.path.join(files[0], "socket"))
            journal.settimeout(10)
            stream = os.fstat(errors.fileno())
            config = os.path.join(self.folder, "journal.acl")
            with open(config, "w", encoding="utf-8") as file:
                file.write(text)
            words = [live_test.VELO, "run", "--config", config, "--port", "eth1=eth1", "--port", "eth2=eth2", "--patch",
                     "eth1,eth2", "--control", self.socket]
            # The library looks for the journal below /run/systemd.
            script = f'mount -t tmpfs none /run && mkdir -p /run/systemd && ln -s {files[0]} /run/systemd/journal && exec "$@"'
            with self.middle.entered():
                agent = subprocess.Popen(["unshare", "-m", "sh", "-c", script, "sh", *words], stderr=errors,
                                         env={**os.environ, "JOURNAL_STREAM": f"{stream.st_dev}:{stream.st_ino}"})
            self.addCleanup(agent.wait)
            self.addCleanup(agent.kill)
            yield lambda: dict(line.split(b"=", 1) for line in journal.recv(10000).splitlines() if b"=" in line)

    def test_the_journal_has_fields(self):
        with self.journaled(CONFIG) as told:
            begun = [told(), told()]
            self.assertEqual([each[b"VELO_EVENT"] for each in begun], [b"change", b"begin"])
            self.assertEqual((begun[0][b"VELO_WHO"], begun[0][b"VELO_SUMMARY"]), (b"velo run", b"+1 list, +1 binding"))
            self.control().apply(CONFIG + "ip access-list B\n", allowOpen=True)
            change = told()
        self.assertEqual((change[b"VELO_EVENT"], change[b"VELO_SOURCE"], change[b"VELO_SUMMARY"], change[b"VELO_RESULT"],
                          change[b"PRIORITY"], change[b"SYSLOG_IDENTIFIER"]),
                         (b"change", b"cli", b"+1 list", b"applied", b"5", b"velo"))
        self.assertRegex(change[b"VELO_WHO"].decode(), rf"^uid 0, pid {os.getpid()}, python")

    def test_the_journal_says_why_an_agent_does_not_start(self):
        with self.journaled(LIST + BOUND.replace("A in", "AA in")) as told:
            opening, unbound, refusal = told(), told(), told()
        self.assertEqual([opening[name] for name in (b"VELO_EVENT", b"VELO_CODE", b"PRIORITY")],
                         [b"opening", b"list-undefined", b"4"])
        self.assertEqual(unbound[b"VELO_CODE"], b"list-unbound")
        self.assertEqual([refusal[name] for name in (b"VELO_EVENT", b"VELO_RESULT", b"PRIORITY")],
                         [b"start", b"refused", b"3"])
        self.assertIn(b"--allow-open carries it out", refusal[b"MESSAGE"])
        with self.journaled("permitt\n") as told:
            mistake = told()
        self.assertEqual(mistake[b"VELO_EVENT"], b"start")
        self.assertIn(b"journal.acl:1:1: found \"permitt\"", mistake[b"MESSAGE"])

    def test_a_device_that_goes_is_told(self):
        agent = self.start(CONFIG)
        self.middle.ip("link", "set", "eth1", "down")
        shown = lambda: json.loads(run(live_test.VELO, "show", "ports", "--json", "--control", self.socket).stdout)
        self.assertTrue(until(lambda: not shown()["ports"]["eth1"]["live"]["up"]))
        self.middle.ip("link", "del", "eth1")
        self.assertTrue(until(lambda: not shown()["ports"]["eth1"]["live"]["present"]))
        log = stderr_of(agent)
        self.assertIn("velo: port eth1: its device eth1 is down\n", log)
        self.assertIn("velo: port eth1: its device eth1 has gone\n", log)

    def test_a_device_that_another_process_has_is_tried_again(self):
        words = ("--port", "eth1=eth1", "--port", "t=tap:t1", "--patch", "eth1,t", "--control", self.socket)
        agent = Agent(live_test.VELO, self.middle, "! nothing\n", *words)
        self.addCleanup(agent.kill)
        live = lambda: json.loads(self.velo_shows("ports"))["ports"]["t"]["live"]
        self.assertTrue(live()["present"])
        self.middle.ip("link", "del", "t1")
        self.assertTrue(until(lambda: not live()["present"]))
        with self.middle.entered():
            other = os.open("/dev/net/tun", os.O_RDWR)
            request = struct.pack("16sH", b"t1", 0x5002).ljust(40, b"\0")  # a TAP device, IFF_VNET_HDR
            fcntl.ioctl(other, 0x400454CA, request)  # TUNSETIFF
            fcntl.ioctl(other, 0x400454CB, 1)  # TUNSETPERSIST
        self.assertTrue(until(lambda: live()["wrong"] == "t1: no TAP device: Device or resource busy"), live())
        os.close(other)
        self.assertTrue(until(lambda: live()["present"]), live())
        self.assertFalse(live()["wrong"])
        self.assertEqual(stderr_of(agent).count("Device or resource busy"), 1, "told once")

    def velo_shows(self, what):
        return run(live_test.VELO, "show", what, "--json", "--control", self.socket).stdout

    def test_a_second_agent_on_a_device_is_refused(self):
        first = self.start(CONFIG)
        second = Agent(live_test.VELO, self.middle, CONFIG, "--port", "eth1=eth2", check=False)
        self.addCleanup(second.kill)
        errors = second.process.communicate(timeout=30)[1]
        self.assertEqual(second.process.returncode, 1)
        self.assertIn(f"eth2 is a port of another agent already: velo, pid {first.process.pid}", errors)
        first.process.kill()
        first.process.wait()
        self.assertTrue(self.start(CONFIG).ready, "a dead one does not count")


class Starting(OperatedTest):
    def told(self, *arguments):
        agent = Agent(live_test.VELO, self.middle, "! nothing\n", *arguments, check=False)
        self.addCleanup(agent.kill)
        agent.process.send_signal(signal.SIGTERM)
        return sorted(line for line in agent.process.communicate(timeout=30)[1].splitlines() if "warning: " in line)

    def test_what_the_start_warns_of(self):
        self.stations_are(1, 2, 3)
        self.middle.ip("link", "set", "eth2", "mtu", "1400")
        self.middle.ip("addr", "add", "192.0.2.9/24", "dev", "eth1")
        ports = [word for number in (1, 2, 3) for word in ("--port", f"eth{number}=eth{number}")]
        self.assertEqual(self.told(*ports, "--patch", "eth1,eth2"), [
            "warning: port eth1: its device eth1 has addresses of the host (192.0.2.9): it answers there, past the lists",
            "warning: port eth3: no patch and no bridge joins it: what comes in there goes nowhere",
            "warning: ports eth1 and eth2 are joined and have MTUs of 1500 and 1400: larger frames are lost",
        ])
        self.middle.ip("addr", "del", "192.0.2.9/24", "dev", "eth1")
        self.middle.ip("link", "set", "eth2", "mtu", "1500")
        self.middle.ip6_is_on("eth2")
        self.assertEqual(self.told(*ports, "--bridge", "eth1,eth2,eth3"), [
            "warning: port eth2: IPv6 is on at its device eth2: the host answers there, past the lists "
            "(sysctl net.ipv6.conf.eth2.disable_ipv6=1)",
        ])
        strict = Agent(live_test.VELO, self.middle, "! nothing\n", *ports, "--bridge", "eth1,eth2,eth3", "--strict",
                       check=False)
        self.addCleanup(strict.kill)
        self.assertIn("refused because of --strict", strict.process.communicate(timeout=30)[1])
        self.assertEqual(strict.process.returncode, 2)

    def test_a_port_without_a_device_is_told_once(self):
        self.stations_are(1)
        agent = Agent(live_test.VELO, self.middle, "mirror session S destination eth9\nport-channel po1 members eth8\n",
                      "--port", "eth1=eth1", check=False)
        self.addCleanup(agent.kill)
        agent.process.send_signal(signal.SIGTERM)
        lines = agent.process.communicate(timeout=30)[1].splitlines()
        for port in ("eth8", "eth9"):
            self.assertEqual(len([line for line in lines if port in line]), 1, lines)

    def test_the_version_is_told(self):
        version = run(live_test.VELO, "--version").stdout.strip()
        self.assertRegex(version, r"^velo \d+\.\d+\.\d+\S*$")
        number = version.split()[1]
        self.stations_are(1, 2)
        agent = self.start(CONFIG)
        self.assertEqual(self.control().answer({"do": "show", "what": "drops"})["version"], number)
        log = stderr_of(agent)
        self.assertIn(f"velo: {version} begins", log)
        self.assertIn(f"velo: {version} ends (SIGTERM)\n", log)


if __name__ == "__main__":
    live_test.main(__doc__)
