"""The page against the real program: a variable is set, the event appears, is acknowledged and goes. And the demo plant."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import unittest
import urllib.request

from browser import Page
from case import ConsoleCase

PROGRAM = os.environ.get("CORVANE_BIN")
DEMO = pathlib.Path(__file__).resolve().parents[2] / "demo"

SETUP = """
[[device]]
name = "TANK"
driver = "memory"
description = "Feed water"
  [[device.variable]]
  name = "LEVEL"
  description = "Level, %"
"""

EVENTS = """<?xml version="1.0" encoding="UTF-8"?>
<main>
  <eventsGroups><eventsGroup><id>{5B0C2E4F-9D71-4C36-8A14-3E2F70B9D601}</id><name>Water</name></eventsGroup></eventsGroups>
  <events>
    <event>
      <id>{A1F7C3D0-6B24-4E58-9F02-71C8E5D3B602}</id><name>Tank &lt;nearly&gt; empty &amp; cold</name><description>Feed &amp; water</description>
      <annotation>Level &lt; 10 litres &amp; falling</annotation><notify>T</notify>
      <condition>[TANK.LEVEL] &lt; 10</condition>
      <eventsGroups><eventsGroup>{5B0C2E4F-9D71-4C36-8A14-3E2F70B9D601}</eventsGroup></eventsGroups>
    </event>
  </events>
</main>
"""
NAME = "Tank <nearly> empty & cold"


class Program:
    """`corvane serve` on a port of its own, stopped by `stop`."""

    def __init__(self, setup):
        self.process = subprocess.Popen([PROGRAM, "serve", "--setup", str(setup), "--port", "0"], stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        match = re.fullmatch(r"listening on (http://\S+/)\n", line)
        if match is None:
            self.stop()
            raise AssertionError(f"the program didn't start: {line!r}")
        self.url = match.group(1)

    def put(self, variable, value):
        request = urllib.request.Request(f"{self.url}services/variables/{variable}", data=str(value).encode(), method="PUT")
        with urllib.request.urlopen(request, timeout=10) as answer:
            assert answer.status == 204

    def stop(self):
        self.process.terminate()
        self.process.wait(20)
        self.process.stdout.close()


@unittest.skipUnless(PROGRAM, "CORVANE_BIN names no program")
class ServerCase(ConsoleCase):
    def setUp(self):
        super().setUp()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="corvane-console-server-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def start(self, setup):
        self.program = Program(setup)
        self.addCleanup(self.program.stop)
        self.page = Page(self.browser, self.program.url)
        return self.page


class RealServer(ServerCase):
    def setUp(self):
        super().setUp()
        (self.folder / "cfg").mkdir()
        (self.folder / "cfg" / "default.xeve").write_text(EVENTS, encoding="utf-8")
        (self.folder / "corvane.toml").write_text(SETUP, encoding="utf-8")
        self.start(self.folder / "corvane.toml").open()

    def test_shows_an_event_and_takes_its_acknowledgement(self):
        self.page.until_text("One event is being watched", "#active")
        self.program.put("TANK.LEVEL", 7.25)
        self.page.until_waiting([NAME])
        self.assertIn("Level < 10 litres & falling", self.page.row_text("#waiting", NAME))
        self.assertRegex(self.page.row_text("#active", NAME), r"active for \d s")
        self.page.acknowledge(NAME)
        self.page.until_waiting([])
        self.page.until_text("Acknowledged", "#active")
        self.program.put("TANK.LEVEL", 50)
        self.page.until_text("Nothing is active", "#active")

    def test_keeps_an_occurrence_that_ended_until_it_is_acknowledged(self):
        self.page.until_text("One event is being watched", "#active")
        self.program.put("TANK.LEVEL", 7.25)
        self.page.until_waiting([NAME])
        self.program.put("TANK.LEVEL", 50)
        self.page.until_text("Ended", "#waiting")
        self.page.acknowledge(NAME)
        self.page.until_text("Nothing to acknowledge", "#waiting")

    def test_shows_its_variables(self):
        self.program.put("TANK.LEVEL", 41.5)
        self.page.open("#/variables")
        self.page.until_text("41.5", "#page-variables")
        self.program.put("TANK.LEVEL", "")
        self.page.until_text("no value", "#page-variables")

    def test_lists_its_events(self):
        self.page.open("#/configured")
        self.page.until(lambda: self.page.names("#page-configured") == [NAME], "the event")
        text = self.page.row_text("#page-configured", NAME)
        for words in ("Feed & water", "Water", "Needs acknowledgement"):
            self.assertIn(words, text)

    def test_that_stops_is_noticed(self):
        self.page.until_text("One event is being watched", "#active")
        self.program.process.terminate()
        self.page.until_text("No connection to the server", "#banner", 20)


class Demo(ServerCase):
    def setUp(self):
        super().setUp()
        shutil.copy(DEMO / "corvane.toml", self.folder)
        shutil.copytree(DEMO / "cfg", self.folder / "cfg")

    def test_has_something_active_within_ten_seconds(self):
        self.start(self.folder / "corvane.toml").open()
        self.page.until(lambda: "Compressor in manual" in self.page.waiting(), "something waits", 10)

    def test_notices_the_open_door_after_its_delay(self):
        self.start(self.folder / "corvane.toml").open()
        self.program.put("PANEL.DOOR", 1)
        begun = time.monotonic()
        self.page.until(lambda: "Cold store door open" in self.page.waiting(), "the open door", 15)
        self.assertGreater(time.monotonic() - begun, 4, "the event has a delay")


if __name__ == "__main__":
    unittest.main()
