#!/usr/bin/python3
"""corvane log over a period: its formats, its mistakes, and its rows beside those of a slow and obvious query."""

import csv
import datetime
import io
import json
import os
import random
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

import event_files
import parallel
from installation import PROGRAM, Batch, Installation, event, events_document, guid_of, run

SEED = int(os.environ.get("CORVANE_TEST_SEED", random.randrange(1 << 32)))
MARCH = ("--begin", "2026-03-01T00:00:00Z", "--end", "2026-04-01T00:00:00Z")
KEYS = ["event", "eventId", "occurrenceId", "activated", "annotation", "deactivatedAfter", "acknowledgedAfter"]
TOTALS = ["event", "eventId", "activations", "deactivations", "acknowledgements", "duration"]


def moment(text):
    return datetime.datetime.strptime(text, "%Y-%m-%d %H:%M:%S")


def iso(date):
    return date.strftime("%Y-%m-%dT%H:%M:%SZ")


def occurrence(number):
    return number.to_bytes(16, "big")


class Plant(Installation):
    """An installation whose event log the test writes."""

    def __init__(self, test, *events):
        super().__init__(test, "", events_document(*events))
        self.pairs = {}

    def add(self, name, date, number, value, annotation=b""):
        pair = self.pairs.setdefault((name, date.year, date.month), event_files.Pair())
        pair.add(date, occurrence(number), value, annotation)

    def store(self):
        for (name, year, month), pair in self.pairs.items():
            folder = self.folder / f"data/{year:04}/{month:02}"
            folder.mkdir(parents=True, exist_ok=True)
            path = folder / f"{name} {month:02}-{year:04}.suc"
            path.write_bytes(pair.records)
            if pair.side is not None:
                path.with_suffix(".dat").write_bytes(pair.side)

    def log(self, *options):
        return run("log", "--setup", self.setup, *options)


class Formats(unittest.TestCase):
    def setUp(self):
        self.plant = Plant(
            self, event("Pump", "1 > 0", notify="T"), event("Bomba nº 泵", "1 > 0"), event("Quiet", "1 > 0")
        )
        add = self.plant.add
        add("Pump", moment("2026-03-01 10:00:00"), 1, 1, b"P &gt; 250, &quot;hot&quot;")
        add("Pump", moment("2026-03-01 10:01:05"), 1, 4)
        add("Pump", moment("2026-03-03 11:02:03"), 1, 2)
        add("Bomba nº 泵", moment("2026-03-02 00:00:00"), 2, 1, "línea 1\nlínea 2".encode())
        self.plant.store()

    def test_table_is_aligned_whatever_the_letters(self):
        result = self.plant.log(*MARCH)
        self.assertEqual((0, ""), (result.code, result.err))
        self.assertEqual(
            "EVENT        ACTIVATED              ENDED AFTER  ACKNOWLEDGED  ANNOTATION\n"
            'Pump         2026-03-01T10:00:00Z   2d 01:02:03       0:01:05  P > 250, "hot"\n'
            "Bomba nº 泵  2026-03-02T00:00:00Z             -             -  línea 1 línea 2\n",
            result.out,
        )
        self.assertEqual(result.out, self.plant.log(*MARCH, "--format", "table").out)

    def test_json_is_one_object_a_line(self):
        result = self.plant.log(*MARCH, "--format", "json")
        self.assertEqual((0, ""), (result.code, result.err))
        self.assertEqual(
            f'{{"event":"Pump","eventId":"{guid_of("Pump")}","occurrenceId":"{{00000000-0000-0000-0000-000000000001}}",'
            '"activated":"2026-03-01T10:00:00Z","annotation":"P > 250, \\"hot\\"","deactivatedAfter":176523,'
            '"acknowledgedAfter":65}\n'
            f'{{"event":"Bomba nº 泵","eventId":"{guid_of("Bomba nº 泵")}",'
            '"occurrenceId":"{00000000-0000-0000-0000-000000000002}","activated":"2026-03-02T00:00:00Z",'
            '"annotation":"línea 1\\nlínea 2","deactivatedAfter":null,"acknowledgedAfter":null}\n',
            result.out,
        )
        self.assertEqual(result.out, self.plant.log(*MARCH, "--json").out)

    def test_csv_has_a_header_and_is_quoted(self):
        done = subprocess.run([PROGRAM, "log", "--setup", self.plant.setup, *MARCH, "--format", "csv"], capture_output=True, check=True)
        self.assertEqual(
            ",".join(KEYS) + "\r\n"
            f'Pump,{guid_of("Pump")},{{00000000-0000-0000-0000-000000000001}},2026-03-01T10:00:00Z,"P > 250, ""hot""",176523,65\r\n'
            f'Bomba nº 泵,{guid_of("Bomba nº 泵")},{{00000000-0000-0000-0000-000000000002}},2026-03-02T00:00:00Z,"línea 1\nlínea 2",,\r\n',
            done.stdout.decode(),
        )

    def test_xml_is_the_reply_of_the_service(self):
        result = self.plant.log(*MARCH, "--format", "xml")
        self.assertEqual((0, ""), (result.code, result.err))
        self.assertEqual(
            '<?xml version="1.0" encoding="UTF-8" standalone="yes"?><loggerEvents>'
            "<record><id>{00000000-0000-0000-0000-000000000001}</id>"
            f"<eventId>{guid_of('Pump')}</eventId><annotation>P &gt; 250, &quot;hot&quot;</annotation>"
            "<dateTime>01032026100000</dateTime><ackDelay>65</ackDelay><disabledDelay>176523</disabledDelay></record>"
            "<record><id>{00000000-0000-0000-0000-000000000002}</id>"
            f"<eventId>{guid_of('Bomba nº 泵')}</eventId><annotation>línea 1\nlínea 2</annotation>"
            "<dateTime>02032026000000</dateTime></record></loggerEvents>",
            result.out,
        )
        only = ElementTree.fromstring(self.plant.log(*MARCH, "--format", "xml", "--event", "Pump").out.encode())
        self.assertEqual([guid_of("Pump")], [id.text for id in only.iter("eventId")])

    def test_totals_have_a_row_an_event(self):
        result = self.plant.log(*MARCH, "--totals", "--json")
        self.assertEqual(
            f'{{"event":"Pump","eventId":"{guid_of("Pump")}","activations":1,"deactivations":1,"acknowledgements":1,"duration":176523}}\n'
            f'{{"event":"Bomba nº 泵","eventId":"{guid_of("Bomba nº 泵")}","activations":1,"deactivations":0,"acknowledgements":0,"duration":0}}\n',
            result.out,
        )
        self.assertEqual(
            "EVENT        ACTIVATIONS  ENDS  ACKNOWLEDGEMENTS      DURATION\n"
            "Pump                   1     1                 1   2d 01:02:03\n"
            "Bomba nº 泵            1     0                 0       0:00:00\n",
            self.plant.log(*MARCH, "--totals").out,
        )
        rows = list(csv.reader(io.StringIO(self.plant.log(*MARCH, "--totals", "--format", "csv").out)))
        self.assertEqual(TOTALS, rows[0])
        self.assertEqual("176523", rows[1][5])

    def test_without_rows_the_exit_code_tells(self):
        empty = ("--begin", "2026-05-01T00:00:00Z", "--end", "2026-06-01T00:00:00Z")
        for options, out in (
            (empty, ""),
            ((*empty, "--json"), ""),
            ((*empty, "--totals"), ""),
            ((*MARCH, "--event", "Quiet"), ""),
            ((*empty, "--format", "csv"), ",".join(KEYS) + "\n"),
        ):
            result = self.plant.log(*options)
            self.assertEqual((1, out), (result.code, result.out))
            self.assertEqual("corvane: the log holds no occurrence of that period\n", result.err)
        result = self.plant.log(*empty, "--format", "xml")
        self.assertEqual(1, result.code)
        self.assertTrue(result.out.endswith("<loggerEvents></loggerEvents>"))

    def test_a_reader_that_goes_away_is_no_fault(self):
        for number in range(5000):
            self.plant.add("Quiet", moment("2026-03-05 00:00:00") + datetime.timedelta(seconds=number), 100 + number, 1, b"x" * 50)
        self.plant.store()
        for handled in (True, False):  # whether the signal that comes with it ends the program
            for form in ("table", "csv", "json", "xml"):
                process = subprocess.Popen(
                    [PROGRAM, "log", "--setup", self.plant.setup, *MARCH, "--format", form],
                    stdout=subprocess.PIPE,
                    stderr=subprocess.PIPE,
                    restore_signals=not handled,
                )
                process.stdout.read(10)
                process.stdout.close()
                self.assertEqual(b"", process.stderr.read(), form)
                process.stderr.close()
                self.assertIn(process.wait(), (0, -13))

    def test_a_result_that_cannot_be_written_is_told(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run(
                [PROGRAM, "log", "--setup", self.plant.setup, *MARCH], stdout=full, stderr=subprocess.PIPE, text=True, check=False
            )
        self.assertEqual(3, done.returncode)
        self.assertIn("standard output", done.stderr)


class Usage(unittest.TestCase):
    def setUp(self):
        self.plant = Plant(self, event("Pump", "1 > 0"), event("-v", "1 > 0"))

    def test_mistakes_are_told(self):
        setup = ("--setup", self.plant.setup)
        begin, end = MARCH[:2], MARCH[2:]
        for arguments, word in (
            ((), "--setup"),
            (setup, "--begin"),
            ((*setup, *begin), "--end"),
            ((*setup, *end), "--begin"),
            ((*begin, *end), "--setup"),
            ((*setup, "--begin", "2026-03-01", *end), "2026-03-01"),
            ((*setup, "--begin", "2026-02-30T00:00:00Z", *end), "2026-02-30"),
            ((*setup, *begin, "--end", "now"), "now"),
            ((*setup, *begin, "--end", MARCH[1]), "after"),
            ((*setup, "--begin", MARCH[3], "--end", MARCH[1]), "after"),
            ((*setup, *MARCH, "--event", "Fan"), '"Fan"'),
            ((*setup, *MARCH, "--event", "pump"), '"pump"'),
            ((*setup, *MARCH, "--event", "Pump", "--event", "x\x1by"), '"x y"'),
            ((*setup, *MARCH, "--event"), "--event"),
            ((*setup, *MARCH, "--event", "Pump", "Pump"), "Pump"),
            ((*setup, *MARCH, "--format", "yaml"), "yaml"),
            ((*setup, *MARCH, "--format", "JSON"), "JSON"),
            ((*setup, *MARCH, "--format", "xml", "--totals"), "xml"),
            (("--setup", self.plant.folder / "none.toml", *MARCH), "none.toml"),
            (("--file", "a.suc", *setup), "--file"),
            (("--file", "a.suc", *begin), "--file"),
            (("--file", "a.suc", "--totals"), "--file"),
            (("--file", "a.suc", "--before"), "--file"),
            (("--file", "a.suc", "--event", "Pump"), "--file"),
            (("--file", "a.suc", "--format", "xml"), "xml"),
            (("--file",), "--file"),
            (("a.suc",), "a.suc"),
        ):
            with self.subTest(arguments):
                result = run("log", *arguments)
                self.assertEqual((2, ""), (result.code, result.out), result)
                self.assertIn(word, result.err)

    def test_a_configuration_that_cannot_be_read_is_no_empty_log(self):
        self.plant.write("cfg/default.xeve", "<main><events>")
        result = self.plant.log(*MARCH)
        self.assertEqual((2, ""), (result.code, result.out))
        self.assertIn("default.xeve", result.err)

    def test_an_event_may_be_called_like_an_option(self):
        self.plant.add("-v", moment("2026-03-05 00:00:00"), 1, 1)
        self.plant.store()
        self.assertEqual(1, self.plant.log(*MARCH, "--event=-v", "--json").out.count("\n"))

    def test_needs_no_lock_and_leaves_no_trace(self):
        server = self.plant.serve()
        result = self.plant.log(*MARCH)
        self.assertEqual(1, result.code, result)
        server.stop()
        files = sorted(path for path in self.plant.folder.rglob("*") if "stderr" not in path.name)
        self.plant.log(*MARCH)
        self.assertEqual(files, sorted(path for path in self.plant.folder.rglob("*") if "stderr" not in path.name))

    def test_an_installation_without_data_has_no_rows(self):
        self.assertEqual((1, ""), (self.plant.log(*MARCH).code, self.plant.log(*MARCH).out))

    def test_any_period_is_answered_at_once(self):
        self.plant.add("Pump", moment("2000-01-01 00:00:00"), 1, 1)
        self.plant.add("Pump", moment("2063-12-31 23:59:59"), 2, 1)
        self.plant.store()
        always = ("--begin", "0001-01-01T00:00:00Z", "--end", "9999-12-31T23:59:59Z")
        self.assertEqual(2, self.plant.log(*always, "--json").out.count("\n"))
        for begin, end in (("1990-01-01", "1999-12-31"), ("2064-01-01", "2065-01-01"), ("0001-01-01", "0002-01-01")):
            result = self.plant.log("--begin", f"{begin}T00:00:00Z", "--end", f"{end}T00:00:00Z", "--json")
            self.assertEqual((1, ""), (result.code, result.out))


class Query:
    """The rows of a period, from all records, in the words of the log and without any search.

    Holds for logs whose records are sound and lie in their order, and for periods that begin and end between two records.
    """

    def __init__(self, records, notify):
        self.records, self.notify = records, notify  # {name: [(date, number, value, annotation)]}, {name: bool}

    def rows(self, names, begin, end, before=False):
        rows, by_number = [], {}

        def activate(name, date, number, annotation):
            row = {"event": name, "number": number, "activated": date, "annotation": annotation, "ended": None, "acknowledged": None}
            later = next((place for place, other in enumerate(rows) if other["activated"] >= date), len(rows))
            rows.insert(later, row)
            by_number.setdefault(number, row)

        def complete(date, number, value):
            row = by_number.get(number)
            if row is not None:
                row["ended" if value == 2 else "acknowledged"] = int((date - row["activated"]).total_seconds())

        def is_complete(row):
            return row["ended"] is not None and (row["acknowledged"] is not None or not self.notify[row["event"]])

        for name in dict.fromkeys(names):
            if before:
                self.activate_open(name, begin, activate)
            for date, number, value, annotation in self.records[name]:
                if begin <= date < end:
                    activate(name, date, number, annotation) if value == 1 else complete(date, number, value)
            pending = [row for row in rows if row["event"] == name and not is_complete(row)]
            for date, number, value, _ in self.records[name]:
                if not pending:
                    break
                if date >= end and self.month(date) <= self.month(end) + 1 and value != 1:
                    complete(date, number, value)
                    pending = [row for row in pending if not is_complete(row)]
        return rows

    def activate_open(self, name, begin, activate):
        """What was open at the beginning, if the month goes on with a record behind it."""
        month = [record for record in self.records[name] if self.month(record[0]) == self.month(begin)]
        if not any(date >= begin for date, *_ in month):
            return
        for date, number, value, annotation in reversed(month):
            if date < begin and value == 2:
                return
            if date < begin and value == 1:
                return activate(name, date, number, annotation)

    @staticmethod
    def month(date):
        return date.year * 12 + date.month


class SlowQuery(unittest.TestCase):
    NAMES = ["A", "b", "C c"]
    LOGS = 60
    QUERIES = 12

    def random_log(self, chance, notify):
        """The records of an event, each at an even second: occurrences one after the other, acknowledged whenever."""
        records = []
        date = moment("2025-11-20 00:00:00")
        for _ in range(chance.randrange(25)):
            date += datetime.timedelta(seconds=2 * chance.choice((0, 1, 30, 5000, chance.randrange(2_000_000))))
            number = chance.getrandbits(64)
            annotation = chance.choice((b"", b"warm", "weiß &amp; heiß".encode()))
            records.append((date, number, 1, annotation))
            if notify and chance.random() < 0.8:
                later = datetime.timedelta(seconds=2 * chance.choice((0, 10, chance.randrange(3_000_000))))
                records.append((date + later, number, 4, annotation))
            if chance.random() < 0.9:
                date += datetime.timedelta(seconds=2 * chance.choice((0, 10, chance.randrange(2_000_000))))
                records.append((date, number, 2, annotation))
        records.sort(key=lambda record: record[0])
        return records

    def shown(self, names, row):
        text = {b"": "", b"warm": "warm", "weiß &amp; heiß".encode(): "weiß & heiß"}[row["annotation"]]
        number = event_files.guid_text(occurrence(row["number"]))
        values = (row["event"], guid_of(row["event"]), number, iso(row["activated"]), text, row["ended"], row["acknowledged"])
        return dict(zip(KEYS, values))

    def test_agrees_on_every_period(self):
        print(f"CORVANE_TEST_SEED={SEED}")
        chance = random.Random(SEED)
        batch = Batch(self)
        found = 0
        for number in range(self.LOGS):
            notify = {name: chance.random() < 0.6 for name in self.NAMES}
            plant = Plant(self, *(event(name, "1 > 0", notify="T" if notify[name] else "F") for name in self.NAMES))
            records = {name: self.random_log(chance, notify[name]) for name in self.NAMES}
            for name in self.NAMES:
                for record in records[name]:
                    plant.add(name, *record)
            plant.store()
            query = Query(records, notify)
            for _ in range(self.QUERIES):
                begin = moment("2025-11-01 00:00:01") + datetime.timedelta(seconds=2 * chance.randrange(9_000_000))
                end = begin + datetime.timedelta(seconds=2 * chance.choice((500, 50_000, chance.randrange(1, 5_000_000))))
                names = chance.choice(([], ["b"], ["C c", "A"], ["A", "A", "b"]))
                before = chance.random() < 0.4
                options = [word for name in names for word in ("--event", name)] + ["--before"] * before
                about = f"log {number} of CORVANE_TEST_SEED={SEED}: {iso(begin)} {iso(end)} {options}"
                period = ("--setup", plant.setup, "--begin", iso(begin), "--end", iso(end), *options)
                rows = query.rows(names or self.NAMES, begin, end, before)
                result = batch.run("log", *period, "--json")
                self.assertEqual(
                    [self.shown(names, row) for row in rows], [json.loads(line) for line in result.out.splitlines()], about
                )
                self.assertEqual(0 if rows else 1, result.code, about)
                totals = batch.run("log", *period, "--totals", "--json")
                self.assertEqual(self.totals(rows, notify), [json.loads(line) for line in totals.out.splitlines()], about)
                found += len(rows)
        self.assertGreater(found, 300, "the logs are all empty")

    def totals(self, rows, notify):
        totals = {}
        for row in rows:
            name = row["event"]
            total = totals.setdefault(name, dict(zip(TOTALS, (name, guid_of(name), 0, 0, 0, 0))))
            total["activations"] += 1
            total["deactivations"] += row["ended"] is not None
            total["acknowledgements"] += notify[name] and row["acknowledged"] is not None
            total["duration"] += row["ended"] or 0
        return list(totals.values())


if __name__ == "__main__":
    parallel.main()
