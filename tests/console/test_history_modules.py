"""The parts of the history that need no page: the reader of the reply, periods, links, filters and totals, the file, the time axis."""

import unittest

from case import ConsoleCase

HEAD = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
ID = "{6F9619FF-8B86-D011-B42D-00CF4FC9640%d}"
EVENT = "{A1F7C3D0-6B24-4E58-9F02-71C8E5D3B60%d}"


def record(number=1, annotation=None, date="15032007123045", ack=None, ended=None, event=1):
    text = "" if annotation is None else f"<annotation>{annotation}</annotation>"
    delays = ("" if ack is None else f"<ackDelay>{ack}</ackDelay>") + ("" if ended is None else f"<disabledDelay>{ended}</disabledDelay>")
    return f"<record><id>{ID % number}</id><eventId>{EVENT % event}</eventId>{text}<dateTime>{date}</dateTime>{delays}</record>"


def reply(*records):
    return HEAD + "<loggerEvents>" + "".join(records) + "</loggerEvents>"


class ModuleCase(ConsoleCase):
    """The modules come from the server, into a document that is none of the console's."""

    def setUp(self):
        super().setUp()
        self.page.open("console/icon.svg")

    def zone(self, name):
        self.browser.zone(name)


class Reply(ModuleCase):
    READ = """
        const reader = new m.ReplyReader(), found = [];
        for (const piece of given[0]) found.push(...reader.take(piece));
        found.push(...reader.end());
        return { found, complete: reader.complete, dropped: reader.dropped };"""

    def read(self, *pieces):
        return self.page.module("history/reply.js", self.READ, pieces)

    def annotations(self, *pieces):
        return [row["annotation"] for row in self.read(*pieces)["found"]]

    def test_gives_what_the_server_wrote(self):
        answer = self.read(reply(record(1, "Level 3 %", ack=7, ended=42), record(2), record(3, ended=0)))
        self.assertTrue(answer["complete"])
        self.assertEqual(0, answer["dropped"])
        first, second, third = answer["found"]
        self.assertEqual({"id": ID % 1, "event": EVENT % 1, "time": 1173961845000, "ended": 42, "acknowledged": 7, "annotation": "Level 3 %"}, first)
        self.assertEqual((-1, -1, ""), (second["ended"], second["acknowledged"], second["annotation"]))
        self.assertEqual(0, third["ended"])

    def test_of_an_empty_log_holds_nothing(self):
        for text in (reply(), HEAD + "<loggerEvents/>", HEAD + "\n<loggerEvents>\n</loggerEvents>\n"):
            self.assertEqual({"found": [], "complete": True, "dropped": 0}, self.read(text), text)

    def test_is_the_same_however_it_is_cut(self):
        text = reply(record(1, "a &amp; b"), record(2, "</record><record> & <b>", ack=1), record(3, "x" * 50, ended=3))
        whole = self.read(text)
        self.assertEqual(3, len(whole["found"]))
        for size in (1, 2, 3, 7, 16, 48, 49, 50, 51, 97):
            pieces = [text[at:at + size] for at in range(0, len(text), size)]
            self.assertEqual(whole, self.read(*pieces), size)

    def test_undoes_the_escapes_once(self):
        rows = {
            "a &amp; b &lt;c&gt; &quot;d&quot; &apos;e&apos;": "a & b <c> \"d\" 'e'",
            "&amp;lt;": "&lt;", "&#176;C &#xB0;C &#x1F525;": "°C °C 🔥", "5 °C ü 水": "5 °C ü 水",
        }
        for text, plain in rows.items():
            self.assertEqual([plain], self.annotations(reply(record(annotation=text))), text)

    def test_keeps_raw_texts_and_the_records_around_them(self):
        # What stands in a damaged or a foreign annotation file reaches the reply as it lies there.
        rows = {
            "Tom & Jerry": "Tom & Jerry", "a &b; &amp &#; &#xZZ;": "a &b; &amp &#; &#xZZ;", "cut &am": "cut &am",
            "1 < 2 > 0": "1 < 2 > 0", "<b>bold</b>": "<b>bold</b>", "</annotation>": "</annotation>", "<annotation>": "<annotation>",
            "</record>": "</record>", "</record><record>": "</record><record>", "</record><record><id>": "</record><record><id>",
            "</loggerEvents>": "</loggerEvents>", "</record></loggerEvents>": "</record></loggerEvents>", "<!-- ": "<!-- ",
            "<![CDATA[ x": "<![CDATA[ x", "]]>": "]]>", "<?xml": "<?xml", "<dateTime>x</dateTime>": "<dateTime>x</dateTime>",
            "bell \x07 and \x1b[31m": "bell ␇ and ␛[31m", "&#7;&#0;": "␇␀", "del \x7f": "del ␡", "&#xD800;&#x110000;": "\ufffd\ufffd",
            "two\nlines\tand tab": "two\nlines\tand tab",
        }
        for raw, shown in rows.items():
            answer = self.read(reply(record(1, "before"), record(2, raw, ack=5, ended=6), record(3, "after")))
            self.assertEqual(["before", shown, "after"], [row["annotation"] for row in answer["found"]], raw)
            self.assertEqual((5, 6), (answer["found"][1]["acknowledged"], answer["found"][1]["ended"]), raw)
            self.assertEqual((True, 0), (answer["complete"], answer["dropped"]), raw)

    def test_that_breaks_off_keeps_what_came(self):
        text = reply(record(1, "one"), record(2, "two"), record(3, "three"))
        for cut in range(text.index("<record>"), len(text)):
            answer = self.read(text[:cut])
            whole = text[:cut].count("</record>")
            self.assertEqual(whole, len(answer["found"]), cut)
            self.assertFalse(answer["complete"], cut)

    def test_with_a_record_that_cannot_be_understood_counts_it_and_goes_on(self):
        broken = "<record><id>" + ID % 2 + "</id><dateTime>15032007123045</dateTime></record>"
        answer = self.read(reply(record(1, "one"), broken, record(3, "three")))
        self.assertEqual(["one", "three"], [row["annotation"] for row in answer["found"]])
        self.assertEqual(1, answer["dropped"])

    def test_takes_dates_and_delays_for_what_they_are(self):
        rows = [("15032007123045", 1173961845000), ("31022007000000", None), ("", None), ("00000000000000", None)]
        for date, time in rows:
            self.assertEqual(time, self.page.module("history/reply.js", """
                const time = m.readRecord(given[0]).time;
                return Number.isNaN(time) ? null : time;""", record(date=date)[len("<record>"):-len("</record>")]), date)
        # A delay below zero says that the clock went back meanwhile: nobody knows how long it was.
        answer = self.read(reply(record(ack=-5, ended=-1)))
        self.assertEqual((-1, -1), (answer["found"][0]["acknowledged"], answer["found"][0]["ended"]))

    def test_that_is_no_log_is_refused(self):
        for text in ("", "<html>sign in</html>", HEAD + "<activedEvents></activedEvents>", "x" * 5000):
            with self.assertRaisesRegex(AssertionError, "isn't a log"):
                self.read(text)

    def test_of_many_records_takes_time_in_proportion(self):
        seconds = self.page.module("history/reply.js", """
            const time = (count) => {
              const text = given[0] + given[1].repeat(count) + given[2];
              const began = performance.now(), reader = new m.ReplyReader();
              let found = 0;
              for (let at = 0; at < text.length; at += 65536) found += reader.take(text.slice(at, at + 65536)).length;
              if (found + reader.end().length !== count) throw new Error(`${found} of ${count}`);
              return (performance.now() - began) / 1000;
            };
            time(2000);
            return [time(20000), time(80000)];""", HEAD + "<loggerEvents>", record(1, "Level &lt; 10 litres & falling </record>", ack=3, ended=9), "</loggerEvents>")
        self.assertLess(seconds[1], 12 * seconds[0] + 0.5, seconds)
        self.assertLess(seconds[1], 5, "80,000 records")


class Period(ModuleCase):
    def bounds(self, period, now, **more):
        return self.page.module("history/period.js", """
            const { begin, end } = m.boundsOf({ from: null, to: null, ...given[0] }, new Date(given[1]));
            return [begin, end].map((date) => date && m.serviceDate(date));""", {"period": period, **more}, now)

    def test_of_the_calendar_is_that_of_the_person_who_looks(self):
        now = "2026-11-21T13:05:07.500Z"
        rows = [
            ("UTC", "hour", "2026-11-21T12:05:00Z", "2026-11-21T13:06:00Z"),
            ("UTC", "day", "2026-11-20T13:05:00Z", "2026-11-21T13:06:00Z"),
            ("UTC", "today", "2026-11-21T00:00:00Z", "2026-11-22T00:00:00Z"),
            ("Europe/Madrid", "today", "2026-11-20T23:00:00Z", "2026-11-21T23:00:00Z"),
            ("Asia/Tokyo", "yesterday", "2026-11-19T15:00:00Z", "2026-11-20T15:00:00Z"),
            ("America/Los_Angeles", "month", "2026-11-01T07:00:00Z", "2026-12-01T08:00:00Z"),
            ("Europe/Madrid", "last-month", "2026-09-30T22:00:00Z", "2026-10-31T23:00:00Z"),
            ("UTC", "week", "2026-11-14T13:05:00Z", "2026-11-21T13:06:00Z"),
        ]
        for zone, period, begin, end in rows:
            self.zone(zone)
            self.assertEqual([begin, end], self.bounds(period, now), f"{period} in {zone}")

    def test_keeps_the_days_whole_where_the_clock_changes(self):
        self.zone("Europe/Madrid")
        # The clock goes forward on 2026-03-29 and back on 2026-10-25.
        rows = [
            ("today", "2026-03-29T12:00:00Z", "2026-03-28T23:00:00Z", "2026-03-29T22:00:00Z"),
            ("yesterday", "2026-10-26T12:00:00Z", "2026-10-24T22:00:00Z", "2026-10-25T23:00:00Z"),
            ("week", "2026-03-30T12:00:00Z", "2026-03-23T13:00:00Z", "2026-03-30T12:01:00Z"),
            ("month", "2026-10-31T23:30:00Z", "2026-10-31T23:00:00Z", "2026-11-30T23:00:00Z"),
        ]
        for period, now, begin, end in rows:
            self.assertEqual([begin, end], self.bounds(period, now), f"{period} at {now}")

    def test_that_cannot_be_asked_for_says_why(self):
        rows = [
            (None, "2026-01-01T00:00:00Z", "both"), ("2026-01-01T00:00:00Z", None, "both"),
            ("2026-01-01T00:00:00Z", "2026-01-01T00:00:00Z", "after the beginning"), ("2026-01-02T00:00:00Z", "2026-01-01T00:00:00Z", "after the beginning"),
            ("1999-12-31T23:59:59Z", "2026-01-01T00:00:00Z", "2000 to 2063"), ("2026-01-01T00:00:00Z", "2064-01-01T00:00:00Z", "2000 to 2063"),
            ("2000-01-01T00:00:00Z", "2063-12-31T23:59:59Z", None),
        ]
        for begin, end, words in rows:
            problem = self.page.module("history/period.js", """
                return m.boundsProblem({ begin: given[0] && new Date(given[0]), end: given[1] && new Date(given[1]) });""", begin, end)
            if words is None:
                self.assertIsNone(problem)
            else:
                self.assertIn(words, problem, (begin, end))

    def test_in_the_fields_is_local_to_the_second(self):
        self.zone("Europe/Madrid")
        rows = [
            ("2026-03-01T10:00", "2026-03-01T09:00:00Z"), ("2026-07-01T10:00:30", "2026-07-01T08:00:30Z"), ("", None), ("2026-03-01", None),
            ("2026-10-25T02:30:00", "2026-10-25T00:30:00Z"),  # it occurs twice; the first one
        ]
        for text, date in rows:
            self.assertEqual(date, self.page.module("history/period.js", """
                const date = m.fieldDate(given[0]);
                return date && m.serviceDate(date);""", text), text)
        self.assertEqual("2026-07-01T10:00:30", self.page.module("history/period.js", "return m.fieldText(new Date(given[0]))", "2026-07-01T08:00:30Z"))

    def test_is_read_with_seconds_only_where_they_matter(self):
        rows = [("2026-03-01T10:00:00Z", "2026-03-02T00:00:00Z", "2026-03-01 10:00 – 2026-03-02 00:00"),
                ("2026-03-01T10:00:00Z", "2026-03-02T00:00:01Z", "2026-03-01 10:00:00 – 2026-03-02 00:00:01")]
        for begin, end, text in rows:
            self.assertEqual(text, self.page.module("history/period.js", """
                return m.boundsText({ begin: new Date(given[0]), end: new Date(given[1]) });""", begin, end))

    def test_goes_to_the_server_in_utc(self):
        self.zone("Asia/Tokyo")
        self.assertEqual("/services/events/logger.xml?begin=2026-03-01T00:00:00Z&end=2026-03-02T00:00:00Z", self.page.module("history/period.js", """
            return m.loggerPath({ begin: new Date(2026, 2, 1, 9), end: new Date(2026, 2, 2, 9) });"""))


class Links(ModuleCase):
    def again(self, query):
        return self.page.module("history/address.js", "return m.formatAddress(m.parseAddress(given[0]))", query)

    def test_say_nothing_about_what_is_usual(self):
        for query in ("", "period=day", "sort=-time&view=rows&share=count&totals=-count"):
            self.assertEqual("", self.again(query), query)

    def test_hold_everything_that_was_chosen(self):
        full = ("period=range&from=2026-03-01T09%3A00%3A00Z&to=2026-03-02T09%3A00%3A00Z&event=A1F7C3D0-6B24-4E58-9F02-71C8E5D3B601"
                "&event=A1F7C3D0-6B24-4E58-9F02-71C8E5D3B602&group=Water+%26+steam&group=%C3%96l&text=pump+%3C+3&sort=length"
                "&totals=event&share=time&view=totals")
        self.assertEqual(full, self.again(full))
        address = self.page.module("history/address.js", "return m.parseAddress(given[0])", full)
        self.assertEqual(["Water & steam", "Öl"], address["groups"])
        self.assertEqual(["{A1F7C3D0-6B24-4E58-9F02-71C8E5D3B601}", "{A1F7C3D0-6B24-4E58-9F02-71C8E5D3B602}"], address["events"])

    def test_that_make_no_sense_show_what_is_usual(self):
        for query in ("period=never", "sort=colour", "view=nowhere", "share=&totals=x", "%%%", "from=2026-03-01T09:00:00Z", "a=b&&=&"):
            self.assertEqual("", self.again(query), query)
        self.assertEqual("period=range", self.again("period=range&from=yesterday&to=31022026000000"))

    def test_of_a_quick_period_go_with_the_time(self):
        self.assertEqual("period=today", self.again("period=today&from=2026-03-01T09:00:00Z"))


# Rows of two events, "Pump" that has to be acknowledged and "Door" that hasn't, and an event that nobody configures any more.
MAKE = """
    const { Rows } = m;
    const rows = new Rows();
    const at = (minute) => Date.UTC(2026, 2, 1, 10, minute);
    rows.append([
      { id: "{O1}", event: "{PUMP}", time: at(0), ended: 60, acknowledged: 20, annotation: "Level 3 %" },
      { id: "{O2}", event: "{DOOR}", time: at(1), ended: 600, acknowledged: -1, annotation: "" },
      { id: "{O3}", event: "{PUMP}", time: at(2), ended: -1, acknowledged: -1, annotation: "Level 10 %" },
      { id: "{O4}", event: "{GONE}", time: at(3), ended: -1, acknowledged: -1, annotation: "Level 2 %" },
      { id: "{O5}", event: "{PUMP}", time: at(4), ended: 0, acknowledged: 40, annotation: "Level 3 %" },
      { id: "{O6}", event: "{DOOR}", time: at(5), ended: -1, acknowledged: -1, annotation: "Level 1 %" },
    ]);
    const running = { active: [{ id: "{door}", since: new Date(at(5)) }],
      occurrences: [{ id: "{o3}", acknowledged: false, ended: false, endedAt: null }] };
    rows.settle([running], new Date(at(9)));
    const catalogue = [
      { id: "{pump}", name: "Pump", description: "Feed water", groups: ["Water"], notify: true, record: true, timeTable: null },
      { id: "{door}", name: "Door", description: "", groups: ["Yard", "Gates"], notify: false, record: true, timeTable: null }];
    const described = m.describeEvents(rows, catalogue);
    const none = { events: new Set(), groups: new Set(), text: "" };
    const all = m.pickRows(rows, described, none);
"""


class RowsOfTheLog(ModuleCase):
    def work(self, code, *arguments):
        return self.page.module("history/rows.js", MAKE + code, *arguments)

    def test_are_ended_active_or_without_a_known_end(self):
        self.assertEqual([0, 0, 1, 2, 0, 1], self.work("return rows.state"))
        self.assertEqual([60, 600, 420, None, 0, 240], self.work("return rows.length.map((length) => (Number.isNaN(length) ? null : length))"))
        self.assertEqual([False, False, True, False, False, False], self.work("return rows.waiting"))

    def test_are_known_to_run_only_if_the_server_says_so(self):
        # An event is active since its last activation: an older row without end is one whose end was never written.
        code = """
            const older = new Rows();
            older.append([{ id: "{A}", event: "{DOOR}", time: at(0), ended: -1, acknowledged: -1, annotation: "" },
                          { id: "{B}", event: "{DOOR}", time: at(5), ended: -1, acknowledged: -1, annotation: "" }]);
            older.settle(given[0] ? [{ active: [{ id: "{DOOR}", since: new Date(at(given[0])) }], occurrences: [] }] : [], new Date(at(9)));
            return older.state;"""
        self.assertEqual([2, 1], self.work(code, 5))
        self.assertEqual([2, 2], self.work(code, 7), "it was active before, ended unseen, and is active anew")
        self.assertEqual([2, 2], self.work(code, None), "the server didn't say what runs")

    def test_that_begin_or_end_while_the_log_is_asked_for_run_in_it(self):
        # In the log both have no end. One was active before it was read and not after, the other after and not before.
        self.assertEqual([1, 1, 2], self.work("""
            const young = new Rows();
            young.append([{ id: "{A}", event: "{DOOR}", time: at(1), ended: -1, acknowledged: -1, annotation: "" },
                          { id: "{B}", event: "{YARD}", time: at(8), ended: -1, acknowledged: -1, annotation: "" },
                          { id: "{C}", event: "{ELSE}", time: at(8), ended: -1, acknowledged: -1, annotation: "" }]);
            const told = (event, minute) => ({ active: [{ id: event, since: new Date(at(minute)) }], occurrences: [] });
            young.settle([told("{DOOR}", 1), told("{YARD}", 8)], new Date(at(9)));
            return young.state;"""))

    def test_that_the_server_holds_as_ended_are_ended_without_their_record(self):
        self.assertEqual([[0], [30], [True]], self.work("""
            const lost = new Rows();
            lost.append([{ id: "{A}", event: "{PUMP}", time: at(1), ended: -1, acknowledged: -1, annotation: "" }]);
            const occurrence = { id: "{A}", acknowledged: false, ended: false, endedAt: null };
            const told = (ended) => ({ active: [], occurrences: [{ ...occurrence, ...ended }] });
            lost.settle([told({}), told({ ended: true, endedAt: new Date(at(1) + 30000) })], new Date(at(9)));
            return [lost.state, lost.length, lost.waiting];"""))

    def test_are_found_by_words_events_and_groups(self):
        rows = [
            ({}, [0, 1, 2, 3, 4, 5]), ({"text": "pump"}, [0, 2, 4]), ({"text": "LEVEL 3"}, [0, 4]), ({"text": "water level 10"}, [2]),
            ({"text": "level"}, [0, 2, 3, 4, 5]), ({"text": "gates"}, [1, 5]), ({"text": "no such"}, []), ({"text": "  "}, [0, 1, 2, 3, 4, 5]),
            ({"events": ["{PUMP}"]}, [0, 2, 4]), ({"events": ["{PUMP}", "{GONE}"]}, [0, 2, 3, 4]), ({"groups": ["Water"]}, [0, 2, 4]),
            ({"groups": ["Yard", "Water"]}, [0, 1, 2, 4, 5]), ({"groups": ["Yard"], "events": ["{PUMP}"]}, []), ({"text": "unknown {gone}"}, [3]),
        ]
        for filters, picked in rows:
            self.assertEqual(picked, self.work("""
                const { events = [], groups = [], text = "" } = given[0];
                return [...m.pickRows(rows, described, { events: new Set(events), groups: new Set(groups), text })];""", filters), filters)

    def test_are_sorted_with_the_unknown_last(self):
        rows = [
            ("time", False, [0, 1, 2, 3, 4, 5]), ("time", True, [5, 4, 3, 2, 1, 0]), ("event", False, [5, 1, 4, 2, 0, 3]), ("event", True, [3, 4, 2, 0, 5, 1]),
            ("length", True, [1, 2, 5, 0, 4, 3]), ("length", False, [4, 0, 5, 2, 1, 3]), ("acknowledged", False, [0, 4, 5, 3, 2, 1]),
            ("acknowledged", True, [4, 0, 5, 3, 2, 1]), ("annotation", False, [5, 3, 4, 0, 2, 1]), ("annotation", True, [2, 4, 0, 3, 5, 1]),
        ]
        for by, down, order in rows:
            self.assertEqual(order, self.work("return [...m.sortRows(all, rows, described, { by: given[0], down: given[1] })]", by, down), (by, down))

    def test_give_totals_of_which_only_ended_ones_have_a_duration(self):
        totals = self.work("return m.totalsOf(all, rows, described).map((total) => ({ ...total, event: total.event.name, longest: total.longest || 0 }))")
        by_name = {total["event"]: total for total in totals}
        expected = {
            "Pump": {"count": 3, "ended": 2, "seconds": 60, "longest": 60, "active": 1, "soFar": 420, "unknown": 0,
                     "acknowledged": 2, "acknowledgedIn": 60, "waiting": 1},
            "Door": {"count": 2, "ended": 1, "seconds": 600, "longest": 600, "active": 1, "soFar": 240, "unknown": 0, "acknowledged": 0, "waiting": 0},
            "Unknown event {GONE}": {"count": 1, "ended": 0, "seconds": 0, "active": 0, "unknown": 1, "acknowledged": 0},
        }
        for name, values in expected.items():
            self.assertEqual(values, {key: by_name[name][key] for key in values}, name)

    def test_count_no_acknowledgement_where_none_is_due(self):
        self.assertEqual(0, self.work("""
            rows.acknowledged[1] = 5;
            return m.totalsOf(all, rows, described).find((total) => total.event.name === "Door").acknowledged;"""))

    def test_give_totals_in_any_order(self):
        rows = [
            ("count", True, "count", ["Pump", "Door", "Unknown event {GONE}"]), ("time", False, "count", ["Unknown event {GONE}", "Pump", "Door"]),
            ("event", False, "count", ["Door", "Pump", "Unknown event {GONE}"]), ("acknowledging", True, "count", ["Pump", "Door", "Unknown event {GONE}"]),
            ("share", True, "time", ["Door", "Pump", "Unknown event {GONE}"]), ("longest", False, "count", ["Pump", "Door", "Unknown event {GONE}"]),
        ]
        for by, down, measure, names in rows:
            self.assertEqual(names, self.work("""
                const [by, down, measure] = given;
                return m.sortTotals(m.totalsOf(all, rows, described), { by, down }, measure).map((total) => total.event.name);""", by, down, measure), (by, down))


class File(ModuleCase):
    def cell(self, text):
        return self.page.module("history/csv.js", "return m.textCell(given[0])", text)

    def test_quotes_what_needs_it(self):
        rows = {"plain": "plain", "a,b": '"a,b"', 'say "so"': '"say ""so"""', "two\nlines": '"two\nlines"', "cr\rlf": '"cr\rlf"', "a;b": '"a;b"',
                "": "", " edge ": '" edge "', "5 °C": "5 °C", "tab\tin": '"tab\tin"'}
        for text, cell in rows.items():
            self.assertEqual(cell, self.cell(text), text)

    def test_never_begins_a_formula(self):
        for text in ("=1+1", "+1", "-16.2 °C", "@SUM(A1)", "=HYPERLINK(\"http://x\",\"y\")", " =1", "\u00a0=1", "\ufeff=1", "\t=1", "\r=1",
                     "\n=1", "＝1", "＋1", "－1", "＠1",
                     "=cmd|' /C calc'!A0"):
            cell = self.cell(text)
            plain = cell[1:-1].replace('""', '"') if cell.startswith('"') else cell
            self.assertEqual("'" + text, plain, text)
        for text in ("a=1", "3-4", "'quoted'", "x@y"):
            self.assertEqual(text, self.cell(text))

    def test_holds_the_rows_in_their_order(self):
        self.zone("Europe/Madrid")
        text = self.page.module("history/rows.js", MAKE + """
            const csv = await import("/console/js/history/csv.js");
            rows.annotation[0] = '=1+1, "quoted"';
            return (await csv.csvPieces(rows, described, new Uint32Array([3, 0, 5]), "Europe/Madrid", async () => {})).join("");""")
        self.assertEqual(
            "\ufeffEvent,Activated (Europe/Madrid),Activated (UTC),Annotation,State,\"Active, s\",\"Acknowledged after, s\",Groups,Event id,Occurrence id\r\n"
            "Unknown event {GONE},2026-03-01 11:03:00,2026-03-01T10:03:00Z,Level 2 %,end not recorded,,,,{GONE},{O4}\r\n"
            "Pump,2026-03-01 11:00:00,2026-03-01T10:00:00Z,\"'=1+1, \"\"quoted\"\"\",ended,60,20,Water,{PUMP},{O1}\r\n"
            "Door,2026-03-01 11:05:00,2026-03-01T10:05:00Z,Level 1 %,still active,240,,\"Yard; Gates\",{DOOR},{O6}\r\n", text)

    def test_has_a_name_that_every_system_takes(self):
        self.assertEqual("history_2026-03-01_00-00-00_to_2026-03-02_10-30-05.csv", self.page.module("history/csv.js", """
            return m.fileName({ begin: new Date(2026, 2, 1), end: new Date(2026, 2, 2, 10, 30, 5) });"""))


class Axis(ModuleCase):
    def marks(self, begin, end, count):
        return self.page.module("history/scale.js", """
            const scale = new m.Scale(Date.parse(given[0]), Date.parse(given[1]));
            return m.marksOf(scale, given[2]).map(({ text, major }) => (major ? `${text}!` : text));""", begin, end, count)

    def test_has_its_marks_at_full_steps_of_local_time(self):
        rows = [
            ("UTC", "2026-03-01T10:00:00Z", "2026-03-01T11:00:00Z", 6, ["10:00", "10:10", "10:20", "10:30", "10:40", "10:50", "11:00"]),
            ("UTC", "2026-03-01T10:00:07Z", "2026-03-01T10:00:27Z", 4, ["10:00:10", "10:00:15", "10:00:20", "10:00:25"]),
            ("Asia/Kolkata", "2026-03-01T15:00:00Z", "2026-03-02T03:00:00Z", 4, ["21:00", "03-02!", "03:00", "06:00"]),
            ("UTC", "2026-02-27T00:00:00Z", "2026-03-03T00:00:00Z", 5, ["02-27!", "02-28!", "03-01!", "03-02!", "03-03!"]),
            ("UTC", "2026-01-01T00:00:00Z", "2026-12-31T00:00:00Z", 5, ["2026!", "2026-04!", "2026-07!", "2026-10!"]),
            ("UTC", "2020-05-01T00:00:00Z", "2026-12-31T00:00:00Z", 4, ["2022!", "2024!", "2026!"]),
        ]
        for zone, begin, end, count, texts in rows:
            self.zone(zone)
            self.assertEqual(texts, self.marks(begin, end, count), (zone, begin, end))

    def test_stays_in_step_where_the_clock_changes(self):
        self.zone("Europe/Madrid")
        self.assertEqual(["03-29!", "06:00", "12:00", "18:00", "03-30!"], self.marks("2026-03-28T23:00:00Z", "2026-03-29T22:00:00Z", 5))
        self.assertEqual(["10-25!", "06:00", "12:00", "18:00", "10-26!"], self.marks("2026-10-24T22:00:00Z", "2026-10-25T23:00:00Z", 5))
        self.assertEqual(["10-25!", "01:00", "02:00", "02:00", "03:00", "04:00"], self.marks("2026-10-24T22:00:00Z", "2026-10-25T03:00:00Z", 6))
        # In Beirut the day of the change begins at one o'clock.
        self.zone("Asia/Beirut")
        self.assertEqual(["03-28!", "03-29", "03-30!"], self.marks("2026-03-27T22:00:00Z", "2026-03-29T21:00:00Z", 3))

    def test_never_has_more_marks_than_there_is_room_for_nor_runs_for_ever(self):
        for zone in ("UTC", "Europe/Madrid", "Australia/Lord_Howe", "America/St_Johns", "Pacific/Apia"):
            self.zone(zone)
            worst = self.page.module("history/scale.js", """
                let worst = 0;
                for (let span = 1000; span < 64 * 365.25 * 864e5; span *= 1.7) {
                  for (const begin of [Date.UTC(2000, 0, 1), Date.UTC(2011, 11, 29), Date.UTC(2026, 2, 29), Date.UTC(2026, 9, 24, 23, 59, 59)]) {
                    const marks = m.marksOf(new m.Scale(begin, begin + span), 8);
                    for (let at = 1; at < marks.length; ++at) if (marks[at].time <= marks[at - 1].time) throw new Error(`${begin} ${span}`);
                    worst = Math.max(worst, marks.length);
                  }
                }
                return worst;""")
            self.assertLessEqual(worst, 14, zone)

    def test_zooms_around_the_pointer_and_stays_in_the_period(self):
        result = self.page.module("history/scale.js", """
            const scale = new m.Scale(0, 1000000), seen = [];
            const tell = (changed) => seen.push([changed, Math.round(scale.from), Math.round(scale.to)]);
            tell(scale.zoom(0.25, 0.5));
            tell(scale.pan(1));
            tell(scale.pan(1));
            tell(scale.pan(1));
            tell(scale.zoom(0.5, 1e-9));
            tell(scale.zoom(0.5, 1e9));
            tell(scale.zoom(0.5, 2));
            scale.show(-5, 20000);
            tell(scale.whole);
            scale.reveal(500000);
            tell(true);
            return seen;""")
        self.assertEqual([[True, 125000, 625000], [True, 500000, 1000000], [False, 500000, 1000000], [False, 500000, 1000000], [True, 745000, 755000],
                          [True, 0, 1000000], [False, 0, 1000000], [False, 0, 20000], [True, 481000, 501000]], result)

    def test_tells_dense_places_from_covered_ones(self):
        rows = [
            ([[0.1, 0.3]], [[1, 3, 1]]), ([[0.10, 0.12]], [[1, 2, 0.25]]), ([[0.1, 0.1]], [[1, 2, 0]]), ([[0.10, 0.14], [0.15, 0.19]], [[1, 2, 1]]),
            ([[-1, 0.2]], [[0, 2, 1]]), ([[0.9, 5]], [[9, 10, 1]]), ([[1, 1]], [[9, 10, 0]]), ([[-2, -1], [1.1, 2]], []), ([[-1, 2]], [[0, 10, 1]]),
            ([[0.2, 0.4], [0.3, 0.5]], [[2, 5, 1]]),
        ]
        for intervals, runs in rows:
            self.assertEqual(runs, self.page.module("history/scale.js", """
                const coverage = new m.Coverage(10);
                for (const [begin, end] of given[0]) coverage.add(begin, end);
                return coverage.runs().map(({ from, to, part }) => [from, to, part]);""", intervals), intervals)


class InLanes(ModuleCase):
    def test_the_nearest_occurrence_is_found(self):
        rows = [(0, 0), (59, 0), (61, 0), (90, 1), (119, 1), (130, 1), (170, None), (1000, None)]
        for second, place in rows:
            self.assertEqual(-1 if place is None else place, self.page.module("history/lanes.js", """
                const rows = { time: [0, 120000], event: [0, 0], state: [0, 0], length: [60, 5] };
                return new m.Lanes(rows, [0, 1], [0], new Date(200000)).find(0, given[0] * 1000, 32000);""", second), second)

    def test_rows_without_a_date_are_left_out_and_others_put_in_order(self):
        self.assertEqual([[2, 0]], self.page.module("history/lanes.js", """
            const rows = { time: [5000, NaN, 1000, NaN], event: [0, 0, 0, 1], state: [0, 0, 0, 0], length: [1, 1, 1, 1] };
            return new m.Lanes(rows, [0, 1, 2, 3], [0, 1], new Date(9000)).list.map((lane) => lane.rows);"""))


if __name__ == "__main__":
    unittest.main()
