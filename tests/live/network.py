"""Namespaces, links and frames for tests of the real program on live interfaces, and the program itself.

Everything has a name of this process's own, and is gone when the test is over.
"""

import contextlib
import ctypes
import errno
import fcntl
import itertools
import json
import os
import select
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNET = 0x40000000
numbers = itertools.count(1)

ETH_P_ALL = 0x0003
PACKET_IGNORE_OUTGOING = 23
SOL_PACKET = 263
PACKET_AUXDATA = 8
TP_STATUS_VLAN_VALID = 0x10


def run(*command, check=True, **options):
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, **options)
    if check and done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)}: {done.stdout}")
    return done


def why_not():
    """Why this machine does not let the tests run; None when it does."""
    if os.geteuid() != 0:
        return "network namespaces are made by root only"
    name = f"velo{os.getpid()}try"
    made = run("ip", "netns", "add", name, check=False) if has("ip") else None
    if made is None:
        return "there is no ip command"
    if made.returncode != 0:
        return f"no network namespace can be made: {made.stdout.strip()}"
    try:
        link = run("ip", "-n", name, "link", "add", "a0", "type", "veth", "peer", "name", "a1", check=False)
        if link.returncode != 0:
            return f"no veth link can be made: {link.stdout.strip()}"
        return None
    finally:
        run("ip", "netns", "del", name, check=False)


def has(program):
    return any(os.access(os.path.join(folder, program), os.X_OK)
               for folder in os.environ.get("PATH", "").split(":") + ["/usr/sbin", "/sbin"])


class Namespace:
    """A network namespace; IPv6 is off until asked for, so that no frames are sent but the test's."""

    def __init__(self):
        self.name = f"velo{os.getpid()}n{next(numbers)}"
        run("ip", "netns", "add", self.name)
        with self.entered():
            for which in ("all", "default"):
                with open(f"/proc/sys/net/ipv6/conf/{which}/disable_ipv6", "w", encoding="ascii") as file:
                    file.write("1")
        self.ip("link", "set", "lo", "up")

    def delete(self):
        run("ip", "netns", "del", self.name, check=False)

    @contextlib.contextmanager
    def entered(self):
        """Has this thread in the namespace; what it opens meanwhile stays there."""
        with open("/proc/thread-self/ns/net", "rb") as back, open(f"/run/netns/{self.name}", "rb") as there:
            if LIBC.setns(there.fileno(), CLONE_NEWNET) != 0:
                raise OSError(ctypes.get_errno(), "setns")
            try:
                yield
            finally:
                if LIBC.setns(back.fileno(), CLONE_NEWNET) != 0:
                    raise OSError(ctypes.get_errno(), "setns")

    def ip(self, *words):
        return run("ip", "-n", self.name, *words)

    def command(self, *words):
        return ["ip", "netns", "exec", self.name, *words]

    def run(self, *words, check=True, **options):
        return run(*self.command(*words), check=check, **options)

    def ip6_is_on(self, device):
        # /proc/sys shows the namespace of who opens it.
        with self.entered(), open(f"/proc/sys/net/ipv6/conf/{device}/disable_ipv6", "w", encoding="ascii") as file:
            file.write("0")

    def offloads_are_off(self, device):
        with self.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
            for command in (0x15, 0x17, 0x19, 0x1F, 0x24, 0x2C):  # rx, tx checksums, sg, TSO, GSO, GRO
                with contextlib.suppress(OSError):
                    ethtool(control, device, struct.pack("II", command, 0))

    def gro_is_on(self, device):
        with self.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
            ethtool(control, device, struct.pack("II", 0x2C, 1))

    def queues_are(self, device, **counts):
        """How many a device has of some kinds: rx, tx."""
        kinds = ("rx", "tx", "other", "combined")
        with self.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
            now = struct.unpack("9I", ethtool(control, device, struct.pack("9I", 0x3C, *[0] * 8)))
            wanted = (counts.get(kind, count) for kind, count in zip(kinds, now[5:]))
            ethtool(control, device, struct.pack("9I", 0x3D, *now[1:5], *wanted))

    def promiscuity(self, device):
        shown = json.loads(self.ip("-d", "-j", "link", "show", device).stdout)
        return shown[0]["promiscuity"]


def ethtool(control, device, command):
    """What the kernel makes of a command for a device."""
    value = ctypes.create_string_buffer(command, len(command))
    request = struct.pack("16sP", device.encode(), ctypes.addressof(value)).ljust(40, b"\0")
    fcntl.ioctl(control, 0x8946, request)  # SIOCETHTOOL
    return value.raw


def link(a, device_a, b, device_b, offloads=False, queues=1, index=None):
    """A veth pair between two namespaces, up. `index`: the second device's."""
    several = ("numrxqueues", str(queues), "numtxqueues", str(queues)) if queues > 1 else ()
    a.ip("link", "add", device_a, *several, "type", "veth", "peer", "name", device_b, *several,
         *(("index", str(index)) if index else ()), "netns", b.name)
    for namespace, device in ((a, device_a), (b, device_b)):
        if not offloads:
            namespace.offloads_are_off(device)
        namespace.ip("link", "set", device, "up")


class Wire:
    """Sends and receives whole frames by a device."""

    def __init__(self, namespace, device):
        with namespace.entered():
            self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
            self.socket.setsockopt(socket.SOL_SOCKET, 33, 8 << 20)  # SO_RCVBUFFORCE
            self.socket.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
            self.socket.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
            self.socket.bind((device, ETH_P_ALL))
        self.socket.setblocking(False)

    def close(self):
        self.socket.close()

    def send(self, frames):
        for frame in frames:
            self.socket.send(frame)

    def next(self, timeout=1.0):
        """The next frame, None when none comes."""
        if not select.select([self.socket], [], [], timeout)[0]:
            return None
        try:
            frame, ancillary, _, _ = self.socket.recvmsg(65536, 1024)
        except OSError as error:
            if error.errno != errno.ENETDOWN:
                raise
            return None
        for level, kind, data in ancillary:
            if (level, kind) != (SOL_PACKET, PACKET_AUXDATA):
                continue
            status, _, _, _, _, tci, tpid = struct.unpack("IIIHHHH", data)
            if status & TP_STATUS_VLAN_VALID:
                frame = frame[:12] + struct.pack("!HH", tpid, tci) + frame[12:]
        return frame

    def received(self, count, patience=5.0, quiet=0.2):
        """What comes: until there are `count` frames, and nothing comes any more."""
        frames = []
        end = time.monotonic() + patience
        while time.monotonic() < end:
            frame = self.next(quiet if len(frames) >= count else max(0, end - time.monotonic()))
            if frame is None:
                break
            frames.append(frame)
        return frames


def mac(number):
    return bytes((2, 0, 0x5E, 0, number >> 8, number & 0xFF))


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def udp(port, number=0, size=18, vlan=None, to=2, source=1, source_port=1024):
    """A frame with a UDP datagram in IPv4 without a UDP checksum; the payload begins with the number."""
    payload = struct.pack("!I", number).ljust(size, b"x")
    ip = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 28 + len(payload), number & 0xFFFF, 0, 64, 17, 0,
                     bytes((192, 0, 2, source)), bytes((192, 0, 2, to)))
    ip = ip[:10] + struct.pack("!H", checksum(ip)) + ip[12:]
    tag = b"" if vlan is None else struct.pack("!HH", 0x8100, vlan)
    return (mac(to) + mac(source) + tag + b"\x08\x00" + ip
            + struct.pack("!HHHH", source_port, port, 8 + len(payload), 0) + payload)


class Stream:
    """Frames with numbers, sent at a steady rate by a thread until it is stopped; `frame(number)` makes them."""

    def __init__(self, wire, frame, rate):
        self.wire, self.frame, self.rate = wire, frame, rate
        self.sent = 0
        self.stopping = threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        begin = time.monotonic()
        while not self.stopping.wait(0.002):
            due = int((time.monotonic() - begin) * self.rate)
            while self.sent < due:
                self.wire.send([self.frame(self.sent)])
                self.sent += 1

    def stop(self):
        self.stopping.set()
        self.thread.join()


class Flood:
    """A frame sent by a process of its own, as often as it goes, until it is stopped."""

    def __init__(self, wire, frame):
        self.child = os.fork()
        if self.child == 0:
            wire.socket.setblocking(True)
            while True:
                with contextlib.suppress(OSError):
                    wire.socket.send(frame)

    def stop(self):
        if self.child:
            os.kill(self.child, signal.SIGKILL)
            os.waitpid(self.child, 0)
            self.child = 0


class Sink:
    """What comes by a wire, noted by a thread: (port, number) of the frames of udp()."""

    def __init__(self, wire):
        self.wire = wire
        self.seen = []
        self.stopping = threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        while not self.stopping.is_set():
            frame = self.wire.next(0.05)
            # Whatever else hosts tell each other is shorter.
            if frame is not None and len(frame) >= 46:
                self.seen.append((struct.unpack("!H", frame[36:38])[0], struct.unpack("!I", frame[42:46])[0]))

    def stop(self):
        """Ends when nothing comes any more."""
        count = -1
        while count != len(self.seen):
            count = len(self.seen)
            time.sleep(0.2)
        self.stopping.set()
        self.thread.join()


class Control:
    """A client of an agent's control socket."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(20)
        try:
            self.socket.connect(path)
        except OSError:
            self.socket.close()
            raise
        self.lines = self.socket.makefile("r", encoding="utf-8")

    def close(self):
        self.lines.close()
        self.socket.close()

    def answer(self, request):
        self.socket.sendall((json.dumps(request) + "\n").encode())
        return json.loads(self.lines.readline())

    def ask(self, do, **members):
        """The answer's document; RuntimeError with the text of a refusal."""
        answer = self.answer({"do": do, **members})
        if not answer["ok"]:
            raise RuntimeError(answer["error"])
        return answer["document"]

    def apply(self, text, **options):
        for begin in range(0, len(text), 30000):
            self.ask("text", name="new", text=text[begin:begin + 30000])
        return self.ask("apply", **options)


def as_user(uid, gid, groups, path, requests):
    """What a process of another user gets for requests: a document or an error each, or the errno of connecting."""
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        told = errno.EIO
        try:
            os.setgroups(groups)
            os.setgid(gid)
            os.setuid(uid)
            client = Control(path)
            told = [client.answer(request) for request in requests]
        except OSError as error:
            told = error.errno
        finally:
            os.write(writing, json.dumps(told).encode())
            os._exit(0)
    os.close(writing)
    with os.fdopen(reading) as answers:
        told = json.load(answers)
    os.waitpid(child, 0)
    return told


class Agent:
    """`velo run` in a namespace, from its readiness to its end. Without `config` (None) it has no --config."""

    def __init__(self, velo, namespace, config, *arguments, check=True, patience=30):
        self.folder = tempfile.TemporaryDirectory(prefix="velo-live-")
        path = os.path.join(self.folder.name, "live.acl")
        if config is not None:
            with open(path, "w", encoding="utf-8") as file:
                file.write(config)
            arguments = ("--config", path, *arguments)
        notify = os.path.join(self.folder.name, "notify")
        self.notices = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.notices.bind(notify)
        self.told = []
        begin = time.monotonic()
        with namespace.entered():
            self.process = subprocess.Popen([velo, "run", "--report", "json", *arguments],
                                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                            env={**os.environ, "NOTIFY_SOCKET": notify})
        self.ready = False
        end = time.monotonic() + patience
        while not self.ready and self.process.poll() is None and time.monotonic() < end:
            if select.select([self.notices], [], [], 0.05)[0]:
                self.ready = self.notices.recv(100) == b"READY=1"
        self.start_seconds = time.monotonic() - begin
        if check and not self.ready:
            self.process.kill()
            raise RuntimeError(f"velo is not ready: {self.process.communicate()[1]}")

    def notified(self):
        """What it has told the service manager since it was ready."""
        while select.select([self.notices], [], [], 0)[0]:
            self.told.append(self.notices.recv(100).decode())
        return self.told

    def stop(self):
        """Ends it by SIGTERM; what it reported."""
        self.process.send_signal(signal.SIGTERM)
        out, self.errors = self.process.communicate(timeout=30)
        if self.process.returncode != 0:
            raise RuntimeError(f"velo ended with {self.process.returncode}: {self.errors}")
        return json.loads(out)

    def kill(self):
        self.process.kill()
        if not self.process.stdout.closed:
            self.process.communicate()
        self.notices.close()
        self.folder.cleanup()

    def memory(self):
        """Octets of its memory that are in use."""
        with open(f"/proc/{self.process.pid}/statm", encoding="ascii") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def processor_time(self):
        with open(f"/proc/{self.process.pid}/stat", encoding="ascii") as file:
            fields = file.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
