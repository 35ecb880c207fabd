"""The history on phones and in the dark, with hostile texts, and as a file to take away."""

import csv
import io
import pathlib
import tempfile
import time
import unittest

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from history_case import HistoryCase, minutes_ago, utc
from mock_server import scene_history
from test_looks import POOR_CONTRAST


class Looks(HistoryCase):
    def test_leave_nothing_sticking_out_at_any_width(self):
        scene_history(self.plant)
        for view in ("rows", "totals", "timeline"):
            self.open(f"period=week&view={view}")
            self.page.until(lambda: self.page.shown("#page-history .views"), "the views")
            for width in (360, 390, 600, 760, 800, 1024, 1199, 1280, 1920):
                self.browser.screen(width, 844, phone=width < 600)
                time.sleep(0.1)
                self.assertLessEqual(self.page.script("return document.documentElement.scrollWidth"), width, (view, width))
                out = self.page.script("""
                    return [...document.querySelectorAll("#page-history *, #tools *")].filter((e) => e.checkVisibility() && !e.closest("svg, .quiet, option, canvas")
                      && (e.getBoundingClientRect().right > innerWidth + 0.5 || e.getBoundingClientRect().left < -0.5)).map((e) => e.outerHTML.slice(0, 80))""")
                self.assertEqual([], out, (view, width))

    def test_show_the_dates_numbers_and_states_whole(self):
        # What is cut off with an ellipsis can be read in the details; figures mustn't need that.
        scene_history(self.plant)
        for width in (390, 1200, 1440):
            self.browser.screen(width, 900, phone=width < 600)
            self.open("period=week&sort=-length")
            self.page.until(lambda: len(self.page.log_rows()) > 5, "rows")
            cut = self.page.script("""
                return [...document.querySelectorAll(".log-time, .log-length span, .log-ack span")]
                  .filter((cell) => cell.checkVisibility() && cell.scrollWidth > cell.clientWidth + 1)
                  .map((cell) => cell.textContent)""")
            self.assertEqual([], cut, width)

    def test_keep_every_text_readable_in_the_light_and_in_the_dark(self):
        scene_history(self.plant)
        self.plant.record("Defrost running", minutes_ago(700))
        for scheme in ("light", "dark"):
            self.browser.scheme(scheme)
            for view in ("rows", "totals"):
                self.open(f"period=week&view={view}&text=e")
                self.page.until(lambda: self.page.shown("#page-history .views"), "the views")
                self.page.find('[data-period="range"]').click()
                self.assertEqual([], self.page.script(POOR_CONTRAST), (scheme, view))
            self.page.part("#history-filters", "events").click()
            self.assertEqual([], self.page.script(POOR_CONTRAST.replace("document.body", "document.getElementById('picker')")), scheme)
            self.page.press(Keys.ESCAPE)

    def test_have_buttons_that_a_thumb_can_hit(self):
        self.browser.screen(390, 844, phone=True)
        scene_history(self.plant)
        for view in ("rows", "totals", "timeline"):
            self.open(f"period=week&view={view}")
            self.page.until(lambda: self.page.shown("#page-history .views"), "the views")
            small = self.page.script("""
                return [...document.querySelectorAll("#page-history button:not(.name), #page-history select, #history-filters button")]
                  .filter((e) => e.checkVisibility() && e.getBoundingClientRect().height < 37).map((e) => e.textContent)""")
            self.assertEqual([], small, view)

    def test_on_a_phone_show_one_thing_at_a_time_and_scroll_with_the_page(self):
        self.browser.screen(390, 844, phone=True)
        for minute in range(500):
            self.plant.record(f"Event {minute:03d}", minutes_ago(minute + 1), lasted=1)
        self.open()
        self.page.until(lambda: self.page.log_names()[:1] == ["Event 000"], "rows")
        self.assertFalse(self.page.shown("#history-timeline"))
        self.page.script("document.scrollingElement.scrollTop = document.scrollingElement.scrollHeight")
        self.page.until(lambda: self.page.log_names()[-1:] == ["Event 499"], "the last row")
        self.page.script("document.scrollingElement.scrollTop = 0")
        Select(self.part("order")).select_by_value("time")
        self.page.until(lambda: self.page.log_names()[:1] == ["Event 499"], "oldest first")
        self.page.find('.views [data-view="timeline"]').click()
        self.assertTrue(self.page.shown("#history-timeline"))
        self.assertFalse(self.page.shown("#history-rows"))
        drawn = self.page.script("const canvas = document.querySelector('#history-timeline .lanes canvas'); return [canvas.clientWidth, canvas.clientHeight]")
        self.assertGreater(min(drawn), 200)

    def test_name_every_control(self):
        scene_history(self.plant)
        self.open("period=week")
        self.page.until(lambda: self.page.shown("#page-history .views"), "the views")
        self.page.find('[data-period="range"]').click()
        self.page.part("#history-filters", "events").click()
        nameless = self.page.script("""
            return [...document.querySelectorAll("button, input, select, a, [tabindex], progress, dialog")].filter((e) => e.checkVisibility())
              .filter((e) => !(e.textContent.trim() || e.getAttribute("aria-label") || e.labels?.[0]?.textContent.trim())).map((e) => e.outerHTML)""")
        self.assertEqual([], nameless)
        self.page.press(Keys.ESCAPE)
        tree = self.page.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        roles = {node["role"]["value"] for node in tree if not node.get("ignored")}
        for role in ("table", "row", "cell", "columnheader", "application"):
            self.assertIn(role, roles)


class HostileTexts(HistoryCase):
    TEXTS = ["<script>document.title='broken'</script>", "<img src=x onerror=\"document.title='broken'\">", "Tom & Jerry &amp; Co", "]]> <!-- ",
             "<b>bold</b>", "W" * 400]

    def test_are_shown_as_text_everywhere(self):
        for number, text in enumerate(self.TEXTS):
            self.plant.record(text, minutes_ago(10 + number), f"note {text}", lasted=5, description=f"about {text}", groups=[text])
        self.open("sort=-time")
        self.until_rows(self.TEXTS)
        self.assertEqual([f"note {text}" for text in self.TEXTS], [row["text"] for row in self.page.log_rows()])
        self.page.find("#history-timeline .lanes").send_keys(Keys.ARROW_RIGHT, Keys.ARROW_DOWN)
        for name in self.page.driver.find_elements(By.CSS_SELECTOR, ".log-row .name"):
            name.click()
            self.page.press(Keys.ESCAPE)
        for kind in ("events", "groups"):
            self.page.part("#history-filters", kind).click()
            self.page.until_text("<b>bold</b>", "#picker")
            self.page.press(Keys.ESCAPE)
        self.page.find('#page-history .views [data-view="totals"]').click()
        self.page.until_text("<b>bold</b>", "#history-totals")
        self.assertEqual(0, self.page.script("return document.querySelectorAll('main script, main img, main b b, dialog script, dialog img, dialog b').length"))
        self.assertNotIn("broken", self.page.driver.title)
        self.assertLessEqual(self.page.script("return document.documentElement.scrollWidth"), 1440)

    def test_that_lie_raw_in_the_log_cost_no_other_row(self):
        self.plant.record("Before", minutes_ago(30), "fine", lasted=5)
        self.plant.record("Raw", minutes_ago(20), raw="5 < 6 & </record> \x07 <script>document.title='broken'</script> &bogus;", lasted=5, acknowledged_after=7)
        self.plant.record("After", minutes_ago(10), "fine too", lasted=5)
        self.open_with(["After", "Raw", "Before"])
        raw = self.page.log_rows()[1]
        self.assertEqual("5 < 6 & </record> ␇ <script>document.title='broken'</script> &bogus;", raw["text"])
        self.assertEqual(("5 s", "after 7 s"), (raw["length"], raw["ack"]))
        self.assertFalse(self.page.shown("#page-history .caution"))

    def test_that_turn_the_direction_of_writing_stay_among_themselves(self):
        self.plant.record("Turned \u202e event", minutes_ago(5), "note \u202e turned", lasted=5)
        self.open_with(["Turned \u202e event"])
        for part in (".log-row .name", ".log-text"):
            self.assertEqual("isolate", self.page.find(part).value_of_css_property("unicode-bidi"))


class Takeaway(HistoryCase):
    def setUp(self):
        super().setUp()
        self.folder = tempfile.TemporaryDirectory(prefix="corvane-console-csv-")
        self.addCleanup(self.folder.cleanup)
        self.page.driver.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": self.folder.name})

    def saved(self):
        folder = pathlib.Path(self.folder.name)
        self.page.until(lambda: list(folder.glob("*.csv")), "the file")
        return next(folder.glob("*.csv"))

    def test_is_a_file_of_the_filtered_rows_in_the_shown_order(self):
        self.browser.zone("Europe/Madrid")
        self.plant.record("Pump dry", utc(2026, 3, 1, 9, 0, 0), "=Level, \"3\" %", lasted=61, acknowledged_after=20, groups=["Water", "Steam"])
        self.plant.record("Pump hot", utc(2026, 3, 1, 9, 30, 0), "Bearing 95 °C", lasted=600)
        self.plant.record("Door open", utc(2026, 3, 1, 9, 40, 0), lasted=5)
        self.open_with(["Pump hot", "Pump dry"], "period=range&from=2026-03-01T00:00:00Z&to=2026-03-02T00:00:00Z&text=pump&sort=-length")
        self.part("csv").click()
        file = self.saved()
        self.assertEqual("history_2026-03-01_01-00-00_to_2026-03-02_01-00-00.csv", file.name)
        raw = file.read_bytes()
        self.assertTrue(raw.startswith(b"\xef\xbb\xbf"), "spreadsheets know the encoding by its mark")
        self.assertEqual(3, raw.count(b"\r\n"))
        head, *rows = csv.reader(io.StringIO(raw.decode("utf-8-sig"), newline=""))
        self.assertEqual(["Event", "Activated (Europe/Madrid)", "Activated (UTC)", "Annotation", "State", "Active, s",
                          "Acknowledged after, s", "Groups", "Event id", "Occurrence id"], head)
        self.assertEqual(["Pump hot", "2026-03-01 10:30:00", "2026-03-01T09:30:00Z", "Bearing 95 °C", "ended", "600", "", ""], rows[0][:8])
        self.assertEqual(["Pump dry", "2026-03-01 10:00:00", "2026-03-01T09:00:00Z", "'=Level, \"3\" %", "ended", "61", "20", "Water; Steam"], rows[1][:8])
        self.page.until_text("2 occurrences saved", "#notice")


if __name__ == "__main__":
    unittest.main()
