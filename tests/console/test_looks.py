"""Phones, dark screens, keyboards, the other pages."""

import re
import unittest

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from case import ConsoleCase
from mock_server import ago, scene_day, scene_many

# Contrast of each visible text with what lies behind it: [[text, ratio, needed], …], the poor ones only.
POOR_CONTRAST = """
const channel = (c) => (c /= 255) <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
const luminance = ([r, g, b]) => 0.2126 * channel(r) + 0.7152 * channel(g) + 0.0722 * channel(b);
const numbers = (colour) => colour.match(/[0-9.]+/g).map(Number);
const behind = (node) => {
  for (; node; node = node.parentElement) {
    const colour = numbers(getComputedStyle(node).backgroundColor);
    if (colour.length === 3 || colour[3] > 0.99) return colour;
  }
  return [255, 255, 255];
};
const poor = [];
for (const node of document.body.querySelectorAll("*")) {
  const own = [...node.childNodes].some((child) => child.nodeType === 3 && child.textContent.trim());
  if (!own || !node.checkVisibility() || node.closest(".quiet, .skip, noscript, option")) continue;
  const style = getComputedStyle(node);
  const [a, b] = [luminance(numbers(style.color)), luminance(behind(node))].sort((x, y) => y - x);
  const ratio = (a + 0.05) / (b + 0.05);
  const large = parseFloat(style.fontSize) >= 24 || (parseFloat(style.fontSize) >= 18.66 && style.fontWeight >= 700);
  if (ratio < (large ? 3 : 4.5)) poor.push([node.textContent.trim().slice(0, 40), ratio.toFixed(2)]);
}
return poor;"""


class Phone(ConsoleCase):
    def setUp(self):
        super().setUp()
        self.browser.screen(360, 740, phone=True)

    def assert_fits(self, what):
        self.assertLessEqual(self.page.script("return document.documentElement.scrollWidth"), 360, what)
        wide = self.page.script("""
            return [...document.querySelectorAll("body *")].filter((e) => e.checkVisibility() && !e.closest("svg, .quiet, .skip")
              && e.getBoundingClientRect().right > 360.5).map((e) => e.className || e.tagName)""")
        self.assertEqual([], wide, what)

    def test_needs_no_sideways_scrolling_on_any_page(self):
        scene_day(self.plant)
        for route in ("#/", "#/variables", "#/configured"):
            self.page.open(route)
            self.page.until_text("COLDSTORE" if "var" in route else "Cold store too warm", "main")
            self.assert_fits(route)

    def test_needs_none_with_long_names_nor_with_the_banner_and_details_open(self):
        self.plant.activate("W" * 250, "V" * 400, groups=["G" * 100])
        self.page.open()
        self.page.until_waiting(["W" * 250])
        self.page.in_row("W" * 250, "name").click()
        self.assert_fits("long names")
        self.server.stop()
        self.page.until_text("No connection", "#banner")
        self.assert_fits("banner")
        self.server.start()

    def test_needs_none_to_sign_in(self):
        self.server.users = {"ana": "x"}
        self.page.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")
        self.assert_fits("sign-in")

    def test_has_buttons_that_a_thumb_can_hit(self):
        scene_day(self.plant)
        self.page.open()
        self.page.until(lambda: len(self.page.waiting()) == 3, "three waiting")
        small = self.page.script("""
            return [...document.querySelectorAll("button:not(.name), nav a, select, input[type=search], .pick")]
              .filter((e) => e.checkVisibility() && e.getBoundingClientRect().height < 37).map((e) => e.textContent)""")
        self.assertEqual([], small)
        self.page.acknowledge("Supply load high")
        self.page.until(lambda: "Supply load high" not in self.page.waiting(), "acknowledged by touch")


class Widths(ConsoleCase):
    def test_between_phone_and_wall_screen_leave_nothing_sticking_out(self):
        scene_day(self.plant)
        self.server.users = {"operator-with-a-long-name": "x"}
        self.page.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")
        self.page.sign_in("operator-with-a-long-name", "x")
        self.page.until(lambda: len(self.page.waiting()) == 3, "three waiting")
        for width in (360, 600, 800, 1024, 1200, 1280, 1920):
            self.browser.screen(width, 800)
            # The text itself is measured: a box that has shrunk too far lets its text stick out.
            out = self.page.script("""
                const right = (node) => {
                  const range = document.createRange();
                  range.selectNodeContents(node);
                  return range.getBoundingClientRect().right;
                };
                return [...document.querySelectorAll(".tile, .pane-head, .row, .top")].filter((box) => box.checkVisibility())
                  .flatMap((box) => [...box.querySelectorAll("*")].filter((e) => e.checkVisibility() && !e.closest("svg, .quiet")
                    && right(e) > box.getBoundingClientRect().right + 0.5).map((e) => e.textContent))""")
            self.assertEqual([], out, width)


class Colours(ConsoleCase):
    def ground(self):
        return [int(number) for number in re.findall(r"\d+", self.page.find("body").value_of_css_property("background-color"))[:3]]

    def test_follow_what_the_system_prefers(self):
        self.page.open()
        light = sum(self.ground())
        self.browser.scheme("dark")
        self.assertLess(sum(self.ground()), 150)
        self.assertGreater(light, 550)

    def test_keep_every_text_readable(self):
        scene_day(self.plant)
        for scheme in ("light", "dark"):
            self.browser.scheme(scheme)
            for route in ("#/", "#/variables", "#/configured"):
                self.page.open(route)
                self.page.until_text("COLDSTORE" if "var" in route else "Cold store too warm", "main")
                self.assertEqual([], self.page.script(POOR_CONTRAST), f"{scheme} {route}")

    def test_keep_the_banner_readable(self):
        self.page.open()
        self.page.until_text("No events are configured", "#active")
        self.server.stop()
        self.page.until_text("No connection", "#banner")
        for scheme in ("light", "dark"):
            self.browser.scheme(scheme)
            self.assertEqual([], self.page.script(POOR_CONTRAST), scheme)
        self.server.start()


class Keyboard(ConsoleCase):
    def setUp(self):
        super().setUp()
        for name, minutes in (("One", 1), ("Two", 2), ("Three", 3)):
            self.plant.activate(name, since=ago(minutes=minutes))
        self.page.open()
        self.page.until_waiting(["One", "Two", "Three"])

    def tab_to(self, wanted):
        for _ in range(40):
            if self.page.focused() == wanted:
                return
            self.page.press(Keys.TAB)
        self.fail(f"Tab never came to {wanted}")

    def test_reaches_everything_and_acknowledges_one_after_the_other(self):
        self.tab_to("ack of One")
        self.page.press(Keys.ENTER)
        self.page.until_waiting(["Two", "Three"])
        self.assertEqual("ack of Two", self.page.focused(), "the next one takes the focus over")
        self.page.press(Keys.ENTER)
        self.page.until_waiting(["Three"])
        self.page.press(Keys.ENTER)
        self.page.until_text("Nothing to acknowledge", "#waiting")
        self.assertEqual("waiting-title", self.page.focused())

    def test_selects_with_space_and_moves_with_arrows(self):
        self.tab_to("pick of One")
        self.page.press(Keys.SPACE, Keys.ARROW_DOWN, Keys.ARROW_DOWN)
        self.assertEqual("pick of Three", self.page.focused())
        self.page.press(Keys.SPACE, Keys.ARROW_UP)
        self.assertEqual("pick of Two", self.page.focused())
        self.assertEqual("Acknowledge selected (2)", self.page.part("#waiting", "ack-selected").text)

    def test_goes_to_the_filter_with_a_slash(self):
        self.page.press("/")
        self.page.press("tw/")
        self.assertEqual("tw/", self.page.find("#filter").get_attribute("value"))
        self.page.press(Keys.BACKSPACE)
        self.page.until_waiting(["Two"])

    def test_keeps_its_place_while_the_list_grows(self):
        self.tab_to("ack of Two")
        self.plant.activate("Newer")
        self.page.until_waiting(["Newer", "One", "Two", "Three"])
        self.assertEqual("ack of Two", self.page.focused())

    def test_shows_where_it_is(self):
        self.tab_to("ack of One")
        self.assertEqual("solid", self.page.in_row("One", "ack").value_of_css_property("outline-style"))

    def test_skips_to_the_content_without_leaving_the_page(self):
        self.page.press(Keys.TAB)
        self.assertEqual("skip", self.page.focused())
        self.page.press(Keys.ENTER)
        self.assertEqual("main", self.page.focused())
        self.assertEqual(["One", "Two", "Three"], self.page.waiting())

    def test_finds_a_name_on_every_control(self):
        nameless = self.page.script("""
            return [...document.querySelectorAll("button, input, select, a")].filter((e) => e.checkVisibility())
              .filter((e) => !(e.textContent.trim() || e.getAttribute("aria-label") || e.labels?.[0]?.textContent.trim()))
              .map((e) => e.outerHTML)""")
        self.assertEqual([], nameless)


class Variables(ConsoleCase):
    def test_show_values_states_and_what_has_none(self):
        scene_day(self.plant)
        self.page.open("#/variables")
        self.page.until_text("SUPPLY", "#page-variables")
        text = self.page.text("#page-variables")
        for words in ("287.438", "Active power, kW", "12,345.7", "CLOSED", "no value", "-16.21"):
            self.assertIn(words, text)

    def test_put_a_device_in_error_first_and_count_it_at_the_top(self):
        scene_day(self.plant)
        self.page.open("#/variables")
        self.page.until_text("SUPPLY", "#page-variables")
        first = self.page.driver.find_elements(By.CSS_SELECTOR, ".device")[0]
        self.assertIn("SOLAR", first.text)
        self.assertIn("In error", first.text)
        self.page.until_text("of 4 devices in error", "#summary")
        self.plant.devices[2]["state"] = 1
        self.page.until_text("devices answer", "#summary")

    def test_count_the_plant_and_not_the_devices_that_stand_for_events(self):
        self.plant.device("TANK", variables=[("LEVEL", "Level, %", 41.5, ())])
        self.plant.device("R$EVE_Tank empty", variables=[("ST", "State", 0, ("OFF", "ON"))])
        self.plant.devices[-1]["type"] = "R$EVE"
        self.page.open("#/variables")
        self.page.until_text("R$EVE_Tank empty", "#page-variables")
        self.page.until_text("device answers", "#summary")

    def test_follow_the_plant(self):
        self.plant.device("TANK", variables=[("LEVEL", "Level, %", 41.5, ())])
        self.page.open("#/variables")
        self.page.until_text("41.5", "#page-variables")
        self.plant.devices[0]["variables"][0]["value"] = 42.25
        self.page.until_text("42.25", "#page-variables", 4)

    def test_without_devices_say_what_is_missing(self):
        self.page.open("#/variables")
        self.page.until_text("No devices are configured", "#page-variables")


class AllEvents(ConsoleCase):
    def test_are_listed_with_their_state_groups_and_time_table(self):
        self.plant.configure("Sleeps", "Never mind", groups=["Water"], time_table="Nights")
        self.plant.activate("Wakes", notify=False)
        self.page.open("#/configured")
        self.page.until(lambda: self.page.names("#page-configured") == ["Sleeps", "Wakes"], "both events")
        text = self.page.row_text("#page-configured", "Sleeps")
        for words in ("Not active", "Never mind", "Water", "Time table: Nights", "Needs acknowledgement", "Recorded"):
            self.assertIn(words, text)
        self.assertIn("Active", self.page.row_text("#page-configured", "Wakes"))


class Crowds(ConsoleCase):
    def test_of_devices_and_events_are_counted_and_can_be_asked_for(self):
        with self.plant.mutex:
            for number in range(310):
                self.plant.configure(f"Event {number}")
                self.plant.device(f"METER{number}", variables=[("P", "", number, ())])
        for route, rows in (("#/configured", "#page-configured .row"), ("#/variables", "#page-variables .device")):
            self.page.open(route)
            root = rows.split()[0]
            count = lambda: len(self.page.driver.find_elements(By.CSS_SELECTOR, rows))
            self.page.until(lambda: count() == 300, "the first 300")
            self.assertEqual("Show all 310", self.page.part(root, "more").text)
            self.page.part(root, "more").click()
            self.page.until(lambda: count() == 310, "all")


class Routes(ConsoleCase):
    def test_that_do_not_exist_lead_to_the_events(self):
        scene_many(self.plant, 1)
        self.page.open("#/no/such/page")
        self.page.until_waiting(["Feeder 000 overloaded"])
        self.assertEqual("page", self.page.find('#pages a[data-page="events"]').get_attribute("aria-current"))


if __name__ == "__main__":
    unittest.main()
