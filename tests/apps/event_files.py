"""A second reader and writer of the event log, slow and obvious, from the tables of its formats alone.

It shares nothing with the program. What both say of the same bytes has to be the same.
"""

import dataclasses
import datetime
import struct
import uuid

HEADER = 14  # bytes of a record file's header
RECORD = 26

ANNOTATIONS = b"ANNOTATIONv2.70\0"

OLD_HEADER = 11
OLD_RECORD = 41
OLD_ANNOTATIONS = b"ANNOTATIONS"


def with_sum(block):
    """The block with its checksum behind it: with one more, all bytes add up to nothing."""
    return block + bytes([~sum(block) & 0xFF])


def is_sound(block):
    return (1 + sum(block)) % 256 == 0


def guid_text(raw):
    """Sixteen bytes as they lie in the file: three numbers, the highest byte first, and eight bytes in their order."""
    return "{" + str(uuid.UUID(bytes=raw)).upper() + "}"


def guid_bytes(text):
    return uuid.UUID(text).bytes


def base_year(stored):
    if stored < 80:
        return 2000 + stored
    return 1900 + stored if stored < 100 else stored


def unpack_date(packed, base):
    try:
        date = datetime.datetime(
            (packed >> 26) + base, packed >> 22 & 15, packed >> 17 & 31, packed >> 12 & 31, packed >> 6 & 63, packed & 63
        )
    except ValueError:
        return None
    return f"{date.year:04}-{date:%m-%dT%H:%M:%SZ}"


def pack_date(date, base=2000):
    years = (date.year - base) % 64  # six bits
    return years << 26 | date.month << 22 | date.day << 17 | date.hour << 12 | date.minute << 6 | date.second


def annotation_at(side, offset):
    """The text of the entry at that place of an annotation file; empty when it isn't all there."""
    if offset == 0 or offset + 2 > len(side):
        return b""
    size = struct.unpack_from(">H", side, offset)[0]
    text = side[offset + 2 : offset + 2 + size]
    return text.split(b"\0")[0] if len(text) == size else b""


@dataclasses.dataclass
class Log:
    """What stands in a pair of files."""

    header_sound: bool
    rows: list
    tail: int  # bytes behind the last whole record


def read(records, side=b""):
    base = base_year(struct.unpack_from(">H", records.ljust(HEADER, b"\0"), 10)[0])
    rows = []
    for index in range(max(0, len(records) - HEADER) // RECORD):
        block = records[HEADER + index * RECORD :][:RECORD]
        packed, identity, value, offset = struct.unpack(">I16sBI", block[:-1])
        rows.append(
            {
                "index": index,
                "valid": is_sound(block),
                "id": guid_text(identity),
                "date": unpack_date(packed, base),
                "value": value,
                "annotationOffset": offset,
                "annotation": annotation_at(side, offset).decode("utf-8", errors="replace"),
            }
        )
    sound = len(records) >= HEADER and is_sound(records[:HEADER])
    return Log(sound, rows, max(0, len(records) - HEADER) % RECORD)


def header(base=2000, text=b"EVENTv2.70"):
    return with_sum(struct.pack(">10sHB", text, base, 0))


def record(packed, identity, value, offset=0):
    return with_sum(struct.pack(">I16sBI", packed, identity, value, offset))


def annotation_entry(text):
    return struct.pack(">H", (len(text) + 1) % 65536) + text + b"\0"


class Pair:
    """A record file and its annotation file as a writer leaves them."""

    def __init__(self, side=None):
        self.records = header()
        self.side = side  # None: there is no such file

    def add(self, date, identity, value, annotation=b""):
        offset = 0
        if annotation:
            if self.side is None:
                self.side = ANNOTATIONS
            offset = len(self.side)
            self.side += annotation_entry(annotation)
        self.records += record(pack_date(date), identity, value, offset)


# What came before: one pair of files a month for all events.


@dataclasses.dataclass
class OldRecord:
    identity: bytes
    seconds: int
    event: bytes
    value: int
    offset: int = 0

    def packed(self):
        return struct.pack(">16sI16sBI", self.identity, self.seconds, self.event, self.value, self.offset)


def read_old(records):
    blocks = [records[at : at + OLD_RECORD] for at in range(OLD_HEADER, len(records), OLD_RECORD)]
    return [OldRecord(*struct.unpack(">16sI16sBI", block)) for block in blocks if len(block) == OLD_RECORD]


def convert_old_month(year, month, records, side, names, present):
    """What the month becomes: {path: bytes}, on top of the files that are `present`. `names` has event ids as bytes."""
    if not side.startswith(OLD_ANNOTATIONS):
        side = b""
    begin = datetime.datetime(year, month, 1)
    by_event = {}
    for old in read_old(records):
        by_event.setdefault(old.event, []).append(old)
    files = dict(present)
    for event, its_records in by_event.items():
        if event not in names:
            continue
        path = f"{year:04}/{month:02}/{names[event]} {month:02}-{year:04}"
        pair = Pair(files.get(path + ".dat"))
        for old in its_records:
            date = begin + datetime.timedelta(seconds=old.seconds)
            pair.add(date, old.identity, old.value, annotation_at(side, old.offset))
        files[path + ".suc"] = pair.records
        if pair.side is not None:
            files[path + ".dat"] = pair.side
    return files
