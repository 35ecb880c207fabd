"""The page "History" against the real program: its own records, records of years, damaged ones, and what is active at the moment."""

import datetime
import re
import signal
import time
import unittest
import uuid

from event_log import ACKNOWLEDGED, ACTIVATED, DEACTIVATED, EventLog
from test_server import ServerCase

SETUP = """
[[device]]
name = "TANK"
driver = "memory"
  [[device.variable]]
  name = "LEVEL"
  [[device.variable]]
  name = "DOOR"
"""

EVENTS = """<?xml version="1.0" encoding="UTF-8"?>
<main>
  <eventsGroups><eventsGroup><id>{5B0C2E4F-9D71-4C36-8A14-3E2F70B9D601}</id><name>Water</name></eventsGroup></eventsGroups>
  <events>
    <event>
      <id>{A1F7C3D0-6B24-4E58-9F02-71C8E5D3B602}</id><name>Tank &lt;nearly&gt; empty &amp; cold</name><description>Feed &amp; water</description>
      <annotation>Level &lt; 10 litres &amp; falling</annotation><notify>T</notify><record>T</record>
      <condition>[TANK.LEVEL] &lt; 10</condition>
      <eventsGroups><eventsGroup>{5B0C2E4F-9D71-4C36-8A14-3E2F70B9D601}</eventsGroup></eventsGroups>
    </event>
    <event>
      <id>{A1F7C3D0-6B24-4E58-9F02-71C8E5D3B603}</id><name>Door open</name><notify>F</notify><record>T</record>
      <condition>[TANK.DOOR] = 1</condition>
    </event>
    <event>
      <id>{A1F7C3D0-6B24-4E58-9F02-71C8E5D3B604}</id><name>Never written</name><notify>F</notify><record>F</record>
      <condition>[TANK.DOOR] = 2</condition>
    </event>
  </events>
</main>
"""
TANK = "Tank <nearly> empty & cold"


def utc(*fields):
    return datetime.datetime(*fields, tzinfo=datetime.timezone.utc)


def after(date, seconds):
    return date + datetime.timedelta(seconds=seconds)


class HistoryServer(ServerCase):
    def setUp(self):
        super().setUp()
        (self.folder / "cfg").mkdir()
        (self.folder / "cfg" / "default.xeve").write_text(EVENTS, encoding="utf-8")
        (self.folder / "corvane.toml").write_text(SETUP, encoding="utf-8")
        self.data = self.folder / "data"

    def serve(self):
        return self.start(self.folder / "corvane.toml")

    def open(self, query):
        self.page.open(f"#/history?{query}")

    def until_rows(self, rows, patience=20):
        """`rows` of name, duration and acknowledgement; patterns."""
        def as_wished():
            found = [(row["name"], row["length"], row["ack"]) for row in self.page.log_rows()]
            return len(found) == len(rows) and all(re.fullmatch(want, text) for row, wants in zip(found, rows) for text, want in zip(row, wants))
        self.page.until(as_wished, f"the rows {rows}", patience)

    def refresh(self):
        self.page.part("#page-history", "refresh").click()

    # --- Records that lie there ------------------------------------------------

    def test_reads_a_log_over_months_and_around_damage(self):
        tank, door = EventLog(self.data, TANK), EventLog(self.data, "Door open")
        first, raw, damaged, last, open_door = (str(uuid.uuid4()) for _ in range(5))
        date = utc(2026, 1, 31, 23, 59, 50)
        tank.add(date, ACTIVATED, first, "Level &lt; 3 &amp; falling, 5 °C".encode())
        tank.add(after(date, 20), DEACTIVATED, first)
        tank.add(after(date, 3700), ACKNOWLEDGED, first)
        tank.add(utc(2026, 2, 3, 8), ACTIVATED, raw, b"raw < & </record> \x07 \xff <b> &bogus;")
        tank.add(utc(2026, 2, 3, 8, 1), DEACTIVATED, raw)
        tank.add(utc(2026, 2, 3, 9), ACTIVATED, damaged, b"lost")
        tank.damage()
        tank.add(utc(2026, 2, 3, 10), ACTIVATED, last, b"later")
        tank.add(utc(2026, 3, 5), DEACTIVATED, last)
        door.add(utc(2026, 2, 3, 12), ACTIVATED, open_door)
        tank.save()
        door.save()
        self.serve()
        self.open("period=range&from=2026-01-01T00:00:00Z&to=2026-02-28T00:00:00Z")
        self.until_rows([("Door open", "end not recorded", "not needed"), (TANK, "29 d 14 h", "not recorded"), (TANK, "1 min 00 s", "not recorded"),
                         (TANK, "20 s", "after 1 h 01 min")])
        rows = self.page.log_rows()
        self.assertEqual(["2026-02-03 12:00:00", "2026-02-03 10:00:00", "2026-02-03 08:00:00", "2026-01-31 23:59:50"], [row["time"] for row in rows])
        self.assertEqual(["", "later", "raw < & </record> ␇ \ufffd <b> &bogus;", "Level < 3 & falling, 5 °C"], [row["text"] for row in rows])
        self.assertFalse(self.page.shown("#page-history .caution"))
        self.page.filter("water")
        self.page.until(lambda: len(self.page.log_rows()) == 3, "those of the group")

    def test_shows_seventy_five_thousand_records_of_a_year_soon(self):
        log = EventLog(self.data, TANK)
        date = utc(2025, 1, 1)
        for number in range(37500):
            identity = f"00000000-0000-0000-0000-{number:012X}"
            log.add(after(date, number * 800), ACTIVATED, identity, f"Level {number % 10} &lt; 10, number {number}".encode())
            log.add(after(date, number * 800 + 1 + number % 300), DEACTIVATED, identity)
        log.save()
        self.serve()
        self.page.open()
        self.page.until_text("events are being watched", "#active")
        began = time.monotonic()
        self.open("period=range&from=2025-01-01T00:00:00Z&to=2026-01-01T00:00:00Z")
        self.page.until(lambda: self.page.log_rows()[:1] and "number 37499" in self.page.log_rows()[0]["text"], "the newest", 60)
        print(f"\n75,000 records shown as 37,500 occurrences in {time.monotonic() - began:.1f} s", flush=True)
        self.assertEqual("37,500", self.page.part("#page-history", "rows-count").text)

    # --- What happens now --------------------------------------------------------

    def test_follows_an_occurrence_from_its_begin_to_its_end(self):
        self.serve()
        self.program.put("TANK.LEVEL", 50)
        self.open("period=hour")
        self.page.until_text("1 event of 3 isn't recorded", "#page-history .nothing")
        self.program.put("TANK.LEVEL", 7.25)
        self.program.put("TANK.DOOR", 1)
        self.page.until_text("there is news since", "#page-history .told")
        self.page.until_text("2", '#summary [data-part="active-count"]')
        self.refresh()
        self.until_rows([(f"{re.escape(TANK)}|Door open", r"active for \d+ s", "waiting|not needed")] * 2)
        self.assertIn("Level < 10 litres & falling", [row["text"] for row in self.page.log_rows()])
        self.page.open("#/")
        self.page.until_waiting([TANK])
        self.page.acknowledge(TANK)
        self.page.until_waiting([])
        self.program.put("TANK.LEVEL", 50)
        self.program.put("TANK.DOOR", 0)
        self.page.until_text("Nothing is active", "#active")
        self.open("period=hour&sort=event")
        self.page.until_text("there is news since", "#page-history .told")
        self.refresh()
        self.until_rows([("Door open", r"\d+ s", "not needed"), (re.escape(TANK), r"\d+ s", r"after \d+ s")])

    def test_tells_what_the_end_of_the_program_cut_off_from_what_runs(self):
        self.serve()
        self.program.put("TANK.DOOR", 1)
        self.open("period=hour")
        self.page.until_text("there is news since", "#page-history .told")
        self.program.process.send_signal(signal.SIGTERM)
        self.program.process.wait(20)
        self.serve()
        self.open("period=hour")
        self.until_rows([("Door open", "end not recorded", "not needed")])
        self.program.put("TANK.DOOR", 1)
        self.page.until_text("there is news since", "#page-history .told")
        self.refresh()
        self.until_rows([("Door open", r"active for \d+ s", "not needed"), ("Door open", "end not recorded", "not needed")])


if __name__ == "__main__":
    unittest.main()
