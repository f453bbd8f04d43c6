#!/usr/bin/env python3
"""Tests what `cpack` makes of a build: installed into a root of its own, run from there, upgraded and removed.

usage: package_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import ctypes
import glob
import json
import os
import shutil
import subprocess
import tempfile
import unittest

import live_test
from live_test import until
from network import LIBC, Namespace, Sink, Stream, Wire, has, link, run, udp, why_not

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCES = os.path.dirname(os.path.dirname(HERE))
CLONE_NEWNS = 0x20000

CONFIG = """ip access-list FROM-ALICE
   10 deny icmp host 10.0.0.1 any echo
   20 permit ip any any
interface eth1
   ip access-group FROM-ALICE in
"""
# Stands in for the one of the system, which runs in no root of its own. It does what the packages' scripts ask for with
# the unit as it is installed.
SYSTEMCTL = r"""#!/bin/sh
start() {
  options=$(sed -n 's/^VELO_OPTIONS=//p' /etc/velo/options)
  command=$(sed -n ':a;/\\$/{N;s/\\\n//;ba};s/^ExecStart=//p' /lib/systemd/system/velo.service | sed 's/\$VELO_OPTIONS//')
  mkdir -p /run/velo /var/lib/velo
  $command $options >>/run/log 2>&1 </dev/null &
  echo $! >/run/pid
}
stop() {
  kill "$(cat /run/pid)"
  # Whoever is to notice its end may take his time.
  while readlink "/proc/$(cat /run/pid)/exe" >/dev/null; do sleep 0.01; done
  rm -r /run/pid /run/velo
}
echo "$*" >>/run/told
case "$*" in
  'start velo.service') start ;;
  'try-restart velo.service') if [ -e /run/pid ]; then stop; start; fi ;;
  '--no-reload disable --now velo.service') if [ -e /run/pid ]; then stop; fi ;;
esac
"""


class Root:
    """This machine's root with a layer of its own for all that is written. It hides devices and what runs here."""

    def __init__(self, folder):
        self.folder = folder
        self.path, self.layer = os.path.join(folder, "root"), os.path.join(folder, "layer")
        run("mount", "-t", "tmpfs", "tmpfs", folder)
        for name in ("root", "layer", "work"):
            os.mkdir(os.path.join(folder, name))
        run("mount", "-t", "overlay", "overlay", "-o", f"lowerdir=/,upperdir={self.layer},workdir={folder}/work", self.path)
        for kind, name in (("proc", "proc"), ("tmpfs", "run"), ("tmpfs", "tmp")):
            run("mount", "-t", kind, kind, f"{self.path}/{name}")
        run("mount", "--rbind", "/dev", f"{self.path}/dev")
        os.makedirs(f"{self.path}/run/systemd/system")
        self.write("/usr/local/bin/systemctl", SYSTEMCTL)
        os.chmod(f"{self.path}/usr/local/bin/systemctl", 0o755)
        self.before = self.written()

    def write(self, path, text):
        with open(self.path + path, "w", encoding="utf-8") as file:
            file.write(text)

    def read(self, path):
        with open(self.path + path, encoding="utf-8") as file:
            return file.read()

    def written(self):
        """What stands there that does not on this machine; not what other packages keep of it."""
        found = set()
        for folder, folders, files in os.walk(self.layer):
            inside = folder[len(self.layer):]
            folders[:] = [name for name in folders if f"{inside}/{name}" not in ("/var/lib/dpkg", "/var/log", "/var/cache")]
            found.update(f"{inside}/{name}" for name in files)
            found.update(f"{inside}/{name}" for name in folders if not os.path.isdir(f"{inside}/{name}"))
        return found

    def left(self):
        return self.written() - self.before


def packed(build, folder):
    """Paths by name; what cpack makes of a build."""
    run("cpack", "--config", os.path.join(build, "CPackConfig.cmake"), "-B", folder)
    return {os.path.basename(path).split("_")[0]: path for path in glob.glob(folder + "/*.deb")}


def as_version(package, version, path):
    """The same package under another version."""
    content = path + ".content"
    run("dpkg-deb", "--raw-extract", package, content)
    with open(content + "/DEBIAN/control", "r+", encoding="utf-8") as control:
        lines = [f"Version: {version}\n" if line.startswith("Version:") else line for line in control]
        control.seek(0)
        control.truncate()
        control.writelines(lines)
    run("dpkg-deb", "-Znone", "--build", content, path)
    return path


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for program in ("dpkg-deb", "dpkg-shlibdeps", "cpack", "chroot"):
            if not has(program):
                raise unittest.SkipTest(f"there is no {program}")
        if why_not():
            raise unittest.SkipTest(why_not())
        # Mounts of this process are its own.
        if LIBC.unshare(CLONE_NEWNS) != 0:
            raise unittest.SkipTest(f"no mounts of its own: {os.strerror(ctypes.get_errno())}")
        run("mount", "--make-rprivate", "/")
        cls.folder = tempfile.mkdtemp(prefix="velo-packages-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        build = os.path.dirname(os.path.dirname(live_test.VELO))
        cls.packages = packed(build, cls.folder)
        cls.old, cls.new = (as_version(cls.packages["velo"], version, f"{cls.folder}/{version}.deb") for version in ("0.0.1", "999.0.0"))

    def setUp(self):
        self.alice, self.middle, self.bob = Namespace(), Namespace(), Namespace()
        for namespace in (self.alice, self.middle, self.bob):
            self.addCleanup(namespace.delete)
        link(self.alice, "eth0", self.middle, "ens3")
        link(self.bob, "eth0", self.middle, "ens4")
        self.alice.ip("addr", "add", "10.0.0.1/24", "dev", "eth0")
        self.bob.ip("addr", "add", "10.0.0.2/24", "dev", "eth0")
        mounts = tempfile.mkdtemp(prefix="velo-root-")
        self.addCleanup(os.rmdir, mounts)
        self.addCleanup(run, "umount", "-l", mounts)
        self.root = Root(mounts)

    def inside(self, *command, check=True):
        # Beside the root the namespace, where the agent is to have its ports.
        done = self.middle.run("chroot", self.root.path, "env", "LC_ALL=C", *command, check=check)
        return done.stdout

    def dpkg(self, *command):
        return self.inside("dpkg", "--no-triggers", "--force-unsafe-io", *command)

    def taken(self, package):
        """The path of a package inside."""
        path = f"/tmp/{os.path.basename(package)}"
        shutil.copy(package, self.root.path + path)
        return path

    def install(self, package):
        self.dpkg("--install", self.taken(package))

    def start(self, *options):
        self.root.write("/etc/velo/velo.acl", CONFIG)
        words = " ".join(("--port eth1=ens3 --port eth2=ens4 --patch eth1,eth2", *options))
        self.root.write("/etc/velo/options", f"VELO_OPTIONS={words}\n")
        self.addCleanup(self.inside, "systemctl", "--no-reload", "disable", "--now", "velo.service")
        self.inside("systemctl", "start", "velo.service")
        self.assertTrue(until(self.counts, 30), self.root.read("/run/log"))

    def counts(self):
        """Packets by rule number; None while no agent answers."""
        told = self.inside("velo", "show", "access-lists", "--json", check=False)
        if not told.startswith("{"):
            return None
        rules = json.loads(told)["lists"][0]["rules"]
        return {rule["sequence"]: rule["matches"]["in"] for rule in rules if "sequence" in rule}

    def test_lintian_finds_no_mistake(self):
        if not has("lintian"):
            self.skipTest("there is no lintian")
        done = run("lintian", "--allow-root", "--fail-on", "error", *self.packages.values(), check=False)
        self.assertEqual(done.returncode, 0, done.stdout)

    def test_installed_run_upgraded_removed(self):
        self.install(self.old)
        self.start()
        self.assertNotIn(" 0% packet loss", self.alice.run("ping", "-c", "1", "-W", "1", "10.0.0.2", check=False).stdout)
        self.assertIn(" 0% packet loss", self.bob.run("ping", "-c", "1", "-W", "10", "10.0.0.1", check=False).stdout)
        self.assertEqual(self.counts()[10], 1)

        sent, got = Wire(self.alice, "eth0"), Wire(self.bob, "eth0")
        self.addCleanup(sent.close)
        self.addCleanup(got.close)
        rate = 200
        sink = Sink(got)
        stream = Stream(sent, lambda number: udp(10, number), rate)
        self.assertTrue(until(lambda: len(sink.seen) > 100, 30))
        pid, before = self.root.read("/run/pid"), self.counts()
        self.install(self.new)
        self.assertTrue(until(self.counts, 30), self.root.read("/run/log"))
        self.assertTrue(until(lambda: sink.seen[-1][1] > stream.sent - rate, 30))
        stream.stop()
        sink.stop()
        self.assertNotEqual(self.root.read("/run/pid"), pid)
        self.assertIn("999.0.0", self.dpkg("--status", "velo"))
        after, seen = self.counts(), [number for _, number in sink.seen]
        self.assertEqual(after[10], before[10])
        # What the first agent counted is in what the second tells: nothing that passed is missing.
        self.assertGreaterEqual(after[20], len(seen))
        closed = max(b - a for a, b in zip(seen, seen[1:])) / rate
        print(f"closed for {closed:.2f} s while it was upgraded")
        self.assertLess(closed, 1)
        self.assertEqual(self.root.read("/etc/velo/velo.acl"), CONFIG)

        self.dpkg("--remove", "velo")
        self.assertFalse(os.path.exists(self.root.path + "/run/pid"))
        self.assertFalse(os.path.exists(self.root.path + "/run/velo"))
        self.assertEqual(self.root.left(), {"/etc/velo", "/etc/velo/velo.acl", "/etc/velo/options"})
        self.dpkg("--purge", "velo")
        self.assertEqual(self.root.left(), set())

    def test_shells_complete_names_that_the_agent_knows(self):
        self.install(self.old)
        self.start()
        bash = """source /usr/share/bash-completion/completions/velo
            COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE}
            _velo; printf '%s\\n' "${COMPREPLY[@]}" """
        zsh = """compadd() { shift; print -l -- "$@" }
            words=("$@") CURRENT=$#
            source /usr/share/zsh/vendor-completions/_velo"""
        shells = {"bash": ["bash", "-c", bash, "bash"], "zsh": ["zsh", "-fc", zsh, "zsh"],
                  "fish": ["fish", "--no-config", "-c", """source /usr/share/fish/vendor_completions.d/velo.fish
                       complete -C "$argv" """]}
        cases = (("velo sho", {"show"}), ("velo show access-lists FR", {"FROM-ALICE"}), ("velo explain --port eth", {"eth1", "eth2"}))
        for shell, command in shells.items():
            if not has(shell):
                print(f"there is no {shell}")
                continue
            for line, expected in cases:
                words = [line] if shell == "fish" else line.split()
                self.assertEqual(set(self.inside(*command, *words).split()), expected, f"{shell}: {line}")

    def test_a_plugin_is_built_by_the_installed_headers_alone(self):
        versions = (as_version(self.packages[name], "5.0.0", f"{self.folder}/{name}-5.deb") for name in ("velo", "velo-dev"))
        self.inside("dpkg", "--no-triggers", "--force-depends-version", "--install", *(self.taken(package) for package in versions))
        source = "/usr/share/doc/velo-dev/examples/plugin"
        text = self.root.read(f"{source}/DscpCounter.cpp")
        self.assertLess(len(text.splitlines()), 150)
        # What velo was built from is not to be seen.
        os.makedirs(self.root.path + SOURCES, exist_ok=True)
        run("mount", "-t", "tmpfs", "tmpfs", self.root.path + SOURCES)
        self.inside("cmake", "-S", source, "-B", "/tmp/build")
        self.inside("cmake", "--build", "/tmp/build")

        self.start("--plugin", "/tmp/build/DscpCounter.so")
        self.bob.run("ping", "-c", "3", "-i", "0.2", "-Q", str(46 << 2), "-W", "10", "10.0.0.1", check=False)
        shown = json.loads(self.inside("velo", "show", "plugins", "--json"))["plugins"]
        self.assertEqual([plugin["name"] for plugin in shown], ["VeloAclPlugin", "DscpCounter"])
        counted = json.loads(self.inside("velo", "show", "drops", "--json"))["drops"]["Dscp"]["DscpCounter"]
        self.assertGreaterEqual(counted["EF"], 3)  # the answers have the class of the requests, too
        self.inside("systemctl", "--no-reload", "disable", "--now", "velo.service")

        # By the headers of another velo it is refused, and nothing is forwarded without it.
        # Its version has as many digits.
        header = "/usr/include/velo/velo-interface-version.h"
        self.root.write(header, self.root.read(header).replace('VERSION "', 'VERSION "ffff')[:-6] + '"\n')
        self.inside("cmake", "--build", "/tmp/build")
        done = self.inside("velo", "run", "--config", "/etc/velo/velo.acl", "--port", "eth1=ens3", "--plugin",
                           "/tmp/build/DscpCounter.so", check=False)
        self.assertIn("was built against interface version ffff", done)

    def test_manual_pages_are_there_for_all_commands(self):
        self.install(self.old)
        pages = sorted(os.path.basename(path) for path in glob.glob(self.root.path + "/usr/share/man/man*/velo*"))
        commands = self.inside("velo", "complete", "--", "").split()
        self.assertGreater(len(commands), 10)
        self.assertEqual(pages, sorted(["velo.1.gz", "velo-acl.5.gz", *(f"velo-{name}.1.gz" for name in commands)]))


class Container(unittest.TestCase):
    """What packaging/Containerfile asks for, without anything that builds containers."""

    @classmethod
    def setUpClass(cls):
        for program in ("dpkg-deb", "dpkg-shlibdeps", "cpack"):
            if not has(program):
                raise unittest.SkipTest(f"there is no {program}")
        cls.folder = tempfile.mkdtemp(prefix="velo-container-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.packages = packed(os.path.dirname(os.path.dirname(live_test.VELO)), cls.folder)
        with open(f"{SOURCES}/packaging/Containerfile", encoding="utf-8") as file:
            text = file.read().replace("\\\n", " ")
        cls.lines = [line.split(None, 1) for line in text.splitlines() if line and not line.startswith("#")]

    def said(self, keyword):
        return [rest for word, rest in self.lines if word == keyword]

    def content(self):
        """The paths in the package, links among them."""
        lines = run("dpkg-deb", "--contents", self.packages["velo"]).stdout.splitlines()
        return {line.split(None, 5)[5].split(" -> ")[0].removeprefix(".") for line in lines}

    def test_copies_the_one_package_that_it_installs(self):
        (pattern, folder), = (rest.split() for rest in self.said("COPY"))
        self.assertEqual(glob.glob(f"{self.folder}/{pattern}"), [self.packages["velo"]])
        installed, = self.said("RUN")
        self.assertIn(f"apt-get install -y --no-install-recommends {folder}{pattern} ", installed)

    def test_runs_what_the_package_has(self):
        command, = map(json.loads, self.said("ENTRYPOINT"))
        health, = (json.loads(rest.removeprefix("CMD ")) for rest in self.said("HEALTHCHECK"))
        content = self.content()
        for words in (command, health):
            self.assertIn(f"/usr/bin/{words[0]}", content)
        self.assertIn(command[command.index("--config") + 1], content)
        made, volume = self.said("RUN")[0].rsplit("mkdir -p ", 1)[1].split(), self.said("VOLUME")
        self.assertIn(os.path.dirname(command[command.index("--control") + 1]), made)
        self.assertEqual([os.path.dirname(command[command.index("--state") + 1])], volume)
        known = run(live_test.VELO, "run", "--help").stdout
        for option in filter(lambda word: word.startswith("--"), command):
            self.assertIn(f" {option} ", known)
        # Without an agent it fails, and not because the command line is wrong.
        self.assertEqual(run(live_test.VELO, *health[1:], "--control", f"{self.folder}/none", check=False).returncode, 1)


class Versions(unittest.TestCase):
    """What cmake/VeloVersion.cmake makes of the state of a tree."""

    def setUp(self):
        self.tree = tempfile.mkdtemp(prefix="velo-version-")
        self.addCleanup(shutil.rmtree, self.tree)
        os.mkdir(f"{self.tree}/cmake")
        shutil.copy(f"{SOURCES}/cmake/VeloVersion.cmake", f"{self.tree}/cmake/")
        self.write("CMakeLists.txt", "project(velo VERSION 0.3.0 LANGUAGES CXX)\n")

    def write(self, name, text):
        with open(os.path.join(self.tree, name), "w", encoding="ascii") as file:
            file.write(text)

    def git(self, *words):
        person = ("-c", "user.name=x", "-c", "user.email=x@localhost")
        return run("git", "-C", self.tree, *person, *words).stdout.strip()

    def version(self, *words):
        return subprocess.run(["cmake", *words, "-P", f"{self.tree}/cmake/VeloVersion.cmake"], check=True, text=True,
                              stdout=subprocess.PIPE).stdout.strip()

    def test_by_git_or_without_it(self):
        self.assertEqual(self.version(), "0.3.0")
        self.write("VERSION.txt", "0.3.1\n")
        self.assertEqual(self.version(), "0.3.1")
        if not has("git"):
            return
        self.git("init", "-q")
        self.git("commit", "-q", "--allow-empty", "-m", "one")
        self.assertEqual(self.version(), "0.3.0-dev.1+g" + self.git("rev-parse", "--short", "HEAD"))
        self.git("tag", "v0.3.0")
        self.assertEqual(self.version(), "0.3.0")
        self.git("commit", "-q", "--allow-empty", "-m", "two")
        self.assertEqual(self.version(), "0.3.0+1.g" + self.git("rev-parse", "--short", "HEAD"))
        self.assertEqual(self.version("-DVELO_VERSION=7.8.9"), "7.8.9")


if __name__ == "__main__":
    live_test.main(__doc__)
