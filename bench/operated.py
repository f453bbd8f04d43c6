#!/usr/bin/env python3
"""What operating the agent costs its traffic, and its traffic its operators: the real program between veth links.

idle     the time of a frame through the agent when there is little to do
load     how soon the agent answers, and how old its counters are, while it is offered more than it can take
restart  the time from the start to the right status, with 100,000 rules, after kill -9 and from nothing
flood    the processor time of a frame of a flood of new flows, without log at the rules that it meets, and with it at one or both
hostile  what arrives at a rate that the agent holds, in turn without and with 1,000 hostile clients

As root. With two processors the agent has the second one for itself, as it has on a machine of its own: whoever sends,
asks or attacks is on the first one. Where other work runs, under chrt -f 5; the hostile clients are ordinary processes
all the same.
"""

import argparse
import collections
import contextlib
import os
import selectors
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.insert(0, os.path.join(ROOT, "tests", "live"))

from network import Agent, Control, Namespace, Wire, link, udp, why_not  # noqa: E402 (where it is comes first)

SO_TIMESTAMPNS = 35
RULES = 1000


def lists():
    """What the frames of send_frames.cpp meet last, and those of udp() in the implicit drop's stead."""
    text = "ip access-list L\n"
    for number in range(1, RULES - 1):
        text += f" permit udp host 203.0.113.1 host 198.51.100.7 eq {443 + number}\n"
    text += " permit udp host 203.0.113.1 host 198.51.100.7 eq 443\n permit udp any any\n"
    for port in ("eth1", "eth2"):
        text += f"interface {port}\n ip access-group L in\n ip access-group L out\n"
    return text


def place(processor, below=0):
    """Has this process on a processor and, where it has a real-time priority, somewhat below the present one."""
    os.sched_setaffinity(0, {processor % (os.cpu_count() or 1)})
    os.sched_setparam(0, os.sched_param(max(0, os.sched_getparam(0).sched_priority - below)))


class Setup:
    """The agent between a sender and a receiver."""

    def __init__(self, options, cleaner):
        self.sender = os.path.join(options.bin, "send-frames")
        self.outer = [Namespace(), Namespace()]
        self.middle = Namespace()
        for namespace in (*self.outer, self.middle):
            cleaner.callback(namespace.delete)
        for number, namespace in enumerate(self.outer, 1):
            link(namespace, "e0", self.middle, f"eth{number}", offloads=True)
        folder = cleaner.enter_context(tempfile.TemporaryDirectory(prefix="velo-operated-"))
        self.path = os.path.join(folder, "control")
        place(1)
        self.agent = Agent(os.path.join(options.bin, "velo"), self.middle, lists(), "--port", "eth1=eth1", "--port",
                           "eth2=eth2", "--patch", "eth1,eth2", "--control", self.path, "--state",
                           os.path.join(folder, "state"))
        place(0)
        cleaner.callback(self.agent.kill)
        self.client = Control(self.path)
        cleaner.callback(self.client.close)

    def sending(self, seconds, *rate):
        """Frames of 64 octets at a rate, or as many as go."""
        with self.outer[0].entered():
            return subprocess.Popen([self.sender, "e0", "60", str(seconds), *map(str, rate)], stdout=subprocess.PIPE,
                                    text=True, preexec_fn=lambda: place(0, 1))

    def forwarded(self):
        """Frames that the agent has sent."""
        return self.client.ask("show", what="ports")["ports"]["eth2"]["sent"]

    def highest(self):
        """Frames a second that the agent forwards of all that the sender offers."""
        sending = self.sending(1.2)
        time.sleep(0.1)
        before, begin = self.forwarded(), time.monotonic()
        time.sleep(1)
        rate = (self.forwarded() - before) / (time.monotonic() - begin)
        sending.communicate()
        return rate

    def arrived(self):
        with self.outer[1].entered(), open("/proc/thread-self/net/dev", encoding="ascii") as file:
            line = next(line for line in file if line.strip().startswith("e0:"))
            return int(line.split(":")[1].split()[1])

    def through(self, seconds, *rate):
        """(sent, arrived) of an interval."""
        before = self.arrived()
        sent = int(self.sending(seconds, *rate).communicate()[0])
        time.sleep(0.05)
        return sent, self.arrived() - before


def spread(values, unit="", digits=1):
    return (f"{statistics.median(values):.{digits}f}{unit}"
            f" ({min(values):.{digits}f} to {max(values):.{digits}f})")


def idle(setup, options):
    """From before the frame is handed to the kernel to its arrival at the far end of the second link."""
    first, second = Wire(setup.outer[0], "e0"), Wire(setup.outer[1], "e0")
    second.socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
    second.socket.settimeout(1)
    times = []
    for number in range(2000):
        frame = udp(1, number)
        begin = time.time_ns()
        first.socket.send(frame)
        _, ancillary, _, _ = second.socket.recvmsg(2048, 256)
        at = next(struct.unpack("qq", data) for level, kind, data in ancillary
                  if (level, kind) == (socket.SOL_SOCKET, SO_TIMESTAMPNS))
        times.append((at[0] * 1_000_000_000 + at[1] - begin) / 1000)
        time.sleep(0.002)
    first.close()
    second.close()
    cuts = statistics.quantiles(times, n=100)
    print(f"idle: through the agent {statistics.median(times):.0f} us at the median, {cuts[89]:.0f} us nine of ten, "
          f"{cuts[98]:.0f} us 99 of 100 ({len(times)} frames, 2 ms apart)", flush=True)


def load(setup, options):
    sending = setup.sending(options.rounds)
    client = setup.client
    end = time.monotonic() + options.rounds - 0.5
    took, ages = collections.defaultdict(list), []
    time.sleep(2)  # the first counters are copied
    before, begin = setup.forwarded(), time.monotonic()
    while time.monotonic() < end:
        for what in ("drops", "access-lists", "status"):
            asked = time.monotonic()
            document = client.ask("show", what=what)
            took[what].append((time.monotonic() - asked) * 1000)
        published = document["status"]["status"]["ip"]["acl"]["L"]
        ages.append(time.time() - published["counterUpdateTime"])
        time.sleep(0.1)
    rate = (setup.forwarded() - before) / (time.monotonic() - begin)
    sent = int(sending.communicate()[0])
    offered = sent / options.rounds / 1000
    print(f"load: {offered:.0f} thousand frames a second offered, {rate / 1000:.0f} thousand go through; "
          + "; ".join(f"show {what} {spread(values, ' ms')}" for what, values in took.items())
          + f"; counters of the status {spread(ages, ' s', 2)} old", flush=True)


def flood(setup, options):
    """Intervals of half a second, side by side, in turn from the front and from the back: what else the machine does is the same for
    all of them. A process that only counts takes half of the agent's processor, so that more frames are always waiting than
    the agent can take: with less to do it would wake up more often, and a frame would cost more."""
    def lists_with(logging):
        """A list on receipt and one on sending; `logging` says in which of them the rule that is met logs."""
        text = ""
        for direction in ("in", "out"):
            text += f"ip access-list {direction}\n"
            text += "".join(f" permit udp any host 198.51.100.7 eq {443 + i}\n" for i in range(1, 10))
            text += f" permit udp any host 198.51.100.7 eq 443{' log' if direction in logging else ''}\n"
            text += "".join(f"interface {port}\n ip access-group {direction} {direction}\n" for port in ("eth1", "eth2"))
        return text

    def used():
        """Nanoseconds that all threads of the agent have had a processor for."""
        tasks = f"/proc/{setup.agent.process.pid}/task"
        total = 0
        for task in os.listdir(tasks):
            with open(f"{tasks}/{task}/schedstat", encoding="ascii") as file:
                total += int(file.read().split()[0])
        return total

    busy = os.fork()
    if busy == 0:
        place(1)
        while True:
            pass
    kinds = {"without log": (), "logged once": ("in",), "logged twice": ("in", "out")}
    figures = {kind: [] for kind in kinds}
    for number in range(options.rounds):
        for kind in list(kinds)[::-1 if number % 2 else 1]:
            setup.client.apply(lists_with(kinds[kind]))
            time.sleep(0.1)
            before = used()
            _, arrived = setup.through(0.5, 0, 1 << 24)
            figures[kind].append((used() - before) / arrived)
    os.kill(busy, signal.SIGKILL)
    os.waitpid(busy, 0)
    setup.client.apply(lists())
    for kind, times in figures.items():
        ratios = [100 * time_ / without for without, time_ in zip(figures["without log"], times)]
        quartiles = statistics.quantiles(ratios, n=4)
        print(f"flood: {kind:12} {spread(times, ' ns', 0)} of processor time a frame; of that without log, side by side: median "
              f"{statistics.median(ratios):.1f} %, half of them {quartiles[0]:.1f} to {quartiles[2]:.1f} %", flush=True)


class Attack:
    """Clients that are none, over and over, in a process of their own until it is stopped."""

    def __init__(self, path, count):
        reading, writing = os.pipe()
        self.child = os.fork()
        if self.child == 0:
            os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))
            self.run(path, count, writing)
        os.close(writing)
        self.reading = reading
        os.read(reading, 1)  # it has begun

    def stop(self):
        """Connections that were made."""
        os.kill(self.child, signal.SIGKILL)
        os.waitpid(self.child, 0)
        with os.fdopen(self.reading, "rb") as connections:
            return len(connections.read())

    @staticmethod
    def run(path, count, connected):
        os.set_blocking(connected, False)
        garbage, huge = os.urandom(5000) + b"\n", b"x" * 200_000
        words = (garbage, b'{"do":"show","what":', huge, b'{"do":"show","what":"access-lists"}\n' * 100, b"")
        selector = selectors.DefaultSelector()

        def begin(number):
            client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            client.setblocking(False)
            try:
                client.connect(path)
            except OSError:
                client.close()
                return False
            with contextlib.suppress(OSError):
                os.write(connected, b".")
            with contextlib.suppress(OSError):
                client.send(words[number % len(words)])
            # Half lines and silence wait to be closed; so does who takes none of the answers.
            selector.register(client, selectors.EVENT_READ, number)
            return True

        waiting = collections.deque(range(count))
        while True:
            for _ in range(len(waiting)):
                number = waiting.popleft()
                if not begin(number):
                    waiting.append(number)
            for key, _ in selector.select(0.002):
                with contextlib.suppress(OSError):
                    if key.data % len(words) == 3 and key.fileobj.recv(1, socket.MSG_PEEK):
                        selector.unregister(key.fileobj)
                        selector.register(key.fileobj, selectors.EVENT_WRITE, key.data)
                        continue
                selector.unregister(key.fileobj)
                key.fileobj.close()
                waiting.append(key.data)


def hostile(setup, options):
    most = statistics.median(setup.highest() for _ in range(3))
    rate = int(most * options.share)
    print(f"hostile: {most / 1000:.0f} thousand frames a second go through of all that the sender offers, "
          f"{rate / 1000:.0f} thousand are sent from here on", flush=True)
    memory, connections = [], []
    figures = {False: [], True: []}
    for number in range(options.rounds):
        for attacked in (False, True) if number % 2 == 0 else (True, False):
            attack = Attack(setup.path, options.clients) if attacked else None
            figures[attacked].append(setup.through(options.seconds, rate))
            memory.append(setup.agent.memory() / 1024)
            if attack:
                connections.append(attack.stop())
    for attacked, name in ((False, "without"), (True, "with")):
        shares = [100 * arrived / sent for sent, arrived in figures[attacked]]
        rates = [arrived / options.seconds / 1000 for _, arrived in figures[attacked]]
        print(f"  {name:8} clients: {spread(rates)} thousand a second arrive, {spread(shares, ' %', 3)} of what is sent")
    print(f"  {options.clients} clients come and go: {spread(connections, '', 0)} connections an interval")
    ratios = [100 * loud / quiet for (_, quiet), (_, loud) in zip(figures[False], figures[True])]
    quartiles = statistics.quantiles(ratios, n=4)
    print(f"  with them of without them, pair by pair: median {statistics.median(ratios):.2f} %, half of the pairs "
          f"{quartiles[0]:.2f} to {quartiles[2]:.2f} %; memory {memory[2]:.0f} KiB, then at most {max(memory[2:]):.0f}",
          flush=True)


def restart(setup, options):
    text = "ip access-list BIG\n"
    for number in range(100_000):
        text += f" permit udp host 10.{number >> 16}.{number >> 8 & 255}.{number & 255} any eq {number % 60_000 + 1}\n"
    text += "interface eth3\n ip access-group BIG in\n"
    known, times = None, collections.defaultdict(list)
    with tempfile.TemporaryDirectory(prefix="velo-operated-") as folder:
        path, state = os.path.join(folder, "control"), os.path.join(folder, "state")
        for number in range(12):
            kept = ["--state", state] if number % 2 else []
            place(1)
            agent = Agent(os.path.join(options.bin, "velo"), setup.middle, text, "--port", "eth3=none", "--control", path,
                          *kept)
            place(0)
            times[bool(kept)].append(agent.start_seconds)
            client = Control(path)
            ids = [rule["id"] for rule in client.ask("show", what="access-lists", name="BIG")["lists"][0]["rules"]]
            published = client.ask("show", what="status")["status"]["status"]["ip"]["acl"]["BIG"]["ruleStatus"]
            client.close()
            if set(published) != set(ids) or (kept and known not in (None, ids)):
                sys.exit("the status is wrong")
            known = ids if kept else known
            time.sleep(2)  # the state is in the file
            agent.kill()
    print(f"restart: ready and right after {spread(times[True][1:], ' s', 2)} with what a killed agent left, "
          f"{spread(times[False], ' s', 2)} from nothing", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", default=os.path.join(ROOT, "build", "release", "bin"),
                        help="where velo and send-frames are")
    parser.add_argument("--rounds", type=int, default=20, help="pairs of intervals; seconds of the load (20)")
    parser.add_argument("--seconds", type=float, default=1, help="of an interval (1)")
    parser.add_argument("--clients", type=int, default=1000, help="hostile ones (1000)")
    parser.add_argument("--share", type=float, default=0.85, help="of the highest rate, with hostile clients (0.85)")
    parser.add_argument("--only", choices=("idle", "load", "flood", "restart", "hostile"), help="one of them")
    options = parser.parse_args()
    reason = why_not()
    if reason:
        sys.exit(reason)
    with contextlib.ExitStack() as cleaner:
        setup = Setup(options, cleaner)
        for part in (idle, load, flood, restart, hostile):
            if options.only in (None, part.__name__):
                part(setup, options)


if __name__ == "__main__":
    main()
