#!/usr/bin/env python3
"""Tests `velo run --metrics` with the server that scrapes it.

usage: metrics_test.py VELO [TEST...]; the exit status is 77 where the machine does not allow it.
"""

import json
import os
import subprocess
import urllib.parse
import urllib.request

import live_test
from live_test import until
from network import has, run, udp
from operating_test import OperatedTest

CONFIG = """ip access-list A
  10 permit udp any any eq 10
  20 deny udp any any eq 20 mirror session S
interface eth1
  ip access-group A in
mirror session S destination eth3
"""
SERVER = "127.0.0.1:9090"
ALERTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../packaging/alerts.yml")


class Scraping(OperatedTest):
    def setUp(self):
        if not has("prometheus"):
            self.skipTest("there is no prometheus")
        super().setUp()
        self.stations_are(1, 2, 3)

    def server_is(self):
        config = os.path.join(self.folder, "prometheus.yml")
        with open(config, "w", encoding="ascii") as file:
            json.dump({"global": {"scrape_interval": "2s", "evaluation_interval": "1s"},
                       "rule_files": [ALERTS],
                       "scrape_configs": [{"job_name": "velo", "static_configs": [{"targets": ["127.0.0.1:9464"]}]}]}, file)
        server = subprocess.Popen(
            self.middle.command("prometheus", f"--config.file={config}", f"--storage.tsdb.path={self.folder}/data",
                                f"--web.listen-address={SERVER}"),
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)

    def asked(self, what, **words):
        try:
            with self.middle.entered():
                text = urllib.request.urlopen(f"http://{SERVER}/api/v1/{what}?{urllib.parse.urlencode(words)}", timeout=10).read()
        except OSError:
            return None
        return json.loads(text)["data"]

    def value(self, query):
        """Of a query with one result; None when there is none."""
        found = (self.asked("query", query=query) or {"result": []})["result"]
        return float(found[0]["value"][1]) if len(found) == 1 else None

    def comes(self, query, value):
        self.assertTrue(until(lambda: self.value(query) == value, 60), f"{query} is {self.value(query)}")

    def test_queries_give_what_was_sent(self):
        self.start(CONFIG, "--metrics", "9464", "--state", os.path.join(self.folder, "state.db"))
        self.server_is()
        self.comes('up{job="velo"}', 1)
        frames = [udp(10, n) for n in range(30)] + [udp(20, n) for n in range(20)] + [udp(30, n) for n in range(5)]
        self.wire(1).send(frames)
        rule = 'velo_rule_packets_total{list="A",kind="ip",rule="%s",direction="in"}'
        self.comes(rule % 10, 30)
        self.comes(rule % 20, 20)
        self.comes('velo_rule_bytes_total{rule="10"}', 30 * len(udp(10)))
        self.comes('velo_implicit_drop_packets_total{list="A",direction="in"}', 5)
        self.comes("sum(velo_drops_total)", 25)
        self.comes('velo_port_received_frames_total{port="eth1"}', 55)
        self.comes('velo_port_received_bytes_total{port="eth1"}', sum(map(len, frames)))
        self.comes('velo_port_sent_frames_total{port="eth2"}', 30)
        self.comes('velo_port_mirrored_copies_total{port="eth3"}', 20)
        self.comes('velo_configuration_changes_total{result="applied"}', 1)  # what it starts with
        self.comes("count(velo_build_info)", 1)
        self.comes('velo_state_writes_total{result="failed"}', 0)
        self.comes("velo_state_last_write_timestamp_seconds > bool time() - 60", 1)

        config = os.path.join(self.folder, "new.acl")
        with open(config, "w", encoding="ascii") as file:
            file.write(CONFIG.replace("20 deny", "30 deny").replace("10 permit", "20 permit"))
        run(live_test.VELO, "apply", config, "--control", self.socket)
        self.wire(1).send([udp(10)] * 4 + [udp(20)])
        self.comes(rule % 20, 24)
        self.comes(rule % 30, 1)
        self.comes('velo_configuration_changes_total{result="applied"}', 2)
        self.comes('velo_configuration_saved', 0)
        # Counters of the numbers that stayed did not begin again.
        self.comes("sum(resets(velo_rule_packets_total[1m]))", 0)

    def test_an_opening_raises_an_alert(self):
        self.start("interface eth1\n  ip access-group A in\n", "--allow-open", "--metrics", "9464")
        self.server_is()

        def firing():
            alerts = (self.asked("alerts") or {"alerts": []})["alerts"]
            return sorted(alert["labels"]["alertname"] for alert in alerts if alert["state"] == "firing")

        self.assertTrue(until(lambda: firing() == ["VeloOpen"], 60), firing())

    def test_a_place_that_is_taken_keeps_the_agent_from_starting(self):
        self.start(CONFIG, "--metrics", "9464")
        done = self.middle.run(live_test.VELO, "run", "--config", "/dev/null", "--port", "eth8=tap:eth8", "--metrics", "9464",
                               check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn("--metrics: nothing can listen at 127.0.0.1:9464", done.stdout)


if __name__ == "__main__":
    live_test.main(__doc__)
