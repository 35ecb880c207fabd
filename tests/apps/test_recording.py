#!/usr/bin/python3
"""What the running server writes of its events, byte by byte, and how it lives on where it can't."""

import datetime
import shutil
import unittest

import event_files
import parallel
from installation import Installation, event, events_document, memory_device, wait_for

EVENTS = events_document(
    event("Hot / \"T\" <80>", "[M.T] > 80", annotation="5 < 6 & Ü", notify="T", record="T"),
    event("Open", "[M.T] > 80", record="T"),
    event("Unheard", "[M.T] > 80", notify="T"),
)
HOT = 'Hot / "T" <80>'
HOT_FILE = 'Hot _ "T" <80>'


class Recording(unittest.TestCase):
    def setUp(self):
        self.plant = Installation(self, memory_device("M", "T"), EVENTS)

    def files(self, name):
        """The bytes of the event's record files and of its annotation files, month after month."""
        data = self.plant.folder / "data"
        return tuple([path.read_bytes() for path in sorted(data.rglob(f"{name} ??-????.{kind}"))] for kind in ("suc", "dat"))

    def live(self, server, ack=True):
        """One occurrence, from its activation to the end; its id."""
        server.put("M.T", 90)
        wait_for(lambda: server.active(HOT), "the activation")
        id = server.occurrences(HOT)[-1]["id"]
        if ack:
            self.assertEqual(204, server.acknowledge(id).status)
        server.put("M.T", 20)
        wait_for(lambda: not server.active(HOT), "the end")
        return id

    def test_each_change_is_a_record_of_26_bytes_with_its_own_text(self):
        begun = datetime.datetime.now(datetime.timezone.utc)
        id = self.live(self.plant.serve())
        pairs = list(zip(*self.files(HOT_FILE)))
        rows = [row for records, side in pairs for row in event_files.read(records, side).rows]
        self.assertEqual([1, 4, 2], [row["value"] for row in rows])
        self.assertEqual([id] * 3, [row["id"] for row in rows])
        self.assertEqual(["5 &lt; 6 &amp; Ü"] * 3, [row["annotation"] for row in rows])
        self.assertTrue(all(row["valid"] for row in rows))
        dates = [datetime.datetime.strptime(row["date"] + "+0000", "%Y-%m-%dT%H:%M:%SZ%z") for row in rows]
        self.assertEqual(sorted(dates), dates)
        second = datetime.timedelta(seconds=1)
        self.assertTrue(begun - second < dates[0] and dates[-1] < datetime.datetime.now(datetime.timezone.utc) + second)
        for records, side in pairs:
            self.assertEqual(event_files.header(), records[:14])
            self.assertEqual(event_files.ANNOTATIONS, side[:16])
            self.assertEqual(0, (len(records) - 14) % 26)

    def test_without_an_annotation_there_is_no_side_file_and_unrecorded_events_have_no_file(self):
        self.live(self.plant.serve())
        records, sides = self.files("Open")
        self.assertEqual([1, 2], [row["value"] for file in records for row in event_files.read(file).rows])
        self.assertEqual([], sides)
        self.assertEqual(([], []), self.files("Unheard"))

    def test_files_and_directories_are_closed_to_others(self):
        self.live(self.plant.serve())
        data = self.plant.folder / "data"
        modes = {path.stat().st_mode & 0o7777 for path in data.rglob("*") if path.is_dir()}
        self.assertEqual({0o750}, modes)
        self.assertEqual({0o640}, {path.stat().st_mode & 0o7777 for path in data.rglob("*.*")})

    @unittest.skipUnless(shutil.which("prlimit"), "prlimit isn't installed")
    def test_a_limit_on_the_size_of_files_costs_records_and_not_the_server(self):
        server = self.plant.serve(launcher=("prlimit", "--fsize=50"))
        for _ in range(3):
            self.live(server)
        self.assertEqual(200, server.health())
        (records, *_), _ = self.files("Open")
        log = event_files.read(records)
        self.assertEqual([1], [row["value"] for row in log.rows])
        self.assertEqual(10, log.tail)
        server.stop()
        # With room again the torn tail is written over.
        self.live(self.plant.serve())
        (records, *_), _ = self.files("Open")
        log = event_files.read(records)
        self.assertEqual([(1, True), (1, True), (2, True)], [(row["value"], row["valid"]) for row in log.rows])
        self.assertEqual(0, log.tail)


if __name__ == "__main__":
    parallel.main()
