#!/usr/bin/python3
"""Who may do what, with hashes that the program itself has made, and over TLS."""

import base64
import http.client
import socket
import ssl
import subprocess
import unittest
import warnings

import parallel
from installation import Installation, event, events_document, memory_device, run, wait_for

ROLES = {"vera": "viewer", "olga": "operator", "emil": "engineer"}
PASSWORD = 'ge"heim: ünd lang'


HASH = run("password", given=PASSWORD + "\n").out.strip()  # one for all: it is slow on purpose


def user(name, role):
    return f"[[http.user]]\nname = \"{name}\"\npassword = '{HASH}'\nrole = \"{role}\"\n"


def basic(name, password=PASSWORD):
    return {"Authorization": "Basic " + base64.b64encode(f"{name}:{password}".encode()).decode()}


EVENTS = events_document(event("E", "[M.V] > 0", notify="T"))


class Users(unittest.TestCase):
    def setUp(self):
        users = "".join(user(name, role) for name, role in ROLES.items())
        self.server = Installation(self, users + memory_device("M", "V"), EVENTS).serve()

    def status(self, method, path, who=None, body=None):
        return self.server.ask(method, path, body, basic(who) if who else None).status

    def test_roles_allow_what_they_should_and_no_more(self):
        ack = "<eventsAck></eventsAck>"
        for method, path, body, good, allowed in (
            ("GET", "/services/events/actived.xml", None, 200, ("vera", "olga", "emil")),
            ("GET", "/services/events/notified.xml", None, 200, ("vera", "olga", "emil")),
            ("GET", "/services/events/logger.xml?begin=01012026000000&end=02012026000000", None, 200,
             ("vera", "olga", "emil")),
            ("GET", "/services/events/list.json", None, 200, ("vera", "olga", "emil")),
            ("GET", "/services/variables.json", None, 200, ("vera", "olga", "emil")),
            ("POST", "/services/events/ack.xml", ack, 204, ("olga", "emil")),
            ("PUT", "/services/variables/M.V", "1", 204, ("emil",)),
        ):
            self.assertEqual(401, self.status(method, path, None, body), path)
            for name in ROLES:
                with self.subTest(path, who=name):
                    self.assertEqual(good if name in allowed else 403, self.status(method, path, name, body))

    def test_an_acknowledgement_that_is_refused_changes_nothing(self):
        self.assertEqual(204, self.status("PUT", "/services/variables/M.V", "emil", "1"))
        self.server.headers = basic("vera")
        (waiting,) = wait_for(lambda: self.server.occurrences("E"), "the occurrence")
        self.assertEqual(403, self.server.acknowledge(waiting["id"]).status)
        self.assertEqual([waiting], self.server.occurrences("E"))
        self.server.headers = basic("olga")
        self.assertEqual(204, self.server.acknowledge(waiting["id"]).status)
        self.assertIn("ackDateTime", self.server.occurrences("E")[0])

    def test_some_things_need_nobody(self):
        for path in ("/", "/health"):
            self.assertEqual(200, self.status("GET", path), path)

    def test_wrong_names_and_passwords_are_refused(self):
        for headers in (basic("vera", "wrong"), basic("nobody"), {"Authorization": "Basic !"}, {"Authorization": "Bearer x"}):
            answer = self.server.ask("GET", "/services/variables.json", None, headers)
            self.assertEqual(401, answer.status, headers)
            self.assertIn("WWW-Authenticate", answer.headers)
        self.assertEqual(200, self.status("GET", "/services/variables.json", "vera"))

    def test_session_carries_the_role(self):
        form = "name=olga&password=" + "ge%22heim%3A+%C3%BCnd+lang"
        kind = {"Content-Type": "application/x-www-form-urlencoded"}
        answer = self.server.ask("POST", "/session", form, kind)
        self.assertEqual(204, answer.status, answer)
        cookie = answer.headers["Set-Cookie"]
        for word in ("HttpOnly", "SameSite=Strict"):
            self.assertIn(word, cookie)
        self.assertNotIn("Secure", cookie)
        self.server.headers = {"Cookie": cookie.split(";")[0]}
        self.assertEqual(200, self.status("GET", "/services/variables.json"))
        self.assertEqual(204, self.server.acknowledge().status)
        self.assertEqual(403, self.status("PUT", "/services/variables/M.V", None, "1"))
        self.assertEqual(204, self.status("DELETE", "/session"))
        self.assertEqual(401, self.status("GET", "/services/variables.json"))

    def test_foreign_names_and_pages_are_refused(self):
        port = self.server.port
        for headers, status in (
            ({"Host": "127.0.0.1"}, 200),
            ({"Host": f"localhost:{port}"}, 200),
            ({"Host": f"evil.example:{port}"}, 421),
        ):
            self.assertEqual(status, self.server.ask("GET", "/health", None, headers).status, headers)
        for origin, status in ((f"http://127.0.0.1:{port}", 204), ("http://evil.example", 403), ("null", 403)):
            headers = {**basic("emil"), "Origin": origin}
            self.assertEqual(status, self.server.ask("PUT", "/services/variables/M.V", "0", headers).status, origin)


class Tls(unittest.TestCase):
    def plant(self, settings="", **paths):
        plant = Installation(self, events=EVENTS)
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2"]
            + ["-subj", "/CN=plant", "-addext", "subjectAltName=IP:127.0.0.1,DNS:plant.example"]
            + ["-keyout", str(plant.folder / "key.pem"), "-out", str(plant.folder / "certificate.pem")],
            check=True,
            capture_output=True,
        )
        names = {"certificate": "certificate.pem", "key": "key.pem", **paths}
        lines = "".join(f'{key} = "{value}"\n' for key, value in names.items() if value)
        plant.setup.write_text(f"[http]\n{lines}{settings}" + memory_device("M", "V"), encoding="utf-8")
        return plant

    def test_serves_all_over_tls(self):
        plant = self.plant(user("olga", "operator"))
        server = plant.serve()
        self.assertEqual(f"listening on https://127.0.0.1:{server.port}/\n", server.first_line)
        # The clients check the certificate as any browser would that trusts it.
        server.tls = ssl.create_default_context(cafile=plant.folder / "certificate.pem")
        self.assertEqual(200, server.health())
        self.assertEqual(401, server.ask("GET", "/services/variables.json").status)
        server.headers = basic("olga")
        self.assertIsNone(server.value("M", "V"))
        self.assertEqual(204, server.acknowledge().status)
        form = {"Content-Type": "application/x-www-form-urlencoded"}
        answer = server.ask("POST", "/session", "name=olga&password=ge%22heim%3A+%C3%BCnd+lang", form)
        self.assertIn("Secure", answer.headers["Set-Cookie"])
        self.assertEqual(0, server.stop()[0])

    def test_has_nothing_for_those_who_do_not_speak_it(self):
        server = self.plant().serve()
        plain = http.client.HTTPConnection("127.0.0.1", server.port, timeout=30)
        self.addCleanup(plain.close)
        with self.assertRaises((http.client.HTTPException, OSError)):
            plain.request("GET", "/health")
            plain.getresponse()
        warnings.simplefilter("ignore", DeprecationWarning)  # it is old on purpose
        old = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        old.check_hostname = False
        old.verify_mode = ssl.CERT_NONE
        old.set_ciphers("ALL:@SECLEVEL=0")
        old.minimum_version = ssl.TLSVersion.TLSv1
        old.maximum_version = ssl.TLSVersion.TLSv1_1
        with socket.create_connection(("127.0.0.1", server.port)) as raw, self.assertRaises((ssl.SSLError, OSError)):
            old.wrap_socket(raw)
        self.assertEqual(200, server.health())

    def test_listens_everywhere_with_users_and_tls(self):
        plant = self.plant('listen = "0.0.0.0"\n' + user("olga", "operator"))
        self.assertRegex(plant.serve(at=r"0\.0\.0\.0").url, r"\Ahttps://0\.0\.0\.0:\d+/\Z")

    def test_does_not_start_without_what_it_needs(self):
        for paths, words in (
            ({"key": ""}, ("key",)),
            ({"certificate": ""}, ("certificate",)),
            ({"certificate": "nothing.pem"}, ("nothing.pem",)),
            ({"key": "nothing.pem"}, ("nothing.pem",)),
            ({"certificate": "key.pem"}, ("certificate",)),
            ({"key": "certificate.pem"}, ("key",)),
            ({"key": "corvane.toml"}, ("key",)),
        ):
            with self.subTest(paths):
                plant = self.plant(**paths)
                result = plant.refused()
                self.assertEqual(2, result.code, result)
                self.assertEqual("", result.out)
                self.assertFalse((plant.folder / "data").exists(), "nothing is made before the settings are good")
                for word in words:
                    self.assertIn(word, result.err)


if __name__ == "__main__":
    parallel.main()
