"""What ordinary clients do with the server at the address given: sessions, parallel requests, keep-alive, large bodies."""

import base64
import concurrent.futures
import http.client
import http.cookiejar
import json
import sys
import unittest
import urllib.error
import urllib.parse
import urllib.request

ADDRESS = sys.argv.pop(1)  # http://127.0.0.1:PORT/
NETLOC = urllib.parse.urlsplit(ADDRESS).netloc


def status_of(opener, request):
    try:
        with opener.open(request, timeout=20) as response:
            return response.status
    except urllib.error.HTTPError as error:
        return error.code


class OrdinaryClients(unittest.TestCase):
    def test_a_session_lives_in_a_cookie_jar(self):
        opener = urllib.request.build_opener(urllib.request.HTTPCookieProcessor(http.cookiejar.CookieJar()))
        form = urllib.parse.urlencode({"name": "olga", "password": "olga-pw"}).encode()
        self.assertEqual(status_of(opener, ADDRESS + "services/events/actived.xml"), 401)
        self.assertEqual(status_of(opener, urllib.request.Request(ADDRESS + "session", form)), 204)
        self.assertEqual(status_of(opener, ADDRESS + "services/events/actived.xml"), 200)
        ack = urllib.request.Request(ADDRESS + "services/events/ack.xml", b"<eventsAck/>")
        self.assertEqual(status_of(opener, ack), 204)
        self.assertEqual(status_of(opener, urllib.request.Request(ADDRESS + "session", method="DELETE")), 204)
        self.assertEqual(status_of(opener, ADDRESS + "services/events/actived.xml"), 401)

    def test_basic_passwords_work_when_the_server_asks_for_them(self):
        passwords = urllib.request.HTTPPasswordMgrWithDefaultRealm()
        passwords.add_password(None, ADDRESS, "ana", "ana-pw")
        opener = urllib.request.build_opener(urllib.request.HTTPBasicAuthHandler(passwords))
        with opener.open(ADDRESS + "services/events/list.json", timeout=20) as response:
            self.assertEqual(json.load(response), [{"name": "Overload"}])

    def test_one_connection_serves_many_requests(self):
        connection = http.client.HTTPConnection(NETLOC, timeout=20)
        token = base64.b64encode(b"ana:ana-pw").decode()
        for _ in range(100):
            connection.request("GET", "/services/events/notified.xml", headers={"Authorization": "Basic " + token})
            response = connection.getresponse()
            self.assertEqual(response.status, 200)
            self.assertEqual(response.read(), b"<notifiedEvents/>")
        connection.close()

    def test_many_clients_are_served_at_once(self):
        def ask(_):
            with urllib.request.urlopen(ADDRESS + "console/js/main.js", timeout=20) as response:
                return response.read()

        with concurrent.futures.ThreadPoolExecutor(32) as pool:
            self.assertEqual(set(pool.map(ask, range(300))), {b"export {};"})

    def test_a_body_that_is_too_large_gets_its_answer(self):
        token = base64.b64encode(b"olga:olga-pw").decode()
        for size in (1024 * 1024 + 1, 8 * 1024 * 1024):
            connection = http.client.HTTPConnection(NETLOC, timeout=20)
            connection.request("POST", "/services/events/ack.xml", b" " * size, {"Authorization": "Basic " + token})
            self.assertEqual(connection.getresponse().status, 413)
            connection.close()


if __name__ == "__main__":
    unittest.main()
