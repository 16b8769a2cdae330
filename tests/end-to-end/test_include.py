"""plxIncludeHTTP on pages of the real server, fetching from real HTTP servers and from the server itself."""
import http.client
import unittest
from concurrent.futures import ThreadPoolExecutor

from harness import Listener, Origin, Server, ServerCase, free_port


class FromRealServers(ServerCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.origins = [Origin("nginx"), Origin("apache")]

    @classmethod
    def tearDownClass(cls):
        for origin in cls.origins:
            origin.stop()
        super().tearDownClass()

    def included(self, tag):
        self.server.write("page.html", f"[{tag}]")
        answer = self.server.get("/page.html")
        self.assertEqual(answer.status, 200)
        self.assertTrue(answer.text.startswith("[") and answer.text.endswith("]"), answer.text[:200])
        return answer.text[1:-1]

    def test_content_headers_and_both(self):
        for origin in self.origins:
            with self.subTest(origin=origin.url):
                content = self.included(f'<plxIncludeHTTP url="{origin.url}/a.txt">')
                self.assertEqual(content, "alpha\nbeta\n")
                headers = self.included(f'<plxIncludeHTTP url="{origin.url}/a.txt" data="HEADERS">')
                self.assertTrue(headers.startswith("HTTP/1.1 200 OK\r\n"), headers)
                self.assertNotIn("alpha", headers)
                both = self.included(f'<plxIncludeHTTP url="{origin.url}/a.txt" data="headersAndContent">')
                self.assertTrue(both.startswith("HTTP/1.1 200 OK\r\n"), both)
                self.assertTrue(both.endswith("\r\n\r\nalpha\nbeta\n"), both)

    def test_redirects_are_followed(self):
        for origin in self.origins:
            for path in ("absolute301", "absolute302", "relative302"):
                with self.subTest(origin=origin.url, path=path):
                    self.assertEqual(self.included(f'<plxIncludeHTTP url="{origin.url}/{path}">'), "alpha\nbeta\n")

    def test_logins(self):
        for origin in self.origins:
            with self.subTest(origin=origin.url):
                url = f"{origin.url}/auth/secret.txt"
                tag = f'<plxIncludeHTTP url="{url}" username="%s" password="%s" data="%s">'
                self.assertEqual(self.included(tag % ("ada", "pw", "content")), "behind a login\n")
                self.assertEqual(self.included(tag % ("ida", "p" * 200, "content")), "behind a login\n")
                self.assertIn(" 401 ", self.included(tag % ("ida", "p" * 199, "headers")))
                self.assertIn(" 401 ", self.included(f'<plxIncludeHTTP url="{url}" data="headers">'))

    def test_posts_arguments_in_order(self):
        for url in (origin.url + "/echo" for origin in self.origins):
            with self.subTest(url=url):
                body = self.included(f'<plxIncludeHTTP url="{url}" method="post" postArgumentName="a b" '
                                     'postArgumentValue="1&amp;2" postArgumentName="c" postArgumentValue="/~:" '
                                     'postArgumentName="left over">')
                self.assertEqual(body, "a%20b=1%262&c=%2F%7E%3A")

    def test_every_status_is_included_like_any_other(self):
        url = self.origins[0].url
        self.assertIn("404 Not Found", self.included(f'<plxIncludeHTTP url="{url}/missing">'))
        self.assertIn("500 Internal Server Error", self.included(f'<plxIncludeHTTP url="{url}/error500">'))
        self.assertEqual(self.included(f'<plxIncludeHTTP url="{url}/nowhere302">'), "")

    def test_what_does_not_answer_includes_nothing(self):
        self.assertEqual(self.included(f'<plxIncludeHTTP url="http://127.0.0.1:{free_port()}/">'), "")
        self.assertEqual(self.included('<plxIncludeHTTP url="http://no-such-host.invalid/">'), "")

    def test_a_body_of_100_megabytes_arrives_whole(self):
        origin = self.origins[0]
        with open(origin.folder / "www" / "large.bin", "wb") as file:
            for number in range(100):
                file.write(b"%07d\n" % number * (1 << 17))
        self.server.write("page.html", f'<plxIncludeHTTP url="{origin.url}/large.bin">')
        connection = http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=120)
        connection.request("GET", "/page.html")
        answer = connection.getresponse()
        for number in range(100):
            self.assertEqual(answer.read(1 << 20), b"%07d\n" % number * (1 << 17))
        self.assertEqual(answer.read(), b"")
        connection.close()

    def test_what_is_included_is_never_run(self):
        (self.origins[0].folder / "www" / "evil.txt").write_text('<plxIncludeHTTP url="/"> &plxCGI.SERVER_SOFTWARE;')
        self.assertEqual(self.included(f'<plxIncludeHTTP url="{self.origins[0].url}/evil.txt">'),
                         '<plxIncludeHTTP url="/"> &plxCGI.SERVER_SOFTWARE;')

    def test_pages_of_many_visitors_do_not_wait_for_each_other(self):
        self.server.write("slow.html", f'<plxIncludeHTTP url="{self.origins[1].url}/echo" method="POST" '
                                       'postArgumentName="n" postArgumentValue="&plxPath.n;">')
        with ThreadPoolExecutor(24) as pool:
            answers = list(pool.map(lambda number: self.server.get(f"/slow.html?n={number}").text, range(200)))
        self.assertEqual(answers, [f"n={number}" for number in range(200)])


class FromScriptedPeers(ServerCase):
    def included(self, answer):
        seen = []

        def serve(connection):
            request = b""
            while b"\r\n\r\n" not in request:
                request += connection.recv(65536)
            seen.append(request.decode())
            connection.sendall(answer)

        peer = Listener(serve)
        self.server.write("page.html", f'[<plxIncludeHTTP url="{peer.url}/x">]')
        text = self.server.get("/page.html").text[1:-1]
        peer.close()
        return text, seen

    def test_the_request_names_page_and_tag(self):
        _, seen = self.included(b"HTTP/1.0 200 OK\r\n\r\nok")
        self.assertRegex(seen[0], r"^GET /x HTTP/1\.0\r\nHost: 127\.0\.0\.1:\d+\r\n")
        self.assertIn(f"Referer: http://{self.server.host}/page.html\r\n", seen[0])
        self.assertIn("User-Agent: plxIncludeHTTP/3.1.7 (PLX 3.1; Linux)\r\n", seen[0])

    def test_odd_answers(self):
        for why, answer, text in (
                ("interim answer first", b"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\nbody", "body"),
                ("no header at all", b"just text", "just text"),
                ("a redirect that leads nowhere", b"HTTP/1.1 302 Found\r\n\r\nmoved", ""),
                ("a body that begins with a number", b"HTTP/1.1 200 OK\r\n\r\n301 things", "301 things"),
                ("zero bytes", b"HTTP/1.1 200 OK\r\n\r\na\0b", "a\0b")):
            with self.subTest(why):
                self.assertEqual(self.included(answer)[0], text)


class FromTheServerItself(ServerCase):
    PAGES = {
        "self.html": 'before <plxIncludeHTTP url="/self.html?x=1"> after',
        "ring/a.html": 'A<plxIncludeHTTP url="b.html">',
        "ring/b.html": 'B<plxIncludeHTTP url="a.html">',
        "outer.html": '(<plxIncludeHTTP url="middle.html">)',
        "middle.html": '[<plxIncludeHTTP url="inner.html">]',
        "inner.html": "core",
        "deep/er/page.html": '<plxIncludeHTTP url="../../inner.html">',
        "missing.html": "<p><plxIncludeHTTP></p>",
    }
    SETTINGS = "page-threads = 16\nwaiting-pages = 100"

    def test_a_page_does_not_include_itself(self):
        text = self.server.get("/self.html").text
        self.assertIn("The specified URL cannot refer to the current page.", text)
        self.assertIn("Change the URL parameter to refer to a different page.", text)
        self.assertTrue(text.startswith("before ") and text.endswith(" after"))

    def test_a_missing_parameter_is_told_in_the_page(self):
        text = self.server.get("/missing.html").text
        self.assertIn("An &lt;plxIncludeHTTP&gt; tag was found but it is missing its &quot;url&quot; parameter.", text)
        self.assertTrue(text.startswith("<p>") and text.endswith("</p>"))

    def test_a_ring_of_pages_is_ended(self):
        answer = self.server.get("/ring/a.html")
        self.assertEqual(answer.status, 200)
        self.assertLess(answer.text.count("A") + answer.text.count("B"), 400)
        self.until(lambda: " 508 " in self.server.log("access.log"))
        self.assertEqual(self.server.get("/inner.html").text, "core")

    def test_pages_within_pages(self):
        self.assertEqual(self.server.get("/outer.html").text, "([core])")
        self.assertEqual(self.server.get("/deep/er/page.html").text, "core")

    def test_more_including_visitors_than_threads_never_stop_the_server(self):
        with ThreadPoolExecutor(40) as pool:
            statuses = list(pool.map(lambda _: self.server.get("/outer.html").status, range(200)))
        self.assertTrue(set(statuses) <= {200, 503}, set(statuses))
        self.assertEqual(self.server.get("/outer.html").text, "([core])")


if __name__ == "__main__":
    unittest.main()
