"""HTTP as clients really speak it: well, badly, slowly and with ill will, against the real server process."""
import contextlib
import random
import signal
import socket
import subprocess
import time
import unittest

from harness import ServerCase, receive


class Requests(ServerCase):
    PAGES = {
        "index.html": "<p>home</p>",
        "form.html": "[&plxPost.name;|&plxPost.file;]",
        "cookie.html": "[&plxCookie.taste;]",
        "folder/index.html": "inside",
        "8bit.html": b"caf\xe9 \x00 &plxPath.q;",
        "auth.html": "[&plxCGI.REMOTE_USER;|&plxCGI.AUTH_TYPE;|&plxCGI.HTTP_AUTHORIZATION;]",
        "many.html": "<plxPOP>" * 100000 + "end",
    }
    LOGIN = ("admin", "correct horse")
    SETTINGS = "header-time = 4\nbody-time = 10\nbody-bytes = 1M"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server.switch_tags_off(cls.LOGIN)

    def test_garbage_does_no_harm(self):
        chance = random.Random(7)
        good = b"GET /form.html?a=1 HTTP/1.1\r\nHost: 127.0.0.1\r\nCookie: taste=sweet\r\nRange: bytes=0-1\r\n\r\n"
        for _ in range(300):
            data = bytearray(good)
            for _ in range(chance.randint(1, 6)):
                data[chance.randrange(len(data))] = chance.randrange(256)
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.server.port)) as connection:
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
                receive(connection, 5)
        self.assertEqual(self.server.get("/").status, 200)

    def test_slow_senders_are_cut_and_keep_nobody_waiting(self):
        slow = [socket.create_connection(("127.0.0.1", self.server.port)) for _ in range(40)]
        for connection in slow:
            connection.sendall(b"GET / HT")
        self.assertEqual(self.server.get("/").status, 200)
        for connection in slow:
            self.assertIn(receive(connection, 15)[9:12], (b"", b"408"))
            connection.close()

    def test_a_page_of_100000_tags_is_made(self):
        self.assertEqual(self.server.get("/many.html").text, "end")

    def test_pages_hold_any_bytes_and_values_are_encoded(self):
        answer = self.server.get("/8bit.html?q=%3Cscript%3E%26")
        self.assertEqual(answer.text, "caf\xe9 \x00 &lt;script&gt;&amp;")

    def test_forms_of_both_kinds(self):
        form = {"Content-Type": "application/x-www-form-urlencoded"}
        self.assertEqual(self.server.request("POST", "/form.html", "name=a+%3Cb%3E", form).text, "[a &lt;b&gt;|]")
        body = ('--X\r\nContent-Disposition: form-data; name="name"\r\n\r\nAda\r\n--X\r\nContent-Disposition: form-data; '
                'name="file"; filename="C:\\dir\\x.png"\r\nContent-Type: image/png\r\n\r\n' + "z" * 500000 + "\r\n--X--\r\n")
        answer = self.server.request("POST", "/form.html", body, {"Content-Type": "multipart/form-data; boundary=X"})
        self.assertEqual(answer.text, "[Ada|x.png]")
        many = "&".join(f"f{n}=1" for n in range(10000))
        self.assertEqual(self.server.request("POST", "/form.html", many, form).status, 413)

    def test_cookies_and_logins_reach_the_page_but_no_password(self):
        self.assertEqual(self.server.get("/cookie.html", Cookie="a=1; taste=sweet").text, "[sweet]")
        answer = self.server.request("GET", "/auth.html", user=("ada", "lovelace-secret"))
        self.assertEqual(answer.text, "[ada|Basic|]")
        self.until(lambda: "/auth.html" in self.server.log("access.log"))
        self.assertNotIn("lovelace-secret", self.server.log() + self.server.log("access.log"))

    def test_an_unknown_host_never_leads_elsewhere(self):
        answer = self.server.get("/folder", Host="evil.example")
        self.assertNotIn("evil.example", answer.getheader("Location") + answer.text)


class Load(ServerCase):
    PAGES = {"page.html": "<p>&plxPath.q;</p><plxPOP>", "file.txt": "x" * 1000}
    LOGIN = ("admin", "correct horse")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server.switch_tags_off(cls.LOGIN)

    def test_wrk_meets_no_error(self):
        for path in ("page.html?q=1", "file.txt"):
            done = subprocess.run(["wrk", "-t1", "-c32", "-d2s", "--timeout", "30s", f"{self.server.url}/{path}"], capture_output=True, text=True, timeout=60)
            self.assertNotIn("Socket errors", done.stdout)
            self.assertNotIn("Non-2xx", done.stdout)

    def test_reloading_under_load_drops_no_request(self):
        load = subprocess.Popen(["wrk", "-t1", "-c16", "-d3s", "--timeout", "30s", f"{self.server.url}/page.html?q=1"], stdout=subprocess.PIPE, text=True)
        for _ in range(10):
            self.server.process.send_signal(signal.SIGHUP)
            time.sleep(0.2)
        output = load.communicate(timeout=60)[0]
        self.assertNotIn("Socket errors", output)
        self.assertNotIn("Non-2xx", output)


if __name__ == "__main__":
    unittest.main()
