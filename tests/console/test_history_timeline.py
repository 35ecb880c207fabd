"""The picture of the history: with the mouse, with fingers, with the keyboard."""

import re
import unittest

from selenium.webdriver import ActionChains
from selenium.webdriver.common.actions.wheel_input import ScrollOrigin
from selenium.webdriver.common.keys import Keys

from history_case import HistoryCase, utc


class Timelines(HistoryCase):
    def setUp(self):
        super().setUp()
        for hour in range(1, 23):
            self.plant.record("Pump dry", utc(2026, 3, 1, hour), f"Number {hour}", lasted=600, acknowledged_after=60)
        self.plant.record("Door open", utc(2026, 3, 1, 12, 20), lasted=3000, notify=False)
        self.open("period=range&from=2026-03-01T00:00:00Z&to=2026-03-02T00:00:00Z")
        self.page.until(lambda: len(self.page.log_rows()) > 0, "rows")
        self.box = self.page.find("#history-timeline .lanes")

    def sight(self):
        return self.page.part("#history-timeline", "count").text

    def bubble(self):
        return self.page.text("#history-timeline .bubble")

    def plot(self, place, lane=0):
        """Offset from the middle of the box to a place from 0 to 1 of the time axis, in a lane."""
        size = self.box.size
        names = round(min(260, size["width"] * 0.22))
        x = names + place * (size["width"] - names - 16)
        return round(x - size["width"] / 2), round(lane * 26 + 14 - size["height"] / 2)

    def actions(self):
        return ActionChains(self.page.driver, duration=20)

    def test_sum_themselves_up_for_those_who_cannot_see(self):
        label = self.box.get_attribute("aria-label")
        for words in ("23 occurrences of 2 events", "2026-03-01 00:00 – 2026-03-02 00:00", "Most often: Pump dry, 22; Door open, 1"):
            self.assertIn(words, label)
        described = self.box.get_attribute("aria-describedby")
        self.assertIn("Left and right arrow", self.page.script("return document.getElementById(arguments[0]).textContent", described))

    def test_draw_their_bars_where_they_belong(self):
        # In the lane of the pump the bars are ten minutes in each hour; in that of the door nothing but noon.
        def inked(place, lane):
            x, y = self.plot(place, lane)
            return self.page.script("""
                const canvas = document.querySelector("#history-timeline .lanes canvas"), fine = canvas.width / canvas.clientWidth;
                const box = document.querySelector("#history-timeline .lanes").getBoundingClientRect();
                const copy = new OffscreenCanvas(1, 1).getContext("2d", { willReadFrequently: true });
                copy.drawImage(canvas, -(box.width / 2 + arguments[0]) * fine, -(box.height / 2 + arguments[1] + 4) * fine);
                const pixel = copy.getImageData(0, 0, 1, 1).data;
                return pixel[3] === 255 && pixel[0] < 130;""", x, y)
        for minute, lane, drawn in ((65, 0, True), (90, 0, False), (605, 0, True), (650, 0, False), (30, 0, False), (760, 1, True), (600, 1, False), (65, 1, False)):
            self.assertEqual(drawn, inked(minute / 1440, lane), (minute, lane))

    def test_are_walked_and_read_with_the_keyboard(self):
        self.box.send_keys(Keys.ARROW_RIGHT)
        self.assertIn("Number 1", self.bubble())
        self.box.send_keys(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        self.assertIn("Number 3", self.bubble())
        self.assertIn("Pump dry. Activated 2026-03-01 03:00:00 (UTC+00:00). Duration: 10 min 00 s. Acknowledged: after 1 min 00 s. Number 3. 3 of 22.",
                      self.page.script("return document.querySelector('#history-timeline [data-part=voice]').textContent"))
        self.box.send_keys(Keys.END)
        self.assertIn("Number 22", self.bubble())
        self.box.send_keys(Keys.ARROW_DOWN)
        self.assertIn("Door open", self.bubble())
        self.box.send_keys(Keys.ARROW_UP)
        self.assertIn("Number 12", self.bubble(), "the nearest in time")
        self.box.send_keys(Keys.ENTER)
        self.page.until_text("Number 12", "#occurrence")
        self.page.press(Keys.ESCAPE)

    def test_zoom_with_keys_and_buttons_and_come_back(self):
        self.assertEqual("2 events", self.sight())
        self.box.send_keys("+")
        self.page.until_text("2026-03-01 04:30:00 – 19:30:00", "#history-timeline")
        self.box.send_keys(Keys.PAGE_DOWN)
        self.page.until_text("2026-03-01 09:00:00 – 2026-03-02 00:00:00", "#history-timeline")
        self.box.send_keys("-")
        self.page.until(lambda: self.sight() == "2 events", "the whole period")
        self.page.part("#history-timeline", "in").click()
        self.page.until_text("04:30:00 – 19:30:00", "#history-timeline")
        self.page.part("#history-timeline", "all").click()
        self.page.until(lambda: self.sight() == "2 events", "the whole period")
        self.assertFalse(self.page.part("#history-timeline", "all").is_displayed())
        self.assertFalse(self.page.part("#history-timeline", "out").is_enabled())

    def test_zoom_with_the_wheel_around_the_pointer_and_let_it_go_at_the_end(self):
        middle = self.plot(0.5)
        self.actions().scroll_from_origin(self.origin(middle), 0, -400).perform()
        self.page.until(lambda: self.sight() != "2 events", "zoomed in")
        first, last = re.findall(r"\d\d:\d\d:\d\d", self.sight())[:2]
        self.assertLess(abs(int(first[:2]) * 60 + int(first[3:5]) + int(last[:2]) * 60 + int(last[3:5]) - 1440), 12, f"noon stays: {first} {last}")
        self.actions().scroll_from_origin(self.origin(middle), 0, 4000).perform()
        self.page.until(lambda: self.sight() == "2 events", "zoomed out")
        kept = self.page.script("""
            const event = new WheelEvent("wheel", { deltaY: 100, clientX: innerWidth * 0.6, cancelable: true, bubbles: true });
            document.querySelector("#history-timeline .lanes").dispatchEvent(event);
            return event.defaultPrevented;""")
        self.assertFalse(kept, "the page scrolls on")

    def origin(self, offset):
        return ScrollOrigin.from_element(self.box, *offset)

    def test_zoom_to_what_is_drawn_over(self):
        (x, y), (to, _) = self.plot(0.25), self.plot(0.5)
        self.actions().move_to_element_with_offset(self.box, x, y).click_and_hold().move_by_offset(to - x, 3).release().perform()
        self.page.until(lambda: self.sight() != "2 events", "zoomed in")
        first, last = re.findall(r"(\d\d):(\d\d):\d\d", self.sight())[:2]
        self.assertLess(abs(int(first[0]) * 60 + int(first[1]) - 360), 6, self.sight())
        self.assertLess(abs(int(last[0]) * 60 + int(last[1]) - 720), 6, self.sight())
        self.assertFalse(self.page.shown("#occurrence"), "drawing isn't pointing")

    def test_can_be_asked_for_the_part_in_sight(self):
        self.box.send_keys("+")
        self.page.until_text("04:30:00 – 19:30:00", "#history-timeline")
        self.page.part("#history-timeline", "as-period").click()
        self.page.until(lambda: self.asked() == ("2026-03-01T04:30:00Z", "2026-03-01T19:30:00Z"), "the part is asked for")
        self.page.until(lambda: self.sight() == "2 events", "and is the whole now")
        self.assertEqual("true", self.page.find('[data-period="range"]').get_attribute("aria-pressed"))

    def test_say_what_is_under_the_pointer_and_open_it(self):
        x, y = self.plot((10 * 60 + 5) / 1440)
        self.actions().move_to_element_with_offset(self.box, x, y).perform()
        self.page.until_text("Number 10", "#history-timeline .bubble")
        self.actions().move_by_offset(0, 26).perform()
        self.page.until(lambda: not self.page.shown("#history-timeline .bubble"), "nothing there in the other lane")
        self.actions().move_by_offset(0, -26).click().perform()
        self.page.until_text("Number 10", "#occurrence")

    def touch(self, kind, *points):
        touched = [{"x": x, "y": y, "id": number} for number, (x, y) in enumerate(points)]
        self.page.driver.execute_cdp_cmd("Input.dispatchTouchEvent", {"type": kind, "touchPoints": touched})

    def test_follow_two_fingers_and_one(self):
        frame = self.page.script("const { left, top, width } = arguments[0].getBoundingClientRect(); return [left, top + 14, width]", self.box)
        names = round(min(260, frame[2] * 0.22))
        at = lambda place: (frame[0] + names + place * (frame[2] - names - 16), frame[1])
        self.touch("touchStart", at(0.4), at(0.6))
        for step in (0.35, 0.3, 0.25, 0.2):
            self.touch("touchMove", at(step), at(1 - step))
        self.touch("touchEnd")
        # The times that were at 0.4 and 0.6 are at 0.2 and 0.8 now.
        self.page.until_text("2026-03-01 08:00:00 – 16:00:00", "#history-timeline")
        self.touch("touchStart", at(0.7))
        for step in (0.6, 0.5, 0.45):
            self.touch("touchMove", at(step))
        self.touch("touchEnd")
        self.page.until_text("2026-03-01 10:00:00 – 18:00:00", "#history-timeline")
        self.assertFalse(self.page.shown("#occurrence"), "moving isn't tapping")
        self.touch("touchStart", at(5 / 480))
        self.touch("touchEnd")
        self.page.until_text("Number 10", "#occurrence")


if __name__ == "__main__":
    unittest.main()
