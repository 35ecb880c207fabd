"""A server that answers as `corvane serve` does, from a plant that a test arranges by hand.

A test changes `server.plant` and `server.fault` while the page is open:

    with MockServer() as server:
        server.plant.activate("Pump", "Dry", notify=True)
        server.fault = "busy"

Run by itself it shows the page with a plant of some size, to look at: mock_server.py --port 8099 --scene many
"""

import argparse
import datetime
import http.server
import json
import pathlib
import random
import socket
import threading
import time
import urllib.parse
import uuid
import xml.etree.ElementTree as ElementTree
from xml.sax.saxutils import escape

CONSOLE = pathlib.Path(__file__).resolve().parents[2] / "apps" / "console"
POLICY = ("default-src 'self'; style-src 'self'; img-src 'self' data:; frame-ancestors 'none'; base-uri 'none'; "
          "form-action 'self'")
TYPES = {".html": "text/html; charset=utf-8", ".js": "text/javascript; charset=utf-8", ".css": "text/css; charset=utf-8",
         ".svg": "image/svg+xml"}
REFUSALS = {400: "begin and end are dates, and the end is after the begin", 403: "the role is too small", 404: "not found",
            413: "the reply is too large", 429: "too many wrong passwords"}
HEAD = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'


def new_id():
    return "{%s}" % str(uuid.uuid4()).upper()


def utc_now():
    return datetime.datetime.now(datetime.timezone.utc)


def ago(**amount):
    return utc_now() - datetime.timedelta(**amount)


class Plant:
    """The events, occurrences and devices that the server tells about. Lock `mutex` to change several things at once."""

    def __init__(self):
        self.mutex = threading.RLock()
        self.events = []        # dicts as in list.json
        self.active = {}        # event id: (annotation, since)
        self.occurrences = []   # dicts: id, event, annotation, since, acknowledged, ended
        self.devices = []       # dicts as in variables.json
        self.reply = None       # what the log answers whatever is asked, a text
        self.log = []           # dicts: id, event, annotation as it lies in the file, since, ended and acknowledged as dates
        self.acknowledged = []  # ids in the order in which they came

    def configure(self, name, description="", notify=True, groups=(), time_table=None):
        with self.mutex:
            event = {"id": new_id(), "name": name, "description": description, "groups": list(groups), "notify": notify,
                     "record": True, "timeTable": time_table}
            self.events.append(event)
            return event

    def event(self, name):
        return next((event for event in self.events if event["name"] == name), None)

    def activate(self, name, annotation="", since=None, **configuration):
        """The event becomes active, configured first if need be. Gives the occurrence's id, None without one."""
        with self.mutex:
            event = self.event(name) or self.configure(name, **configuration)
            since = since or utc_now()
            self.active[event["id"]] = (annotation, since)
            if not event["notify"]:
                return None
            occurrence = {"id": new_id(), "event": event, "annotation": annotation, "since": since, "acknowledged": None, "ended": None}
            self.occurrences.append(occurrence)
            return occurrence["id"]

    def record(self, name, since, annotation="", lasted=None, acknowledged_after=None, raw=None, occurrence=None, **configuration):
        """An occurrence in the log; `lasted` and `acknowledged_after` in seconds, None without such a record. `raw` is an annotation that
        lies in the file as nobody would have written it. Gives the occurrence's id."""
        with self.mutex:
            event = self.event(name) or self.configure(name, **configuration)
            self.log.append({"id": occurrence or new_id(), "event": event, "since": since, "lasted": lasted,
                             "acknowledged_after": acknowledged_after, "annotation": text_to_xml(annotation) if raw is None else raw})
            return self.log[-1]["id"]

    def deactivate(self, name, when=None):
        with self.mutex:
            event = self.event(name)
            self.active.pop(event["id"], None)
            for occurrence in self.occurrences:
                if occurrence["event"] is event and occurrence["ended"] is None:
                    occurrence["ended"] = when or utc_now()
            self._sweep()

    def acknowledge(self, occurrence_id, when=None):
        with self.mutex:
            self.acknowledged.append(occurrence_id)
            for occurrence in self.occurrences:
                if occurrence["id"] == occurrence_id and occurrence["acknowledged"] is None:
                    occurrence["acknowledged"] = when or utc_now()
            self._sweep()

    def _sweep(self):
        self.occurrences = [o for o in self.occurrences if o["acknowledged"] is None or o["ended"] is None]

    def device(self, name, description="", state=0, variables=(), kind="METER"):
        with self.mutex:
            self.devices.append({"name": name, "type": kind, "description": description, "state": state, "variables": [
                {"name": n, "description": d, "value": v, "time": utc_now().strftime("%Y-%m-%dT%H:%M:%SZ") if v is not None else None,
                 "flags": 1, "labels": list(labels)} for n, d, v, labels in variables]})


def date_element(tag, date):
    return f"<{tag}>{date.strftime('%d%m%Y%H%M%S')}</{tag}>" if date else ""


def event_element(identity, event, annotation, dates):
    texts = (escape(text) for text in (event["name"], event["description"], annotation))
    return "<event><id>%s</id><name>%s</name><description>%s</description><annotation>%s</annotation>%s</event>" % (
        identity, *texts, dates)


def active_reply(plant):
    rows = (event_element(event["id"], event, plant.active[event["id"]][0], date_element("dateTime", plant.active[event["id"]][1]))
            for event in sorted(plant.events, key=lambda event: event["name"].lower()) if event["id"] in plant.active)
    return HEAD + "<activedEvents>" + "".join(rows) + "</activedEvents>"


def notified_reply(plant):
    rows = (event_element(o["id"], o["event"], o["annotation"], date_element("dateTime", o["since"]) +
                          date_element("ackDateTime", o["acknowledged"]) + date_element("disableDateTime", o["ended"]))
            for o in plant.occurrences)
    return HEAD + "<notifiedEvents>" + "".join(rows) + "</notifiedEvents>"


def text_to_xml(text):
    """As the program escapes: also both quotes, and without the control characters that XML can't hold."""
    return escape("".join(sign for sign in text if sign >= " " or sign in "\t\r\n"), {'"': "&quot;", "'": "&apos;"})


def logger_date(text):
    for form in ("%Y-%m-%dT%H:%M:%SZ", "%d%m%Y%H%M%S"):
        try:
            return datetime.datetime.strptime(text or "", form).replace(tzinfo=datetime.timezone.utc)
        except ValueError:
            pass
    return None


def log_record(row):
    annotation = f"<annotation>{row['annotation']}</annotation>" if row["annotation"] else ""
    ack = "" if row["acknowledged_after"] is None else f"<ackDelay>{row['acknowledged_after']}</ackDelay>"
    ended = "" if row["lasted"] is None else f"<disabledDelay>{row['lasted']}</disabledDelay>"
    return (f"<record><id>{row['id']}</id><eventId>{row['event']['id']}</eventId>{annotation}"
            f"{date_element('dateTime', row['since'])}{ack}{ended}</record>")


def logger_reply(plant, query):
    begin, end = (logger_date(query.get(name, [None])[0]) for name in ("begin", "end"))
    if begin is None or end is None or begin >= end or begin.year < 2000 or end.year > 2063:
        return 400
    if plant.reply is not None:
        return plant.reply, "text/xml; charset=utf-8"
    rows = sorted((row for row in plant.log if begin <= row["since"] < end), key=lambda row: row["since"])
    return HEAD + "<loggerEvents>" + "".join(map(log_record, rows)) + "</loggerEvents>", "text/xml; charset=utf-8"


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *arguments):
        pass

    def do_GET(self):
        path, query = urllib.parse.urlsplit(self.path)[2:4]
        if path == "/" or path.startswith("/console/"):
            return self.send_file(path)
        self.serve(path, {
            "/services/events/actived.xml": lambda plant: (active_reply(plant), "text/xml; charset=utf-8"),
            "/services/events/notified.xml": lambda plant: (notified_reply(plant), "text/xml; charset=utf-8"),
            "/services/events/list.json": lambda plant: (json.dumps(plant.events), "application/json"),
            "/services/events/logger.xml": lambda plant: logger_reply(plant, urllib.parse.parse_qs(query)),
            "/services/variables.json": lambda plant: (json.dumps({"devices": plant.devices}), "application/json"),
        }.get(path))

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        if self.path == "/session":
            return self.sign_in(body)
        self.serve(self.path, (lambda plant: self.acknowledge(plant, body)) if self.path == "/services/events/ack.xml" else None)

    def do_DELETE(self):
        if self.path != "/session":
            return self.answer(404, "not found")
        self.server.owner.sessions.discard(self.cookie())
        self.answer(204)

    def serve(self, path, writer):
        owner = self.server.owner
        owner.requests.append(path)
        owner.queries.append(self.path)
        fault = owner.fault_for(path)
        if fault == "hang":
            owner.released.wait(60)
            self.close_connection = True
            return
        if fault == "busy":
            return self.answer(503, "too many requests in progress")
        if isinstance(fault, int):
            return self.answer(fault, REFUSALS.get(fault, "refused"))
        if fault == "broken":
            return self.answer(200, HEAD + "<activedEvents><event><id>", "text/xml; charset=utf-8")
        if owner.users and self.cookie() not in owner.sessions:
            return self.answer(401, "sign in")
        if writer is None:
            return self.answer(404, "not found")
        with owner.plant.mutex:
            result = writer(owner.plant)
        if isinstance(result, int):
            return self.answer(result, "" if result == 204 else REFUSALS[result])
        if fault == "stall":
            return self.stall(*result)
        self.answer(200, *result)

    def stall(self, text, kind):
        """The first half of an answer, and the rest when the test says so."""
        body = text.encode("utf-8")
        self.send_response(200)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body[:len(body) // 2])
        self.server.owner.released.wait(60)
        self.wfile.write(body[len(body) // 2:])

    def acknowledge(self, plant, body):
        if self.server.owner.viewer_only:
            return 403
        root = ElementTree.fromstring(body)
        if root.tag != "eventsAck":
            return 400
        for child in root.findall("id"):
            plant.acknowledge(child.text)
        return 204

    def sign_in(self, body):
        owner = self.server.owner
        form = urllib.parse.parse_qs(body.decode("utf-8"))
        name = form.get("name", [""])[0]
        if name not in owner.users or owner.users[name] != form.get("password", [""])[0]:
            return self.answer(401, "wrong name or password")
        session = uuid.uuid4().hex
        owner.sessions.add(session)
        self.answer(204, headers={"Set-Cookie": f"session={session}; HttpOnly; SameSite=Strict; Path=/"})

    def cookie(self):
        return self.headers.get("Cookie", "").partition("session=")[2].partition(";")[0]

    def send_file(self, path):
        name = "index.html" if path == "/" else path[len("/console/"):]
        file = (CONSOLE / name).resolve()
        if CONSOLE not in file.parents or not file.is_file():
            return self.answer(404, "not found")
        self.answer(200, file.read_bytes(), TYPES[file.suffix])

    def answer(self, status, body=b"", kind="text/plain; charset=utf-8", headers=None):
        body = body.encode("utf-8") if isinstance(body, str) else body
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Content-Security-Policy", POLICY)
        self.send_header("Cache-Control", "no-store")
        for name, value in (headers or {}).items():
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)

    def date_time_string(self, timestamp=None):
        return super().date_time_string((timestamp or time.time()) + self.server.owner.clock_ahead)


class Listener(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, address, owner):
        super().__init__(address, Handler)
        self.owner = owner
        self.connections = set()

    def process_request(self, request, client_address):
        self.connections.add(request)
        super().process_request(request, client_address)

    def handle_error(self, request, client_address):
        pass  # a page that was closed, or a stop in the middle of an answer

    def drop_connections(self):
        for connection in self.connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # already gone


class MockServer:
    """Serves until `stop`; `start` takes the same port again. `fault` is None, "busy", "broken", "hang", "stall" or a status,
    `fault_path` limits it."""

    def __init__(self, port=0):
        self.plant = Plant()
        self.fault = None
        self.fault_path = None
        self.users = {}
        self.sessions = set()
        self.viewer_only = False
        self.clock_ahead = 0   # seconds
        self.requests = []     # paths asked for
        self.queries = []      # the same with what stands behind the "?"
        self.released = threading.Event()
        self.port = port
        self.listener = None

    @property
    def url(self):
        return f"http://127.0.0.1:{self.port}/"

    def fault_for(self, path):
        return self.fault if self.fault_path in (None, path) else None

    def start(self):
        self.released.clear()
        self.listener = Listener(("127.0.0.1", self.port), self)
        self.port = self.listener.server_address[1]
        threading.Thread(target=self.listener.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()
        return self

    def stop(self):
        self.released.set()
        self.listener.shutdown()
        self.listener.server_close()
        self.listener.drop_connections()

    def __enter__(self):
        return self.start()

    def __exit__(self, *problem):
        self.stop()


# --- Scenes to look at -------------------------------------------------------


def scene_day(plant):
    """An ordinary day with a few things going on."""
    plant.activate("Cold store too warm", "Cold store at -16.2 °C, warmer than -17 °C for 5 s", ago(minutes=3, seconds=12),
                   description="Goods must stay below -18 °C; the horn sounds until somebody acknowledges", groups=["Cold chain"])
    plant.activate("Supply load high", "Supply at 287.4 kW of 300 kW contracted (above 280 kW for 5 s); hall takes 131.0 kW",
                   ago(seconds=41), description="Active power of the incoming supply near the contracted 300 kW", groups=["Energy"])
    plant.activate("Air pressure low", "Air pressure 6.14 bar (alarm at 6.2 bar, clears at 6.5 bar)", ago(minutes=18),
                   groups=["Compressed air"])
    plant.deactivate("Air pressure low", ago(minutes=17, seconds=9))
    compressor = plant.activate("Compressor in manual", "Selector on manual, pressure 6.90 bar", ago(hours=2, minutes=14),
                                groups=["Compressed air", "Operation"])
    plant.acknowledge(compressor, ago(hours=2, minutes=13))
    plant.activate("Supply frequency deviates", "Frequency 50.043 Hz", ago(seconds=9), notify=False, groups=["Energy"])
    plant.activate("Defrost running", "Defrost cycle, evaporator at -24.6 °C", ago(minutes=4), notify=False, groups=["Cold chain"])
    for name in ("Solar insulation low", "Compressor oil hot", "Hall consumes outside shifts", "Power factor low"):
        plant.configure(name, groups=["Energy"], time_table="Outside shifts" if "Hall" in name else None)
    plant.device("SUPPLY", "Energy meter, incoming supply", variables=[
        ("P", "Active power, kW", 287.4381, ()), ("U", "Voltage L-N, V", 231.2, ()), ("F", "Frequency, Hz", 50.043, ()),
        ("E", "Active energy since midnight, kWh", 12345.678, ())])
    plant.device("COLDSTORE", "Cold store, 400 pallets", kind="COLD", variables=[
        ("TEMP", "Air temperature, °C", -16.21, ()), ("DEFROST", "Defrost cycle", 1, ("OFF", "ON"))])
    plant.device("SOLAR", "Solar inverter, 90 kWp", kind="INVERTER", state=2, variables=[
        ("P", "Active power fed in, kW", None, ()), ("UDC", "Direct voltage, V", None, ())])
    plant.device("PANEL", "Switches and set points at the shift leader's desk", kind="PANEL", variables=[
        ("DOOR", "Cold store door", 0, ("CLOSED", "OPEN")), ("LIMIT", "Limit for the supply, kW; empty for none", None, ()),
        ("HORN", "Alarm horn in the loading bay", 1, ("OFF", "ON"))])


def scene_many(plant, count=200):
    """A bad day: hundreds of occurrences, half of them still active."""
    for number in range(count):
        name = f"Feeder {number:03d} overloaded"
        plant.activate(name, f"Feeder {number:03d} carries {400 + number} A of 400 A", ago(seconds=7 * number + 1), groups=["Energy"])
        if number % 2:
            plant.deactivate(name)


# Name, group, whether somebody has to acknowledge it, mean hours between two, mean minutes of one, text.
HISTORY = (
    ("Supply load high", "Energy", True, 5, 6, "Supply at {:.1f} kW of 300 kW contracted (above 280 kW for 5 s)", 281, 298),
    ("Air pressure low", "Compressed air", True, 7, 4, "Air pressure {:.2f} bar (alarm at 6.2 bar, clears at 6.5 bar)", 5.7, 6.2),
    ("Cold store door open", "Cold chain", True, 4, 3, "Door open, cold store at {:.1f} °C", -21, -17.5),
    ("Cold store too warm", "Cold chain", True, 19, 35, "Cold store at {:.1f} °C, warmer than -17 °C for 5 s", -16.9, -13),
    ("Defrost running", "Cold chain", False, 6, 22, "Defrost cycle, evaporator at {:.1f} °C", -25, -23),
    ("Power factor low", "Energy", True, 26, 14, "Power factor {:.2f}, below 0.90 for 60 s", 0.78, 0.9),
    ("Supply frequency deviates", "Energy", False, 9, 1, "Frequency {:.3f} Hz", 49.93, 50.07),
    ("Compressor oil hot", "Compressed air", True, 40, 18, "Oil at {:.1f} °C, limit 90 °C", 90.1, 96),
    ("Hall consumes outside shifts", "Energy", True, 24, 55, "Hall takes {:.1f} kW outside shifts", 24, 60),
)


def scene_history(plant, hours=24 * 8):
    """The day, and the log of the days before it. The same each time."""
    scene_day(plant)
    chance = random.Random(7)
    now = utc_now().replace(microsecond=0)
    for name, group, notify, apart, minutes, text, low, high in HISTORY:
        if plant.event(name) is None:
            plant.configure(name, notify=notify, groups=[group])
        age = chance.uniform(0, apart) * 3600
        while age < hours * 3600:
            lasted = int(min(chance.expovariate(1 / (60 * minutes)) + 5, age - 240)) if age > 300 else None
            if lasted is not None:
                plant.record(name, now - datetime.timedelta(seconds=int(age)), text.format(chance.uniform(low, high)), lasted=lasted,
                             acknowledged_after=int(chance.expovariate(1 / 240)) + 4 if notify and chance.random() < 0.97 else None)
            age += chance.expovariate(1 / (apart * 3600))
    for occurrence in plant.occurrences:
        plant.record(occurrence["event"]["name"], occurrence["since"].replace(microsecond=0), occurrence["annotation"], occurrence=occurrence["id"],
                     lasted=occurrence["ended"] and int((occurrence["ended"] - occurrence["since"]).total_seconds()),
                     acknowledged_after=occurrence["acknowledged"] and int((occurrence["acknowledged"] - occurrence["since"]).total_seconds()))


def main():
    parser = argparse.ArgumentParser(description="Shows the console with a plant made up for it.")
    parser.add_argument("--port", type=int, default=8099)
    parser.add_argument("--scene", choices=["day", "many", "history", "empty"], default="day")
    options = parser.parse_args()
    with MockServer(options.port) as server:
        {"day": scene_day, "many": scene_many, "history": scene_history, "empty": lambda plant: None}[options.scene](server.plant)
        print(f"listening on {server.url}", flush=True)
        try:
            while True:
                time.sleep(3600)
        except KeyboardInterrupt:
            pass


if __name__ == "__main__":
    main()
