#!/usr/bin/python3
"""Events over a Modbus meter: what they do while it answers, when it is gone, and when it is back."""

import pathlib
import subprocess
import sys
import threading
import time
import unittest

import parallel
from installation import PATIENCE, Installation, event, events_document, memory_device, wait_for

METER = pathlib.Path(__file__).resolve().parents[1] / "devices" / "modbus_server.py"


class Meter:
    """A Modbus device in a process of its own, which can be killed and started again on its port."""

    def __init__(self, test, port=0):
        self.process = subprocess.Popen(
            [sys.executable, str(METER), str(port)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,  # it complains of each address that it is made to refuse
            text=True,
        )
        test.addCleanup(self.kill)
        watchdog = threading.Timer(PATIENCE, self.process.kill)
        watchdog.start()
        line = self.process.stdout.readline().split()
        watchdog.cancel()
        if line[:1] != ["listening"]:
            raise AssertionError(f"the meter isn't ready: {line}")
        self.port = int(line[1])

    def tell(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline().rstrip("\n")
        if answer.startswith("error") or self.process.poll() is not None:
            raise AssertionError(f"{command}: {answer}")
        return answer

    def power(self, value):
        self.tell(f"put holding 10 float32 abcd {float(value)}")

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        for stream in (self.process.stdin, self.process.stdout):
            if not stream.closed:
                try:
                    stream.close()
                except BrokenPipeError:
                    pass


class HealthWatch:
    """Asks for the health all the time, and keeps every answer that isn't good."""

    def __init__(self, test, server):
        self.server = server
        self.bad = []
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.watch)
        self.thread.start()
        test.addCleanup(self.end)

    def watch(self):
        while True:
            begun = time.monotonic()
            try:
                status = self.server.health()
            except OSError as fault:
                status = repr(fault)
            if status != 200:
                self.bad.append((status, time.monotonic() - begun))
            if self.ended.wait(0.2):
                return

    def end(self):
        self.ended.set()
        self.thread.join()


class Modbus(unittest.TestCase):
    def setUp(self):
        self.meter = Meter(self)
        self.meter.power(0)
        self.meter.tell("set coil 3 0")
        settings = (
            f'[[device]]\nname = "METER"\nport = {self.meter.port}\npoll_ms = 100\n'
            '  [[device.variable]]\n  name = "P"\n  address = 10\n  scale = 0.1\n'
            '  [[device.variable]]\n  name = "BREAKER"\n  table = "coil"\n  address = 3\n  writable = true\n'
            + memory_device("M", "V")
        )
        events = events_document(
            event("High", "[METER.P] > 28", notify="T"),
            event("High until low", "[METER.P] > 28", conditionStop="[METER.P] < 20", notify="T"),
            event("Scan goes on", "[M.V] > 0"),
        )
        self.server = Installation(self, settings, events).serve()
        self.health = HealthWatch(self, self.server)

    def tearDown(self):
        self.health.end()
        self.assertEqual([], self.health.bad)

    def wait_active(self, name, active=True):
        wait_for(lambda: (self.server.active(name) is not None) == active, f"{name} {active}")

    def scan(self):
        """Waits until the events have been looked at after now."""
        for value, active in ((1, True), (0, False)):
            self.server.put("M.V", value)
            self.wait_active("Scan goes on", active)

    def state(self):
        return self.server.devices()["METER"]["state"]

    def test_event_follows_a_register(self):
        wait_for(lambda: self.server.value("METER", "P") == 0, "the first value")
        self.assertEqual(0, self.state())
        self.meter.power(281)
        self.wait_active("High")
        self.assertEqual(28.1, self.server.value("METER", "P"))
        self.meter.power(280)
        self.wait_active("High", False)
        self.assertIsNotNone(self.server.active("High until low"))
        self.meter.power(199)
        self.wait_active("High until low", False)

    def test_value_that_is_set_reaches_the_device(self):
        wait_for(lambda: self.server.value("METER", "BREAKER") == 0, "the first value")
        self.assertEqual(["OFF", "ON"], self.server.variables("METER")["BREAKER"]["labels"])
        self.server.put("METER.BREAKER", 1)
        wait_for(lambda: self.meter.tell("get coil 3 1") == "1", "the order")
        wait_for(lambda: self.server.value("METER", "BREAKER") == 1, "what is read back")
        self.assertEqual(409, self.server.ask("PUT", "/services/variables/METER.P", "1").status)

    def test_meter_that_dies_and_comes_back(self):
        self.meter.power(281)
        self.wait_active("High")
        self.wait_active("High until low")
        (before,) = self.server.occurrences("High until low")

        self.meter.kill()
        wait_for(lambda: self.server.value("METER", "P") is None, "the value to go")
        wait_for(lambda: self.state() & 2, "the error")
        self.wait_active("High", False)  # without a value the condition doesn't hold
        self.scan()
        self.scan()
        self.assertIsNotNone(self.server.active("High until low"), "what can't be evaluated ends nothing")
        self.assertEqual([before], self.server.occurrences("High until low"))
        self.assertIn("METER", self.server.messages())
        self.assertEqual(409, self.server.ask("PUT", "/services/variables/METER.BREAKER", "1").status, "no order is kept")

        again = Meter(self, self.meter.port)
        again.power(290)
        wait_for(lambda: self.server.value("METER", "P") == 29, "the value to come back")
        wait_for(lambda: self.state() == 0, "the end of the error")
        self.wait_active("High")
        self.assertEqual([before], self.server.occurrences("High until low"), "it never ended")
        self.assertEqual(2, len(self.server.occurrences("High")))
        again.power(0)
        self.wait_active("High until low", False)

    def test_register_that_the_meter_has_no_more(self):
        wait_for(lambda: self.server.value("METER", "BREAKER") == 0, "the first value")
        self.meter.tell("remove holding 11")
        wait_for(lambda: self.server.value("METER", "P") is None, "the value to go")
        self.scan()
        self.assertEqual(0, self.server.value("METER", "BREAKER"), "the others go on")
        self.assertEqual(0, self.state(), "a refusal is an answer")
        self.meter.power(300)
        wait_for(lambda: self.server.value("METER", "P") == 30, "the value to come back", 90)


if __name__ == "__main__":
    parallel.main()
