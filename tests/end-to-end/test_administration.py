"""The demo and the administration as a person uses them: in a real browser, every page looked at."""
import re
import unittest

from harness import SOURCE, Browser, MailServer, Server, ServerCase


class Demo(ServerCase):
    @classmethod
    def setUpClass(cls):
        pages = SOURCE / "sites" / "demo" / "pages"
        cls.PAGES = {str(file.relative_to(pages)): file.read_bytes() for file in pages.rglob("*") if file.is_file()}
        cls.SECTIONS = '[region.private]\nsite = "test"\npath = "/private/"\nlogin = true\n'
        super().setUpClass()
        cls.server.command("user", "set", "visitor", "--region", "test/private", input="open sesame\n")
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        super().tearDownClass()

    def test_including(self):
        self.browser.open(self.server.url + "/include/")
        text = self.browser.text()
        self.browser.shot("demo-include.png")
        self.assertGreaterEqual(text.count("Hello from another page."), 3)
        self.assertRegex(text, r"HTTP/1\.[01] 200 OK")
        self.assertIn("plxIncludeHTTP/3.1.7 (PLX 3.1; Linux)", text)
        self.assertIn("city=Uppsala", text)
        self.assertNotIn("missing its", text)

    def test_posting_what_was_typed(self):
        self.browser.open(self.server.url + "/include/post.html")
        self.browser.type("#note", 'tea & <b>"cake"</b>')
        self.browser.click("form button")
        shown = self.browser.js("[...document.querySelectorAll('.shown td')].map(e => e.innerText)")
        self.browser.shot("demo-post.png")
        self.assertEqual(shown.count('tea & <b>"cake"</b>'), 1, shown)
        self.assertIn("5 < 7 & more", shown)

    def test_with_and_without_a_login(self):
        self.browser.open(self.server.url + "/include/login.html")
        text = self.browser.text()
        self.browser.shot("demo-login.png")
        self.assertIn("A private note, read with the login of visitor.", text)
        self.assertEqual(len(re.findall(r"HTTP/1\.[01] 401", text)), 2)

    def test_problems_and_values_and_start(self):
        self.browser.open(self.server.url + "/include/problems.html")
        self.browser.shot("demo-problems.png")
        self.assertEqual(self.browser.js("document.querySelectorAll('[role=alert]').length"), 2)
        self.browser.open(self.server.url + "/values.html?name=%3Cb%3EAda")
        self.assertIn("Hello, <b>Ada!", self.browser.text())
        self.browser.open(self.server.url + "/")
        self.browser.shot("demo-start.png")
        self.assertIn("127.0.0.1", self.browser.text())


class DemoFromTheStart(ServerCase):
    """What script/server puts into the demo before anybody comes."""

    @classmethod
    def setUpClass(cls):
        cls.mail = MailServer()
        cls.addClassCleanup(cls.mail.stop)
        demo = SOURCE / "sites" / "demo"
        cls.PAGES = {str(file.relative_to(demo / "pages")): cls.with_ports(file) for file in (demo / "pages").rglob("*") if file.is_file()}
        super().setUpClass()
        root = cls.server.folder / "demo"
        (root / "pages" / "mail").mkdir(parents=True)
        (root / "first.html").write_bytes(cls.with_ports(demo / "first.html"))
        (root / "pages" / "mail" / "planets.txt").write_bytes(cls.PAGES["mail/planets.txt"])
        cls.server.command("render", "/first.html", "--set", f"site.test.root={root}", "--set", f"listen={cls.server.host}")

    @classmethod
    def with_ports(cls, file):
        return file.read_bytes().replace(b"127.0.0.1:8025", cls.mail.address.encode()).replace(
            b"127.0.0.1:8110", f"127.0.0.1:{cls.mail.pop3_port}".encode())

    def test_every_page_has_something_to_show(self):
        self.until(lambda: "<summary>Welcome" in self.server.get("/mail/collect.html").text)
        self.assertEqual(self.server.get("/Attachments/planets.txt").text, self.PAGES["mail/planets.txt"].decode())
        self.until(lambda: "<td>nobody@test</td>" in self.server.get("/mail/failed.html").text)
        client = self.server.request("GET", "/webmail/client.html", user=("ada", "lovelace")).text
        for words in ("Ada Lovelace", ">1/1<"):
            self.assertIn(words, client)
        self.assertNotIn("This part of the page", client)


class Administration(ServerCase):
    PAGES = {"page.html": '[<plxIncludeHTTP url="other.html">]', "other.html": "included"}
    LOGIN = ("admin", "correct horse")

    def test_switches_a_tag_off_and_on_again(self):
        browser = Browser(self.LOGIN)
        self.addCleanup(browser.close)
        texts, preferences = self.all_pages(browser)
        for words in ("Network Module", "3.1.7"):
            self.assertIn(words, texts)
        self.assertEqual(self.server.get("/page.html").text, "[included]")
        browser.open(preferences)
        browser.shot("admin-preferences.png")
        self.assertTrue(browser.js("document.querySelector('input[name=plxIncludeHTTP]').checked"))
        browser.click("input[name=plxIncludeHTTP]", loads=False)
        browser.click("form button, form input[type=submit]")
        browser.shot("admin-saved.png")
        self.assertFalse(browser.js("document.querySelector('input[name=plxIncludeHTTP]').checked"))
        self.assertEqual(self.server.get("/page.html").text, "[]")
        browser.click("input[name=plxIncludeHTTP]", loads=False)
        browser.click("form button, form input[type=submit]")
        self.assertEqual(self.server.get("/page.html").text, "[included]")


    def all_pages(self, browser):
        """Opens every page of the administration; their texts, and the address of the one with the switches of the tags."""
        texts, preferences, seen, queue = "", None, set(), [self.server.url + "/plx-admin/"]
        while queue:
            link = queue.pop(0)
            if link in seen or "/plx-admin/" not in link:
                continue
            seen.add(link)
            browser.open(link)
            browser.shot(f"admin-{re.sub(r'[^a-z]+', '-', link.split('/plx-admin/')[1]) or 'start'}.png")
            texts += browser.text()
            if browser.js("!!document.querySelector('input[name=plxIncludeHTTP]')"):
                preferences = link
            queue += browser.js("[...document.querySelectorAll('a[href]')].map(a => a.href)")
        return texts, preferences


class ClosedAdministration(ServerCase):
    def test_says_how_to_open_it(self):
        answer = self.server.get("/plx-admin/")
        self.assertEqual(answer.status, 403)
        self.assertIn("user set", answer.text)
        self.assertIn("user set", self.server.said())


if __name__ == "__main__":
    unittest.main()
