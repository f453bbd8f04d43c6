#!/usr/bin/env python3
"""Tests agents that have their lists from a real etcd.

usage: fleet_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
environment: VELO_LIVE_FLEET_AGENTS and VELO_LIVE_FLEET_CHANGES ask for more of each than fits into a build, VELO_LIVE_SEED for
other ones.
"""

import base64
import json
import os
import random
import signal
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

import live_test
from live_test import LiveTest, until
from network import Control, Stream, has, run, udp
from operating_test import wanted
from ports_test import write_capture

ROOT = "/velo/v1/"


def text(list_name, *ports, port="eth1"):
    rules = "".join(f"  {10 * i + 10} permit udp any any eq {p}\n" for i, p in enumerate(ports))
    return f"ip access-list {list_name}\n{rules}interface {port}\n  ip access-group {list_name} in\n"


class Etcd:
    """A server in a namespace, with a client."""

    def __init__(self, namespace, folder, name="e1", client=2379, peer=2380, cluster=None, host="127.0.0.1"):
        self.namespace, self.folder, self.name = namespace, folder, name
        self.url, self.peer = f"http://{host}:{client}", f"http://{host}:{peer}"
        self.cluster = cluster or f"{name}={self.peer}"
        self.process = self.token = None

    def start(self):
        with open(os.path.join(self.folder, f"{self.name}.log"), "ab") as log:
            self.process = subprocess.Popen(
                self.namespace.command("etcd", "--name", self.name, "--data-dir", os.path.join(self.folder, self.name),
                                       "--listen-client-urls", self.url, "--advertise-client-urls", self.url,
                                       "--listen-peer-urls", self.peer, "--initial-advertise-peer-urls", self.peer,
                                       "--initial-cluster", self.cluster, "--logger", "zap"), stdout=log, stderr=log)
        return self

    def started(self):
        self.start()
        if not until(self.answers, 30):
            raise RuntimeError("etcd does not answer")
        return self

    def answers(self):
        try:
            self.get(ROOT)
            return True
        except OSError:
            return False

    def kill(self):
        if self.process:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
            self.process = None

    def call(self, path, question):
        headers = {"Authorization": self.token} if self.token else {}
        with self.namespace.entered():
            asked = urllib.request.Request(self.url + path, json.dumps(question).encode(), headers)
            with urllib.request.urlopen(asked, timeout=10) as answer:
                return json.load(answer)

    @staticmethod
    def coded(value):
        return base64.b64encode(value if isinstance(value, bytes) else value.encode()).decode()

    def write(self, puts):
        """Writes, or with None deletes, keys below the root in one transaction; the revision."""
        operations = [{"request_delete_range": {"key": self.coded(ROOT + key)}} if value is None else
                      {"request_put": {"key": self.coded(ROOT + key), "value": self.coded(value)}} for key, value in puts.items()]
        return int(self.call("/v3/kv/txn", {"success": operations})["header"]["revision"])

    def get(self, prefix):
        """The entries below a prefix by key: the value and the revision of its last change."""
        end = prefix[:-1] + chr(ord(prefix[-1]) + 1)
        found = self.call("/v3/kv/range", {"key": self.coded(prefix), "range_end": self.coded(end)})
        return {base64.b64decode(kv["key"]).decode(): (base64.b64decode(kv.get("value", "")), int(kv["mod_revision"]))
                for kv in found.get("kvs", [])}

    def state(self, agent):
        found = self.get(f"{ROOT}agents/{agent}/state")
        return json.loads(found[f"{ROOT}agents/{agent}/state"][0]) if found else None


class FleetTest(LiveTest):
    def setUp(self):
        if not has("etcd"):
            self.skipTest("there is no etcd (Debian: etcd-server)")
        super().setUp()
        folder = tempfile.TemporaryDirectory(prefix="velo-fleet-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.etcd = Etcd(self.middle, self.folder)
        self.addCleanup(self.etcd.kill)
        self.random = random.Random(wanted("SEED", 1))

    def path(self, name):
        return os.path.join(self.folder, name)

    def joined(self, name, groups, *arguments, ports=(), store=None, config=None, **options):
        """An agent of the fleet, with a state file and a socket of its own."""
        started = live_test.Agent(live_test.VELO, self.middle, config, "--fleet", store or self.etcd.url, "--fleet-name", name,
                                  "--fleet-groups", groups, "--state", self.path(f"{name}.state"), "--control", self.path(f"{name}.socket"),
                                  *(word for number in ports for word in ("--port", f"eth{number}=eth{number}")),
                                  *(() if ports or "--port" in arguments else ("--port", "eth1=null:")), *arguments, *self.common, **options)
        self.addCleanup(started.kill)
        return started

    def status(self, name):
        client = Control(self.path(f"{name}.socket"))
        try:
            return client.ask("show", what="status")["configuration"]
        finally:
            client.close()

    def in_force(self, name):
        found = self.status(name)["fleet"]["inForce"]
        return found and found["revision"]


    def velo(self, *words, status=0):
        """What a command of the fleet prints, as a document; of one that fails what it says."""
        done = self.middle.run(live_test.VELO, "fleet", *words, "--fleet", self.etcd.url, "--json", check=False)
        self.assertEqual(done.returncode, status, done.stdout)
        return json.loads(done.stdout) if done.stdout.startswith("{") else done.stdout

    def file(self, name, content):
        path = self.path(name)
        with open(path, "w", encoding="ascii") as file:
            file.write(content)
        return path

    def command(self, *words, **options):
        """A command of the fleet that goes on."""
        process = subprocess.Popen(self.middle.command(live_test.VELO, "fleet", *words, "--fleet", self.etcd.url, "--json"),
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def rollout(self, group="edge"):
        found = self.velo("rollout", "status", group)["rollouts"]
        return found[0] if found else None


class Joining(FleetTest):
    def test_lists_come_from_the_store_and_status_goes_there(self):
        self.stations_are(1, 2)
        self.etcd.started()
        first = self.etcd.write({"config/edge/base": text("A", 10), "config/agents/a1/own": "ip access-list O\n"})
        self.joined("a1", "edge,lab", "--patch", "eth1,eth2", ports=(1, 2))
        self.assertTrue(until(lambda: self.etcd.state("a1") is not None))
        state = self.etcd.state("a1")
        self.assertEqual((state["agent"], state["groups"], state["result"]), ("a1", ["edge", "lab"], "in force"))
        self.assertEqual(state["inForce"]["revision"], first)
        self.assertEqual([port["name"] for port in state["ports"]], ["eth1", "eth2"])
        a, b = self.wire(1), self.wire(2)
        a.send([udp(10, 1), udp(20, 2)])
        self.assertEqual(b.received(2, patience=1), [udp(10, 1)])

        second = self.etcd.write({"config/edge/base": text("A", 20), "config/lab/more": "ip access-list M\n"})
        self.assertTrue(until(lambda: self.in_force("a1") == second))
        a.send([udp(10, 3), udp(20, 4)])
        self.assertEqual(b.received(2, patience=1), [udp(20, 4)])
        key = f"{ROOT}counters/a1/ip/A"
        self.assertTrue(until(lambda: key in self.etcd.get(f"{ROOT}counters/")), "counters come within seconds")
        counted = json.loads(self.etcd.get(key)[key][0])
        self.assertEqual([rule[:2] for rule in counted["rules"]], [[10, 1]], "of the rule that is new, what it met")

        # What is refused leaves what was in force, and is told there with its places.
        refused = self.etcd.write({"config/lab/more": "ip access-list M\n 10 permit nonsense\n", "config/edge/base": text("A", 30)})
        self.assertTrue(until(lambda: self.etcd.state("a1")["result"] == "refused"))
        state = self.etcd.state("a1")
        self.assertEqual((state["wanted"]["revision"], state["inForce"]["revision"]), (refused, second))
        self.assertIn("/velo/v1/config/lab/more:2:", state["mistakes"][0])
        a.send([udp(30, 5), udp(20, 6)])
        self.assertEqual(b.received(2, patience=1), [udp(20, 6)])
        # An opening, too.
        self.etcd.write({"config/lab/more": None, "config/edge/base": None})
        self.assertTrue(until(lambda: self.etcd.state("a1")["openings"]))
        a.send([udp(30, 7), udp(20, 8)])
        self.assertEqual(b.received(2, patience=1), [udp(20, 8)])

    def test_status_goes_with_the_agent(self):
        self.etcd.started()
        agent = self.joined("a1", "edge")
        self.assertTrue(until(lambda: self.etcd.state("a1") is not None))
        begin = time.monotonic()
        agent.stop()
        self.assertLess(time.monotonic() - begin, 1.6)
        self.assertIsNone(self.etcd.state("a1"))
        self.assertEqual(list(self.etcd.get(f"{ROOT}known/")), [f"{ROOT}known/a1"])

    def test_without_lists_nothing_is_forwarded(self):
        agent = self.joined("a1", "edge", check=False, patience=3)
        self.assertFalse(agent.ready)
        self.etcd.started()
        self.etcd.write({"config/edge/base": "nonsense\n"})
        self.assertFalse(until(lambda: self.etcd.state("a1") and self.etcd.state("a1")["result"] != "waiting", patience=3))
        good = self.etcd.write({"config/edge/base": text("A", 10)})
        self.assertTrue(until(lambda: os.path.exists(self.path("a1.socket")), 40))
        self.assertTrue(until(lambda: self.in_force("a1") == good, 40))


class Losing(FleetTest):
    def test_an_agent_without_its_store_filters_on(self):
        self.stations_are(1, 2)
        self.etcd.started()
        first = self.etcd.write({"config/edge/base": text("A", 10)})
        agent = self.joined("a1", "edge", "--patch", "eth1,eth2", ports=(1, 2))
        self.assertEqual(self.in_force("a1"), first)
        self.etcd.kill()
        self.assertTrue(until(lambda: not self.status("a1")["fleet"]["connected"]))
        self.assertTrue(self.status("a1")["fleet"]["wrong"])
        a, b = self.wire(1), self.wire(2)
        a.send([udp(10, 1), udp(20, 2)])
        self.assertEqual(b.received(2, patience=1), [udp(10, 1)])
        # Killed, and started again without a store: by what it has kept.
        agent.kill()
        agent = self.joined("a1", "edge", "--patch", "eth1,eth2", ports=(1, 2))
        self.assertEqual(self.in_force("a1"), first)
        a.send([udp(10, 3), udp(20, 4)])
        self.assertEqual(b.received(2, patience=1), [udp(10, 3)])
        # What was written while it was away comes when the store is back, even if it has forgotten the revisions.
        self.etcd.started()
        for port in range(100, 110):
            last = self.etcd.write({"config/edge/base": text("A", port)})
        self.etcd.call("/v3/kv/compaction", {"revision": str(last), "physical": True})
        self.assertTrue(until(lambda: self.in_force("a1") == last, 40))
        self.assertTrue(until(lambda: (self.etcd.state("a1") or {}).get("inForce", {}).get("revision") == last, 40))
        a.send([udp(10, 5), udp(109, 6)])
        self.assertEqual(b.received(2, patience=1), [udp(109, 6)])

    def test_any_history_leaves_what_the_store_says(self):
        """Random transactions on the texts of several agents, while agents and the store are killed: in the end each has in
        force what is there. Each transaction writes the same number to two texts, so a mixture would show at any time."""
        self.etcd.started()
        count, changes = wanted("FLEET_AGENTS", 3), wanted("FLEET_CHANGES", 40)
        groups = ("edge", "lab")
        names = [f"a{i}" for i in range(count)]
        number = 0

        def pair():
            return {"config/edge/n": f"ip access-list E{number}\n", "config/lab/n": f"ip access-list L{number}\n"}

        self.etcd.write({**pair(), "config/edge/base": text("A", 10)})
        agents = {name: self.joined(name, ",".join(groups)) for name in names}
        for _ in range(changes):
            number += 1
            values = pair()
            chance = self.random.random()
            if chance < 0.3:
                values[f"config/agents/{self.random.choice(names)}/own"] = f"ip access-list O{number}\n"
            elif chance < 0.4:
                values["config/lab/bad"] = "nonsense\n"
            elif chance < 0.6:
                values["config/lab/bad"] = None
            last = self.etcd.write(values)
            event = self.random.random()
            if event < 0.1:
                name = self.random.choice(names)
                agents[name].kill()
                agents[name] = self.joined(name, ",".join(groups))
            elif event < 0.15:
                self.etcd.kill()
                self.etcd.started()
            time.sleep(self.random.random() * 0.3)
            name = self.random.choice(names)
            client = Control(self.path(f"{name}.socket"))
            lists = {one["name"] for one in client.ask("show", what="access-lists")["lists"]}
            for port, verdict in ((10, "pass"), (11, "drop")):
                answer = client.ask("explain", port="eth1", frame=udp(port).hex())
                self.assertEqual(answer["verdict"], verdict, "it filters all the time, and no more than that")
            client.close()
            mixture = {one[1:] for one in lists if one[0] in "EL"}
            self.assertEqual(len(mixture), 1, f"a mixture of transactions: {lists}")
        last = self.etcd.write({"config/lab/bad": None, "config/edge/end": "ip access-list END\n"})
        for name in names:
            # Who comes back later has what is there then, which counts as later when a text has gone meanwhile.
            self.assertTrue(until(lambda n=name: self.in_force(n) >= last, 60), (last, self.status(name)["fleet"]))
            self.assertTrue(until(lambda n=name: ((self.etcd.state(n) or {}).get("inForce") or {}).get("revision") == self.in_force(n), 60))
            stored = [value.decode() for prefix in (f"config/agents/{name}/", "config/edge/", "config/lab/")
                      for value, _ in self.etcd.get(ROOT + prefix).values()]
            client = Control(self.path(f"{name}.socket"))
            lists = sorted(one["name"] for one in client.ask("show", what="access-lists")["lists"])
            client.close()
            self.assertEqual(lists, sorted(one.split("\n")[0].split()[-1] for one in stored))

    def test_a_cluster_without_its_leader(self):
        """Three members: the one that an agent asks is killed, the leader or not."""
        cluster = ",".join(f"m{i}=http://127.0.0.1:{4000 + i}" for i in range(3))
        members = [Etcd(self.middle, self.folder, f"m{i}", 3000 + i, 4000 + i, cluster) for i in range(3)]
        for member in members:
            self.addCleanup(member.kill)
            member.start()
        self.assertTrue(until(lambda: all(member.answers() for member in members), 60))
        members[0].write({"config/edge/base": text("A", 10)})
        self.joined("a1", "edge", store=",".join(member.url for member in members))
        for i, member in enumerate(members):
            member.kill()
            other = members[(i + 1) % 3]
            self.assertTrue(until(other.answers, 30))
            last = other.write({"config/edge/base": text("A", 20 + i)})
            self.assertTrue(until(lambda r=last: self.in_force("a1") == r, 60), f"member {i}")
            member.start()
            self.assertTrue(until(member.answers, 60))

    def test_a_member_that_is_cut_off(self):
        """Three members in namespaces of their own, with a route between them: the one that an agent asks loses the others, and not
        the agent."""
        if not has("nft"):
            self.skipTest("there is no nft")
        self.stations_are(1, 2, 3)
        self.middle.run("sh", "-c", "echo 1 > /proc/sys/net/ipv4/ip_forward")
        for number, station in self.stations.items():
            self.middle.ip("addr", "add", f"10.9.{number}.1/24", "dev", f"eth{number}")
            station.ip("addr", "add", f"10.9.{number}.2/24", "dev", "e0")
            station.ip("link", "set", "lo", "up")
            station.ip("route", "add", "default", "via", f"10.9.{number}.1")
        cluster = ",".join(f"m{number}=http://10.9.{number}.2:2380" for number in self.stations)
        members = [Etcd(station, self.folder, f"m{number}", cluster=cluster, host=f"10.9.{number}.2").start()
                   for number, station in self.stations.items()]
        for member in members:
            self.addCleanup(member.kill)
        self.assertTrue(until(lambda: all(member.answers() for member in members), 60))
        first = members[0].write({"config/edge/base": text("A", 10)})
        self.joined("a1", "edge", "--fleet-lease", "10", store=",".join(member.url for member in members))
        self.assertEqual(self.in_force("a1"), first)
        self.assertTrue(until(lambda: self.status("a1")["fleet"]["endpoint"] == members[0].url))
        self.middle.run("nft", "add table ip cut; add chain ip cut way { type filter hook forward priority 0; };"
                        "add rule ip cut way ip saddr 10.9.1.2 drop; add rule ip cut way ip daddr 10.9.1.2 drop")
        self.assertTrue(until(members[1].answers, 30))
        second = members[1].write({"config/edge/base": text("A", 20)})
        self.assertTrue(until(lambda: self.in_force("a1") == second, 30))
        self.assertTrue(until(lambda: members[1].state("a1")["inForce"]["revision"] == second, 30))
        self.assertNotEqual(self.status("a1")["fleet"]["endpoint"], members[0].url)
        # When it is one of them again it knows what happened meanwhile.
        self.middle.run("nft", "delete table ip cut")
        self.assertTrue(until(lambda: members[0].answers() and members[0].state("a1")["inForce"]["revision"] == second, 30))


class Guarding(FleetTest):
    def role(self, name, *rights):
        """A user of a role with rights to read ("r") or write ("w") what is below prefixes."""
        self.etcd.call("/v3/auth/role/add", {"name": name})
        for right, prefix in rights:
            kind = {"r": "READ", "w": "WRITE"}[right]
            prefix = ROOT + prefix
            end = prefix[:-1] + chr(ord(prefix[-1]) + 1)
            self.etcd.call("/v3/auth/role/grant", {"name": name, "perm": {"permType": kind, "key": Etcd.coded(prefix),
                                                                            "range_end": Etcd.coded(end)}})
        self.etcd.call("/v3/auth/user/add", {"name": name, "password": name + "-pw"})
        self.etcd.call("/v3/auth/user/grant", {"user": name, "role": name})
        path = self.path(name + ".login")
        with open(path, "w", encoding="ascii") as file:
            file.write(f"{name}:{name}-pw\n")
        return path

    def test_an_agent_reads_its_groups_and_writes_its_own_status_only(self):
        self.etcd.started()
        first = self.etcd.write({"config/edge/base": text("A", 10), "config/lab/x": "ip access-list L\n"})
        login = self.role("a1", ("r", "config/edge/"), ("r", "config/agents/a1/"), ("w", "agents/a1/"), ("w", "counters/a1/"),
                          ("w", "known/a1"))
        self.etcd.call("/v3/auth/role/add", {"name": "root"})
        self.etcd.call("/v3/auth/user/add", {"name": "root", "password": "root"})
        self.etcd.call("/v3/auth/user/grant", {"user": "root", "role": "root"})
        self.etcd.call("/v3/auth/enable", {})
        self.etcd.token = self.etcd.call("/v3/auth/authenticate", {"name": "root", "password": "root"})["token"]
        self.joined("a1", "edge", "--fleet-login", login)
        self.assertEqual(self.in_force("a1"), first)
        self.assertTrue(until(lambda: self.etcd.state("a1") is not None))
        second = self.etcd.write({"config/edge/base": text("A", 20)})
        self.assertTrue(until(lambda: self.in_force("a1") == second))
        # Another group is not for it, and neither is the status of another agent.
        with open(login, encoding="ascii") as file:
            user, password = file.read().strip().split(":")
        root, self.etcd.token = self.etcd.token, self.etcd.call("/v3/auth/authenticate", {"name": user, "password": password})["token"]
        for attempt in (lambda: self.etcd.get(ROOT + "config/lab/"), lambda: self.etcd.write({"config/edge/base": ""}),
                        lambda: self.etcd.write({"agents/a2/state": ""})):
            with self.assertRaises(urllib.error.HTTPError):
                attempt()
        self.etcd.token = root
        # Without a right it says so, and goes on asking.
        other = self.joined("a2", "lab", "--fleet-login", login, check=False, patience=3)
        other.process.send_signal(signal.SIGTERM)
        self.assertIn("permission denied", other.process.communicate(timeout=10)[1])
        # A rollout gets to it like any text, but it is not for it to see to one.
        with open(self.path("root.login"), "w", encoding="ascii") as file:
            file.write("root:root\n")
        as_root = ("--fleet-login", self.path("root.login"))
        self.velo("apply", "edge", self.file("base", text("A", 30)), "--steps", "1", "--wait", "1s", "--detach", *as_root)
        self.assertTrue(until(lambda: self.in_force("a1") > second))
        self.assertFalse(until(lambda: self.velo("rollout", "status", *as_root)["rollouts"][0]["driven"], 4))
        self.assertIn("permission denied", self.velo("rollout", "follow", "edge", "--fleet-login", login, status=1))
        self.assertEqual(self.velo("rollout", "follow", "edge", *as_root)["rollouts"][0]["phase"], "done")

    def certificate(self, name, *words, signed=True):
        """A key and a certificate of the test's own authority: its files."""
        key, certificate = self.path(name + ".key"), self.path(name + ".pem")
        by = ("-CA", self.path("ca.pem"), "-CAkey", self.path("ca.key")) if signed else ()
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={name}", "-keyout", key,
            "-out", certificate, *by, *words)
        return certificate, key

    def test_both_sides_show_certificates(self):
        if not has("openssl"):
            self.skipTest("there is no openssl")
        authority, _ = self.certificate("ca", signed=False)
        server, server_key = self.certificate("server", "-addext", "subjectAltName=IP:127.0.0.1", "-addext", "basicConstraints=critical,CA:FALSE")
        client, client_key = self.certificate("client", "-addext", "basicConstraints=critical,CA:FALSE")
        stranger, _ = self.certificate("stranger", signed=False)
        # Filled while everybody may ask, by the same data.
        self.etcd.started()
        first = self.etcd.write({"config/edge/base": text("A", 10)})
        self.etcd.kill()
        url = "https://127.0.0.1:2379"
        with open(self.path("tls.log"), "ab") as log:
            server = subprocess.Popen(self.middle.command(
                "etcd", "--name", "e1", "--data-dir", self.path("e1"), "--listen-client-urls", url, "--advertise-client-urls", url,
                "--listen-peer-urls", self.etcd.peer, "--initial-advertise-peer-urls", self.etcd.peer, "--initial-cluster", self.etcd.cluster,
                "--cert-file", server, "--key-file", server_key, "--client-cert-auth", "--trusted-ca-file", authority,
                "--logger", "zap"), stdout=log, stderr=log)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        agent = self.joined("a1", "edge", "--fleet-ca", authority, "--fleet-cert", client, "--fleet-key", client_key, store=url)
        self.assertEqual(self.in_force("a1"), first)
        with open(client_key, encoding="ascii") as file:
            secret = file.read().split("\n")[1]
        self.assertNotIn(secret, json.dumps(self.status("a1")))
        agent.stop()
        self.assertNotIn(secret, agent.errors)
        # Who shows nothing, and whom the agent does not know, have nothing to say to each other.
        for words, why in (((("--fleet-ca", authority)), "certificate"),
                           (("--fleet-ca", stranger, "--fleet-cert", client, "--fleet-key", client_key), "certificate")):
            done = self.middle.run(live_test.VELO, "fleet", "status", "--fleet", url, *words, check=False)
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertIn(why, done.stdout)
        done = self.middle.run(live_test.VELO, "fleet", "status", "--fleet", url, "--fleet-ca", self.path("no"), check=False)
        self.assertEqual(done.returncode, 2, done.stdout)

    def test_whatever_is_in_the_store_nothing_else_stops(self):
        self.stations_are(1, 2)
        self.etcd.started()
        good = {"config/edge/base": text("A", 10)}
        last_good = self.etcd.write(good)
        agent = self.joined("a1", "edge", "--patch", "eth1,eth2", ports=(1, 2))
        before = agent.memory()
        hostile = {
            "garbage": {"config/edge/x": self.random.randbytes(100000)},
            "a huge value": {"config/edge/x": b"ip access-list H\n" + b" remark x\n" * 100000},
            "zeros": {"config/edge/x": b"\0" * 1000000},
            "a number": {"config/edge/x": "17"},
            "a document of another kind": {"config/edge/x": '{"a": [1, {}]}'},
            "deep": {"config/edge/x": "[" * 500000},
        }
        for sentence, values in hostile.items():
            last = self.etcd.write(values)
            self.assertTrue(until(lambda r=last: self.status("a1")["fleet"]["wanted"]["revision"] == r, 120), sentence)
            self.assertIn(self.in_force("a1"), (last_good, last), sentence)
            last_good = self.in_force("a1")  # a value may be huge and good
        self.etcd.write({"config/edge/a/b": "nonsense", "config/edge/": "nonsense", "config/edge/x": None})
        for begin in range(0, wanted("FLEET_KEYS", 3000), 100):
            self.etcd.write({f"config/edge/n{i}": "x" for i in range(begin, begin + 100)})
        self.assertTrue(until(lambda: "more than 1000 texts" in str(self.status("a1")["bad"]), 60), self.status("a1")["bad"])
        a, b = self.wire(1), self.wire(2)
        a.send([udp(10, 1), udp(20, 2)])
        self.assertEqual(b.received(2, patience=1), [udp(10, 1)])
        self.assertLess(agent.memory(), before + (256 << 20))
        prefix = ROOT + "config/edge/n"
        self.etcd.call("/v3/kv/deleterange", {"key": Etcd.coded(prefix), "range_end": Etcd.coded(prefix[:-1] + "o")})
        self.assertTrue(until(lambda: not self.status("a1")["bad"], 60), self.status("a1")["bad"])


class Commanding(FleetTest):
    def test_an_operator_changes_and_looks(self):
        self.stations_are(1, 2)
        self.etcd.started()
        self.assertEqual(self.velo("status")["agents"], [])
        base = self.file("base", text("A", 10))
        first = self.velo("apply", "edge", base, "--why", "the first")["revision"]
        self.joined("a1", "edge", "--patch", "eth1,eth2", ports=(1, 2))
        self.joined("a2", "edge,lab")
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 2))
        told = self.velo("status")["agents"]
        self.assertEqual([(one["agent"], one["inForce"]["revision"]) for one in told], [("a1", first), ("a2", first)])

        # Nothing is carried out that is only asked for, has a mistake, or opens something.
        self.file("base", text("A", 20))
        dry = self.velo("apply", "edge", base, "--dry-run")
        self.assertEqual((dry["applied"], len(dry["effects"])), (False, 1 + 1))
        self.file("base", "nonsense\n")
        self.assertIn("base:1:1", self.velo("apply", "edge", base, status=2)["refused"])
        self.file("base", "ip access-list A\n")
        self.assertIn("loses its last", self.velo("apply", "edge", base, status=2)["refused"])
        self.assertEqual(self.velo("status")["agents"][0]["inForce"]["revision"], first)

        self.file("base", text("A", 20, 30))
        second = self.velo("apply", "edge", base, "--why", "ports")["revision"]
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 2))
        a, b = self.wire(1), self.wire(2)
        a.send([udp(10, 1), udp(20, 2), udp(20, 3)])
        self.assertEqual(len(b.received(2, patience=1)), 2)

        def sums():
            rules = self.velo("show", "access-lists")["lists"][0]["rules"]
            return [(rule["sequence"], rule["packets"], rule["agents"]) for rule in rules]
        self.assertTrue(until(lambda: sums() == [(10, 2, 1), (20, 0, 0)], 20), sums())
        unused = self.velo("show", "access-lists", "--unused")["lists"][0]["rules"]
        self.assertEqual([rule["sequence"] for rule in unused], [20])

        frame = ["--port", "eth1", "--in"]
        answers = self.velo("explain", *frame, "udp 192.0.2.1:5 > 192.0.2.2:20")["answers"]
        self.assertEqual(sorted(name for one in answers for name in one["agents"]), ["a1", "a2"])
        self.assertEqual({(one["explanation"]["verdict"], one["asked"]) for one in answers}, {("pass", True)}, answers)
        stored = self.velo("explain", "--by-store", *frame, "udp 192.0.2.1:5 > 192.0.2.2:20")["answers"]
        self.assertEqual({(one["explanation"]["verdict"], one["asked"]) for one in stored}, {("pass", False)}, stored)
        self.assertIn("no port eth7", str(self.velo("explain", "--port", "eth7", "--in", "udp 192.0.2.1:5 > 192.0.2.2:20")))
        self.assertTrue(until(lambda: not [key for key in self.etcd.get(ROOT) if "/question/" in key or "/answer/" in key]))
        answers = self.velo("explain", "--agent", "a2", *frame, "udp 192.0.2.1:5 > 192.0.2.2:10")["answers"]
        self.assertEqual([(one["agents"], one["explanation"]["verdict"]) for one in answers], [(["a2"], "drop")], answers)

        history = self.velo("history", "edge")["changes"]
        self.assertEqual([(one["revision"], one["why"]) for one in history], [(second, "ports"), (first, "the first")])
        back = self.velo("rollback", "edge")
        self.assertTrue(back["applied"])
        self.assertEqual(self.etcd.get(ROOT + "config/edge/")[ROOT + "config/edge/base"][0].decode(), text("A", 10))
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 2))
        self.assertFalse(self.velo("diff")["same"], "they are of other groups")

    def test_counters_sum_up_to_what_was_sent(self):
        """Each agent gets as many frames for each rule as chance says, by a capture."""
        self.etcd.started()
        ports = (10, 20, 30, 40)
        self.etcd.write({"config/edge/base": text("A", *ports)})
        count = max(8, wanted("FLEET_AGENTS", 0))
        sent = {}
        for agent in range(count):
            frames = {port: self.random.choice((0, 0, 1, 7, 300)) for port in (10, 20, 30, 99)}
            sent[f"a{agent}"] = frames
            write_capture(self.path(f"a{agent}.pcap"), [udp(port, number) for port, many in frames.items() for number in range(many)])
            self.joined(f"a{agent}", "edge", "--patch", "eth1,eth2", "--port", f"eth1=pcap:{self.path(f'a{agent}.pcap')}",
                        "--port", "eth2=null:")
        octets = len(udp(10))
        rule = lambda port: {"sequence": port, "packets": sum(one.get(port, 0) for one in sent.values()),
                             "bytes": octets * sum(one.get(port, 0) for one in sent.values()),
                             "agents": sum(one.get(port, 0) > 0 for one in sent.values())}
        wanted_sums = [rule(port) for port in ports]

        def sums(*words):
            shown = self.velo("show", "access-lists", *words)
            return [{name: one[name] for name in wanted_sums[0]} for one in shown["lists"][0]["rules"]], shown["lists"][0]["implicitDrop"]["packets"]
        dropped = sum(one[99] for one in sent.values())
        self.assertTrue(until(lambda: sums() == (wanted_sums, dropped), 20), (sums(), wanted_sums, dropped))
        self.assertEqual([one["sequence"] for one in sums("--unused")[0]], [40])
        for name in list(sent)[:3]:
            self.assertEqual([one["packets"] for one in sums("--agent", name)[0]], [sent[name].get(port, 0) for port in ports])
        # An agent that has something else in force says nothing of what it is to have.
        self.etcd.write({"config/agents/a0/own": "nonsense\n"})
        self.assertTrue(until(lambda: self.velo("show", "access-lists")["unread"] == [{"agent": "a0", "why": "its texts have mistakes"}]))
        self.assertEqual(self.velo("show", "access-lists")["lists"][0]["rules"][0]["packets"], wanted_sums[0]["packets"] - sent["a0"][10])

    def test_two_operators_do_not_overwrite_each_other(self):
        self.etcd.started()
        paths = [self.file("base", text("A", 10))]
        revisions = []
        for port in range(20, 26):
            self.file("base", text("A", port))
            running = [subprocess.Popen(self.middle.command(live_test.VELO, "fleet", "apply", "edge", *paths, "--fleet", self.etcd.url),
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) for _ in range(4)]
            said = [process.communicate()[1] for process in running]
            revisions.append([process.returncode for process in running])
            for process, wrong in zip(running, said):
                if process.returncode:
                    self.assertIn("somebody else has changed edge meanwhile", wrong)
        # Who was late by less than a question has seen that there was nothing left to do.
        self.assertTrue(all(0 in codes for codes in revisions), revisions)
        self.assertEqual(len(self.velo("history", "edge")["changes"]), len(revisions))

    def test_a_store_that_is_not_there_is_told(self):
        self.assertIn("http://127.0.0.1:2379: ", self.velo("status", status=1))

    def test_an_opening_that_somebody_allows_gets_to_the_agents(self):
        self.etcd.started()
        base = self.file("base", text("A", 10))
        self.velo("apply", "edge", base)
        self.joined("a1", "edge")
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 1))
        self.file("base", "ip access-list A\n")
        self.velo("apply", "edge", base, status=2)
        last = self.velo("apply", "edge", base, "--allow-open")["revision"]
        self.assertTrue(until(lambda: self.in_force("a1") == last), self.status("a1"))
        # The word was for those texts, and not for what anybody writes later.
        self.velo("apply", "edge", self.file("base", text("A", 10)))
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 1))
        self.etcd.write({"config/edge/base": "ip access-list A\n 10 deny ip any any\n"})
        self.assertTrue(until(lambda: self.etcd.state("a1")["result"] == "refused"))

    def test_who_is_gone_for_good_is_forgotten(self):
        self.etcd.started()
        self.etcd.write({"config/edge/base": text("A", 10), "config/edge/a/b": "x"})
        agent = self.joined("a1", "edge")
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 1))
        self.assertEqual(self.velo("status")["ignored"], [ROOT + "config/edge/a/b"])
        self.assertIn("is not gone", self.velo("forget", "a1", status=2))
        agent.stop()
        self.assertTrue(until(lambda: self.velo("status")["summary"]["gone"] == 1))
        self.velo("forget", "a1")
        self.assertEqual(self.velo("status")["agents"], [])


class RollingTest(FleetTest):
    """New texts that go from agent to agent."""

    def fleet(self, *names, **options):
        self.etcd.started()
        self.base = self.file("base", text("A", 10))
        self.first = self.velo("apply", "edge", self.base)["revision"]
        agents = {name: self.joined(name, "edge", **options) for name in names}
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == len(names)))
        self.file("base", text("A", 20))
        return agents

    def store(self):
        return {key[len(ROOT + "config/edge/"):]: value for key, (value, _) in self.etcd.get(ROOT + "config/edge/").items()}


class Rolling(RollingTest):
    def test_all_have_the_new_texts_in_the_end(self):
        agents = self.fleet("a1", "a2", "a3", "a4")
        agents["a4"].stop()
        told = self.velo("apply", "edge", self.base, "--steps", "1,50%", "--wait", "1s", "--why", "ports")
        self.assertTrue(told["applied"])
        self.assertEqual((told["rollout"]["phase"], told["rollout"]["steps"]), ("done", ["1", "50%", "100%"]))
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 3))
        self.assertEqual({name: value for name, value in self.store().items() if "/" not in name}, {"base": text("A", 20).encode()})
        self.assertEqual({name for name in self.store() if "/" in name}, {"rollout/state", "openings/back"})
        self.assertEqual([one["what"] for one in self.velo("history", "edge")["changes"]], ["rollout", "rollout begun", "apply"])
        self.velo("rollback", "edge")
        self.assertEqual(self.store()["base"], text("A", 10).encode(), "back is behind the last change of the texts")
        self.velo("rollback", "edge")
        # Who was gone is caught up.
        self.joined("a4", "edge")
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 4, 30))
        self.assertTrue(self.velo("diff")["same"])

    def test_nobody_is_before_his_turn_and_it_is_steered_from_anywhere(self):
        self.fleet("a1", "a2", "a3")
        self.velo("apply", "edge", self.base, "--steps", "1,2", "--wait", "60s", "--detach")
        begun = lambda: sum(self.in_force(name) != self.first for name in ("a1", "a2", "a3"))
        self.assertTrue(until(lambda: begun() == 1))
        self.assertIn("is under way", self.velo("apply", "edge", self.base, status=1))
        self.assertEqual(self.velo("rollout", "pause", "edge")["rollouts"][0]["phase"], "paused")
        self.assertEqual(begun(), 1, "who has the new texts keeps them")
        self.assertEqual(self.velo("rollout", "resume", "edge")["rollouts"][0]["phase"], "running")
        self.assertEqual(self.velo("status")["rollouts"], ["edge"])
        back = self.velo("rollout", "abort", "edge")["rollouts"][0]
        self.assertEqual(back["phase"], "back")
        self.assertIn("has aborted it", back["result"])
        self.assertTrue(until(lambda: begun() == 0))
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 3))
        self.velo("rollout", "pause", "edge", status=1)
        self.assertEqual([one["what"] for one in self.velo("history", "edge")["changes"]],
                         ["rollout back", "rollout resumed", "rollout paused", "rollout begun", "apply"])

    def test_it_ends_when_its_operator_is_killed(self):
        self.fleet("a1", "a2", "a3")
        operator = self.command("apply", "edge", self.base, "--steps", "1,2,3", "--wait", "2s")
        self.assertTrue(until(lambda: self.rollout() is not None and self.rollout()["driven"]))
        operator.kill()
        self.assertTrue(until(lambda: self.rollout()["phase"] == "done", 60), self.rollout())
        self.assertEqual(self.store()["base"], text("A", 20).encode())
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 3))


class RollingBack(RollingTest):
    def test_it_goes_back_when_an_agent_refuses_it(self):
        agents = self.fleet("a1", "a2", "a3")
        # This one takes shorter texts than the others, which only itself knows.
        for name in agents:
            agents[name].stop()
            self.joined(name, "edge", "--text-limit", "1")
        self.file("base", "ip access-list H\n" + " remark x\n" * 110000 + text("A", 20))
        begin = time.monotonic()
        told = self.velo("apply", "edge", self.base, "--steps", "10%,100%", "--wait", "5s", status=2)
        self.assertLess(time.monotonic() - begin, 10)
        self.assertEqual((told["applied"], told["rollout"]["phase"]), (False, "back"))
        self.assertIn("has refused it", told["rollout"]["result"])
        self.assertEqual((told["rollout"]["turn"]["inForce"], told["rollout"]["turn"]["behind"]), (3, []), "it has waited for all")
        self.assertEqual({self.in_force(name) for name in agents}, {self.first})

    def test_it_goes_back_when_more_is_dropped(self):
        self.stations_are(1, 2)
        self.etcd.started()
        base = self.file("base", text("A", 10))
        first = self.velo("apply", "edge", base)["revision"]
        self.joined("a1", "edge", "--patch", "eth1,eth2", ports=(1, 2))
        self.assertTrue(until(lambda: self.velo("status")["summary"]["in force"] == 1))
        stream = Stream(self.wire(1), lambda number: udp(10, number), 100)
        self.addCleanup(stream.stop)
        time.sleep(6)  # what was before is to be known: it is counted every five seconds
        self.file("base", text("A", 20))
        begin = time.monotonic()
        told = self.velo("apply", "edge", base, "--steps", "1", "--wait", "10s", "--stop-if", "drops rate > 2x", status=2)
        self.assertLess(time.monotonic() - begin, 15)
        self.assertIn("frames a second are dropped", told["rollout"]["result"])
        self.assertTrue(until(lambda: self.in_force("a1") == first))


if __name__ == "__main__":
    live_test.main(__doc__)
