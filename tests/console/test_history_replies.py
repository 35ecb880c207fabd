"""The history with many rows, slow answers, refusals, and what happens meanwhile."""

import datetime
import re
import time
import unittest

from selenium.webdriver.common.keys import Keys

from history_case import LOGGER, HistoryCase, minutes_ago, utc
from mock_server import HEAD, utc_now


class Crowds(HistoryCase):
    COUNT = 75000

    def crowd(self):
        """A log of a bad year: as many records as a reply of ordinary length holds."""
        for number in range(40):
            self.plant.configure(f"Feeder {number:02d} overloaded", groups=["Energy"])
        ids = [event["id"] for event in self.plant.events]
        begin = utc(2026, 1, 1)
        rows = []
        for number in range(self.COUNT):
            date = begin + datetime.timedelta(seconds=number * 400)
            rows.append(f"<record><id>{{00000000-0000-0000-0000-{number:012X}}}</id><eventId>{ids[number * 7 % 40]}</eventId>"
                        f"<annotation>Feeder carries {400 + number % 97} A &amp; is hot, number {number}</annotation>"
                        f"<dateTime>{date.strftime('%d%m%Y%H%M%S')}</dateTime>"
                        f"<ackDelay>{number % 50}</ackDelay><disabledDelay>{number % 300}</disabledDelay></record>")
        self.plant.reply = f"{HEAD}<loggerEvents>{''.join(rows)}</loggerEvents>"

    def test_of_rows_leave_the_page_quick(self):
        self.crowd()
        self.page.open("#/configured")
        self.page.until(lambda: len(self.page.names("#page-configured")) == 40, "the page")
        self.page.script("""
            window.longest = 0;
            let last = performance.now();
            setInterval(() => { const now = performance.now(); window.longest = Math.max(window.longest, now - last); last = now; }, 10);""")
        longest = lambda: self.page.script("const { longest } = window; window.longest = 0; return longest")
        longest()
        began = time.monotonic()
        self.page.script("location.hash = '#/history?period=range&from=2026-01-01T00:00:00Z&to=2027-01-01T00:00:00Z'")
        self.page.until(lambda: self.page.log_rows()[:1] and "number 74999" in self.page.log_rows()[0]["text"], "the newest of all", 60)
        loaded = time.monotonic() - began
        figures = {"load": longest()}
        drawn = self.page.script("return document.querySelectorAll('.log-row').length")
        self.assertLess(drawn, 120, "rows in the page")
        self.assertEqual("75,000", self.part("rows-count").text)
        acts = {
            "sort": lambda: self.page.find('#history-rows [data-sort="annotation"] button').click(),
            "back": lambda: self.page.find('#history-rows [data-sort="time"] button').click(),
            "filter": lambda: self.page.filter("number 7499"),
            "clear": lambda: self.page.part("#history-filters", "clear").click(),
            "zoom": lambda: self.page.part("#history-timeline", "in").click(),
            "totals": lambda: self.page.find('#page-history .views [data-view="totals"]').click(),
            "rows": lambda: self.page.find('#page-history .views [data-view="rows"]').click(),
            "end": lambda: self.page.script("const box = document.querySelector('#history-rows .scroll'); box.scrollTop = box.scrollHeight"),
        }
        for name, act in acts.items():
            act()
            time.sleep(0.4)
            figures[name] = longest()
        self.page.until(lambda: "number 0" in self.page.log_rows()[-1]["text"].split(","  )[-1], "the oldest at the end")
        told = ", ".join(f"{name} {milliseconds:.0f}" for name, milliseconds in figures.items())
        print(f"\n75,000 rows in {loaded:.1f} s; longest standstill in ms: {told}", flush=True)
        self.assertLess(max(figures.values()), 1500, figures)

    def test_of_rows_beyond_what_browsers_scroll_are_reached_all(self):
        count = 300000  # of 36 pixels: more than eight millions, behind which browsers begin to differ
        event = self.plant.configure("Pump dry")["id"]
        record = f"<record><id>{{00000000-0000-0000-0000-%012X}}</id><eventId>{event}</eventId><dateTime>01012026%02d%02d%02d</dateTime></record>"
        moments = ((second // 3600 % 24, second // 60 % 60, second % 60) for second in range(count))
        self.plant.reply = f"{HEAD}<loggerEvents>{''.join(record % (number, *moment) for number, moment in enumerate(moments))}</loggerEvents>"
        self.open("sort=event&period=week")
        places = lambda: self.page.script("return [...document.querySelectorAll('.log-row')].map((row) => Number(row.dataset.place)).sort((a, b) => a - b)")
        self.page.until(lambda: self.part("rows-count").text == "300,000", "all are known", 60)
        self.assertEqual(0, places()[0])
        scroll = "const box = document.querySelector('#history-rows .scroll'); box.scrollTop = arguments[0] * (box.scrollHeight - box.clientHeight);"
        for part, place in ((1, count - 1), (0.5, count // 2), (0.25, count // 4), (0, 0)):
            self.page.script(scroll, part)
            self.page.until(lambda: places()[0] <= place <= places()[-1], f"row {place} at {part}")
        self.page.script("document.querySelector('.log-row .name').focus({ preventScroll: true })")
        for keys, place in ((Keys.END, count - 1), (Keys.ARROW_UP, count - 2), (Keys.HOME, 0), (Keys.ARROW_DOWN, 1)):
            self.page.press(keys)
            self.page.until(lambda: self.page.script("return document.activeElement.closest('.log-row')?.dataset.place") == str(place), f"the focus at {place}")
            inside = self.page.script("""
                const row = document.activeElement.closest(".log-row").getBoundingClientRect();
                const frame = document.querySelector("#history-rows .scroll").getBoundingClientRect();
                return [row.top - frame.top, frame.bottom - row.bottom];""")
            self.assertGreaterEqual(min(inside), -1.5, (place, inside))

    def test_of_lanes_scroll_and_are_drawn_where_they_are_seen(self):
        for number in range(300):
            self.plant.record(f"Event {number:03d}", minutes_ago(5), lasted=30)
        self.open()
        self.page.until(lambda: len(self.page.log_rows()) > 0, "rows")
        shown, whole, drawn = self.page.script("""
            const box = document.querySelector("#history-timeline .lanes");
            return [box.clientHeight, box.scrollHeight, box.querySelector("canvas").clientHeight];""")
        self.assertEqual(shown, drawn)
        self.assertEqual(300 * 26, whole)
        box = self.page.find("#history-timeline .lanes")
        box.send_keys(Keys.ARROW_RIGHT)
        for _ in range(40):
            box.send_keys(Keys.ARROW_DOWN)
        self.assertIn("Event 040", self.page.text("#history-timeline .bubble"))
        self.assertGreater(self.page.script("return arguments[0].scrollTop", box), 500)


class Waiting(HistoryCase):
    def fault(self, fault):
        self.server.fault, self.server.fault_path = fault, LOGGER

    def test_shows_that_it_takes_its_time_and_can_be_cancelled(self):
        self.fault("hang")
        self.open()
        self.page.until_text("Asking the server…", "#page-history")
        self.page.until_text("The server is reading its log…", "#page-history .asking", 3)
        self.part("cancel").click()
        self.page.until_text("Cancelled", "#page-history")
        self.assertFalse(self.page.shown("#page-history .asking"))
        self.fault(None)
        self.three()
        self.part("again").click()
        self.until_rows(["Pump hot", "Door open", "Pump dry"])

    def test_tells_how_far_it_is(self):
        for minute in range(600):
            self.plant.record("Pump dry", minutes_ago(minute + 1), "x" * 200, lasted=1)
        self.fault("stall")
        self.open()
        self.page.until(lambda: re.search(r"\d+ occurrences so far, 0\.1 MB of 0\.\d MB", self.page.text("#page-history .asking")), "the progress")
        part = float(self.part("asking-part").get_attribute("value"))
        self.assertTrue(0.4 < part < 0.6, part)
        self.page.until(lambda: self.page.text("#link") == "Live", "the page lives on")
        self.server.released.set()
        self.page.until(lambda: len(self.page.log_rows()) > 0, "the rows")
        self.assertFalse(self.page.shown("#page-history .asking"))

    def test_can_be_cancelled_before_the_log_is_asked_for(self):
        # Without live data the page first asks what runs.
        self.server.fault, self.server.fault_path = "hang", "/services/events/actived.xml"
        self.open()
        self.page.until_text("The server is reading its log…", "#page-history .asking", 5)
        self.part("cancel").click()
        self.server.fault = None
        self.server.released.set()
        self.page.until(lambda: self.page.text("#link") == "Live", "the page is live", 30)
        time.sleep(0.5)
        self.assertIn("Cancelled", self.page.text("#page-history .nothing"))
        self.assertEqual([], [query for query in self.server.queries if query.startswith(LOGGER)])

    def test_knows_what_ran_when_the_log_was_read(self):
        begin = minutes_ago(5)
        self.plant.activate("Door open", "", begin, notify=False)
        self.plant.record("Door open", begin)
        self.page.open()
        self.page.until(lambda: self.page.active() == ["Door open"], "it is active")
        self.fault("stall")
        self.page.find('#pages a[data-page="history"]').click()
        self.page.until_text("so far", "#page-history .asking", 5)
        self.plant.deactivate("Door open")
        self.page.until_text("0", '#summary [data-part="active-count"]')
        self.server.released.set()
        self.until_rows(["Door open"])
        self.assertRegex(self.page.log_rows()[0]["length"], r"^active for 5 min")

    def test_shows_no_progress_for_quick_answers(self):
        self.three()
        self.open()
        self.page.script("""
            window.seen = false;
            new MutationObserver(() => { window.seen ||= !document.querySelector("#page-history .asking").hidden; })
              .observe(document.querySelector("#page-history .asking"), { attributes: true });""")
        self.until_rows(["Pump hot", "Door open", "Pump dry"])
        for _ in range(3):
            self.part("refresh").click()
            time.sleep(0.2)
        self.assertFalse(self.page.script("return window.seen"))

    def test_for_another_period_forgets_the_question_before(self):
        self.three()
        self.fault("hang")
        self.open()
        self.page.until_text("The server is reading its log…", "#page-history .asking", 5)
        self.fault(None)
        self.page.find('[data-period="hour"]').click()
        self.until_rows(["Pump hot", "Door open", "Pump dry"])
        self.server.released.set()
        time.sleep(0.5)
        self.assertEqual(3, len(self.page.log_names()))


class Problems(HistoryCase):
    def fault(self, fault):
        self.server.fault, self.server.fault_path = fault, LOGGER

    def test_are_told_in_plain_words(self):
        rows = [(400, "doesn't take this period"), (403, "You may not see the history"), (404, "keeps no history"), (413, "Choose a shorter one"),
                (429, "refuses to answer for a while"), ("busy", "can't answer at the moment (503)"), (500, "The server refused"),
                ("broken", "the reply isn't a log")]
        self.fault(400)
        self.open()
        for fault, words in rows:
            self.fault(fault)
            self.part("refresh").click()
            self.page.until_text(words, "#page-history .nothing")
            self.assertTrue(self.part("again").is_displayed(), fault)
            self.assertFalse(self.page.shown("#banner"), "the plant is still in sight")
        self.three()
        self.fault(None)
        self.part("again").click()
        self.until_rows(["Pump hot", "Door open", "Pump dry"])

    def test_of_a_refresh_keep_what_was_there_and_say_so(self):
        self.three()
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        self.fault("busy")
        self.part("refresh").click()
        self.page.until_text("Not refreshed: The server can't answer at the moment (503)", "#page-history .caution")
        self.assertEqual(3, len(self.page.log_names()))
        self.page.find('[data-period="hour"]').click()
        self.page.until_text("can't answer at the moment (503)", "#page-history .nothing")
        self.assertEqual([], self.page.log_names(), "rows of another period don't stand there as if they were of this one")

    def test_of_the_connection_mend_themselves(self):
        self.three()
        self.page.open()
        self.page.until_text("Nothing is active", "#active")
        self.server.stop()
        self.page.until_text("No connection", "#banner")
        self.page.find('#pages a[data-page="history"]').click()
        self.page.until_text("No connection to the server", "#page-history .nothing")
        self.server.start()
        self.until_rows(["Pump hot", "Door open", "Pump dry"], 30)

    def test_of_a_reply_that_broke_off_are_told_beside_what_came(self):
        self.plant.record("Pump dry", minutes_ago(5), lasted=1)
        event = self.plant.event("Pump dry")["id"]
        record = ("<record><id>{00000000-0000-0000-0000-000000000001}</id><eventId>%s</eventId><dateTime>%s</dateTime></record>" %
                  (event, minutes_ago(5).strftime("%d%m%Y%H%M%S")))
        self.plant.reply = HEAD + "<loggerEvents>" + record + record[:60]
        self.open_with(["Pump dry"])
        self.assertIn("The answer broke off", self.part("caution").text)
        self.plant.reply = HEAD + "<loggerEvents><record>?<dateTime></dateTime></record>" + record + "</loggerEvents>"
        self.part("refresh").click()
        self.page.until_text("1 record couldn't be understood and is missing here", "#page-history .caution")
        self.assertEqual(["Pump dry"], self.page.log_names())

    def test_of_an_empty_log_name_events_that_are_not_recorded(self):
        self.plant.configure("Silent")
        self.plant.event("Silent")["record"] = False
        self.plant.configure("Recorded")
        self.open()
        self.page.until_text("Nothing happened in this period", "#page-history .nothing")
        self.page.until_text("1 event of 2 isn't recorded", "#page-history .nothing")

    def test_of_the_session_lead_to_the_form_and_leave_nothing(self):
        self.three()
        self.server.users = {"ana": "x"}
        self.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")
        self.page.sign_in("ana", "x")
        self.until_rows(["Pump hot", "Door open", "Pump dry"])
        self.page.part("#who", "sign-out").click()
        self.page.until(lambda: self.page.shown("#signin"), "the form again")
        left = self.page.script("return document.getElementById('page-history').innerHTML")
        for words in ("Pump", "Door", "Level 3", "Gate 2"):
            self.assertNotIn(words, left)
        self.page.sign_in("ana", "x")
        self.until_rows(["Pump hot", "Door open", "Pump dry"])

    def test_of_a_session_that_ends_between_two_questions_lead_there_too(self):
        self.fault(401)
        self.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")


class News(HistoryCase):
    def test_since_the_question_are_told_and_fetched_on_request(self):
        self.three()
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        self.assertRegex(self.part("as-of").text, r"^as of \d\d:\d\d:\d\d$")
        since = utc_now().replace(microsecond=0)
        self.plant.record("Pump wet", since, occurrence=self.plant.activate("Pump wet", "", since))
        self.page.until_text("there is news since", "#page-history .told")
        self.assertEqual(3, len(self.page.log_names()), "nothing moves by itself")
        self.part("refresh").click()
        self.until_rows(["Pump wet", "Pump hot", "Door open", "Pump dry"])
        self.page.until(lambda: "news" not in self.part("as-of").text, "no more")

    def test_of_an_end_and_of_an_acknowledgement_count_too(self):
        for act in (lambda: self.plant.acknowledge(running), lambda: self.plant.deactivate("Pump wet")):
            begin = minutes_ago(5)
            running = self.plant.activate("Pump wet", "", begin)
            self.page.driver.get("about:blank")
            self.open("period=hour")
            self.page.until_text("Nothing happened", "#page-history")
            self.page.until(lambda: self.page.driver.title.startswith("(1) "), "it is known")
            self.assertNotIn("news", self.part("as-of").text)
            act()
            self.page.until_text("there is news since", "#page-history .told")
            self.plant.acknowledge(running)
            self.plant.deactivate("Pump wet")

    def test_of_events_that_are_not_recorded_are_none(self):
        self.plant.configure("Silent", notify=False)
        self.plant.event("Silent")["record"] = False
        self.open()
        self.page.until_text("isn't recorded", "#page-history")
        self.plant.activate("Silent")
        self.page.until_text("1", '#summary [data-part="active-count"]')
        time.sleep(1.5)
        self.assertNotIn("news", self.part("as-of").text)

    def test_are_fetched_when_somebody_comes_back_later(self):
        self.three()
        self.open_with(["Pump hot", "Door open", "Pump dry"])
        self.page.find('#pages a[data-page="configured"]').click()
        self.page.until(lambda: self.page.shown("#page-configured"), "the other page")
        self.plant.record("Door open", minutes_ago(1), lasted=3)
        self.page.script("const now = Date.now; Date.now = () => now() + 60000")
        self.page.find('#pages a[data-page="history"]').click()
        self.until_rows(["Door open", "Pump hot", "Door open", "Pump dry"])

    def test_are_none_for_a_period_that_is_over(self):
        self.open("period=yesterday")
        self.page.until_text("Nothing happened", "#page-history")
        self.plant.activate("Pump wet")
        self.page.until(lambda: self.page.driver.title.startswith("(1) "), "it is noticed")
        self.assertNotIn("news", self.part("as-of").text)


if __name__ == "__main__":
    unittest.main()
