"""What the console's tests share: one browser for all, a fresh mock server and page for each."""

import unittest

from browser import Browser, Page
from mock_server import MockServer


class ConsoleCase(unittest.TestCase):
    browser = None

    @classmethod
    def setUpClass(cls):
        if ConsoleCase.browser is None:
            ConsoleCase.browser = Browser()

    @classmethod
    def close_browser(cls):
        """Called once, by whoever runs the tests, after the last one."""
        if ConsoleCase.browser is not None:
            ConsoleCase.browser.quit()
            ConsoleCase.browser = None

    def setUp(self):
        self.browser.fresh()
        self.server = MockServer().start()
        self.addCleanup(self.server.stop)
        self.plant = self.server.plant
        self.page = Page(self.browser, self.server.url)

    def tearDown(self):
        # The page keeps asking until it is left; a refused script or an exception anywhere on the way is a fault of its own.
        self.assertEqual([], self.browser.complaints())
        self.browser.driver.get("about:blank")
