#!/usr/bin/env python3
"""How agents of a fleet come back to a store that was killed: connections and questions by second.

usage: fleet_return.py FLEET_BENCH [AGENTS [CONNECTED [GONE [BACK]]]]; the last three are seconds. Starts an etcd of its own, and agents
that reach it by a gate, which counts and goes on counting while there is no etcd behind it.
"""

import asyncio
import signal
import subprocess
import sys
import tempfile
import time

GATE, STORE, PEER = 23790, 23791, 23792


class Gate:
    def __init__(self):
        self.begin = time.monotonic()
        self.connections, self.questions = {}, {}

    def count(self, counts, more=1):
        second = int(time.monotonic() - self.begin)
        counts[second] = counts.get(second, 0) + more

    async def handle(self, reader, writer):
        self.count(self.connections)
        try:
            store_reader, store_writer = await asyncio.open_connection("127.0.0.1", STORE)
        except OSError:
            writer.close()
            return
        await asyncio.gather(self.copy(reader, store_writer, True), self.copy(store_reader, writer, False))

    async def copy(self, reader, writer, asks):
        try:
            while octets := await reader.read(65536):
                if asks:
                    self.count(self.questions, octets.count(b"POST /"))
                writer.write(octets)
                await writer.drain()
        except OSError:
            pass
        writer.close()


def etcd(folder):
    urls = [f"http://127.0.0.1:{port}" for port in (STORE, PEER)]
    return subprocess.Popen(["etcd", "--data-dir", folder, "--listen-client-urls", urls[0], "--advertise-client-urls", urls[0],
                             "--listen-peer-urls", urls[1], "--initial-advertise-peer-urls", urls[1], "--initial-cluster", f"default={urls[1]}"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def tell(what, counts, begin, end):
    seconds = [counts.get(second, 0) for second in range(begin, end)]
    print(f"{what}: {sum(seconds)}, at most {max(seconds)} a second; by second {' '.join(map(str, seconds))}", flush=True)


async def main(bench, agents=200, connected=70, gone=60, back=45):
    gate = Gate()
    server = await asyncio.start_server(gate.handle, "127.0.0.1", GATE, backlog=4096)
    with tempfile.TemporaryDirectory() as folder:
        store = etcd(folder)
        await asyncio.sleep(3)
        fleet = await asyncio.create_subprocess_exec(bench, f"http://127.0.0.1:{GATE}", str(agents), "0", str(connected + gone + back + 60))
        try:
            await asyncio.sleep(connected)
            store.send_signal(signal.SIGKILL)
            store.wait()
            killed = int(time.monotonic() - gate.begin)
            await asyncio.sleep(gone)
            store = etcd(folder)
            returned = int(time.monotonic() - gate.begin)
            await asyncio.sleep(back)
            tell("connections while it was gone", gate.connections, killed, returned)
            tell("connections behind its return", gate.connections, returned, returned + back)
            tell("questions behind its return", gate.questions, returned, returned + back)
        finally:
            fleet.kill()
            await fleet.wait()
            store.kill()
            store.wait()
            server.close()


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    asyncio.run(main(sys.argv[1], *map(int, sys.argv[2:])))
