"""The page "History": what it asks, shows, finds and adds up."""

import datetime
import unittest
import urllib.parse

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from history_case import LOGGER, HistoryCase, minutes_ago, utc
from mock_server import utc_now


class Rows(HistoryCase):
    def test_show_when_how_long_and_how_soon_somebody_acknowledged(self):
        self.browser.zone("Asia/Tokyo")
        self.plant.record("Pump dry", utc(2026, 3, 1, 20, 30, 15), "Level 3 %", lasted=185, acknowledged_after=42)
        self.plant.record("Door open", utc(2026, 3, 1, 21, 0, 0), "", lasted=7300, notify=False)
        self.open_with(["Door open", "Pump dry"], "period=range&from=2026-03-01T00:00:00Z&to=2026-03-02T00:00:00Z")
        door, pump = self.page.log_rows()
        self.assertEqual({"name": "Pump dry", "time": "2026-03-02 05:30:15", "text": "Level 3 %", "length": "3 min 05 s", "ack": "after 42 s"}, pump)
        self.assertEqual(("2 h 01 min", "not needed"), (door["length"], door["ack"]))
        self.assertIn("2026-03-01 09:00 – 2026-03-02 09:00", self.part("bounds").text)
        self.assertEqual(("2026-03-01T00:00:00Z", "2026-03-02T00:00:00Z"), self.asked())

    def test_tell_apart_active_ended_waiting_and_unknown(self):
        begin = minutes_ago(10)
        running = self.plant.activate("Runs", "", begin)
        ended = self.plant.activate("Ended", "", begin)
        self.plant.deactivate("Ended", begin + datetime.timedelta(seconds=90))
        self.plant.activate("Informs", "", begin, notify=False)
        self.plant.record("Runs", begin, occurrence=running)
        self.plant.record("Runs", begin - datetime.timedelta(minutes=5), acknowledged_after=3)
        self.plant.record("Ended", begin, occurrence=ended, lasted=90)
        self.plant.record("Informs", begin)
        self.plant.record("Informs", begin - datetime.timedelta(minutes=5))
        self.open("sort=event")
        self.page.until(lambda: len(self.page.log_rows()) == 5, "five rows")
        told = {(row["name"], row["length"].partition(" for ")[0], row["ack"]) for row in self.page.log_rows()}
        self.assertEqual({("Runs", "active", "waiting"), ("Runs", "end not recorded", "after 3 s"), ("Ended", "1 min 30 s", "waiting"),
                          ("Informs", "active", "not needed"), ("Informs", "end not recorded", "not needed")}, told)
        signs = self.page.script("""
            return [...document.querySelectorAll("#history-rows .log-row")].map((row) => {
              const use = row.querySelector(".log-length .sign:not([hidden]) use");
              return `${row.dataset.state} ${use ? use.getAttribute("href") : "none"}`;
            })""")
        self.assertEqual({"active #sign-alarm", "unknown #sign-unknown", "ended none"}, set(signs), "a sign beside each colour")

    def test_are_sorted_by_any_column_and_back(self):
        self.three()
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        head = lambda by: self.page.find(f'#history-rows [data-sort="{by}"]')
        rows = [("event", ["Door open", "Pump dry", "Pump hot"], "ascending"), ("event", ["Pump hot", "Pump dry", "Door open"], "descending"),
                ("length", ["Door open", "Pump dry", "Pump hot"], "descending"), ("annotation", ["Pump hot", "Door open", "Pump dry"], "ascending"),
                ("acknowledged", ["Pump hot", "Pump dry", "Door open"], "descending"), ("time", ["Pump hot", "Door open", "Pump dry"], "descending"),
                ("time", ["Pump dry", "Door open", "Pump hot"], "ascending")]
        for by, names, direction in rows:
            head(by).find_element(By.TAG_NAME, "button").click()
            self.until_rows(names)
            self.assertEqual(direction, head(by).get_attribute("aria-sort"), by)
        self.assertEqual("sort=time", self.query())

    def test_of_an_event_that_is_gone_are_shown_by_its_id(self):
        self.plant.record("Gone", minutes_ago(5), lasted=1)
        identity = self.plant.event("Gone")["id"]
        self.plant.events.clear()
        self.open_with([f"Unknown event {identity}"])
        # It turns up among the configured events, which are asked for anew because it was missing.
        self.plant.configure("Back again")["id"] = identity
        self.part("refresh").click()
        self.until_rows(["Back again"])

    def test_open_everything_about_one(self):
        identity = self.plant.record("Pump dry", utc(2026, 3, 1, 20, 30, 15), "Level 3 %\nsecond line", lasted=185, acknowledged_after=42,
                                     description="Feed water", groups=["Water", "Steam"], time_table="Shifts")
        self.open_with(["Pump dry"], "period=range&from=2026-03-01T00:00:00Z&to=2026-03-02T00:00:00Z")
        self.page.find(".log-row .name").click()
        self.page.until(lambda: self.page.shown("#occurrence"), "the dialog")
        text = self.page.text("#occurrence")
        for words in ("Pump dry", "Level 3 %\nsecond line", "Feed water", "2026-03-01 20:30:15 (UTC+00:00)", "2026-03-01 20:33:20", "2026-03-01 20:30:57",
                      "3 min 05 s", "after 42 s", "Water, Steam", "Shifts", identity):
            self.assertIn(words, text)
        self.page.press(Keys.ESCAPE)
        self.page.until(lambda: not self.page.shown("#occurrence"), "it closes")
        self.assertEqual("name", self.page.focused(), "the focus is back in the row")

    def test_are_walked_with_the_keyboard(self):
        for minute in range(200):
            self.plant.record(f"Event {minute:03d}", minutes_ago(minute + 1), lasted=1)
        self.open()
        self.page.until(lambda: self.page.log_names()[:1] == ["Event 000"], "the newest first")
        self.assertEqual(1, self.page.script("return document.querySelectorAll('.log-row .name[tabindex=\"0\"]').length"), "one stop for the Tab key")
        at = lambda: self.page.script("return document.activeElement.textContent")
        self.page.script("document.querySelector('.log-row .name').focus()")
        for keys, name in ((Keys.ARROW_DOWN, "Event 001"), (Keys.END, "Event 199"), (Keys.ARROW_DOWN, "Event 199"),
                           (Keys.ARROW_UP, "Event 198"), (Keys.HOME, "Event 000")):
            self.page.press(keys)
            self.page.until(lambda: at() == name, f"{name} has the focus")
            inside = self.page.script("""
                const row = document.activeElement.closest(".log-row").getBoundingClientRect();
                const frame = document.querySelector("#history-rows .scroll").getBoundingClientRect();
                return row.top >= frame.top - 1 && row.bottom <= frame.bottom + 1;""")
            self.assertTrue(inside, f"{name} is in sight")
        self.page.press(Keys.PAGE_DOWN)
        self.page.until(lambda: at() not in ("Event 000", "Event 001"), "a page further")
        self.page.press(Keys.ENTER)
        self.page.until(lambda: self.page.shown("#occurrence"), "the dialog")


class Periods(HistoryCase):
    def test_are_chosen_with_one_click_and_asked_for_in_utc(self):
        self.browser.zone("Asia/Tokyo")
        self.open()
        self.page.until_text("Nothing happened in this period", "#page-history")
        begin, end = self.asked()
        parse = lambda text: datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%SZ").replace(tzinfo=datetime.timezone.utc)
        self.assertEqual(datetime.timedelta(days=1, minutes=1), parse(end) - parse(begin))
        self.assertLess(abs(parse(end) - utc_now()), datetime.timedelta(seconds=90))
        tokyo = utc_now() + datetime.timedelta(hours=9)
        midnight = (tokyo.replace(hour=0, minute=0, second=0, microsecond=0) - datetime.timedelta(hours=9)).strftime("%Y-%m-%dT%H:%M:%SZ")
        for key, place in (("today", 0), ("yesterday", 1)):
            self.page.find(f'[data-period="{key}"]').click()
            self.page.until(lambda: self.asked()[place] == midnight, f"{key} begins or ends at midnight in Tokyo")
            self.assertEqual("true", self.page.find(f'[data-period="{key}"]').get_attribute("aria-pressed"))
            self.assertEqual(f"period={key}", self.query())
        for key in ("hour", "week", "month", "last-month", "day"):
            before = len(self.server.queries)
            self.page.find(f'[data-period="{key}"]').click()
            self.page.until(lambda: any(query.startswith(LOGGER) for query in self.server.queries[before:]), f"{key} is asked for")

    def test_are_taken_back_by_the_browser(self):
        self.plant.record("Recent", minutes_ago(5), lasted=1)
        self.plant.record("Earlier", minutes_ago(90), lasted=1)
        self.open_with(["Recent", "Earlier"])
        self.page.find('[data-period="hour"]').click()
        self.until_rows(["Recent"])
        self.page.driver.back()
        self.until_rows(["Recent", "Earlier"])
        self.assertEqual("", self.query())
        self.assertEqual("true", self.page.find('[data-period="day"]').get_attribute("aria-pressed"))

    def fill(self, name, text):
        self.page.script("arguments[0].value = arguments[1]", self.part(name), text)

    def test_can_be_exact(self):
        self.browser.zone("Europe/Madrid")
        self.plant.record("Inside", utc(2026, 3, 1, 9, 0, 0), lasted=1)
        self.plant.record("At the end", utc(2026, 3, 1, 10, 0, 0), lasted=1)
        self.open()
        self.page.until_text("Nothing happened", "#page-history")
        self.page.find('[data-period="range"]').click()
        self.assertTrue(self.page.shown("#page-history .range"))
        self.assertRegex(self.part("from").get_attribute("value"), r"^\d{4}-\d\d-\d\dT", "filled with what is shown")
        rows = [("2026-03-01T10:00:00", "2026-03-01T10:00:00", "after the beginning"), ("2026-03-01T11:00:00", "2026-03-01T10:00:00", "after the beginning"),
                ("", "2026-03-01T10:00:00", "both times")]
        for begin, end, words in rows:
            self.fill("from", begin)
            self.fill("to", end)
            self.page.find("#page-history .range button").click()
            self.page.until_text(words, "#page-history .range")
        self.fill("from", "2026-03-01T10:00:00")
        self.fill("to", "2026-03-01T11:00:00")
        self.page.find("#page-history .range button").click()
        self.until_rows(["Inside"])
        self.assertEqual(("2026-03-01T09:00:00Z", "2026-03-01T10:00:00Z"), self.asked())
        self.assertEqual("", self.part("range-problem").text)

    def test_stay_open_for_writing_while_the_plant_goes_on(self):
        self.open()
        self.page.until_text("Nothing happened", "#page-history")
        self.page.find('[data-period="range"]').click()
        self.fill("from", "2026-03-01T10:00:00")
        self.plant.activate("Pump dry")
        self.page.until(lambda: self.page.driver.title.startswith("(1) "), "the plant goes on")
        self.assertTrue(self.page.shown("#page-history .range"))
        self.assertEqual("2026-03-01T10:00", self.part("from").get_attribute("value")[:16])

    def test_in_a_link_that_lacks_its_times_say_so(self):
        self.open("period=range")
        self.page.until_text("Enter both times", "#page-history")
        self.assertFalse(self.page.shown('#page-history [data-part="again"]'))
        self.assertEqual([], [query for query in self.server.queries if query.startswith(LOGGER)])


class Filters(HistoryCase):
    def setUp(self):
        super().setUp()
        self.three()

    def choose(self, kind, *labels):
        self.page.part("#history-filters", kind).click()
        self.page.until(lambda: self.page.shown("#picker"), "the dialog")
        for line in self.page.driver.find_elements(By.CSS_SELECTOR, "#picker li"):
            box = line.find_element(By.TAG_NAME, "input")
            if box.is_selected() != (line.find_element(By.CSS_SELECTOR, '[data-part="label"]').text in labels):
                line.find_element(By.TAG_NAME, "label").click()
        self.page.find("#picker button[value=yes]").click()

    def test_by_words_events_and_groups_stand_in_the_link(self):
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        self.page.filter("pump")
        self.until_rows(["Pump hot", "Pump dry"])
        self.page.until(lambda: self.query() == "text=pump", "the words stand in the link")
        self.assertIn("2 of 3", self.part("rows-count").text)
        self.choose("events", "Pump dry", "Door open")
        self.until_rows(["Pump dry"])
        self.assertEqual("2 events", self.page.part("#history-filters", "events").text)
        self.choose("groups", "Yard")
        self.page.until_text("No occurrence matches the filter", "#page-history")
        self.assertIn("3 of this period are hidden", self.page.text("#page-history"))
        link = self.query()
        self.assertEqual({"text", "event", "group"}, set(urllib.parse.parse_qs(link)))
        self.page.part("#history-filters", "clear").click()
        self.until_rows(["Pump hot", "Door open", "Pump dry"])
        self.assertEqual("", self.query())

    def test_come_back_with_the_link(self):
        identity = self.plant.event("Pump hot")["id"].strip("{}")
        shown = lambda: self.page.script("return [...document.querySelectorAll('#history-totals tbody .name')].map((name) => name.textContent)")
        self.open(f"event={identity}&group=Water&text=bearing&sort=-length&view=totals")
        self.page.until(lambda: shown() == ["Pump hot"], "the one event")
        self.assertEqual("bearing", self.page.find("#filter").get_attribute("value"))
        self.assertEqual("Pump hot", self.page.part("#history-filters", "events").text)
        self.assertEqual("Water", self.page.part("#history-filters", "groups").text)
        self.assertTrue(self.page.shown("#history-totals"))
        self.assertFalse(self.page.shown("#history-rows"))
        self.page.driver.refresh()
        self.page.until(lambda: shown() == ["Pump hot"], "the one event again")
        self.assertEqual(f"event={identity}&group=Water&text=bearing&sort=-length&view=totals", self.query())

    def test_are_kept_while_another_page_is_looked_at(self):
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        self.choose("events", "Pump dry")
        self.until_rows(["Pump dry"])
        asked = len([query for query in self.server.queries if query.startswith(LOGGER)])
        self.page.find('#pages a[data-page="configured"]').click()
        self.page.until(lambda: self.page.shown("#page-configured"), "the other page")
        self.assertFalse(self.page.shown("#history-filters"))
        self.page.find('#pages a[data-page="history"]').click()
        self.page.until(lambda: self.page.shown("#history-rows"), "back again")
        self.assertEqual(["Pump dry"], self.page.log_names())
        self.assertEqual(asked, len([query for query in self.server.queries if query.startswith(LOGGER)]), "nothing was asked twice")

    def test_of_events_offer_those_without_rows_and_say_which_are_not_recorded(self):
        self.plant.configure("Silent")
        self.plant.event("Silent")["record"] = False
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        self.page.part("#history-filters", "events").click()
        self.page.until(lambda: self.page.shown("#picker"), "the dialog")
        lines = [line.text.replace("\n", " ") for line in self.page.driver.find_elements(By.CSS_SELECTOR, "#picker li")]
        self.assertEqual(["Door open 1", "Pump dry 1", "Pump hot 1", "Silent not recorded"], lines)
        self.page.part("#picker", "search").send_keys("hot")
        self.assertEqual(1, len(self.page.driver.find_elements(By.CSS_SELECTOR, "#picker li")))
        self.page.press(Keys.ENTER)
        self.assertTrue(self.page.shown("#picker"), "Enter in the search is no decision")
        self.page.press(Keys.ESCAPE)
        self.until_rows(["Pump hot", "Door open", "Pump dry"])

    def test_narrow_down_to_one_event_from_a_row_or_a_total(self):
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        self.page.find(".log-row .name").click()
        self.page.part("#occurrence", "only").click()
        self.until_rows(["Pump hot"])
        self.page.part("#history-filters", "clear").click()
        self.page.find('#page-history .views [data-view="totals"]').click()
        self.page.find("#history-totals tbody .name").click()
        self.page.until_text("1 event", '#page-history [data-part="totals-count"]')


class Totals(HistoryCase):
    def cells(self):
        return self.page.script("""
            return Object.fromEntries([...document.querySelectorAll("#history-totals tbody tr")].map((line) => [line.querySelector(".name").textContent,
              Object.fromEntries([...line.querySelectorAll("td [data-part]")].map((cell) =>
                [cell.dataset.part, cell.dataset.part === "bar" ? cell.style.width : cell.textContent]))]));""")

    def names(self):
        return self.page.script("return [...document.querySelectorAll('#history-totals tbody .name')].map((name) => name.textContent)")

    def test_count_and_sum_up_each_event(self):
        for minute, lasted, acknowledged in ((50, 60, 10), (40, 180, 50), (30, 0, None)):
            self.plant.record("Pump dry", minutes_ago(minute), lasted=lasted, acknowledged_after=acknowledged)
        self.plant.record("Door open", minutes_ago(20), lasted=720, notify=False)
        self.plant.record("Door open", minutes_ago(10))
        self.open("view=totals&totals=event")
        self.page.until(lambda: self.names() == ["Door open", "Pump dry"], "both events")
        cells = self.cells()
        pump = {"count": "3", "time": "4 min 00 s", "time-note": "", "longest": "3 min 00 s", "acknowledging": "30 s",
                "acknowledged": "2 of 3", "share": "60%", "bar": "100%"}
        door = {"count": "2", "time": "12 min 00 s", "time-note": "1 without recorded end", "longest": "12 min 00 s",
                "acknowledging": "not needed", "acknowledged": "", "share": "40%"}
        self.assertEqual(pump, cells["Pump dry"])
        self.assertEqual(door, {key: cells["Door open"][key] for key in door})
        Select(self.part("measure")).select_by_value("time")
        self.page.until(lambda: self.cells()["Door open"]["share"] == "75%", "the share of the time")
        self.assertEqual("33.3333%", self.cells()["Pump dry"]["bar"])
        self.assertIn("share=time", self.query())

    def test_tell_what_is_still_active_apart_from_what_has_ended(self):
        begin = minutes_ago(5)
        self.plant.record("Runs", begin, occurrence=self.plant.activate("Runs", "", begin))
        self.plant.record("Runs", minutes_ago(30), lasted=10, acknowledged_after=4)
        self.open("view=totals")
        self.page.until(lambda: self.names() == ["Runs"], "the event")
        cells = self.cells()["Runs"]
        self.assertEqual(("10 s", "10 s", "1 of 2, 1 waiting"), (cells["time"], cells["longest"], cells["acknowledged"]))
        self.assertRegex(cells["time-note"], r"^still active, 5 min \d\d s so far$")

    def test_are_sorted_by_any_column(self):
        self.three()
        self.plant.record("Pump dry", minutes_ago(20), lasted=1)
        self.open("view=totals")
        self.page.until(lambda: self.names() == ["Pump dry", "Door open", "Pump hot"], "most often first")
        for by, names in (("event", ["Door open", "Pump dry", "Pump hot"]), ("time", ["Door open", "Pump dry", "Pump hot"]),
                          ("longest", ["Door open", "Pump dry", "Pump hot"]),
                          ("acknowledging", ["Pump hot", "Pump dry", "Door open"]), ("share", ["Pump dry", "Door open", "Pump hot"])):
            self.page.find(f'#history-totals [data-sort="{by}"] button').click()
            self.page.until(lambda: self.names() == names, f"by {by}")


if __name__ == "__main__":
    unittest.main()
