#!/usr/bin/env python3
"""Tests of ports that several processes have together: what holds of one process, and what happens when one of them dies.

usage: workers_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import os
import resource
import shutil
import signal
import subprocess
import tempfile
import time
import types

import fleet_test
import live_test
import operating_test
from kinds_test import NO_CARDS, Tap, has_dpdk
from live_test import OPEN, link, until
from napis import AS_USUAL
from network import Agent, Wire, udp
from operating_test import ALWAYS, FIRST, NEVER, SECOND, OperatedTest, alternating, rules_of, wanted
from ports_test import write_capture

TWO = ("--workers", "2")
FLOWS = 16


class WorkersCounting(live_test.Counting):
    common, in_order = TWO, False


class WorkersFollowing(live_test.Following):
    common, in_order, sockets = TWO, False, 2

    def test_a_bridge_learns(self):
        """What one of them has heard of, the other is told some times a second."""
        self.stations_are(1, 2, 3)
        self.agent(OPEN, "--bridge", "eth1,eth2,eth3")
        a, b, c = (self.wire(number) for number in (1, 2, 3))
        a.send([udp(10, source=1, to=2)])
        self.assertEqual((len(b.received(1)), len(c.received(1))), (1, 1), "flooded")

        def to_the_other_end_only():
            """By both workers, though the station at that end speaks no more."""
            c.received(0)
            b.send(udp(10, n, source=2, to=1, source_port=2000 + n) for n in range(64))
            return (len(a.received(64)), len(c.received(0))) == (64, 0)

        self.assertTrue(until(to_the_other_end_only))


class WorkersBehaving(live_test.Behaving):
    common = TWO


class XdpWorkers:
    """A queue of each port for each of them. Which queue of a veth link a frame comes by depends on its sender."""

    common, in_order, sockets, queues = TWO, False, 2, 2

    def port(self, number):
        return f"xdp:eth{number}"


class XdpWorkersCounting(XdpWorkers, live_test.Counting):
    pass


class XdpWorkersFollowing(XdpWorkers, live_test.Following):
    test_a_bridge_learns = WorkersFollowing.test_a_bridge_learns


class WorkersTraffic(live_test.Traffic):
    common = TWO


class WorkersOperating(operating_test.Operating):
    common = TWO


class WorkersSurviving(operating_test.Surviving):
    common, kills = TWO, 2
    test_it_ends_when_nobody_takes_its_traces = None  # those of three processes do not fit into the pipe at the start


class WorkersHostile(operating_test.Hostile):
    common = TWO


class WorkersJoining(fleet_test.Joining):
    common = TWO


def flowing(number):
    """The four ports in turn, from ever other stations: each group of four is a flow a port."""
    return udp(operating_test.PORTS[number % 4], number, source_port=1024 + number // 4 % FLOWS)


def lives(pid):
    """Whether a process is there, and not only kept for somebody who asks how it ended."""
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii") as file:
            return file.read().rsplit(")", 1)[1].split()[0] != "Z"
    except FileNotFoundError:
        return False


class WorkersOf(OperatedTest):
    common = TWO

    def workers(self, agent):
        """The processes that have the ports, by number."""
        with open(f"/proc/{agent.process.pid}/task/{agent.process.pid}/children", encoding="ascii") as file:
            found = {}
            for pid in file.read().split():
                with open(f"/proc/{pid}/cmdline", encoding="utf-8") as words:
                    last = words.read().rstrip("\0").split("\0")[-1]
                if last.startswith("--worker="):
                    found[int(last.split(",")[1])] = int(pid)
            return found


class WorkersChanging(WorkersOf):
    def test_no_packet_meets_a_mixture(self):
        changes = wanted("CHANGES", 250)
        self.stations_are(1, 2)
        sizes = (10, 1000)
        agent = self.start(alternating(False, sizes[0]))
        client = self.control()
        sink, stream = self.sink(), self.stream(4000, flowing)
        for number in range(changes):
            self.assertTrue(client.apply(alternating(number % 2 == 0, sizes[number // 10 % 2]))["applied"])
            time.sleep(0.02)
        stream.stop()
        sink.stop()
        seen = {port: {number for which, number in sink.seen if which == port} for port in operating_test.PORTS}
        sent = {port: [n for n in range(stream.sent) if operating_test.PORTS[n % 4] == port]
                for port in operating_test.PORTS}
        self.assertEqual(set(sent[ALWAYS]) - seen[ALWAYS], set(), "permitted by both: none is lost")
        self.assertEqual(seen[NEVER], set(), "denied by both")
        self.assertEqual(len(sink.seen), sum(map(len, seen.values())), "none comes twice")
        turns = 0
        for flow in range(FLOWS):
            first = [n in seen[FIRST] for n in sent[FIRST] if n // 4 % FLOWS == flow]
            second = [n in seen[SECOND] for n in sent[SECOND] if n // 4 % FLOWS == flow]
            for passes in (first, second):
                turned = sum(a != b for a, b in zip(passes, passes[1:]))
                self.assertLessEqual(turned, changes, "a flow turns with a change only")
                turns += turned
        self.assertGreater(turns, FLOWS * changes // 2, "and with most of them")
        report = agent.stop()
        self.assertEqual(report["frames"], stream.sent, "both have counted all")
        print(f"{changes} changes, {stream.sent} packets, {turns} turns of {2 * FLOWS} flows", flush=True)

    def test_the_answer_comes_when_all_have_it(self):
        self.stations_are(1, 2)
        self.start(alternating(False, 1000))
        client, sink, source = self.control(), self.wire(2), self.wire(1)
        for number in range(wanted("CHANGES", 250) // 5):
            second = number % 2 == 0
            client.apply(alternating(second, 1000))
            source.send(udp(port, n, source_port=1024 + n) for port in (FIRST, SECOND) for n in range(FLOWS))
            came = {frame[36] << 8 | frame[37] for frame in sink.received(FLOWS, quiet=0.02)}
            self.assertEqual(came, {SECOND if second else FIRST})

    def test_one_is_killed_and_the_others_go_on(self):
        rate = 2000
        self.stations_are(1, 2)
        agent = self.start(alternating(False, 300), "--state", os.path.join(self.folder, "state"))
        client = self.control()
        before = rules_of(client.ask("show", what="access-lists"))
        sink, stream = self.sink(), self.stream(rate, flowing)
        killed = 0
        for number in range(wanted("KILLS", 4)):
            time.sleep(1)
            old = self.workers(agent)
            self.assertEqual(set(old), {1, 2})
            victim = number % 2 + 1
            os.kill(old[victim], signal.SIGKILL)
            killed += 1
            came = len(sink.seen)
            self.assertTrue(until(lambda: len(sink.seen) > came + 50, patience=1, pause=0.01), "the other goes on")
            self.assertTrue(until(lambda: set(self.workers(agent)) == {1, 2}), "it is started again")
            shown = lambda: {one["number"]: (one["pid"], one["serving"], one["starts"])
                             for one in client.ask("show", what="workers")["workers"]}
            now = self.workers(agent)
            starts = {1: number // 2 + 2, 2: 1 + (number + 1) // 2}
            self.assertTrue(until(lambda: shown() == {each: (now[each], True, starts[each]) for each in (1, 2)}), shown())
            self.assertNotEqual(self.workers(agent)[victim], old[victim])
            self.assertEqual(self.workers(agent)[3 - victim], old[3 - victim])
            if number % 2:
                self.assertTrue(client.apply(alternating(number % 4 == 1, 300))["applied"])
                self.assertTrue(client.apply(alternating(False, 300))["applied"])
        time.sleep(1)
        stream.stop()
        sink.stop()
        shown = rules_of(client.ask("show", what="access-lists"))
        self.assertEqual(shown[2]["id"], before[2]["id"], "the same rule, the same id")
        passed = {port: len([n for which, n in sink.seen if which == port]) for port in operating_test.PORTS}
        self.assertEqual(passed[NEVER], 0)
        counted = client.ask("show", what="ports")["ports"]["eth1"]["received"]
        lost = len(sink.seen) - client.ask("show", what="ports")["ports"]["eth2"]["sent"]
        self.assertGreaterEqual(lost, 0, "none is counted twice")
        self.assertLessEqual(counted, stream.sent)
        self.assertLessEqual(lost, killed * rate // 2 // 2, "half a second's counts of a half of the frames, each time")
        report = agent.stop()
        self.assertEqual(report["frames"], counted, "sums are kept over deaths")
        print(f"{killed} kills, {stream.sent} packets, {counted} counted, {lost} passed and were not counted", flush=True)


class XdpWorkersChanging(XdpWorkers, WorkersChanging):
    pass


class SeveralTaps(Tap):
    several = ("multi_queue",)


class TapWorkersChanging(SeveralTaps, WorkersChanging):
    pass


class KilledOnly(WorkersSurviving):
    """The rest is the same for all kinds, and begins anew before the queues of the dead are free."""

    test_counts_go_on = test_a_damaged_state_is_set_aside = test_it_ends_when_nobody_takes_its_report = None


class XdpWorkersSurviving(XdpWorkers, KilledOnly):
    pass


class XdpWorkersHostile(XdpWorkers, WorkersHostile):
    pass


class TapWorkersSurviving(SeveralTaps, KilledOnly):
    pass


class Workers(WorkersOf):
    def test_ids_and_counts_survive_the_first_one(self):
        self.stations_are(1, 2)
        state = os.path.join(self.folder, "state")
        agent = self.start(alternating(False, 10), "--state", state)
        client = self.control()
        before = rules_of(client.ask("show", what="access-lists"))
        self.wire(1).send(flowing(n) for n in range(400))
        matches = lambda: rules_of(self.control().ask("show", what="access-lists"))[100]["matches"]["in"]
        self.assertTrue(until(lambda: matches() == 100))
        client.close()
        workers = self.workers(agent)
        time.sleep(1.5)  # until it is written
        agent.process.kill()
        agent.process.wait()
        self.assertTrue(until(lambda: not any(map(lives, workers.values())), patience=1), "they end with the first one")
        self.start(alternating(False, 10), "--state", state)
        after = rules_of(self.control().ask("show", what="access-lists"))
        self.assertEqual({number: rule["id"] for number, rule in after.items()},
                         {number: rule["id"] for number, rule in before.items()})
        self.assertEqual(after[100]["matches"]["in"], 100)

    def test_what_only_one_process_can_do_is_refused(self):
        self.stations_are(1, 2)
        self.start(OPEN)
        with self.assertRaisesRegex(RuntimeError, "with --workers: other processes judge them"):
            self.control().ask("tail")
        refused = Agent(live_test.VELO, self.middle, OPEN, *TWO, "--port", "eth1=null:", "--port",
                        "eth2=dpdk:net_null0", "--patch", "eth1,eth2", check=False)
        self.addCleanup(refused.kill)
        self.assertEqual(refused.process.wait(10), 2)
        self.assertIn("with --workers each process needs a dpdk: device of its own; %w stands for its number",
                      refused.process.stderr.read())

    def test_a_capture_is_dealt_out(self):
        frames = [udp(10, number, size=18 + number) for number in range(101)]
        with tempfile.TemporaryDirectory(prefix="velo-workers-") as folder:
            capture = os.path.join(folder, "in.pcap")
            write_capture(capture, frames)
            agent = self.agent(OPEN, "--port", f"eth1=pcap:{capture},repeat=3", "--port", "eth2=null:", "--patch",
                               "eth1,eth2", "--control", self.socket, ports=())
            client = self.control()
            live = lambda name: client.ask("show", what="ports")["ports"][name]["live"]
            self.assertTrue(until(lambda: live("eth1")["received"]["frames"] == 303))
            self.assertEqual(live("eth1")["received"]["bytes"], 3 * sum(map(len, frames)))
            self.assertEqual(live("eth2")["sent"]["frames"], 303)
            self.assertEqual(agent.stop()["frames"], 303)

    def test_each_has_a_device_of_dpdk_of_its_own(self):
        """A member of a port-channel at the other end is a process here."""
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        self.stations_are(1, 2)
        pipe = lambda number: f"role={{}},socket={self.folder}/memif{number},socket-abstract=no"
        here = self.agent(OPEN, *NO_CARDS, "--patch", "eth1,eth2", "--control", self.socket, "--port", "eth2=eth2",
                          "--port", f"eth1=dpdk:net_memif%w,{pipe('%w').format('server')}", ports=())
        far = os.path.join(self.folder, "far")
        members = [f"--port=m{n}=dpdk:net_memif{n},{pipe(n).format('client')}" for n in (0, 1)]
        other = Agent(live_test.VELO, self.middle, OPEN + "port-channel po1 members m0 m1\n", *NO_CARDS, "--control", far,
                      "--port", "eth1=eth1", *members, "--patch", "eth1,po1")
        self.addCleanup(other.kill)
        client, a, b = self.control(), self.wire(1), self.wire(2)
        shown = lambda: client.ask("show", what="ports")["ports"]["eth1"]["live"]
        self.assertTrue(until(lambda: shown()["up"]))
        self.assertEqual((shown()["kind"], shown()["how"], shown()["mtu"]), ("dpdk", "net_memif", 1500))
        frames = [udp(10, n, source_port=2000 + n) for n in range(256)]

        def all_pass():
            b.received(0)
            a.send(frames)
            return sorted(b.received(len(frames), patience=1)) == sorted(frames)

        self.assertTrue(until(all_pass))
        served = [one["frames"] for one in client.ask("show", what="workers")["workers"]]
        self.assertGreater(min(served), 32, "both have a share")
        os.kill(self.workers(here)[1], signal.SIGKILL)
        self.assertTrue(until(all_pass), "the other one has all meanwhile")
        self.assertTrue(until(lambda: set(self.workers(here)) == {1, 2}))
        self.assertIsNone(shown()["wrong"], "the socket that the dead one has left is in nobody's way")

    def test_one_whose_driver_needs_rights_joins_again(self):
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        self.stations_are(3)
        for number in (0, 1):
            self.stations[number] = self.namespace()
            # The driver makes a number of that of its process and that of the device, which has to be another one.
            link(self.stations[number], "e0", self.middle, f"side{number}", index=1000 + 0x4000 * number)
        starts = lambda: self.agent(
            OPEN.replace("eth1", "eth3"), *NO_CARDS, "--patch", "side,eth3", "--control", self.socket, "--port", "eth3=eth3",
            "--port", "side=dpdk:net_af_packet%w,iface=side%w,framecnt=1024", ports=())
        try:
            agent = starts()
        except RuntimeError as failure:
            if "PACKET_FANOUT" not in str(failure):
                raise
            agent = starts()  # the number of another process is another one
        sides, far = (self.wire(0), self.wire(1)), self.wire(3)
        passes = lambda side: until(lambda: (side.send([udp(10)]), far.received(1, patience=0.3) != [])[1])
        for victim in (1, 2):
            self.assertTrue(all(map(passes, sides)))
            os.kill(self.workers(agent)[victim], signal.SIGKILL)
            self.assertTrue(until(lambda: set(self.workers(agent)) == {1, 2}))
        self.assertTrue(all(map(passes, sides)))
        kept = (13, 12, 39, 14, 17)  # CAP_NET_RAW, CAP_NET_ADMIN, CAP_BPF, CAP_IPC_LOCK, CAP_SYS_RAWIO
        with open(f"/proc/{agent.process.pid}/status", encoding="ascii") as file:
            status = dict(line.split(":\t", 1) for line in file.read().splitlines() if ":\t" in line)
        self.assertEqual(int(status["CapPrm"], 16), sum(1 << number for number in kept), "and no more than these")

    def test_one_begins_again_though_what_it_joins_has_changed(self):
        """The start refuses what is no port-channel; those that run go on, and so does who takes the place of one."""
        self.stations_are(1, 2)
        bundled = OPEN + "port-channel po1 members eth2\n"
        agent = self.agent(bundled, "--patch", "eth1,po1", "--control", self.socket)
        client, a, b = self.control(), self.wire(1), self.wire(2)
        passes = lambda: (a.send([udp(10)]), b.received(1, patience=0.3) != [])[1]
        self.assertTrue(until(passes))
        self.assertTrue(client.apply(OPEN)["applied"])
        for victim in (1, 2):
            old = self.workers(agent)[victim]
            os.kill(old, signal.SIGKILL)
            serving = lambda: all(one["serving"] and one["pid"] != old for one in client.ask("show", what="workers")["workers"])
            self.assertTrue(until(serving, patience=5), "it begins")
        self.assertFalse(passes(), "nothing is joined with eth1 now")
        self.assertNotIn("po1", client.ask("show", what="ports")["ports"])
        self.assertTrue(client.apply(bundled)["applied"])
        self.assertTrue(until(passes))

    def test_trouble_with_one_port_closes_no_other(self):
        self.queues = 2
        self.stations_are(1, 2, 3, 4)
        agent = self.agent(OPEN, "--patch", "eth1,eth2", "--patch", "eth3,eth4", "--control", self.socket, "--port",
                           "eth1=xdp:eth1", *(f"--port=eth{n}=eth{n}" for n in (2, 3, 4)), ports=())
        client, c, d = self.control(), self.wire(3), self.wire(4)
        live = lambda: client.ask("show", what="ports")["ports"]["eth1"]["live"]
        self.middle.ip("link", "set", "eth1", "mtu", "9000")
        self.assertTrue(until(lambda: not live()["present"]))
        for victim in self.workers(agent).values():
            os.kill(victim, signal.SIGKILL)
        frames = [udp(10, n, source_port=2000 + n) for n in range(64)]

        def all_pass():
            d.received(0)
            c.send(frames)
            return sorted(d.received(len(frames), patience=0.5)) == sorted(frames)

        self.assertTrue(until(all_pass))
        self.assertTrue(until(lambda: "MTU of 9000" in (live()["wrong"] or "")))
        self.middle.ip("link", "set", "eth1", "mtu", "1500")
        self.assertTrue(until(lambda: live()["present"]), "it is tried again")
        a, b = self.wire(1), self.wire(2)
        self.assertTrue(until(lambda: (a.send([udp(10)]), b.received(1, patience=0.3) != [])[1]))

    def test_a_driver_without_memory_closes_no_other_port(self):
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        self.stations_are(1, 2)
        agent = self.agent(OPEN, *NO_CARDS, "--patch", "eth1,eth2", "--patch", "d,n", "--control", self.socket, "--port", "eth1=eth1",
                           "--port", "eth2=eth2", "--port", "n=null:", "--port", "d=dpdk:net_null%w,no-rx=1", ports=())
        client, a, b = self.control(), self.wire(1), self.wire(2)
        live = lambda: client.ask("show", what="ports")["ports"]["d"]["live"]
        old = self.workers(agent)
        with open(f"/proc/{old[1]}/status", encoding="ascii") as file:
            size = next(int(line.split()[1]) for line in file if line.startswith("VmSize:"))
        enough = resource.prlimit(agent.process.pid, resource.RLIMIT_AS, ((size - 256 * 1024) * 1024, resource.RLIM_INFINITY))
        for victim in old.values():
            os.kill(victim, signal.SIGKILL)
        frames = [udp(10, n, source_port=2000 + n) for n in range(64)]

        def all_pass():
            b.received(0)
            a.send(frames)
            return sorted(b.received(len(frames), patience=0.5)) == sorted(frames)

        self.assertTrue(until(lambda: "DPDK does not begin" in (live()["wrong"] or ""), patience=5))
        self.assertFalse(live()["present"])
        self.assertTrue(until(all_pass))
        resource.prlimit(agent.process.pid, resource.RLIMIT_AS, enough)
        for victim in self.workers(agent).values():
            os.kill(victim, signal.SIGKILL)
        self.assertTrue(until(lambda: live()["present"] and not live()["wrong"], patience=5), "who begins anew tries again")

    def test_one_that_cannot_begin_is_tried_seldomer(self):
        """Its plugin is replaced by something else, and back."""
        self.stations_are(1, 2)
        plugin, right = os.path.join(self.folder, "VeloAcl.so"), os.path.join(self.folder, "right.so")
        shutil.copy(os.path.join(os.path.dirname(live_test.VELO), "VeloAcl.so"), plugin)
        agent = self.start(OPEN, "--plugin", plugin)
        client = self.control()
        first = lambda: client.ask("show", what="workers")["workers"][0]
        os.rename(plugin, right)
        with open(plugin, "wb") as file:
            file.write(b"x")
        os.kill(self.workers(agent)[1], signal.SIGKILL)
        time.sleep(6)
        starts = first()["starts"]
        self.assertFalse(first()["serving"])
        self.assertTrue(3 <= starts <= 5, f"{starts}: at once, after one second, after two more")
        os.replace(right, plugin)
        self.assertTrue(until(lambda: first()["serving"], patience=12))
        os.kill(self.workers(agent)[1], signal.SIGKILL)
        self.assertTrue(until(lambda: first()["serving"] and first()["starts"] > starts + 1, patience=4), "at once again")
        agent.stop()
        self.assertEqual(agent.errors.count("worker 1 cannot begin: "), 1, "told once")

    def test_links_that_only_workers_know_are_told(self):
        """The kernel does not tell the first process of the devices of drivers."""
        if not has_dpdk():
            self.skipTest("the program is built without dpdk: ports")
        self.stations_are(1, 2)
        pipe = lambda number: f"role={{}},socket={self.folder}/memif{number},socket-abstract=no"
        bundled = OPEN + "port-channel po1 members m eth2\n"
        here = self.agent(bundled, *NO_CARDS, "--patch", "eth1,po1", "--control", self.socket, "--port", "eth1=eth1",
                          "--port", "eth2=eth2", "--port", f"m=dpdk:net_memif%w,{pipe('%w').format('server')}", ports=())
        client = self.control()
        up = lambda: client.ask("show", what="ports")["ports"]["m"]["live"]["up"]
        self.assertTrue(until(lambda: not up()), "nobody is at the other end")
        others = [Agent(live_test.VELO, self.middle, OPEN.replace("eth1", "m"), *NO_CARDS, "--port",
                        f"m=dpdk:net_memif0,{pipe(n).format('client')}", "--port", "eth9=null:", "--patch", "m,eth9")
                  for n in (0, 1)]
        for other in others:
            self.addCleanup(other.kill)
        self.assertTrue(until(up))
        time.sleep(1)  # until both have told
        others[1].stop()
        time.sleep(1)
        self.assertTrue(up(), "one of them has it")
        others[0].stop()
        self.assertTrue(until(lambda: not up()))
        serving = lambda: {one["pid"] for one in client.ask("show", what="workers")["workers"] if one["serving"]}
        old = set(self.workers(here).values())
        for victim in old:
            os.kill(victim, signal.SIGKILL)
        self.assertTrue(until(lambda: len(serving() - old) == 2))
        here.stop()
        told = [line for line in here.errors.splitlines() if "port m: its device" in line]
        ends = lambda who: [line.rsplit(" ", 1)[-1] for line in told if line.removeprefix("velo: ").startswith(who)]
        self.assertEqual(ends("port m")[:4], ["down", "up", "down", "gone"], told)
        self.assertEqual((ends("worker 1: "), ends("worker 2: ")), (["up", "down"],) * 2, told)

    def test_one_that_hangs_before_it_has_begun_is_ended(self):
        """It opens a pipe that nobody writes to."""
        capture, regular = os.path.join(self.folder, "in.pcap"), os.path.join(self.folder, "regular.pcap")
        write_capture(regular, [udp(10, number) for number in range(10)])
        arguments = ("--port", f"eth1=pcap:{capture},endless", "--port", "eth2=null:")
        os.mkfifo(capture)
        lists = os.path.join(self.folder, "open.acl")
        with open(lists, "w", encoding="utf-8") as file:
            file.write(OPEN)
        with self.middle.entered():
            process = subprocess.Popen([live_test.VELO, "run", "--config", lists, *TWO, *arguments, "--patch", "eth1,eth2"],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.kill)
        self.assertTrue(until(lambda: self.workers(types.SimpleNamespace(process=process))))
        for early in (signal.SIGHUP, signal.SIGUSR1):  # what they ask for waits for the start
            process.send_signal(early)
        self.assertRegex(process.communicate(timeout=30)[1], "worker [12] does not begin")
        self.assertEqual(process.returncode, 1)
        os.replace(regular, capture)
        agent = self.agent(OPEN, *arguments, "--patch", "eth1,eth2", "--control", self.socket, ports=())
        client = self.control()
        states = lambda: {one["number"]: one for one in client.ask("show", what="workers")["workers"]}
        os.rename(capture, regular)
        os.mkfifo(capture)
        os.kill(self.workers(agent)[1], signal.SIGKILL)
        self.assertTrue(until(lambda: states()[1]["starts"] == 2 and 1 in self.workers(agent)))
        self.assertFalse(states()[1]["serving"])
        hanging = self.workers(agent)[1]
        begin = time.monotonic()
        self.assertTrue(client.apply(OPEN.replace("permit", "deny"))["applied"])
        self.assertLess(time.monotonic() - begin, 5, "a change does not wait for one that has not begun")
        self.assertTrue(until(lambda: self.workers(agent).get(1, hanging) != hanging), "that one begins anew")
        hanging = self.workers(agent)[1]
        self.assertTrue(until(lambda: self.workers(agent).get(1, hanging) != hanging, patience=20))
        os.replace(regular, capture)
        self.assertTrue(until(lambda: states()[1]["serving"], patience=20))
        agent.process.terminate()
        self.assertIn("worker 1 does not begin, and is ended", agent.process.communicate()[1])

    def test_a_first_process_that_was_stopped_has_nobody_ended(self):
        self.stations_are(1, 2)
        agent = self.start(OPEN)
        before = self.workers(agent)
        agent.process.send_signal(signal.SIGSTOP)
        time.sleep(12)
        agent.process.send_signal(signal.SIGCONT)
        time.sleep(2)
        self.assertEqual(self.workers(agent), before)
        agent.stop()
        self.assertNotIn("does not answer", agent.errors)

    def test_queues_of_a_worker_that_is_dead_are_closed(self):
        """The host does not get what comes by them, either, and it goes on when the worker is back."""
        self.queues = 2
        self.stations_are(1, 2)
        agent = self.agent(OPEN, "--patch", "eth1,eth2", "--control", self.socket, "--port", "eth1=xdp:eth1", "--port",
                           "eth2=xdp:eth2", ports=())
        client, host = self.control(), Wire(self.middle, "eth1")
        self.addCleanup(host.close)
        hows = lambda: client.ask("show", what="ports")["ports"]["eth1"]["live"]["how"]
        self.assertTrue(until(lambda: hows() == f"{AS_USUAL[2:]}; copy, queue 0; copy, queue 1".removeprefix("; ")), hows())
        sink, stream = self.sink(), self.stream(2000, flowing)
        for victim in (1, 2):
            time.sleep(0.3)
            os.kill(self.workers(agent)[victim], signal.SIGKILL)
            self.assertTrue(until(lambda: set(self.workers(agent)) == {1, 2}))
        time.sleep(0.5)
        came = len(sink.seen)
        self.assertTrue(until(lambda: len(sink.seen) > came + 500, patience=3), "frames of both queues pass")
        stream.stop()
        sink.stop()
        self.assertEqual(host.received(0), [])

    def test_too_few_queues_for_all_end_the_start(self):
        self.stations_are(1, 2)
        refused = Agent(live_test.VELO, self.middle, OPEN, *TWO, "--port", "eth1=xdp:eth1", "--port", "eth2=eth2",
                        "--patch", "eth1,eth2", check=False)
        self.addCleanup(refused.kill)
        self.assertEqual(refused.process.wait(10), 1)
        self.assertIn("eth1: it has fewer queues than there are --workers", refused.process.stderr.read())

    def test_a_port_that_a_worker_cannot_open_ends_the_start(self):
        refused = Agent(live_test.VELO, self.middle, OPEN, *TWO, "--port", "eth1=pcap:/nowhere", "--port", "eth2=null:",
                        "--patch", "eth1,eth2", check=False)
        self.addCleanup(refused.kill)
        self.assertEqual(refused.process.wait(10), 1)
        self.assertIn("/nowhere", refused.process.stderr.read())


if __name__ == "__main__":
    live_test.main(__doc__)
