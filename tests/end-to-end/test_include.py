"""plxIncludeHTTP on pages of the real server, fetching from real HTTP servers and from the server itself."""
import http.client
import unittest
from concurrent.futures import ThreadPoolExecutor

from harness import Origin, ServerCase


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
                self.assertEqual(self.included(f'<plxIncludeHTTP url="{origin.url}/slow">'), "1 first 2 second")
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
                self.assertEqual(self.included(f'<plxIncludeHTTP url="{url}" method="post" postArgumentName="l" '
                                               f'postArgumentValue="{"l" * 300000}">'), "l=" + "l" * 300000)

    def test_every_status_is_included_like_any_other(self):
        url = self.origins[0].url
        self.assertIn("404 Not Found", self.included(f'<plxIncludeHTTP url="{url}/missing">'))
        self.assertIn("500 Internal Server Error", self.included(f'<plxIncludeHTTP url="{url}/error500">'))
        self.assertEqual(self.included(f'<plxIncludeHTTP url="{url}/nowhere302">'), "")

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


class FromTheServerItself(ServerCase):
    PAGES = {
        "ring/a.html": 'A<plxIncludeHTTP url="b.html">',
        "ring/b.html": 'B<plxIncludeHTTP url="a.html">',
        "outer.html": '(<plxIncludeHTTP url="middle.html">)',
        "middle.html": '[<plxIncludeHTTP url="inner.html">]',
        "inner.html": "core",
        "deep/er/page.html": '<plxIncludeHTTP url="../../inner.html">',
    }
    SETTINGS = "page-threads = 16\nwaiting-pages = 100"

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
