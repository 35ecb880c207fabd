#!/usr/bin/python3
"""Events from end to end: a value is set over HTTP, what follows is read over HTTP."""

import datetime
import json
import re
import time
import unittest
import xml.sax.saxutils

import parallel
from installation import Installation, event, events_document, guid_of, memory_device, wait_for

GUID = r"\{[0-9A-F]{8}(?:-[0-9A-F]{4}){3}-[0-9A-F]{12}\}"
HEAD = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
NOBODY = "{00000000-0000-0000-0000-00000000ABCD}"


def utc(text):
    return datetime.datetime.strptime(text, "%d%m%Y%H%M%S").replace(tzinfo=datetime.timezone.utc)


def now():
    return datetime.datetime.now(datetime.timezone.utc)


class EventsCase(unittest.TestCase):
    def assert_just_now(self, text, since):
        """The date, in whole seconds, lies between `since` and now."""
        self.assertRegex(text, r"\A\d{14}\Z")
        self.assertLessEqual(since.replace(microsecond=0), utc(text))
        self.assertLessEqual(utc(text), now())


class Annotations(EventsCase):
    """What people read when an event comes."""

    ARGUMENTS = (
        "<arguments><argument><value>[TANK.LEVEL]</value><format>.02</format></argument>"
        "<argument><value>[TANK.LEVEL] * 1000</value><format>.0</format><thousandSeparator>T</thousandSeparator></argument>"
        "<argument><value>[TANK.NOTHING]</value></argument></arguments>"
    )

    def test_show_the_values_at_the_activation(self):
        low = event(
            "Low & lower",
            "[TANK.LEVEL] < 10",
            groups=["Gone", "Water"],
            annotation="%n: %a1 m, %a2 mm, %a3; %g1 %g2; %b s; %d; %c; 100%% %x%",
            notify="T",
            record="T",
        ).replace("</event>", self.ARGUMENTS + "</event>")
        settings = memory_device("TANK", "LEVEL", "NOTHING")
        self.server = Installation(self, settings, events_document(low, groups=["Water"])).serve()
        self.server.put("TANK.LEVEL", 9.5)
        shown = "Low & lower: 9.50 m, 9,500 mm, [TANK.NOTHING]; %g1 Water; 0 s; No time table; [TANK.LEVEL] < 10; 100% %x"
        active = wait_for(lambda: self.server.active("Low & lower"), "the event")
        self.assertEqual(shown, active["annotation"])
        self.server.put("TANK.LEVEL", 8)
        waiting = wait_for(lambda: self.server.occurrences("Low & lower"), "the occurrence")[0]
        self.assertEqual(shown, waiting["annotation"], "as it was when the event came")


class Documents(EventsCase):
    """One event, and every byte of what is said about it."""

    NAME = 'Füllstand < 10 & "tief"'
    DESCRIPTION = "It's <low>"
    ANNOTATION = "Level < 10 litres & falling"

    def setUp(self):
        low = event(
            self.NAME,
            "[TANK.LEVEL] < 10",
            description=self.DESCRIPTION,
            annotation=self.ANNOTATION,
            notify="T",
            record="T",
        )
        self.server = Installation(self, memory_device("TANK", "LEVEL"), events_document(low)).serve(
            environment={"TZ": "XYZ-11:30"}  # local time is far from UTC
        )

    def escaped(self, text):
        return xml.sax.saxutils.escape(text, {'"': "&quot;", "'": "&apos;"})

    def pieces(self, id):
        return (
            f"<event><id>{id}</id><name>{self.escaped(self.NAME)}</name>"
            f"<description>{self.escaped(self.DESCRIPTION)}</description>"
            f"<annotation>{self.escaped(self.ANNOTATION)}</annotation>"
        )

    def text(self, name):
        return self.server.get(f"/services/events/{name}.xml").text

    def test_say_what_happened_to_the_byte(self):
        nothing_active = HEAD + "<activedEvents></activedEvents>"
        nothing_waits = HEAD + "<notifiedEvents></notifiedEvents>"
        self.assertEqual(nothing_active, self.text("actived"))
        self.assertEqual(nothing_waits, self.text("notified"))

        begun = now()
        self.server.put("TANK.LEVEL", 9.5)
        active = wait_for(lambda: self.server.active(self.NAME), "the event")
        self.assert_just_now(active["dateTime"], begun)
        self.assertEqual(
            f"{HEAD}<activedEvents>{self.pieces(guid_of(self.NAME))}<dateTime>{active['dateTime']}</dateTime>"
            "</event></activedEvents>",
            self.text("actived"),
        )
        waiting = wait_for(lambda: self.server.occurrences(self.NAME), "the occurrence")[0]
        self.assertRegex(waiting["id"], rf"\A{GUID}\Z")
        self.assertNotEqual(guid_of(self.NAME), waiting["id"])
        self.assert_just_now(waiting["dateTime"], begun)
        open_text = f"{self.pieces(waiting['id'])}<dateTime>{waiting['dateTime']}</dateTime>"
        self.assertEqual(f"{HEAD}<notifiedEvents>{open_text}</event></notifiedEvents>", self.text("notified"))

        begun = now()
        answer = self.server.acknowledge(waiting["id"])
        self.assertEqual((204, b""), (answer.status, answer.body))
        seen = self.server.occurrences(self.NAME)[0]["ackDateTime"]
        self.assert_just_now(seen, begun)
        acknowledged = f"{open_text}<ackDateTime>{seen}</ackDateTime></event>"
        self.assertEqual(f"{HEAD}<notifiedEvents>{acknowledged}</notifiedEvents>", self.text("notified"))
        self.assertIsNotNone(self.server.active(self.NAME), "an acknowledgement doesn't end an event")

        self.server.put("TANK.LEVEL", 10)
        wait_for(lambda: self.text("notified") == nothing_waits, "the end of the finished occurrence")
        self.assertEqual(nothing_active, self.text("actived"))

    def test_tell_an_end_that_nobody_has_acknowledged(self):
        self.server.put("TANK.LEVEL", 0)
        wait_for(lambda: self.server.occurrences(self.NAME), "the occurrence")
        begun = now()
        self.server.put("TANK.LEVEL", 50)
        ended = wait_for(lambda: [o for o in self.server.occurrences(self.NAME) if "disableDateTime" in o], "the end")[0]
        self.assertEqual(
            ["id", "name", "description", "annotation", "dateTime", "disableDateTime"], list(ended)
        )
        self.assert_just_now(ended["disableDateTime"], begun)
        # It comes again: a second occurrence beside the first, the older one first.
        self.server.put("TANK.LEVEL", 0)
        both = wait_for(lambda: len(self.server.occurrences(self.NAME)) == 2 and self.server.occurrences(self.NAME), "both")
        self.assertEqual(ended, both[0])
        self.assertNotIn("disableDateTime", both[1])
        # Ended first, acknowledged then: gone at the next scan.
        self.assertEqual(204, self.server.acknowledge(ended["id"]).status)
        wait_for(lambda: [o["id"] for o in self.server.occurrences(self.NAME)] == [both[1]["id"]], "the end of the first")

    def log(self, begin, end):
        return self.server.get(f"/services/events/logger.xml?begin={begin}&end={end}").text

    def test_tell_the_log_of_a_period_to_the_byte(self):
        hour = datetime.timedelta(hours=1)
        period = f"{now() - hour:%d%m%Y%H%M%S}", f"{now() + hour:%Y-%m-%dT%H:%M:%SZ}"
        nothing = HEAD + "<loggerEvents></loggerEvents>"
        self.assertEqual(nothing, self.log(*period))
        self.server.put("TANK.LEVEL", 0)
        waiting = wait_for(lambda: self.server.occurrences(self.NAME), "the occurrence")[0]
        begun = re.escape(
            f"{HEAD}<loggerEvents><record><id>{waiting['id']}</id><eventId>{guid_of(self.NAME)}</eventId>"
            f"<annotation>{self.escaped(self.ANNOTATION)}</annotation><dateTime>"
        ) + r"(\d{14})</dateTime>"
        end = "</record></loggerEvents>"
        found = re.fullmatch(begun + end, self.log(*period))
        # A record has the nearest whole second, a reply the one that had begun.
        self.assertIn((utc(found[1]) - utc(waiting["dateTime"])).total_seconds(), (0, 1))

        self.assertEqual(204, self.server.acknowledge(waiting["id"]).status)
        acknowledged = r"<ackDelay>\d+</ackDelay>"
        self.assertRegex(self.log(*period), rf"\A{begun}{acknowledged}{end}\Z")
        self.server.put("TANK.LEVEL", 50)
        wait_for(lambda: "<disabledDelay>" in self.log(*period), "the end")
        self.assertRegex(
            self.log(*period), rf"\A{begun}{acknowledged}<disabledDelay>\d+</disabledDelay>{end}\Z"
        )
        self.assertEqual(nothing, self.log(f"{now() + hour:%d%m%Y%H%M%S}", f"{now() + 2 * hour:%d%m%Y%H%M%S}"))
        self.assertGreaterEqual(
            float(re.search(r"(?m)^corvane_log_query_duration_seconds_count (\S+)$", self.server.get("/metrics").text)[1]), 5
        )

    def test_answer_head_requests_without_a_body(self):
        answer = self.server.ask("HEAD", "/services/events/actived.xml")
        self.assertEqual((200, b""), (answer.status, answer.body))
        self.assertEqual("no-store", answer.headers["Cache-Control"])


def daily(hours_from_local_now, zone_hours):
    """A day table that excludes an hour and a half on both sides of that time of the day."""
    local = now() + datetime.timedelta(hours=zone_hours + hours_from_local_now)
    middle = local.hour * 60 + local.minute
    begin, end = middle - 90, middle + 90
    parts = [(begin, end)]
    if begin < 0:
        parts = [(begin + 1440, 1440), (0, end)]
    elif end > 1440:
        parts = [(begin, 1440), (0, end - 1440)]
    return "".join(
        f"<slot><from>{a // 60:02d}:{a % 60:02d}</from><to>{b // 60:02d}:{b % 60:02d}</to></slot>" for a, b in sorted(parts)
    )


def day(name, slots):
    return f"<day><id>{guid_of(name)}</id><name>{name}</name><color>FFFFFF</color>{slots}</day>"


ZONE_HOURS = 12  # of the server's local time; half a day from UTC, so that the two can't be taken for each other


class Plant(EventsCase):
    """Many events, each with a variable of its own."""

    def setUp(self):
        events = events_document(
            event("At once", "[M.NOW] > 5", notify="T", groups=["Water", "Air"]),
            event("After two seconds", "[M.LATE] > 5", notify="T", delayToActivate=2),
            event("Ends after two seconds", "[M.LONG] > 5", notify="T", delayToDeactivate=2),
            event("Silent", "[M.SILENT] > 5", record="T"),
            event("Hysteresis", "[M.HYS] > 10", conditionStop="[M.HYS] < 5", notify="T"),
            event("Twice one", "[M.TWO] > 5", notify="T"),
            event("Twice two", "[M.TWO] > 5", notify="T"),
            event("First", "[M.FIRST] > 5"),
            event("Follows", "[R$EVE_First.CACT] >= 1", notify="T", groups=["Gone", "Air"]),
            event("Sleeps", "[M.TABLE] > 5", notify="T", timeTable="Now"),
            event("Wakes", "[M.TABLE] > 5", notify="T", timeTable=guid_of("Other half of the day")),
            event("Equal to one only", "IF([M.ONE] > 1, [M.ONE] > 0, FALSE)", notify="T"),
            groups=["Water", "Air"],
        )
        tables = (
            "<main><days>"
            + day("Now", daily(0, ZONE_HOURS))
            + day("Other half of the day", daily(12, ZONE_HOURS))
            + "</days><weeks/><calendars/></main>"
        )
        variables = ["NOW", "LATE", "LONG", "SILENT", "HYS", "TWO", "FIRST", "TABLE", "ONE", "FREE"]
        settings = memory_device("M", *variables) + (
            '[[device]]\nname = "SIM"\ndriver = "simulator"\n'
            '  [[device.variable]]\n  name = "C"\n  signal = "constant"\n  low = 7\n'
            '  [[device.variable]]\n  name = "W"\n  signal = "constant"\n  low = 7\n  writable = true\n'
            '[[screen]]\nname = "Main & more"\ndevices = ["M"]\n[[report]]\nname = "Daily"\n'
        )
        self.server = Installation(self, settings, events, tables).serve(environment={"TZ": f"XYZ-{ZONE_HOURS}"})

    def wait_active(self, name, active=True):
        return wait_for(lambda: (self.server.active(name) is not None) == active, f"{name} {active}")

    # -- delays -----------------------------------------------------------------------------------------------------

    def test_event_without_delay_comes_with_the_next_scan(self):
        self.server.put("M.NOW", 6)
        self.wait_active("At once")
        self.server.put("M.NOW", 5)
        self.wait_active("At once", False)

    def test_event_waits_for_its_delay(self):
        begun = time.monotonic()
        self.server.put("M.LATE", 6)
        self.wait_active("After two seconds")
        self.assertGreaterEqual(time.monotonic() - begun, 2)

    def test_event_ends_after_its_delay(self):
        self.server.put("M.LONG", 6)
        self.wait_active("Ends after two seconds")
        begun = time.monotonic()
        self.server.put("M.LONG", 0)
        self.wait_active("Ends after two seconds", False)
        self.assertGreaterEqual(time.monotonic() - begun, 2)

    # -- conditions -------------------------------------------------------------------------------------------------

    def test_stop_condition_makes_a_hysteresis(self):
        self.server.put("M.HYS", 10.5)
        self.wait_active("Hysteresis")
        for value in ("7", ""):  # between the limits; and no value, which can't end it either
            self.server.put("M.HYS", value)
            self.scan()
            self.assertIsNotNone(self.server.active("Hysteresis"), value)
        self.server.put("M.HYS", 4)
        self.wait_active("Hysteresis", False)
        self.server.put("M.HYS", 7)
        self.scan()
        self.assertIsNone(self.server.active("Hysteresis"))

    def scan(self):
        """Waits until the events have been looked at after now: one that has no delay comes and goes."""
        self.server.put("M.SILENT", 6)
        self.wait_active("Silent")
        self.server.put("M.SILENT", 0)
        self.wait_active("Silent", False)

    def test_event_without_notify_never_waits_for_anyone(self):
        self.server.put("M.SILENT", 6)
        self.wait_active("Silent")
        self.assertEqual([], self.server.occurrences("Silent"))
        self.server.put("M.SILENT", 0)
        self.wait_active("Silent", False)
        self.assertEqual([], self.server.occurrences("Silent"))

    def test_event_sees_what_another_event_did(self):
        before = self.server.value("R$EVE_First", "CACT")
        self.assertEqual(0, before)
        self.assertIsNone(self.server.active("Follows"))
        self.server.put("M.FIRST", 6)
        self.wait_active("Follows")
        state = {name: variable["value"] for name, variable in self.server.variables("R$EVE_First").items()}
        self.assertEqual({"ST", "TACT", "CACT", "CDIS", "CACK", "CTIM"}, set(state))
        self.assertEqual((1, 1, 0, 0), (state["ST"], state["CACT"], state["CDIS"], state["CACK"]))
        wait_for(lambda: self.server.value("R$EVE_First", "TACT") >= 1, "its seconds")
        self.server.put("M.FIRST", 0)
        wait_for(lambda: self.server.value("R$EVE_First", "CDIS") == 1, "its end")
        state = {name: variable["value"] for name, variable in self.server.variables("R$EVE_First").items()}
        self.assertEqual((0, 0), (state["ST"], state["TACT"]))
        self.assertGreaterEqual(state["CTIM"], 1)
        self.assertIsNotNone(self.server.active("Follows"), "the count stays")

    def test_time_table_lets_events_sleep_by_local_time(self):
        self.server.put("M.TABLE", 6)
        self.wait_active("Wakes")
        self.scan()
        self.assertIsNone(self.server.active("Sleeps"))
        self.assertEqual([], self.server.occurrences("Sleeps"))

    # -- acknowledgements -------------------------------------------------------------------------------------------

    def test_acknowledgement_takes_several_occurrences_and_passes_over_the_unknown(self):
        self.server.put("M.TWO", 6)
        self.wait_active("Twice one")
        self.wait_active("Twice two")
        ids = [self.server.occurrences(name)[0]["id"] for name in ("Twice one", "Twice two")]
        self.assertEqual(204, self.server.acknowledge(NOBODY, "nonsense", "").status)
        for name in ("Twice one", "Twice two"):
            self.assertNotIn("ackDateTime", self.server.occurrences(name)[0])
        self.assertEqual(204, self.server.acknowledge(ids[0].lower(), NOBODY, ids[1]).status)
        dates = [self.server.occurrences(name)[0]["ackDateTime"] for name in ("Twice one", "Twice two")]
        time.sleep(1.1)  # a second acknowledgement would have another second
        self.assertEqual(204, self.server.acknowledge(*ids).status)
        self.assertEqual(dates, [self.server.occurrences(name)[0]["ackDateTime"] for name in ("Twice one", "Twice two")])
        self.assertEqual(1, self.server.value("R$EVE_Twice one", "CACK"))
        # The event's own id is no occurrence.
        self.assertEqual(204, self.server.acknowledge(guid_of("Twice one")).status)

    def test_acknowledgement_has_to_be_one(self):
        good = b"<eventsAck></eventsAck>"
        for body, status in (
            (good, 204),
            (b'<?xml version="1.0" encoding="UTF-8"?>\n<eventsAck>\n <other/>\n</eventsAck>\n', 204),
            (b"", 400),
            (b"nothing", 400),
            (b"<eventsAck>", 400),
            (b"<eventsack></eventsack>", 400),
            (b"<main><eventsAck/></main>", 400),
            (good + b"\0", 400),
            (b"<eventsAck>\0</eventsAck>", 400),
            (b"<eventsAck>\xff</eventsAck>", 400),
            (b"<eventsAck><id>" + NOBODY.encode() + b"</id>", 400),
            (b"<eventsAck>" + b" " * (1024 * 1024 - len(good)) + b"</eventsAck>", 204),
            (b"<eventsAck>" + b" " * (1024 * 1024 - len(good) + 1) + b"</eventsAck>", 413),
        ):
            with self.subTest(body[:40], length=len(body)):
                answer = self.server.ask("POST", "/services/events/ack.xml", body)
                self.assertEqual(status, answer.status, answer)
                self.assertEqual(status == 204, answer.body == b"")
                if status != 204:
                    self.assertRegex(answer.text, r"\A[^\n]+\n?\Z")

    def test_services_have_their_methods(self):
        for method, path, status in (
            ("GET", "/services/events/ack.xml", 405),
            ("POST", "/services/events/actived.xml", 405),
            ("DELETE", "/services/variables/M.NOW", 405),
            ("GET", "/services/events/nothing.xml", 404),
            ("GET", "/services/../corvane.toml", 404),
        ):
            with self.subTest(method, path=path):
                self.assertEqual(status, self.server.ask(method, path).status)

    # -- what is known about the plant ------------------------------------------------------------------------------

    def test_list_holds_each_event_in_the_order_of_the_scan(self):
        events = json.loads(self.server.get("/services/events/list.json").body)
        self.assertEqual(sorted((entry["name"] for entry in events), key=str.lower), [entry["name"] for entry in events])
        self.assertEqual(12, len(events))
        by_name = {entry["name"]: entry for entry in events}
        self.assertEqual(
            {
                "id": guid_of("At once"),
                "name": "At once",
                "description": "",
                "groups": ["Water", "Air"],
                "notify": True,
                "record": False,
                "timeTable": None,
            },
            by_name["At once"],
        )
        self.assertEqual((False, True), (by_name["Silent"]["notify"], by_name["Silent"]["record"]))
        self.assertEqual(["Air"], by_name["Follows"]["groups"], "a group that is gone has no name")
        self.assertEqual("Now", by_name["Sleeps"]["timeTable"])
        self.assertEqual("Other half of the day", by_name["Wakes"]["timeTable"], "also when it is named by its id")

    def test_variables_can_be_set_where_that_is_allowed(self):
        for variable, body, status in (
            ("M.FREE", "1.5", 204),
            ("M.FREE", " -2e3\n", 204),
            ("M.FREE", "", 204),
            ("M.FREE", "1,5", 400),
            ("M.FREE", "high", 400),
            ("M.FREE", "nan", 400),
            ("M.FREE", "1e999", 400),
            ("M.FREE", "1 2", 400),
            ("M.FREE", "0x10", 400),
            ("M.NONE", "1", 404),
            ("N.FREE", "1", 404),
            ("FREE", "1", 404),
            ("m.FREE", "1", 404),
            ("SIM.C", "1", 409),
            ("SIM.W", "1", 204),
            ("SIM.W", "", 400),
            ("R$EVE_First.ST", "1", 409),
        ):
            with self.subTest(variable, body=body):
                answer = self.server.ask("PUT", f"/services/variables/{variable}", body)
                self.assertEqual(status, answer.status, answer)
        wait_for(lambda: self.server.value("SIM", "W") == 1, "the forced value")
        self.assertEqual(7, self.server.value("SIM", "C"))

    def test_variables_tell_their_value_and_its_time(self):
        self.server.put("M.FREE", "0.1")
        begun = now()
        self.server.put("M.FREE", "-12.25")
        free = self.server.variables("M")["FREE"]
        self.assertEqual(-12.25, free["value"])
        time_of_value = datetime.datetime.strptime(free["time"], "%Y-%m-%dT%H:%M:%S%z")
        self.assertLessEqual(begun.replace(microsecond=0), time_of_value)
        self.assertLessEqual(time_of_value, now())
        self.server.put("M.FREE", "")
        gone = self.server.variables("M")["FREE"]
        self.assertIsNone(gone["value"])
        self.assertEqual(free["time"], gone["time"], "the time of the last value stays")
        devices = self.server.devices()
        self.assertEqual({"name", "type", "description", "state", "variables"}, set(devices["M"]))
        self.assertEqual({"name", "description", "value", "time", "flags", "labels"}, set(free))
        self.assertEqual(0, free["flags"] & 8)
        self.assertEqual(8, self.server.variables("SIM")["W"]["flags"] & 8)
        self.assertEqual(["M", "SIM"], [name for name in devices if not name.startswith("R$EVE_")])
        self.assertEqual(12, len([name for name in devices if name.startswith("R$EVE_")]))

    def test_screens_and_reports_are_told(self):
        for path, text in (
            ("scadas", "<scadaInformation><screens><screen>Main &amp; more</screen></screens></scadaInformation>"),
            ("reports", "<reportInformation><reports><report>Daily</report></reports></reportInformation>"),
        ):
            answer = self.server.get(f"/services/{path}/information.xml")
            self.assertEqual(text, re.sub(r"\A<\?xml[^>]*\?>\s*", "", answer.text))
            self.assertEqual("text/xml; charset=utf-8", answer.headers["Content-Type"])



if __name__ == "__main__":
    parallel.main()
