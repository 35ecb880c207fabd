"""What the page shows of the events, and acknowledging."""

import datetime
import unittest

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from case import ConsoleCase
from mock_server import ago, scene_many


def utc(*fields):
    return datetime.datetime(*fields, tzinfo=datetime.timezone.utc)


class ActiveEvents(ConsoleCase):
    def test_are_shown_with_their_text_and_how_long_they_have_been_active(self):
        self.plant.activate("Pump dry", "Level 3 %", ago(seconds=200))
        self.page.open()
        self.page.until(lambda: self.page.active() == ["Pump dry"], "Pump dry is active")
        text = self.page.row_text("#active", "Pump dry")
        self.assertIn("Level 3 %", text)
        self.assertRegex(text, r"active for 3 min 2\d s")

    def test_durations_tick(self):
        self.plant.activate("Pump dry", since=ago(seconds=30))
        self.page.open()
        self.page.until_text("active for 3", "#active")
        before = self.page.row_text("#active", "Pump dry")
        self.page.until(lambda: self.page.row_text("#active", "Pump dry") != before, "the duration grows", 3)

    def test_times_are_those_of_the_browser(self):
        self.browser.zone("Asia/Tokyo")
        self.plant.activate("Pump dry", since=utc(2024, 2, 29, 20, 30, 15))
        self.page.open()
        self.page.until_text("2024-03-01 05:30:15", "#active")
        self.assertIn("Asia/Tokyo", self.page.text("footer"))

    def test_tell_apart_waiting_acknowledged_and_merely_informing(self):
        self.plant.activate("Waits")
        self.plant.acknowledge(self.plant.activate("Taken"))
        self.plant.activate("Informs", notify=False)
        self.page.open()
        self.page.until(lambda: len(self.page.active()) == 3, "three active events")
        for name, words in {"Waits": "Waiting", "Taken": "Acknowledged", "Informs": "Information"}.items():
            self.assertIn(words, self.page.row_text("#active", name))
        signs = self.page.script("return [...document.querySelectorAll('#active .row use')].map((u) => u.getAttribute('href'))")
        self.assertEqual(3, len(set(signs)), "each state has a sign of its own")
        self.assertEqual(["Waits"], self.page.waiting())

    def test_count_as_waiting_as_long_as_nothing_says_that_they_are_not(self):
        self.server.fault, self.server.fault_path = "broken", "/services/events/notified.xml"
        self.plant.activate("Waits")
        self.plant.activate("Informs", notify=False)
        self.page.open()
        self.page.until(lambda: len(self.page.active()) == 2, "both events")
        self.assertIn("Waiting", self.page.row_text("#active", "Waits"))
        self.assertIn("Information", self.page.row_text("#active", "Informs"))

    def test_that_end_go(self):
        self.plant.activate("Pump dry", notify=False)
        self.page.open()
        self.page.until(lambda: self.page.active() == ["Pump dry"], "Pump dry is active")
        self.plant.deactivate("Pump dry")
        self.page.until_text("Nothing is active", "#active")
        self.assertIn("One event is being watched", self.page.text("#active"))

    def test_with_the_same_id_are_all_shown(self):
        self.plant.activate("First", notify=False)
        self.plant.activate("Second", notify=False)
        first, second = (self.plant.event(name) for name in ("First", "Second"))
        second["id"] = first["id"]
        self.page.open()
        self.page.until(lambda: sorted(self.page.active()) == ["First", "Second"], "both events with one id")

    def test_empty_configuration_says_that_nothing_is_watched(self):
        self.page.open()
        self.page.until_text("No events are configured", "#active")
        self.assertIn("Nothing to acknowledge", self.page.text("#waiting"))


class WaitingOccurrences(ConsoleCase):
    def test_stand_newest_first_or_in_the_order_that_is_chosen(self):
        for name, minutes in (("Beta", 3), ("Gamma", 1), ("Alpha", 2)):
            self.plant.activate(name, since=ago(minutes=minutes))
        self.page.open()
        self.page.until_waiting(["Gamma", "Alpha", "Beta"])
        order = Select(self.page.find("#order"))
        for choice, names in (("oldest first", ["Beta", "Alpha", "Gamma"]), ("by name", ["Alpha", "Beta", "Gamma"])):
            order.select_by_visible_text(choice)
            self.assertEqual(names, self.page.waiting())

    def test_of_the_same_second_stand_in_the_order_in_which_they_came(self):
        now = ago(seconds=30)
        self.plant.activate("First", since=now)
        self.page.open()
        self.page.until_waiting(["First"])
        self.plant.activate("Second", since=now)
        self.page.until_waiting(["Second", "First"])

    def test_that_have_ended_stay_and_say_how_long_it_lasted(self):
        self.plant.activate("Pump dry", since=ago(minutes=10))
        self.plant.deactivate("Pump dry", ago(minutes=9, seconds=15))
        self.page.open()
        self.page.until_waiting(["Pump dry"])
        text = self.page.row_text("#waiting", "Pump dry")
        self.assertIn("Ended", text)
        self.assertIn("lasted 45 s", text)
        self.assertIn("all ended", self.page.text("#summary"))

    def test_of_one_event_are_shown_each(self):
        for minutes in (5, 3, 1):
            self.plant.activate("Flap stuck", since=ago(minutes=minutes))
            self.plant.deactivate("Flap stuck")
        self.page.open()
        self.page.until_waiting(["Flap stuck"] * 3)

    def test_are_filtered_by_name_text_and_group(self):
        self.plant.activate("Pump dry", "Level 3 %", ago(minutes=3), groups=["Water"])
        self.plant.activate("Valve stuck", "Torque high", ago(minutes=2), groups=["Steam"])
        self.plant.activate("Pump hot", "Bearing 95 °C", ago(minutes=1), groups=["Water"])
        self.page.open()
        self.page.until_waiting(["Pump hot", "Valve stuck", "Pump dry"])
        for words, names in (("PUMP", ["Pump hot", "Pump dry"]), ("torque", ["Valve stuck"]), ("water", ["Pump hot", "Pump dry"]),
                             ("pump level", ["Pump dry"]), ("°C", ["Pump hot"])):
            self.page.filter(words)
            self.assertEqual(names, self.page.waiting(), words)
        self.assertEqual("1 of 3", self.page.part("#waiting", "count").text)
        self.page.filter("nothing like it")
        self.assertIn("None of the waiting occurrences matches the filter", self.page.text("#waiting"))
        self.page.press(Keys.ESCAPE)
        self.page.until_waiting(["Pump hot", "Valve stuck", "Pump dry"])

    def test_show_details_on_request(self):
        self.plant.activate("Pump dry", "Level 3 %", description="Feed water pump", groups=["Water", "Steam"], time_table="Shifts")
        self.page.open()
        self.page.until_waiting(["Pump dry"])
        name = self.page.in_row("Pump dry", "name")
        self.assertEqual("false", name.get_attribute("aria-expanded"))
        name.click()
        text = self.page.row_text("#waiting", "Pump dry")
        for words in ("Feed water pump", "Water, Steam", "Shifts", "changes are recorded", "{"):
            self.assertIn(words, text)
        self.assertEqual("true", name.get_attribute("aria-expanded"))

    def test_are_counted_in_the_title_and_at_the_top(self):
        self.plant.activate("Pump dry")
        self.plant.activate("Pump hot")
        self.page.open()
        self.page.until(lambda: self.page.driver.title.startswith("(2) "), "two in the title")
        self.assertEqual("2", self.page.part("#summary", "waiting-count").text)
        self.assertIn("icon-waiting", self.page.find("#icon").get_attribute("href"))
        for occurrence in list(self.plant.occurrences):
            self.plant.acknowledge(occurrence["id"])
        self.page.until(lambda: self.page.driver.title == "Events – Corvane", "no number in the title")

    def test_are_many_on_a_bad_day(self):
        scene_many(self.plant, 200)
        self.page.open()
        self.page.until(lambda: len(self.page.waiting()) == 200, "all 200")
        self.assertEqual(100, len(self.page.active()))

    def test_beyond_what_is_drawn_are_counted_and_can_be_asked_for(self):
        scene_many(self.plant, 1000)
        self.page.open()
        self.page.until(lambda: len(self.page.waiting()) == 300, "the first 300")
        self.assertTrue(self.page.driver.title.startswith("(1000) "))
        more = self.page.part("#waiting", "more")
        self.assertEqual("Show all 1000", more.text)
        scene_many(self.plant, 500)
        self.page.until(lambda: more.text == "Show 1200 of 1500", "the button follows")
        more.click()
        self.page.until(lambda: len(self.page.waiting()) == 1200, "1200")
        self.assertEqual("Show all 1500", more.text)


class NewOccurrences(ConsoleCase):
    def test_are_marked_and_read_aloud_but_not_those_that_were_there_at_the_start(self):
        self.plant.activate("Old story")
        self.page.open()
        self.page.until_waiting(["Old story"])
        self.assertEqual("polite", self.page.find("#announcer").get_attribute("aria-live"))
        self.assertEqual("", self.page.announced())
        self.assertFalse(self.page.in_row("Old story", "new").is_displayed())
        self.plant.activate("Fresh news", "Level 3 %")
        self.page.until_waiting(["Fresh news", "Old story"])
        self.assertEqual("To acknowledge: Fresh news, Level 3 %", self.page.announced())
        self.assertTrue(self.page.in_row("Fresh news", "new").is_displayed())

    def test_of_events_that_only_inform_are_read_aloud_as_active(self):
        self.plant.configure("Informs", notify=False)
        self.page.open()
        self.page.until_text("Nothing is active", "#active")
        self.plant.activate("Informs")
        self.page.until(lambda: self.page.announced() == "Active: Informs", "the announcement")

    def test_in_a_flood_are_read_as_a_number(self):
        self.page.open()
        self.page.until_text("Nothing to acknowledge", "#waiting")
        with self.plant.mutex:
            for number in range(20):
                self.plant.activate(f"Feeder {number}")
        self.page.until(lambda: self.page.announced() != "", "an announcement")
        self.assertIn("and 17 more", self.page.announced())


class Acknowledging(ConsoleCase):
    def setUp(self):
        super().setUp()
        self.ids = {name: self.plant.activate(name, since=ago(minutes=minutes))
                    for name, minutes in (("One", 1), ("Two", 2), ("Three", 3), ("Four", 4))}

    def open(self):
        self.page.open()
        self.page.until_waiting(["One", "Two", "Three", "Four"])

    def test_one_takes_it_from_the_list_and_leaves_it_active(self):
        self.open()
        self.page.acknowledge("Two")
        self.page.until_waiting(["One", "Three", "Four"])
        self.assertEqual([self.ids["Two"]], self.plant.acknowledged)
        self.assertIn("Acknowledged", self.page.row_text("#active", "Two"))
        self.page.until_text("Acknowledged: Two", "#notice")

    def test_several_takes_those_that_are_selected(self):
        self.open()
        self.page.select_row("One")
        self.page.select_row("Three")
        self.page.part("#waiting", "ack-selected").click()
        self.page.until_waiting(["Two", "Four"])
        self.assertEqual({self.ids["One"], self.ids["Three"]}, set(self.plant.acknowledged))

    def test_selected_without_a_selection_asks_for_one(self):
        self.open()
        self.page.part("#waiting", "ack-selected").click()
        self.page.until_text("Select one or more", "#notice")
        self.assertEqual([], self.plant.acknowledged)

    def test_all_asks_back_and_cancel_does_nothing(self):
        self.open()
        self.page.part("#waiting", "ack-all").click()
        self.page.until_text("Acknowledge 4 occurrences?", "#confirm")
        self.page.find("#confirm button[value=no]").click()
        self.page.until(lambda: not self.page.shown("#confirm"), "the question goes")
        self.assertEqual([], self.plant.acknowledged)

    def test_all_takes_what_was_shown_and_nothing_that_came_meanwhile(self):
        self.open()
        self.page.part("#waiting", "ack-all").click()
        self.page.until_text("Acknowledge 4 occurrences?", "#confirm")
        self.plant.activate("Came later")
        self.page.until(lambda: "Came later" in self.page.waiting(), "the newcomer")
        self.page.find("#confirm button[value=yes]").click()
        self.page.until_waiting(["Came later"])
        self.assertEqual(set(self.ids.values()), set(self.plant.acknowledged))

    def test_all_with_a_filter_takes_only_what_is_shown(self):
        self.open()
        self.page.filter("o")
        self.assertEqual(["One", "Two", "Four"], self.page.waiting())
        every = self.page.part("#waiting", "ack-all")
        self.assertEqual("Acknowledge all shown (3)", every.text)
        every.click()
        self.page.until_text("Acknowledge 3 occurrences?", "#confirm")
        self.page.find("#confirm button[value=yes]").click()
        self.page.until(lambda: self.page.waiting() == [], "none of the filtered")
        self.page.press(Keys.ESCAPE)
        self.page.until_waiting(["Three"])

    def test_a_selection_that_the_filter_hides_is_left_alone(self):
        self.open()
        self.page.select_row("One")
        self.page.select_row("Three")
        self.page.filter("three")
        self.page.part("#waiting", "ack-selected").click()
        self.page.until(lambda: self.plant.acknowledged == [self.ids["Three"]], "only what is in sight")

    def test_all_of_a_flood_arrives_whole(self):
        with self.plant.mutex:
            for number in range(2500):
                self.plant.activate(f"Feeder {number}", since=ago(minutes=10))
        self.page.open()
        self.page.until(lambda: self.page.driver.title.startswith("(2504) "), "all are known")
        self.page.part("#waiting", "ack-all").click()
        self.page.find("#confirm button[value=yes]").click()
        self.page.until(lambda: len(set(self.plant.acknowledged)) == 2504, "all arrived", 20)
        self.page.until_text("2504 occurrences acknowledged", "#notice")

    def test_that_fails_says_so_and_keeps_the_occurrence(self):
        self.open()
        self.server.fault, self.server.fault_path = "busy", "/services/events/ack.xml"
        self.page.acknowledge("One")
        self.page.until_text("Not acknowledged: the server is too busy (503)", "#notice")
        self.assertIn("One", self.page.waiting())
        self.server.fault = None
        self.page.acknowledge("One")
        self.page.until_waiting(["Two", "Three", "Four"])

    def test_that_the_server_passes_over_leaves_the_button_usable(self):
        # An id that the server has forgotten is passed over silently: 204, and the row is as it was.
        self.open()
        occurrence = next(o for o in self.plant.occurrences if o["id"] == self.ids["One"])
        self.plant.acknowledge = self.plant.acknowledged.append
        self.page.acknowledge("One")
        self.page.until(lambda: self.plant.acknowledged == [occurrence["id"]], "the acknowledgement arrives")
        self.page.until(lambda: self.page.in_row("One", "ack").text == "Acknowledge", "the button is back")

    def test_a_click_right_after_the_list_moved_does_nothing(self):
        self.open()
        row = self.page.row("#waiting", "One")
        button = row.find_element(By.CSS_SELECTOR, '[data-part="ack"]')
        # The pointer rests on the first row when a newer one takes that place; the click comes at that very moment.
        self.page.script("""
            const rows = arguments[0].parentElement;
            rows.dispatchEvent(new PointerEvent("pointermove", { bubbles: true }));
            new MutationObserver((changes, observer) => {
              observer.disconnect();
              setTimeout(() => arguments[1].dispatchEvent(new MouseEvent("click", { detail: 1 })), 50);
            }).observe(rows, { childList: true });""", row, button)
        self.plant.activate("Newer")
        self.page.until_text("The list has just moved", "#notice")
        self.assertEqual([], self.plant.acknowledged)


class HostileTexts(ConsoleCase):
    TEXTS = ["<script>document.title='broken'</script>", "<img src=x onerror=\"document.title='broken'\">", "Tom & Jerry &amp; Co",
             "\"quoted\" 'single' ]]>", "<b>bold</b>", "x" * 250, "&lt;i&gt;"]

    def test_are_shown_as_text(self):
        for text in self.TEXTS:
            self.plant.activate(text, f"note {text}", description=f"about {text}", groups=[text], time_table=text)
        self.plant.device(self.TEXTS[0], self.TEXTS[1], kind=self.TEXTS[2], variables=[(self.TEXTS[4], self.TEXTS[1], 1, ("x", self.TEXTS[0]))])
        self.page.open()
        self.page.until(lambda: sorted(self.page.waiting()) == sorted(self.TEXTS), "all names, letter by letter")
        notes = self.page.script("return [...document.querySelectorAll('#waiting .text')].map((n) => n.textContent)")
        self.assertEqual(sorted(f"note {text}" for text in self.TEXTS), sorted(notes))
        for name in self.page.driver.find_elements(By.CSS_SELECTOR, "#waiting button.name"):
            name.click()
        for route in ("#/variables", "#/configured"):
            self.page.open(route)
            self.page.until_text("<b>bold</b>", "main")
        self.assertEqual(0, self.page.script("return document.querySelectorAll('main script, main img, main b b, main i').length"))
        self.assertNotIn("broken", self.page.driver.title)
        self.assertLessEqual(self.page.script("return document.documentElement.scrollWidth"), 1440)


if __name__ == "__main__":
    unittest.main()
