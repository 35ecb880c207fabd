#!/usr/bin/python3
"""What happened is there again after the server was killed, and every way of asking says the same of it."""

import datetime
import json
import signal
import unittest
import xml.etree.ElementTree as ElementTree

import parallel
from installation import Installation, event, events_document, memory_device, run, wait_for

EVENTS = events_document(
    event("Hot", "[M.T] > 80", annotation="T > 80 & rising", notify="T", record="T"),
    event("Open", "[M.DOOR] = 1", record="T"),
    event("Unheard", "[M.T] > 80", record="F"),
)


def iso(date):
    return date.strftime("%Y-%m-%dT%H:%M:%SZ")


def as_service_dates(text):
    """DDMMYYYYhhmmss as the command writes it."""
    return iso(datetime.datetime.strptime(text, "%d%m%Y%H%M%S"))


class History(unittest.TestCase):
    def setUp(self):
        self.plant = Installation(self, memory_device("M", "T", "DOOR"), EVENTS)
        now = datetime.datetime.now(datetime.timezone.utc)
        self.begin, self.end = iso(now - datetime.timedelta(hours=1)), iso(now + datetime.timedelta(hours=1))

    def live(self):
        """A server that has seen three occurrences, one of them open and one acknowledged."""
        server = self.plant.serve()
        server.put("M.T", 90)
        wait_for(lambda: server.occurrences("Hot"), "the first one")
        server.acknowledge(server.occurrences("Hot")[0]["id"])
        server.put("M.T", 20)
        wait_for(lambda: not server.occurrences("Hot"), "its end")
        server.put("M.DOOR", 1)
        wait_for(lambda: server.active("Open"), "the second one")
        server.put("M.DOOR", 0)
        wait_for(lambda: not server.active("Open"), "its end")
        server.put("M.T", 95)
        wait_for(lambda: server.occurrences("Hot"), "the third one")
        return server, server.occurrences("Hot")[0]["id"]

    def told_by_command(self):
        result = run("log", "--setup", self.plant.setup, "--begin", self.begin, "--end", self.end, "--json")
        self.assertEqual(0, result.code, result)
        return [json.loads(line) for line in result.out.splitlines()]

    def told_by_service(self, server):
        answer = server.get(f"/services/events/logger.xml?begin={self.begin}&end={self.end}")
        rows = []
        for record in ElementTree.fromstring(answer.body):
            value = {child.tag: child.text for child in record}

            def delay(tag, of=value):
                return int(of[tag]) if tag in of else None

            rows.append(
                {
                    "eventId": value["eventId"],
                    "occurrenceId": value["id"],
                    "activated": as_service_dates(value["dateTime"]),
                    "annotation": value.get("annotation", ""),
                    "deactivatedAfter": delay("disabledDelay"),
                    "acknowledgedAfter": delay("ackDelay"),
                }
            )
        return rows

    def test_survives_a_server_that_is_killed(self):
        server, open_one = self.live()
        before = self.told_by_command()
        server.stop(signal.SIGKILL)
        again = self.plant.serve()
        rows = self.told_by_command()
        self.assertEqual(before, rows)
        self.assertEqual(["Hot", "Open", "Hot"], [row["event"] for row in before])
        self.assertEqual(open_one, before[2]["occurrenceId"])
        self.assertIsNone(before[2]["deactivatedAfter"])
        self.assertIsNone(before[1]["acknowledgedAfter"])
        self.assertGreaterEqual(before[0]["deactivatedAfter"], before[0]["acknowledgedAfter"])
        self.assertEqual(["T > 80 & rising", "", "T > 80 & rising"], [row["annotation"] for row in before])

        self.assertEqual([{key: row[key] for key in row if key != "event"} for row in before], self.told_by_service(again))

    def test_the_command_says_what_the_service_says(self):
        server, _ = self.live()
        query = f"begin={self.begin}&end={self.end}"
        reply = run("log", "--setup", self.plant.setup, "--begin", self.begin, "--end", self.end, "--format", "xml")
        self.assertEqual(server.get(f"/services/events/logger.xml?{query}").text, reply.out)

    def test_what_was_torn_by_a_kill_is_written_over(self):
        server, _ = self.live()
        server.stop(signal.SIGKILL)
        files = sorted((self.plant.folder / "data").rglob("Hot*.suc"))
        with open(files[-1], "ab") as last:
            last.write(b"half a record")
        before = self.told_by_command()
        again = self.plant.serve()
        again.put("M.T", 90)
        wait_for(lambda: again.occurrences("Hot"), "an occurrence")
        rows = self.told_by_command()
        self.assertEqual([row["occurrenceId"] for row in before], [row["occurrenceId"] for row in rows[: len(before)]])
        self.assertEqual(len(before) + 1, len(rows))
        for path in sorted((self.plant.folder / "data").rglob("*.suc")):
            self.assertEqual((0, ""), (run("log", "--file", path).code, run("log", "--file", path).err))


if __name__ == "__main__":
    parallel.main()
