"""Writes event logs as the program does, for what no plant could be made to do in a test: years of records, and damaged ones."""

import struct
import uuid

ACTIVATED, DEACTIVATED, ACKNOWLEDGED = 1, 2, 4
BASE_YEAR = 2000


def checked(block):
    return block + bytes([~sum(block) & 0xFF])


def packed(date):
    return (((date.year - BASE_YEAR) & 63) << 26 | date.month << 22 | date.day << 17 | date.hour << 12 | date.minute << 6 | date.second)


class EventLog:
    """The files of one event below a data directory. Records go in as they are given: in the order of their dates, as the program writes
    them. `annotation` is bytes as they lie in the file, escaped or not."""

    def __init__(self, data, event):
        self.data = data
        self.event = event
        self.months = {}

    def add(self, date, value, identity, annotation=b""):
        records, texts = self.months.setdefault((date.year, date.month), (bytearray(), bytearray()))
        offset = 0
        if annotation:
            offset = 16 + len(texts)
            texts += struct.pack(">H", len(annotation) + 1) + annotation + b"\0"
        records += checked(struct.pack(">I", packed(date)) + uuid.UUID(identity).bytes + bytes([value]) + struct.pack(">I", offset))

    def damage(self):
        """Changes a byte of the record that was added last."""
        next(reversed(self.months.values()))[0][-3] ^= 0x40

    def save(self):
        for (year, month), (records, texts) in self.months.items():
            folder = self.data / f"{year:04d}" / f"{month:02d}"
            folder.mkdir(parents=True, exist_ok=True)
            stem = f"{self.event} {month:02d}-{year:04d}"
            (folder / f"{stem}.suc").write_bytes(checked(b"EVENTv2.70" + struct.pack(">HB", BASE_YEAR, 0)) + records)
            if texts:
                (folder / f"{stem}.dat").write_bytes(b"ANNOTATIONv2.70\0" + texts)
