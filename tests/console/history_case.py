"""What the tests of the page "History" share."""

import datetime
import urllib.parse

from case import ConsoleCase
from mock_server import ago

LOGGER = "/services/events/logger.xml"


def utc(*fields):
    return datetime.datetime(*fields, tzinfo=datetime.timezone.utc)


def minutes_ago(minutes):
    return ago(minutes=minutes).replace(microsecond=0)


class HistoryCase(ConsoleCase):
    def open(self, query=""):
        self.page.open("#/history" + (f"?{query}" if query else ""))

    def open_with(self, names, query=""):
        self.open(query)
        self.until_rows(names)

    def until_rows(self, names, patience=20):
        self.page.until(lambda: self.page.log_names() == names, f"the rows {names}", patience)

    def part(self, name):
        return self.page.part("#page-history", name)

    def asked(self):
        """Begin and end of the last question to the log."""
        question = [query for query in self.server.queries if query.startswith(LOGGER)][-1]
        query = urllib.parse.parse_qs(urllib.parse.urlsplit(question).query)
        return query["begin"][0], query["end"][0]

    def query(self):
        return self.page.script("return location.hash").partition("?")[2]

    def three(self):
        self.plant.record("Pump dry", minutes_ago(50), "Level 3 %", lasted=61, acknowledged_after=20, groups=["Water"])
        self.plant.record("Door open", minutes_ago(40), "Gate 2", lasted=600, notify=False, groups=["Yard"])
        self.plant.record("Pump hot", minutes_ago(30), "Bearing 95 °C", lasted=5, acknowledged_after=3700, groups=["Water"])
