"""An installation in a directory of its own, and the program at work on it."""

import http.client
import json
import os
import pathlib
import re
import shutil
import signal
import ssl
import subprocess
import tempfile
import threading
import time
import uuid
import xml.etree.ElementTree as ElementTree
from xml.sax.saxutils import escape

PROGRAM = os.environ["CORVANE_BIN"]  # without it nothing here means anything
PATIENCE = 60  # seconds until something that should happen counts as missing; machines can be busy


def wait_for(condition, what, patience=PATIENCE):
    """The first true result of `condition`."""
    end = time.monotonic() + patience
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"not within {patience} s: {what}")
        time.sleep(0.05)


def guid_of(name):
    """The id that `event`, `group` and `day` give to something of that name."""
    return "{" + str(uuid.uuid5(uuid.NAMESPACE_OID, name)).upper() + "}"


def elements(values):
    return "".join(f"<{tag}>{escape(str(text))}</{tag}>" for tag, text in values.items())


def event(name, condition, groups=(), **values):
    """An event of default.xeve; `values` are its other elements of one text each."""
    known = elements({"id": guid_of(name), "name": name, **values, "condition": condition})
    references = "".join(f"<eventsGroup>{guid_of(group)}</eventsGroup>" for group in groups)
    return f"<event>{known}<eventsGroups>{references}</eventsGroups></event>"


def group(name):
    return f"<eventsGroup>{elements({'id': guid_of(name), 'name': name})}</eventsGroup>"


def events_document(*events, groups=()):
    return (
        '<?xml version="1.0" encoding="UTF-8"?><main><eventsGroups>'
        + "".join(group(name) for name in groups)
        + f"</eventsGroups><events>{''.join(events)}</events></main>"
    )


def memory_device(name, *variables):
    """Settings of a device whose values the test sets."""
    lines = ["[[device]]", f'name = "{name}"', 'driver = "memory"']
    for variable in variables:
        lines += ["  [[device.variable]]", f'  name = "{variable}"']
    return "\n".join(lines) + "\n"


class Result:
    """What a program that has ended left behind."""

    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out, err

    def __repr__(self):
        return f"exit {self.code}\n--- standard output\n{self.out}\n--- standard error\n{self.err}"


def run(*arguments, given="", environment=None):
    done = subprocess.run(
        [PROGRAM, *map(str, arguments)],
        input=given,
        capture_output=True,
        text=True,
        timeout=PATIENCE,
        env={**os.environ, **(environment or {})},
    )
    return Result(done.returncode, done.stdout, done.stderr)


class Batch:
    """The program's commands one after the other in one process, for tests of thousands."""

    def __init__(self, test):
        self.process = subprocess.Popen(
            [os.environ["CORVANE_BATCH"]], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, encoding="utf-8"
        )
        test.addCleanup(self.end)

    def run(self, *arguments):
        self.process.stdin.write(json.dumps([str(argument) for argument in arguments]) + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        if not answer:
            raise AssertionError(f"the program ended with {self.process.wait(PATIENCE)} at {arguments}")
        result = json.loads(answer)
        return Result(result["code"], result["out"], result["err"])

    def end(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.process.stdout.close()


class Installation:
    """A directory with settings and documents, gone after the test."""

    def __init__(self, test, settings="", events=None, tables=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="corvane-app-"))
        test.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.test = test
        self.setup = self.folder / "corvane.toml"
        self.setup.write_text(settings, encoding="utf-8")
        if events is not None:
            self.write("cfg/default.xeve", events)
        if tables is not None:
            self.write("cfg/default.xtmt", tables)

    def write(self, path, content):
        file = self.folder / path
        file.parent.mkdir(exist_ok=True)
        if isinstance(content, bytes):
            file.write_bytes(content)
        else:
            file.write_text(content, encoding="utf-8")
        return file

    def eval(self, expression, *options):
        return run("eval", "--setup", self.setup, *options, "--", expression)

    def serve(self, at=r"127\.0\.0\.1", **how):
        """The server, ready on an address that matches `at`; ended with the test at the latest."""
        server = Server(self, **how)
        self.test.addCleanup(server.end)
        server.wait_until_ready(at)
        return server

    def refused(self, *options):
        """The result of a server that doesn't start."""
        return run("serve", "--setup", self.setup, *(options or ("--port", "0")))


class Answer:
    def __init__(self, status, headers, body):
        self.status, self.headers, self.body = status, headers, body

    @property
    def text(self):
        return self.body.decode("utf-8")

    def __repr__(self):
        return f"{self.status} {self.body[:500]!r}"


class Server:
    """`corvane serve`, and the questions that the tests ask it."""

    def __init__(self, installation, options=("--port", "0"), environment=None, directory=None, launcher=()):
        self.errors = installation.folder / f"stderr-{uuid.uuid4()}"
        with open(self.errors, "wb") as errors:
            self.process = subprocess.Popen(
                [*launcher, PROGRAM, "serve", "--setup", str(installation.setup), *options],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=errors,
                text=True,
                cwd=directory,
                env={**os.environ, **(environment or {})},
            )
        self.first_line = None
        self.url = None
        self.port = None
        self.headers = {}
        self.tls = None

    def wait_until_ready(self, at):
        watchdog = threading.Timer(PATIENCE, self.process.kill)
        watchdog.start()
        self.first_line = self.process.stdout.readline()
        watchdog.cancel()
        match = re.fullmatch(rf"listening on ((https?)://{at}:(\d+)/)\n", self.first_line)
        if match is None:
            raise AssertionError(f"the server isn't ready: {self.first_line!r}\n{self.messages()}")
        self.url = match.group(1)
        self.port = int(match.group(3))
        if match.group(2) == "https":
            self.tls = ssl.create_default_context()
            self.tls.check_hostname = False
            self.tls.verify_mode = ssl.CERT_NONE

    def messages(self):
        return self.errors.read_text(encoding="utf-8", errors="replace")

    def ask(self, method, path, body=None, headers=None, timeout=PATIENCE):
        if self.tls:
            connection = http.client.HTTPSConnection("127.0.0.1", self.port, timeout=timeout, context=self.tls)
        else:
            connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            connection.request(method, path, body, {**self.headers, **(headers or {})})
            reply = connection.getresponse()
            return Answer(reply.status, reply.headers, reply.read())
        finally:
            connection.close()

    def get(self, path):
        answer = self.ask("GET", path)
        if answer.status != 200:
            raise AssertionError(f"GET {path}: {answer}")
        return answer

    def put(self, variable, value):
        answer = self.ask("PUT", f"/services/variables/{variable}", str(value))
        if answer.status != 204:
            raise AssertionError(f"PUT {variable}: {answer}")

    def health(self):
        return self.ask("GET", "/health").status

    def document(self, name):
        """The events of actived.xml or notified.xml, each as a dictionary of its elements in their order."""
        answer = self.get(f"/services/events/{name}.xml")
        if answer.headers["Content-Type"] != "text/xml; charset=utf-8":
            raise AssertionError(answer.headers["Content-Type"])
        root = ElementTree.fromstring(answer.body)
        if root.tag != f"{name}Events":
            raise AssertionError(root.tag)
        return [{child.tag: child.text or "" for child in element} for element in root]

    def active(self, name):
        return next((found for found in self.document("actived") if found["name"] == name), None)

    def occurrences(self, name):
        return [found for found in self.document("notified") if found["name"] == name]

    def acknowledge(self, *ids):
        body = "".join(f"<id>{id}</id>" for id in ids)
        return self.ask("POST", "/services/events/ack.xml", f"<eventsAck>{body}</eventsAck>")

    def devices(self):
        return {device["name"]: device for device in json.loads(self.get("/services/variables.json").body)["devices"]}

    def variables(self, device):
        return {variable["name"]: variable for variable in self.devices()[device]["variables"]}

    def value(self, device, variable):
        return self.variables(device)[variable]["value"]

    def stop(self, how=signal.SIGTERM):
        """Asks the server to end; its exit code and the seconds that it took."""
        begun = time.monotonic()
        self.process.send_signal(how)
        code = self.process.wait(PATIENCE)
        return code, time.monotonic() - begun

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process.stdout.close()
