"""HTTP as clients really speak it: well, badly, slowly and with ill will, against the real server process."""
import contextlib
import random
import socket
import subprocess
import time
import unittest

from harness import ServerCase, receive


class Requests(ServerCase):
    PAGES = {
        "index.html": "<p>home</p>",
        "a.txt": "0123456789",
        "form.html": "[&plxPost.name;|&plxPost.file;]",
        "cookie.html": "[&plxCookie.taste;]",
        "folder/index.html": "inside",
        ".hidden": "secret",
        "8bit.html": b"caf\xe9 \x00 &plxPath.q;",
        "broken.html": 'before <plxIncludeHTTP url="x',
        "auth.html": "[&plxCGI.REMOTE_USER;|&plxCGI.AUTH_TYPE;|&plxCGI.HTTP_AUTHORIZATION;]",
        "many.html": "<plxPOP>" * 100000 + "end",
    }
    LOGIN = ("admin", "correct horse")
    SETTINGS = "header-time = 4\nbody-time = 10\nbody-bytes = 1M"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server.switch_tags_off(cls.LOGIN)

    def status(self, data, seconds=20):
        answer = self.server.raw(data, seconds)
        return int(answer.split(b" ", 2)[1]) if answer.startswith(b"HTTP/") else answer

    def test_pipelined_requests_are_answered_in_order(self):
        one = b"GET /a.txt HTTP/1.1\r\nHost: 127.0.0.1\r\nRange: bytes=%d-%d\r\n%s\r\n"
        data = b"".join(one % (n, n, b"Connection: close\r\n" if n == 9 else b"") for n in range(10))
        answers = self.server.raw(data)
        self.assertEqual(answers.count(b"HTTP/1.1 206"), 10)
        self.assertEqual([part[:1] for part in answers.split(b"\r\n\r\n")[1:]], [b"%d" % n for n in range(10)])

    def test_what_is_no_clear_request_is_refused(self):
        host = b"Host: 127.0.0.1\r\n"
        for why, data, statuses in (
                ("two lengths", b"POST / HTTP/1.1\r\n" + host + b"Content-Length: 1\r\nContent-Length: 2\r\n\r\nab", {400}),
                ("length and chunks", b"POST / HTTP/1.1\r\n" + host + b"Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", {400}),
                ("signed length", b"POST / HTTP/1.1\r\n" + host + b"Content-Length: +1\r\n\r\na", {400}),
                ("no host", b"GET / HTTP/1.1\r\n\r\n", {400}),
                ("two hosts", b"GET / HTTP/1.1\r\n" + host + host + b"\r\n", {400}),
                ("space before the colon", b"GET / HTTP/1.1\r\nHost : x\r\n\r\n", {400}),
                ("bare line feeds", b"GET / HTTP/1.1\nHost: x\n\n", {400}),
                ("a cut escape", b"GET /%4 HTTP/1.1\r\n" + host + b"Connection: close\r\n\r\n", {400}),
                ("a zero byte in the path", b"GET /a.txt%00.html HTTP/1.1\r\n" + host + b"Connection: close\r\n\r\n", {400}),
                ("a line break in the path", b"GET /%0d%0aX:1 HTTP/1.1\r\n" + host + b"Connection: close\r\n\r\n", {400}),
                ("a body over the limit", b"POST /form.html HTTP/1.1\r\n" + host + b"Content-Length: 2000000\r\n\r\n", {413}),
                ("an endless header", b"GET / HTTP/1.1\r\n" + host + b"X: " + b"y" * 100000, {431, 400}),
                ("an unknown method", b"BREW / HTTP/1.1\r\n" + host + b"Connection: close\r\n\r\n", {405, 501}),
                ("posting to a file", b"POST /a.txt HTTP/1.1\r\n" + host + b"Content-Length: 0\r\nConnection: close\r\n\r\n", {405}),
        ):
            with self.subTest(why):
                self.assertIn(self.status(data), statuses)

    def test_paths_lead_nowhere_but_into_the_site(self):
        (self.server.folder / "outside.txt").write_text("outside")
        link = self.server.root / "link.txt"
        if not link.exists():
            link.symlink_to("../outside.txt")
        for path in ("/../outside.txt", "/%2e%2e/outside.txt", "/folder/../../outside.txt", "/..%2foutside.txt",
                     "/folder/%2e%2e%2f%2e%2e%2foutside.txt", "/link.txt", "/.hidden", "/folder/..;/a.txt",
                     "/%252e%252e/outside.txt", "//etc/passwd", "/..\\outside.txt", "/folder/.../a.txt", "/plxserver.conf",
                     "/state/preferences.sqlite", "/" + "x" * 300, "/" + "d/" * 3000):
            with self.subTest(path):
                answer = self.server.raw(b"GET " + path.encode() + b" HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
                self.assertNotIn(b"outside", answer.split(b"\r\n\r\n", 1)[-1])
                self.assertIn(answer.split(b" ", 2)[1], (b"400", b"403", b"404", b"414", b"431"))

    def test_a_request_cut_at_every_byte_does_no_harm(self):
        request = b"POST /form.html HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: 8\r\n\r\nname=Ada"
        for cut in range(len(request)):
            with socket.create_connection(("127.0.0.1", self.server.port)) as connection:
                connection.sendall(request[:cut])
        self.assertEqual(self.server.get("/").text, "<p>home</p>")

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

    def test_an_unclosed_tag_is_told_with_its_line(self):
        answer = self.server.get("/broken.html")
        self.assertEqual(answer.status, 200)
        self.assertTrue(answer.text.startswith("before "))
        self.assertIn("plxIncludeHTTP", answer.text)

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

    def test_files_answer_ranges_and_conditions(self):
        first = self.server.get("/a.txt")
        self.assertEqual((first.status, first.text, first.getheader("Content-Type").split(";")[0]), (200, "0123456789", "text/plain"))
        tag, modified = first.getheader("ETag"), first.getheader("Last-Modified")
        self.assertEqual(self.server.get("/a.txt", If_None_Match=tag).status, 304)
        self.assertEqual(self.server.get("/a.txt", If_Modified_Since=modified).status, 304)
        part = self.server.get("/a.txt", Range="bytes=-3")
        self.assertEqual((part.status, part.text, part.getheader("Content-Range")), (206, "789", "bytes 7-9/10"))
        self.assertEqual(self.server.get("/a.txt", Range="bytes=20-").status, 416)
        head = self.server.request("HEAD", "/a.txt")
        self.assertEqual((head.status, head.text, head.getheader("Content-Length")), (200, "", "10"))
        self.assertEqual(self.server.get("/folder").getheader("Location"), "/folder/")

    def test_an_unknown_host_never_leads_elsewhere(self):
        answer = self.server.get("/folder", Host="evil.example")
        self.assertNotIn("evil.example", answer.getheader("Location") + answer.text)

    def test_curl_agrees(self):
        done = subprocess.run(["curl", "-sS", "-i", self.server.url + "/"], capture_output=True, text=True, timeout=30)
        self.assertIn("HTTP/1.1 200 OK", done.stdout)
        self.assertTrue(done.stdout.endswith("<p>home</p>"))


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
            self.server.process.send_signal(__import__("signal").SIGHUP)
            time.sleep(0.2)
        output = load.communicate(timeout=60)[0]
        self.assertNotIn("Socket errors", output)
        self.assertNotIn("Non-2xx", output)


if __name__ == "__main__":
    unittest.main()
