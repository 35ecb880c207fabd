"""What the page does when the server is away, busy or talks nonsense, and who may do what."""

import time
import unittest

from case import ConsoleCase
from mock_server import ago


class LinkCase(ConsoleCase):
    def open_with_one(self):
        self.plant.activate("Pump dry", since=ago(minutes=3))
        self.page.open()
        self.page.until_waiting(["Pump dry"])

    def is_grey(self, selector):
        return "grayscale(1)" in self.page.find(selector).value_of_css_property("filter")


class LostServer(LinkCase):
    def test_shows_a_banner_old_data_in_grey_with_their_age_and_recovers_by_itself(self):
        self.open_with_one()
        self.assertFalse(self.page.shown("#banner"))
        self.server.stop()
        self.page.until_text("No connection to the server", "#banner")
        self.page.until_text("As of ", "#waiting")
        self.assertRegex(self.page.text("#waiting"), r"As of \d\d:\d\d:\d\d, \d+ s ago")
        self.assertTrue(self.is_grey("#waiting .scroll"))
        self.assertTrue(self.is_grey("#summary .tile"))
        self.assertEqual(["Pump dry"], self.page.waiting(), "what was known stays in sight")
        self.assertIn("No connection", self.page.driver.title)
        self.assertIn("(1)", self.page.driver.title)
        self.page.until_text("Trying again", "#banner-tail")
        self.server.start()
        self.page.until(lambda: not self.page.shown("#banner"), "the banner goes", 20)
        self.assertFalse(self.is_grey("#waiting .scroll"))
        self.assertNotIn("No connection", self.page.driver.title)

    def test_stops_the_durations(self):
        self.open_with_one()
        self.server.stop()
        self.page.until_text("No connection to the server", "#banner")
        before = self.page.row_text("#active", "Pump dry")
        time.sleep(2.5)
        self.assertEqual(before, self.page.row_text("#active", "Pump dry"))
        self.server.start()

    def test_is_asked_more_and_more_rarely_and_at_once_on_request(self):
        self.open_with_one()
        self.server.fault = "busy"
        self.page.until_text("503", "#banner")
        self.server.requests.clear()
        time.sleep(9)
        rounds = self.server.requests.count("/services/events/actived.xml")
        self.assertIn(rounds, (2, 3), "pauses of 2 s, 4 s, 8 s")
        self.server.fault = None
        self.page.part("#banner-tail", "now").click()
        self.page.until(lambda: not self.page.shown("#banner"), "the banner goes at once", 2)

    def test_refuses_to_acknowledge_and_says_why(self):
        self.open_with_one()
        self.server.stop()
        self.page.until_text("Nothing can be acknowledged until the server answers again", "#waiting")
        button = self.page.in_row("Pump dry", "ack")
        self.assertEqual("true", button.get_attribute("aria-disabled"))
        self.assertEqual("ack-reason", button.get_attribute("aria-describedby"))
        button.click()
        self.page.until_text("Nothing can be acknowledged", "#notice")
        self.server.start()

    def test_from_the_first_moment_is_no_blank_page(self):
        self.server.fault = "busy"
        self.page.open()
        self.page.until_text("can't answer at the moment (503)", "#banner")
        self.assertIn("Nothing is known about the plant yet", self.page.text("#banner"))
        self.assertIn("Nothing known yet", self.page.text("#waiting"))
        self.assertNotIn("Nothing to acknowledge", self.page.text("#waiting"))
        self.assertEqual("–", self.page.part("#summary", "waiting-count").text)


class SlowServer(LinkCase):
    def test_is_not_asked_again_before_it_has_answered(self):
        self.open_with_one()
        self.server.fault = "hang"
        time.sleep(1.5)
        self.server.requests.clear()
        self.page.until_text("The server doesn't answer", "#banner")
        time.sleep(2)
        self.assertEqual([], self.server.requests)
        self.assertTrue(self.is_grey("#waiting .scroll"))
        self.server.fault = None
        self.server.released.set()
        self.page.until(lambda: not self.page.shown("#banner"), "the banner goes", 20)

    def test_is_given_up_after_a_while(self):
        self.open_with_one()
        self.server.fault = "hang"
        self.page.until_text("No connection to the server", "#banner", 20)

    def test_is_asked_about_once_a_second(self):
        self.open_with_one()
        self.server.requests.clear()
        time.sleep(5)
        rounds = self.server.requests.count("/services/events/actived.xml")
        self.assertIn(rounds, (3, 4, 5))
        # A round may be on its way at either end of the five seconds.
        self.assertIn(self.server.requests.count("/services/events/notified.xml") - rounds, (-1, 0, 1))


class BrokenReplies(LinkCase):
    def test_show_an_error_and_keep_the_last_good_ones(self):
        self.open_with_one()
        self.server.fault, self.server.fault_path = "broken", "/services/events/notified.xml"
        self.page.until_text("The server's answer can't be read", "#banner")
        self.page.until_text("The last answer couldn't be read", "#waiting")
        self.assertEqual(["Pump dry"], self.page.waiting())
        self.assertTrue(self.is_grey("#waiting .scroll"))
        self.server.fault = None
        self.page.until(lambda: not self.page.shown("#banner"), "the banner goes", 20)

    def test_at_the_start_show_an_error_in_place_of_a_list(self):
        self.server.fault, self.server.fault_path = "broken", "/services/events/actived.xml"
        self.page.open()
        self.page.until_text("The server's answer can't be shown", "#active")
        self.assertIn("actived.xml", self.page.text("#active"))

    def test_of_the_devices_concern_their_page_only(self):
        self.server.fault, self.server.fault_path = "broken", "/services/variables.json"
        self.open_with_one()
        self.page.open("#/variables")
        self.page.until_text("variables.json isn't a document", "#page-variables")
        self.assertFalse(self.page.shown("#banner"))


class Users(LinkCase):
    def setUp(self):
        super().setUp()
        self.server.users = {"ana": "correct horse"}
        self.plant.activate("Pump dry")

    def test_sign_in_with_name_and_password_and_stay_so(self):
        self.page.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")
        self.assertFalse(self.page.shown("#waiting"))
        self.assertEqual("signin-name", self.page.focused())
        self.page.sign_in("ana", "wrong")
        self.page.until_text("Name or password is wrong", "#signin")
        self.page.sign_in("ana", "correct horse")
        self.page.until_waiting(["Pump dry"])
        self.assertIn("ana", self.page.text("#who"))
        self.page.open()
        self.page.until_waiting(["Pump dry"])
        self.assertIn("ana", self.page.text("#who"), "after a reload too")

    def test_sign_out_and_leave_nothing_on_the_screen(self):
        self.page.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")
        self.page.sign_in("ana", "correct horse")
        self.page.until_waiting(["Pump dry"])
        self.page.part("#who", "sign-out").click()
        self.page.until(lambda: self.page.shown("#signin"), "the form again")
        self.assertEqual(set(), self.server.sessions)
        self.assertNotIn("Pump dry", self.page.text())
        self.assertEqual("Sign in – Corvane", self.page.driver.title)
        self.server.requests.clear()
        time.sleep(2)
        self.assertEqual([], self.server.requests, "nobody asks while nobody is signed in")

    def test_whose_session_ends_are_asked_to_sign_in_again(self):
        self.page.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")
        self.page.sign_in("ana", "correct horse")
        self.page.until_waiting(["Pump dry"])
        self.server.sessions.clear()
        self.page.until(lambda: self.page.shown("#signin"), "the form again")
        self.page.sign_in("ana", "correct horse")
        self.page.until_waiting(["Pump dry"])

    def test_are_not_told_that_they_signed_out_when_the_server_is_away(self):
        self.page.open()
        self.page.until(lambda: self.page.shown("#signin"), "the form")
        self.page.sign_in("ana", "correct horse")
        self.page.until_waiting(["Pump dry"])
        self.server.stop()
        self.page.part("#who", "sign-out").click()
        self.page.until_text("Not signed out", "#notice")
        self.server.start()

    def test_who_may_only_look_are_told_so_and_go_on_looking(self):
        self.server.viewer_only = True
        self.server.users = {}
        self.page.open()
        self.page.until_waiting(["Pump dry"])
        self.page.acknowledge("Pump dry")
        self.page.until_text("You may not acknowledge", "#notice")
        self.page.until_text("sign in as an operator", "#ack-reason")
        self.assertEqual("true", self.page.in_row("Pump dry", "ack").get_attribute("aria-disabled"))
        self.assertEqual(["Pump dry"], self.page.waiting())
        self.assertFalse(self.page.shown("#banner"))
        self.plant.activate("Pump hot")
        self.page.until_waiting(["Pump hot", "Pump dry"])


class Clocks(LinkCase):
    def test_that_differ_are_told_and_durations_follow_the_server(self):
        self.server.clock_ahead = 3600
        self.plant.activate("Pump dry", since=ago(seconds=-3600 + 30))
        self.page.open()
        self.page.until_text("active for 3", "#active")
        self.page.until_text("behind the server's", "footer")
        self.assertRegex(self.page.row_text("#active", "Pump dry"), r"active for 3\d s")


if __name__ == "__main__":
    unittest.main()
