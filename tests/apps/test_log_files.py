#!/usr/bin/python3
"""corvane log --file beside a second reader that knows nothing but the tables of the format, on files of every kind."""

import csv
import datetime
import io
import json
import os
import pathlib
import random
import shutil
import struct
import tempfile
import unittest

import event_files
import parallel
from installation import Batch, run

SEED = int(os.environ.get("CORVANE_TEST_SEED", random.randrange(1 << 32)))
FILES = 3000
KEYS = ["index", "valid", "id", "date", "value", "annotationOffset", "annotation"]

TEXTS = [
    b"P = 250 kW",
    b"a &amp; b &lt; c",
    "Bomba nº 1, «ö», 泵 😀".encode(),
    b'with "quotes", commas\r\nand lines\ttoo',
    b"\xff\xfe\x80 no UTF-8 \xc3",
    b"\xed\xa0\x80 a half \xf0\x9f\x98",
    b"\x1b[31mred",
    b"x" * 300,
]


class RandomFiles:
    """Files as writers leave them, and as crashes, bad disks and other programs do."""

    def __init__(self, seed):
        self.random = random.Random(seed)

    def date(self):
        return datetime.datetime(2000, 1, 1) + datetime.timedelta(seconds=self.random.randrange(63 * 365 * 86400))

    def written(self):
        pair = event_files.Pair()
        for _ in range(self.random.choice((0, 1, 2, 3, 10, 40))):
            text = self.random.choice(TEXTS) if self.random.random() < 0.5 else b""
            pair.add(self.date(), self.random.randbytes(16), self.random.choice((1, 2, 4)), text)
        return pair.records, pair.side

    def odd(self):
        """Sound, and yet nothing that a writer of today writes."""
        side = event_files.ANNOTATIONS + b"".join(event_files.annotation_entry(text) for text in TEXTS)
        side += struct.pack(">H", 65535) + self.random.choice((b"short", b"y" * 65535, b"z\0" * 40000))
        places = [0, 1, 16, len(side) - 1, len(side), 0xFFFFFFFF] + [self.random.randrange(len(side)) for _ in range(20)]
        base = self.random.choice((0, 7, 79, 80, 95, 99, 100, 1582, 1899, 1970, 2000, 2037, 9900, 9999, 65535))
        records = event_files.header(base, self.random.choice((b"EVENTv2.70", b"", b"anything")))
        for _ in range(self.random.randrange(20)):
            packed = self.random.choice((self.random.randrange(1 << 32), event_files.pack_date(self.date())))
            records += event_files.record(packed, self.random.randbytes(16), self.random.randrange(256), self.random.choice(places))
        return records, self.random.choice((side, side, None, b""))

    def noise(self):
        return self.random.randbytes(self.random.randrange(200)), self.random.choice((None, self.random.randbytes(100)))

    def damaged(self, records):
        records = bytearray(records)
        for _ in range(self.random.randrange(4)):
            if records:
                records[self.random.randrange(len(records))] ^= 1 << self.random.randrange(8)
        if self.random.random() < 0.3:
            del records[self.random.randrange(len(records) + 1) :]
        if self.random.random() < 0.3:
            records += self.random.randbytes(self.random.randrange(60))
        return bytes(records)

    def next(self):
        records, side = self.random.choice((self.written, self.odd, self.odd, self.noise))()
        if self.random.random() < 0.6:
            records = self.damaged(records)
        return records, side


class Files(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="corvane-files-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def write(self, records, side=None, name="Pump 03-2026"):
        path = self.folder / (name + ".suc")
        path.write_bytes(records)
        if side is not None:
            path.with_suffix(".dat").write_bytes(side)
        return path

    def shown(self, result):
        return [json.loads(line) for line in result.out.splitlines()]


class SecondReader(Files):
    def test_agrees_on_every_file(self):
        print(f"CORVANE_TEST_SEED={SEED}")
        files = RandomFiles(SEED)
        batch = Batch(self)
        kinds = set()
        for number in range(FILES):
            records, side = files.next()
            path = self.write(records, side, f"E{number} 03-2026")
            log = event_files.read(records, side or b"")
            result = batch.run("log", "--file", path, "--format", "json")
            about = f"file {number} of CORVANE_TEST_SEED={SEED}: {records.hex()}\n{side!r}\n{result}"
            self.assertEqual(log.rows, self.shown(result), about)
            good = log.header_sound and log.rows and all(row["valid"] for row in log.rows)
            self.assertEqual(0 if good else 1, result.code, about)
            self.assertEqual(not log.header_sound, "header" in result.err, about)
            self.assertEqual(log.tail > 0, "no whole record" in result.err, about)
            kinds.add((log.header_sound, bool(log.rows), log.tail > 0, all(row["valid"] for row in log.rows)))
        self.assertGreaterEqual(len(kinds), 12, "the files are all alike")

    def test_agrees_in_csv_too(self):
        files = RandomFiles(SEED)
        batch = Batch(self)
        for number in range(FILES // 10):
            records, side = files.next()
            path = self.write(records, side, f"E{number} 03-2026")
            result = batch.run("log", "--file", path, "--format", "csv")
            rows = list(csv.reader(io.StringIO(result.out, newline="")))
            expected = [
                [str(row["index"]), "true" if row["valid"] else "false", row["id"], row["date"] or "",
                 str(row["value"]), str(row["annotationOffset"]), row["annotation"]]
                for row in event_files.read(records, side or b"").rows
            ]  # fmt: skip
            self.assertEqual([KEYS, *expected], rows, f"file {number} of CORVANE_TEST_SEED={SEED}")


class Damage(Files):
    MOMENT = datetime.datetime(2026, 3, 1, 10, 0, 0)

    def log(self):
        pair = event_files.Pair()
        for number in range(3):
            pair.add(self.MOMENT + datetime.timedelta(seconds=number), bytes([number] * 16), 1, b"hot")
        return pair

    def look(self, path, *options):
        return run("log", "--file", path, *options)

    def test_of_nothing_is_told_where_there_is_none(self):
        pair = self.log()
        result = self.look(self.write(pair.records, pair.side), "--json")
        self.assertEqual((0, ""), (result.code, result.err))
        self.assertEqual(
            '{"index":0,"valid":true,"id":"{00000000-0000-0000-0000-000000000000}","date":"2026-03-01T10:00:00Z",'
            '"value":1,"annotationOffset":16,"annotation":"hot"}',
            result.out.splitlines()[0],
        )
        self.assertEqual(3, len(result.out.splitlines()))

    def test_of_a_record_is_told_with_its_place(self):
        pair = self.log()
        records = bytearray(pair.records)
        records[14 + 26 + 20] = 2
        path = self.write(bytes(records), pair.side)
        result = self.look(path, "--json")
        self.assertEqual(1, result.code)
        self.assertEqual([True, False, True], [row["valid"] for row in self.shown(result)])
        self.assertEqual(2, self.shown(result)[1]["value"])
        self.assertEqual("hot", self.shown(result)[1]["annotation"])
        self.assertEqual(f"corvane: {path}: record 1 at byte 40: the record fails its checksum\n", result.err)

    def test_of_the_header_hides_no_record(self):
        pair = self.log()
        path = self.write(b"X" + pair.records[1:], pair.side)
        result = self.look(path, "--json")
        self.assertEqual(1, result.code)
        self.assertEqual(["2026-03-01T10:00:0%dZ" % second for second in range(3)], [row["date"] for row in self.shown(result)])
        self.assertIn("byte 13: the header fails its checksum", result.err)

    def test_of_a_torn_tail_is_told_and_counts_as_absent(self):
        pair = self.log()
        result = self.look(self.write(pair.records + b"0123456789", pair.side), "--json")
        self.assertEqual(0, result.code)
        self.assertEqual(3, len(self.shown(result)))
        self.assertIn("byte 92: 10 bytes at the end are no whole record", result.err)

    def test_of_a_file_cut_in_its_header_is_told(self):
        for size in range(14):
            path = self.write(event_files.header()[:size])
            for form in ("table", "json"):
                result = self.look(path, "--format", form)
                self.assertEqual((1, ""), (result.code, result.out))
                self.assertIn(f"byte {size}: the file ends inside its header of 14 bytes", result.err)

    def test_of_an_annotation_is_told_and_leaves_its_record_good(self):
        pair = self.log()
        result = self.look(self.write(pair.records, pair.side[:20]), "--json")
        self.assertEqual(0, result.code)
        self.assertEqual(["", "", ""], [row["annotation"] for row in self.shown(result)])
        self.assertIn("record 2 at byte 66: its annotation at byte 28 of the .dat file can't be read", result.err)

    def test_everywhere_is_told_a_hundred_times(self):
        records = event_files.header() + bytes(26) * 1000
        result = self.look(self.write(records))
        self.assertEqual(1, result.code)
        self.assertEqual(1001, result.out.count("\n"))
        self.assertEqual(101, result.err.count("\n"))
        self.assertIn("and 900 more", result.err)

    def test_a_new_file_has_no_rows(self):
        result = self.look(self.write(event_files.header()), "--json")
        self.assertEqual((1, "", ""), (result.code, result.out, result.err))

    def test_what_cannot_be_read_is_no_input(self):
        (self.folder / "a directory.suc").mkdir()
        os.mkfifo(self.folder / "pipe.suc")
        for name, why in (("none.suc", "No such file"), ("a directory.suc", ""), ("pipe.suc", "")):
            result = self.look(self.folder / name)
            self.assertEqual((2, ""), (result.code, result.out), result)
            self.assertIn(name, result.err)
            self.assertIn(why, result.err)

    def test_table_shows_every_record_on_one_line(self):
        pair = event_files.Pair()
        pair.add(self.MOMENT, bytes(16), 1, b"two\nlines \x1b[31m\xc2\x9b31m")
        pair.add(self.MOMENT, bytes(16), 2)
        pair.add(self.MOMENT, bytes(16), 4, "泵".encode())
        pair.add(self.MOMENT, bytes(16), 9)
        result = self.look(self.write(pair.records + event_files.record(0, bytes(16), 1)[:-1] + b"\0", pair.side))
        self.assertEqual(
            "RECORD           OCCURRENCE                              DATE                  CHANGE        ANNOTATION\n"
            "     0           {00000000-0000-0000-0000-000000000000}  2026-03-01T10:00:00Z  activated     two lines  [31m 31m\n"
            "     1           {00000000-0000-0000-0000-000000000000}  2026-03-01T10:00:00Z  deactivated\n"
            "     2           {00000000-0000-0000-0000-000000000000}  2026-03-01T10:00:00Z  acknowledged  泵\n"
            "     3           {00000000-0000-0000-0000-000000000000}  2026-03-01T10:00:00Z  9\n"
            "     4  damaged  {00000000-0000-0000-0000-000000000000}  -                     activated\n",
            result.out,
        )


if __name__ == "__main__":
    parallel.main()
