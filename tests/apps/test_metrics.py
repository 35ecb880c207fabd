#!/usr/bin/python3
"""GET /metrics: figures that a monitoring system reads, checked with the parser of one."""

import re
import shutil
import time
import unittest

import parallel
from installation import Installation, event, events_document, memory_device, run, wait_for
from prometheus_client.parser import text_string_to_metric_families

OTHER_UNITS = re.compile(r"_(milliseconds|ms|minutes|hours|kilobytes|kb|percent)(_|$)")


class Page:
    """One answer, parsed."""

    def __init__(self, answer):
        self.text = answer.text
        self.families = {family.name: family for family in text_string_to_metric_families(self.text)}
        self.samples = {
            (sample.name, *sorted(sample.labels.items())): sample.value
            for family in self.families.values()
            for sample in family.samples
        }

    def value(self, name, **labels):
        return self.samples[(name, *sorted(labels.items()))]


class Metrics(unittest.TestCase):
    def page(self, server):
        answer = server.get("/metrics")
        self.assertEqual("text/plain; version=0.0.4; charset=utf-8", answer.headers["Content-Type"])
        return Page(answer)

    def test_are_well_formed(self):
        page = self.page(Installation(self, memory_device("M", "V")).serve())
        self.assertTrue(page.text.endswith("\n"))
        names = re.findall(r"(?m)^# TYPE (\S+) (\S+)$", page.text)
        self.assertEqual(len(names), len(dict(names)), "a family twice")
        self.assertEqual([name for name, _ in names], re.findall(r"(?m)^# HELP (\S+) \S", page.text))
        for name, kind in names:
            with self.subTest(name):
                self.assertRegex(name, r"^(corvane|process)_[a-z0-9_]+$")
                self.assertIn(kind, ("counter", "gauge", "histogram"))
                self.assertEqual(kind == "counter", name.endswith("_total"))
                self.assertIsNone(OTHER_UNITS.search(name))
                family = page.families[re.sub("_total$", "", name) if kind == "counter" else name]
                self.assertEqual(kind, family.type)
                self.assertGreater(len(family.samples), 0)
        lines = [line.rsplit(" ", 1)[0] for line in page.text.splitlines() if not line.startswith("#")]
        self.assertEqual(len(lines), len(set(lines)), "a sample twice")
        self.assertEqual(len(lines), len(page.samples))

    def test_tell_what_events_do(self):
        events = events_document(
            event("Hot", "[M.T] > 80", notify="T"),
            event("Cold", "[M.T] < 0"),
            event("Open", "[M.DOOR] = 1"),
        )
        server = Installation(self, memory_device("M", "T", "DOOR"), events).serve()

        def figures():
            page = self.page(server)
            changes = [page.value("corvane_event_changes_total", change=what) for what in ("activated", "deactivated", "acknowledged")]
            return [page.value("corvane_events_active"), page.value("corvane_occurrences_unacknowledged"), *changes]

        self.assertEqual([0] * 5, figures())
        self.assertEqual(3, self.page(server).value("corvane_events"))
        server.put("M.T", 90)
        server.put("M.DOOR", 1)
        wait_for(lambda: figures() == [2, 1, 2, 0, 0], "both events")
        server.put("M.DOOR", 0)
        wait_for(lambda: figures() == [1, 1, 2, 1, 0], "the end of one")
        server.acknowledge(server.occurrences("Hot")[0]["id"])
        self.assertEqual([1, 0, 2, 1, 1], figures())
        server.put("M.T", -1)
        wait_for(lambda: figures() == [1, 0, 3, 2, 1], "another one")

    def test_tell_what_became_of_records(self):
        events = events_document(event("Hot", "[M.T] > 80", record="T"), event("Cold", "[M.T] < 0", record="F"))
        plant = Installation(self, memory_device("M", "T"), events)
        server = plant.serve()

        def figures():
            page = self.page(server)
            return [page.value(f"corvane_log_records_{what}_total") for what in ("written", "refused")]

        self.assertEqual([0, 0], figures())
        server.put("M.T", 90)
        wait_for(lambda: figures() == [1, 0], "a record")
        # A file where the directories of the log should be.
        for year in (plant.folder / "data").iterdir():
            shutil.rmtree(year)
        spoilt = [plant.folder / "data" / str(time.gmtime().tm_year + more) for more in (0, 1)]
        for year in spoilt:
            year.touch()
        self.assertNotIn("is lost", server.messages())
        server.put("M.T", -1)
        wait_for(lambda: figures() == [1, 1], "a lost record")
        server.put("M.T", 90)
        wait_for(lambda: figures() == [1, 2], "another one")
        self.assertEqual(1, server.messages().count('a record of event "Hot" is lost'), server.messages())
        for year in spoilt:
            year.unlink()
        server.put("M.T", -1)
        wait_for(lambda: figures() == [2, 2], "a record again")
        self.assertEqual(1, server.messages().count("written again"), server.messages())

    def test_tell_how_long_the_log_is_asked(self):
        server = Installation(self, events=events_document(event("E", "1 > 2"))).serve()
        name = "corvane_log_query_duration_seconds"
        self.assertEqual(0, self.page(server).value(name + "_count"))
        for _ in range(3):
            server.get("/services/events/logger.xml?begin=2026-03-01T00:00:00Z&end=2026-04-01T00:00:00Z")
        page = self.page(server)
        self.assertEqual(3, page.value(name + "_count"))
        self.assertEqual(3, page.value(name + "_bucket", le="+Inf"))
        self.assertTrue(0 < page.value(name + "_sum") < 60)
        counts = [sample.value for sample in page.families[name].samples if sample.name.endswith("_bucket")]
        self.assertEqual(sorted(counts), counts)

    def test_tell_how_the_scan_goes(self):
        server = Installation(self).serve()
        wait_for(lambda: self.page(server).value("corvane_scans_total") >= 1, "a scan")
        first = self.page(server)
        wait_for(lambda: self.page(server).value("corvane_scans_total") >= first.value("corvane_scans_total") + 2, "more scans")
        page = self.page(server)
        self.assertEqual(1, page.value("corvane_scan_alive"))
        self.assertLess(page.value("corvane_scan_duration_seconds"), 10)
        self.assertLess(page.value("corvane_scan_age_seconds"), 10)

    def test_tell_which_devices_cannot_be_reached(self):
        # Nothing listens at port 1: low ports aren't given out.
        settings = memory_device("PANEL", "V") + (
            '[[device]]\nname = "Zähler"\nport = 1\n  [[device.variable]]\n  name = "P"\n'
            '[[device]]\nname = "SIM"\ndriver = "simulator"\n  [[device.variable]]\n  name = "S"\n'
        )
        server = Installation(self, settings, events_document(event("E", "[PANEL.V] = 1"))).serve()
        wait_for(lambda: self.page(server).value("corvane_devices_in_error") == 1, "the error")
        page = self.page(server)
        self.assertEqual(3, page.value("corvane_devices"), "events' own devices don't count")
        up = {sample.labels["device"]: sample.value for sample in page.families["corvane_device_up"].samples}
        self.assertEqual({"PANEL": 1, "Zähler": 0, "SIM": 1}, up)

    def test_tell_of_the_process(self):
        server = Installation(self).serve()
        page = self.page(server)
        self.assertAlmostEqual(time.time(), page.value("process_start_time_seconds"), delta=60)
        self.assertGreater(page.value("process_cpu_seconds_total"), 0)
        self.assertLess(page.value("process_cpu_seconds_total"), 60)
        self.assertTrue(1 << 20 < page.value("process_resident_memory_bytes") < 1 << 30)
        self.assertTrue(3 < page.value("process_open_fds") < page.value("process_max_fds"))

    def test_are_for_users_only(self):
        hashed = run("password", given="secret\n").out.strip()
        server = Installation(self, f'[[http.user]]\nname = "ana"\npassword = "{hashed}"\nrole = "viewer"\n').serve()
        self.assertEqual(401, server.ask("GET", "/metrics").status)
        self.assertEqual(200, server.health())
        server.headers = {"Authorization": "Basic YW5hOnNlY3JldA=="}
        self.assertEqual(1, self.page(server).value("corvane_scan_alive"))


if __name__ == "__main__":
    parallel.main()
