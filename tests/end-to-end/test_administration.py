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
            queue += browser.js("[...document.querySelectorAll('a[href]')].map(a => a.href.split('#')[0])")
        return texts, preferences


class Accessible(ServerCase):
    """Every page of the administration without a mouse, without eyes and on a phone."""
    PAGES = {"page.html": "page"}
    SECTIONS = '[region.private]\nsite = "test"\npath = "/private/"\nlogin = true\n'
    LOGIN = ("admin", "correct horse")
    CONTROLS = {"textbox", "searchbox", "checkbox", "radio", "button", "combobox", "listbox", "spinbutton", "link", "region",
                "navigation"}
    # Colours of each text and its ground, half transparent ones put on what is below them (WCAG 2, 1.4.3).
    CONTRASTS = """(() => {
        const light = c => c.slice(0, 3).map(v => (v /= 255) <= .04045 ? v / 12.92 : ((v + .055) / 1.055) ** 2.4)
            .reduce((sum, v, i) => sum + v * [.2126, .7152, .0722][i], 0);
        const read = text => { const c = text.match(/[\\d.]+/g).map(Number); return c.length < 4 ? [...c, 1] : c; };
        const over = (a, b) => [0, 1, 2].map(i => a[i] * a[3] + b[i] * (1 - a[3]));
        const dark = matchMedia("(prefers-color-scheme: dark)").matches;
        const walk = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT), found = [];
        while (walk.nextNode()) {
            const text = walk.currentNode.data.trim(), above = [];
            let opacity = 1, ground = dark ? [18, 18, 18] : [255, 255, 255];
            for (let e = walk.currentNode.parentElement; e; e = e.parentElement) {
                above.push(getComputedStyle(e));
                opacity *= Number(above.at(-1).opacity);
            }
            for (const style of [...above].reverse()) ground = over(read(style.backgroundColor), ground);
            const ink = read(above[0].color);
            const seen = over([...ink.slice(0, 3), ink[3] * opacity], ground), [a, b] = [light(seen), light(ground)];
            const ratio = (Math.max(a, b) + .05) / (Math.min(a, b) + .05);
            if (text && ratio < 4.5) found.push(text.slice(0, 30) + " " + ratio.toFixed(2));
        }
        return found;
    })()"""
    STRUCTURE = """(() => {
        const all = selector => [...document.querySelectorAll(selector)], found = [];
        const levels = all("h1,h2,h3,h4,h5,h6").map(e => Number(e.tagName[1]));
        if (levels.filter(level => level === 1).length !== 1 || levels.some((level, i) => level > (levels[i - 1] ?? 0) + 1))
            found.push("headings " + levels);
        if (document.documentElement.lang !== "en" || all("main").length !== 1) found.push("language or main");
        for (const head of all("th")) if (!head.scope || !head.innerText.trim()) found.push("th " + head.innerText);
        if (document.documentElement.scrollWidth > innerWidth) found.push("scrolls sideways");
        return found;
    })()"""

    def test_every_page(self):
        numbers = self.server.folder / "numbers.csv"
        numbers.write_text("Name,A number with a long name,Another number\r\n" + "A long text without an end,123456789,3\r\n" * 60)
        self.server.command("records", "import", "Numbers", str(numbers))
        for size, scheme in (((360, 740), "light"), ((1200, 900), "dark")):
            browser = Browser(self.LOGIN, size)
            self.addCleanup(browser.close)
            browser.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
            browser.call("Accessibility.enable")
            seen, queue = set(), [self.server.url + "/plx-admin/"]
            while queue:
                link = queue.pop(0)
                if link in seen or "/plx-admin/" not in link or link.endswith("metrics") or re.search("record=[^1]", link):
                    continue
                seen.add(link)
                with self.subTest(link, size=size):
                    browser.open(link)
                    browser.shot(f"accessible-{size[0]}-{len(seen)}.png")
                    self.assertEqual(browser.js(self.STRUCTURE) + browser.js(self.CONTRASTS) + self.nameless(browser), [])
                    self.assertEqual(self.first_stop(browser), "To the content")
                queue += browser.js("[...document.querySelectorAll('a[href]')].map(a => a.href.split('#')[0])")
            self.assertGreater(len(seen), 10)

    def nameless(self, browser):
        """What a screen reader would come to and have nothing to say of but what it is."""
        nodes = browser.call("Accessibility.getFullAXTree")["nodes"]
        return [node["role"]["value"] for node in nodes if not node["ignored"] and node["role"]["value"] in self.CONTROLS
                and not node.get("name", {}).get("value", "").strip()]

    @staticmethod
    def first_stop(browser):
        """Where the keyboard gets first, which must then be seen."""
        for kind in ("keyDown", "keyUp"):
            browser.call("Input.dispatchKeyEvent", type=kind, key="Tab", code="Tab", windowsVirtualKeyCode=9)
        return browser.js("document.activeElement.getBoundingClientRect().width > 20 ? document.activeElement.innerText : 'unseen'")


class ClosedAdministration(ServerCase):
    def test_says_how_to_open_it(self):
        answer = self.server.get("/plx-admin/")
        self.assertEqual(answer.status, 403)
        self.assertIn("user set", answer.text)
        self.assertIn("user set", self.server.said())


if __name__ == "__main__":
    unittest.main()
