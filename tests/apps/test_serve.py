#!/usr/bin/python3
"""corvane serve: how it starts, what stops it from starting, and how it ends."""

import os
import signal
import socket
import subprocess
import threading
import unittest

import parallel
from installation import PATIENCE, PROGRAM, Installation, event, events_document, memory_device, run, wait_for

ENDS_WITHIN = 10  # seconds, on a machine that may be busy
CLIENTS = 32


class Start(unittest.TestCase):
    def test_tells_where_it_listens(self):
        server = Installation(self).serve()
        self.assertEqual(f"listening on http://127.0.0.1:{server.port}/\n", server.first_line)
        self.assertEqual(200, server.get("/").status)
        server.stop()
        self.assertEqual("", server.process.stdout.read(), "standard output holds nothing else")

    def test_takes_the_port_of_the_command_line_before_the_one_of_the_settings(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            plant = Installation(self, f"[http]\nport = {taken.getsockname()[1]}\n")
            plant.serve()

    def test_starts_on_empty_settings_and_makes_its_directories(self):
        plant = Installation(self)
        server = plant.serve()
        for name in ("data", "html"):
            self.assertEqual(0o750, (plant.folder / name).stat().st_mode & 0o7777, name)
        self.assertFalse((plant.folder / "cfg").exists())
        self.assertEqual([], server.document("actived"))
        self.assertEqual([], server.document("notified"))
        self.assertEqual(b"[]", server.get("/services/events/list.json").body)
        self.assertEqual(200, server.health())
        self.assertNotIn("warning", server.messages())

    def test_is_healthy_from_the_first_moment(self):
        # Heavy conditions, so that the first question comes during the first scan.
        heavy = "+".join(["SIN([M.V]*COS(1.5))"] * 190) + " > 1000"
        events = events_document(*(event(f"E{number}", heavy) for number in range(3000)))
        server = Installation(self, memory_device("M", "V"), events).serve()
        server.put("M.V", 1)
        self.assertEqual([200] * 5, [server.health() for _ in range(5)])

    def test_finds_its_paths_from_the_settings_not_from_where_it_is_started(self):
        plant = Installation(self, '[paths]\ndata = "a/b/data"\nhtml = "a/html"\n')
        plant.serve(directory="/")
        self.assertTrue((plant.folder / "a/b/data").is_dir())
        self.assertTrue((plant.folder / "a/html").is_dir())

    def test_refuses_a_data_directory_that_another_server_uses(self):
        plant = Installation(self)
        server = plant.serve()
        result = plant.refused()
        self.assertEqual(3, result.code, result)
        self.assertEqual("", result.out)
        self.assertIn(str(plant.folder / "data"), result.err)
        self.assertIn("another program", result.err)
        self.assertEqual(200, server.health())
        server.stop()
        plant.serve()

    def test_starts_again_after_one_that_was_killed(self):
        plant = Installation(self)
        server = plant.serve()
        server.stop(signal.SIGKILL)
        plant.serve()

    def test_lets_others_evaluate_meanwhile(self):
        plant = Installation(self, memory_device("M", "V"), events_document(event("E", "[M.V] > 0")))
        server = plant.serve()
        self.assertEqual("logical 62 NaN\n", plant.eval("[M.V] > 0").out)
        self.assertEqual(200, server.health())

    def test_keeps_its_files_apart_from_standard_streams_that_are_closed(self):
        # The first file opened would otherwise get the number of the stream, and messages would go into it.
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
        plant = Installation(self)
        command = f'exec "{PROGRAM}" serve --setup "{plant.setup}" --port {port} <&- >&- 2>&-'
        process = subprocess.Popen(["/bin/sh", "-c", command])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

        def ready():
            try:
                socket.create_connection(("127.0.0.1", port), 5).close()
                return True
            except OSError:
                return False

        wait_for(ready, "the server")
        for stream in range(3):
            self.assertEqual("/dev/null", os.readlink(f"/proc/{process.pid}/fd/{stream}"))
        process.terminate()
        self.assertEqual(0, process.wait(PATIENCE))

    def test_refuses_a_port_that_is_taken(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            result = Installation(self).refused("--port", str(port))
            self.assertEqual(3, result.code, result)
            self.assertEqual("", result.out)
            self.assertIn(str(port), result.err)

    def test_refuses_directories_that_cannot_be_made(self):
        plant = Installation(self)
        plant.write("data", "a file stands where the directory should be")
        result = plant.refused()
        self.assertEqual(3, result.code, result)
        self.assertIn(str(plant.folder / "data"), result.err)

    def test_does_not_let_strangers_in(self):
        hashed = run("password", given="secret\n").out.strip()
        user = f'[[http.user]]\nname = "ana"\npassword = "{hashed}"\n'
        for settings, missing in (
            ('[http]\nlisten = "0.0.0.0"\n', "[[http.user]]"),
            ('[http]\nlisten = "::"\n', "[[http.user]]"),
            ('[http]\nlisten = "0.0.0.0"\n' + user, "TLS"),
        ):
            with self.subTest(settings):
                result = Installation(self, settings).refused()
                self.assertEqual(2, result.code, result)
                self.assertEqual("", result.out)
                self.assertIn(missing, result.err)
                self.assertIn("http.open = true", result.err)

    def test_listens_to_all_when_the_settings_say_so(self):
        plant = Installation(self, '[http]\nlisten = "0.0.0.0"\nopen = true\n')
        self.assertEqual(200, plant.serve(at=r"0\.0\.0\.0").health())

    def test_tells_file_and_line_of_mistakes_in_each_section(self):
        for section, mistake, word in (
            ("[program]", 'language = "xx"', "xx"),
            ("[paths]", "data = 7", "data"),
            ("[locale]", 'decimal = ","', "decimal"),
            ("[http]", 'port = "http"', "port"),
            ("[http]", "prot = 8080", "prot"),
            ("[[http.user]]", 'password = "secret"', "password"),
            ("[rss]", "items = -1", "items"),
            ("[smtp]", 'server = "mail:0"', "server"),
            ("[parking]", "enabled = 1", "enabled"),
            ("[launch]", 'allow = "all"', "allow"),
            ("[[screen]]", 'devices = ["NONE"]', "NONE"),
            ("[[report]]", "title = 1", "title"),
            ("[[device]]", 'driver = "profibus"', "profibus"),
            ("[[device]]\nname = 'D'\ndriver = 'memory'", "port = 1", "port"),
            ("[[device]]\nname = 'D'\n[[device.variable]]\nname = 'V'", "address = 65536", "address"),
            ("[http", "", ""),
        ):
            with self.subTest(section, mistake=mistake):
                head = section if "name" in section or "[[" not in section else f"{section}\nname = 'N'"
                plant = Installation(self, f"\n{head}\n{mistake}\n")
                line = 2 if not mistake else 2 + head.count("\n") + 1
                result = plant.refused()
                self.assertEqual(2, result.code, result)
                self.assertEqual("", result.out)
                self.assertIn(f"{plant.setup}:{line}: ", result.err)
                self.assertIn(word, result.err)
                self.assertEqual(1, result.err.count("\n"), result.err)
                self.assertFalse((plant.folder / "data").exists(), "nothing is made before the settings are good")


class HangingMeters:
    """Two meters that never answer: one takes connections and is silent, one doesn't even take them."""

    def __init__(self, test):
        self.silent = socket.create_server(("127.0.0.1", 0))
        self.closed = socket.create_server(("127.0.0.1", 0), backlog=1)
        self.fillers = []
        for kept in (self.silent, self.closed):
            test.addCleanup(kept.close)
        # A full queue drops what comes next, as a firewall does.
        while True:
            filler = socket.socket()
            test.addCleanup(filler.close)
            filler.settimeout(0.3)
            try:
                filler.connect(self.closed.getsockname())
            except TimeoutError:
                break

    def settings(self):
        return "".join(
            f'[[device]]\nname = "{name}"\nport = {meter.getsockname()[1]}\npoll_ms = 100\n'
            '  [[device.variable]]\n  name = "P"\n'
            for name, meter in (("SILENT", self.silent), ("HOLE", self.closed))
        )


class SlowClients:
    """Clients that drip the bytes of their requests, and clients that don't read their answers."""

    def __init__(self, test, server):
        self.stopped = threading.Event()
        self.sockets = []
        for number in range(CLIENTS):
            client = socket.socket()
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            client.connect(("127.0.0.1", server.port))
            host = f"Host: 127.0.0.1:{server.port}\r\n"
            if number % 2:
                client.sendall(f"GET /services/variables.json HTTP/1.1\r\n{host}\r\n".encode() * 50)
            else:
                head = f"POST /services/events/ack.xml HTTP/1.1\r\n{host}Content-Length: 100000\r\n\r\n<eventsAck>"
                client.sendall(head.encode())
            self.sockets.append(client)
        self.dripping = threading.Thread(target=self.drip)
        self.dripping.start()
        test.addCleanup(self.end)

    def drip(self):
        while not self.stopped.wait(0.1):
            for client in self.sockets[::2]:
                try:
                    client.send(b" ")
                except OSError:
                    pass  # cut by the server

    def end(self):
        self.stopped.set()
        self.dripping.join()
        for client in self.sockets:
            client.close()


class End(unittest.TestCase):
    def ends(self, server, how):
        code, seconds = server.stop(how)
        self.assertEqual(0, code, server.messages())
        self.assertLess(seconds, ENDS_WITHIN)

    def test_comes_with_each_ending_signal(self):
        for how in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(how):
                server = Installation(self, memory_device("M", "V"), events_document(event("E", "[M.V] > 0"))).serve()
                server.put("M.V", 1)
                wait_for(lambda: server.active("E"), "the event")
                self.ends(server, how)
                self.assertIn("stopping", server.messages())

    def test_comes_not_with_the_terminal_that_the_caller_has_left(self):
        installation = Installation(self, memory_device("M", "V"), events_document(event("E", "[M.V] > 0")))
        server = installation.serve(launcher=("nohup",))
        server.process.send_signal(signal.SIGHUP)
        server.put("M.V", 1)
        wait_for(lambda: server.active("E"), "the event")
        self.ends(server, signal.SIGTERM)

    def test_comes_while_no_meter_answers(self):
        hanging = HangingMeters(self)
        server = Installation(self, hanging.settings(), events_document(event("E", "[HOLE.P] > 0"))).serve()
        wait_for(lambda: all(server.devices()[name]["state"] & 2 for name in ("SILENT", "HOLE")), "the error")
        self.assertIsNone(server.value("SILENT", "P"))
        self.assertIsNone(server.value("HOLE", "P"))
        self.assertEqual(200, server.health())
        self.ends(server, signal.SIGTERM)

    def test_comes_while_meters_are_being_connected(self):
        server = Installation(self, HangingMeters(self).settings()).serve()
        self.ends(server, signal.SIGINT)

    def test_comes_while_clients_are_slow(self):
        many = memory_device("M", *(f"V{number}" for number in range(2000)))
        server = Installation(self, many, events_document(event("E", "[M.V1] > 0"))).serve()
        SlowClients(self, server)
        server.put("M.V1", 1)  # the slow ones hold up nobody
        wait_for(lambda: server.active("E"), "the event")
        self.ends(server, signal.SIGTERM)

    def test_comes_only_once_however_often_it_is_asked_for(self):
        server = Installation(self).serve()
        server.process.send_signal(signal.SIGTERM)
        server.process.send_signal(signal.SIGTERM)
        server.process.send_signal(signal.SIGINT)
        self.ends(server, signal.SIGTERM)

    def test_is_not_brought_by_clients_that_vanish(self):
        server = Installation(self).serve()
        for _ in range(20):
            client = socket.create_connection(("127.0.0.1", server.port))
            client.sendall(b"GET /services/variables.json HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" * 20)
            client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")  # a reset
            client.close()
        self.assertEqual(200, server.health())


if __name__ == "__main__":
    parallel.main()
