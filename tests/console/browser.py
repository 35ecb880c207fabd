"""A headless browser and the page as a person meets it: by words and controls, not by how it is built."""

import shutil
import tempfile
import time

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

PATIENCE = 20  # seconds

FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage", "--hide-scrollbars"]


class Browser:
    """One Chromium with a profile of its own. Start it once for many tests; `fresh` empties it."""

    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="corvane-console-")
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        for flag in [*FLAGS, f"--user-data-dir={self.profile}"]:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))

    def quit(self):
        self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)

    def fresh(self):
        """No page, no cookies, a large light screen in UTC."""
        self.driver.get("about:blank")
        self.driver.execute_cdp_cmd("Storage.clearDataForOrigin", {"origin": "*", "storageTypes": "all"})
        self.driver.execute_cdp_cmd("Network.clearBrowserCookies", {})
        self.screen(1440, 900)
        self.scheme("light")
        self.zone("UTC")
        self.driver.get_log("browser")

    def screen(self, width, height, phone=False):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": phone})

    def scheme(self, name):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": name}]})

    def zone(self, name):
        self.driver.execute_cdp_cmd("Emulation.setTimezoneOverride", {"timezoneId": name})

    def complaints(self):
        """What the browser has logged: refused scripts and styles, exceptions. Not the requests that a test made fail, nor the style in the
        document that the browser's XML reader makes of a broken reply and that nobody sees."""
        messages = [entry["message"] for entry in self.driver.get_log("browser") if entry["source"] != "network"]
        return [message for message in messages if not ("/js/api.js" in message and "Applying inline style" in message)]


class Page:
    def __init__(self, browser, url):
        self.browser = browser
        self.driver = browser.driver
        self.url = url

    def open(self, route=""):
        self.driver.get(self.url + route)
        return self

    # --- Reading -------------------------------------------------------------

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def shown(self, selector):
        return any(element.is_displayed() for element in self.driver.find_elements(By.CSS_SELECTOR, selector))

    def text(self, selector="body"):
        return self.find(selector).text

    def script(self, code, *arguments):
        return self.driver.execute_script(code, *arguments)

    def log_rows(self):
        """The occurrences that are drawn on the page "History", from top to bottom: dicts of the cells' texts."""
        return self.script("""
            return [...document.querySelectorAll("#history-rows .log-row")].sort((a, b) => a.dataset.place - b.dataset.place).map((row) =>
              Object.fromEntries(["name", "time", "text", "length", "ack"].map((part) => [part, row.querySelector(`[data-part=${part}]`).textContent])));""")

    def log_names(self):
        return [row["name"] for row in self.log_rows()]

    def module(self, name, code, *arguments):
        """What `code` returns, with the exports of a module in `m` and the arguments in `given`. For modules that need no page."""
        result = self.driver.execute_async_script("""
            const given = [...arguments], done = given.pop(), name = given.shift();
            const work = async (m) => {""" + code + """};
            import(`/console/js/${name}`).then(work).then((value) => done({ value }), (error) => done({ error: String(error.stack) }));""",
            name, *arguments)
        if "error" in result:
            raise AssertionError(result["error"])
        return result.get("value")

    def names(self, pane):
        """The names of the rows in #waiting, #active or #page-configured, from top to bottom."""
        return self.script("return [...document.querySelectorAll(arguments[0] + ' .row .name')].map((n) => n.textContent)", pane)

    def waiting(self):
        return self.names("#waiting")

    def active(self):
        return self.names("#active")

    def row(self, pane, name):
        return next(row for row in self.driver.find_elements(By.CSS_SELECTOR, pane + " .row")
                    if row.find_element(By.CSS_SELECTOR, ".name").text == name)

    def row_text(self, pane, name):
        return self.row(pane, name).text

    def in_row(self, name, part, pane="#waiting"):
        return self.row(pane, name).find_element(By.CSS_SELECTOR, f'[data-part="{part}"]')

    def part(self, root, name):
        return self.find(f'{root} [data-part="{name}"]')

    def announced(self):
        return self.script("return document.getElementById('announcer').textContent")

    def focused(self):
        """Part and row of the control with the focus, as "ack of Pump"."""
        return self.script("""
            const focus = document.activeElement, row = focus.closest(".row");
            const part = focus.dataset.part || focus.id;
            return row ? `${part} of ${row.querySelector(".name").textContent}` : part;""")

    # --- Waiting ---------------------------------------------------------------

    def until(self, condition, what, patience=PATIENCE):
        """Waits for what should happen. A row that goes while it is being read counts as not yet."""
        end = time.monotonic() + patience
        problem = None
        while time.monotonic() < end:
            try:
                if condition():
                    return
                problem = None
            except (StaleElementReferenceException, StopIteration) as error:
                problem = error
            time.sleep(0.05)
        raise AssertionError(f"didn't happen in {patience} s: {what}\n{problem or ''}\n{self.text()}")

    def until_waiting(self, names, patience=PATIENCE):
        self.until(lambda: self.waiting() == names, f"waiting {names}", patience)

    def until_text(self, words, selector="body", patience=PATIENCE):
        self.until(lambda: words in self.text(selector), f"{words!r} in {selector}", patience)

    # --- Acting ------------------------------------------------------------------

    def press(self, *keys):
        webdriver.ActionChains(self.driver).send_keys(*keys).perform()

    def select_row(self, name):
        self.in_row(name, "pick").click()

    def acknowledge(self, name):
        self.in_row(name, "ack").click()

    def filter(self, words):
        box = self.find("#filter")
        box.send_keys(Keys.CONTROL, "a")
        box.send_keys(Keys.BACKSPACE)
        box.send_keys(words)

    def sign_in(self, name, password):
        self.find("#signin-name").clear()
        self.find("#signin-name").send_keys(name)
        self.find("#signin-password").send_keys(password)
        self.find("#signin button").click()
