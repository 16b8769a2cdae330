"""Record databases as people meet them: on a page, in the administration, from the command line."""
import unittest

from harness import SOURCE, Browser, ServerCase

LOGIN = ("admin", "correct horse")


class Records(ServerCase):
    PAGES = {"records.html": (SOURCE / "sites/demo/pages/records.html").read_bytes(),
             "style.css": (SOURCE / "sites/demo/pages/style.css").read_bytes()}
    LOGIN = LOGIN

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server.command("records", "import", "Planets", str(SOURCE / "sites/demo/planets.csv"))

    def test_are_shown_on_a_page(self):
        browser = Browser()
        self.addCleanup(browser.close)
        browser.open(self.server.url + "/records.html?kind=ice&from=3")
        browser.shot("demo-records.png")
        text = browser.text()
        for words in ("Jupiter: 69911 km", "The largest of 8 planets.", "Mars, moons: 2", "Found: 2",
                      "1846, by Johann Galle, where", "Mars takes 686.98 days."):
            self.assertIn(words, text)
        self.assertEqual(browser.js("document.querySelectorAll('[role=alert]').length"), 1)
        browser.type("#kind", "x' OR Name <> 'x")
        browser.click("form button")
        self.assertIn("Found: 0", browser.text())

    def test_are_administered(self):
        lines = "".join(f"name {number},{number}\r\n" for number in range(120))
        table = self.server.folder / "many.csv"
        table.write_text("Name & more,n\r\n" + lines)
        self.server.command("records", "import", "Many", str(table))
        browser = Browser(LOGIN)
        self.addCleanup(browser.close)
        browser.open(self.server.url + "/plx-admin/databases")
        browser.shot("admin-databases.png")
        self.assertIn("Planets", browser.text())
        self.follow(browser, "Many")
        self.assertIn("120 records, page 1 of 3", browser.text())
        self.follow(browser, "Next")
        browser.shot("admin-records.png")
        self.assertIn("name 99", browser.text())
        browser.type("input[type=search]", "n >= '118' ORDER BY n DESC")
        browser.click("form button")
        self.assertIn("2 records", browser.text())
        self.follow(browser, "120")
        self.follow(browser, "Delete this record")
        browser.shot("admin-delete.png")
        self.assertIn("Delete record 120 for good?", browser.text())
        self.assertIn("120", self.server.command("records", "list").stdout)
        browser.click("button[name=delete]")
        browser.shot("admin-deleted.png")
        self.assertIn("The record was deleted.", browser.text())
        self.assertIn("1 record", browser.text())
        copy = self.server.folder / "copy.csv"
        self.server.command("records", "export", "Many", str(copy))
        self.assertEqual(copy.read_bytes().count(b"\r\n"), 120)

    def follow(self, browser, text):
        link = browser.js(f"[...document.querySelectorAll('a')].find(a => a.innerText == '{text}').href")
        browser.open(link)

    def test_a_file_that_does_not_fit_changes_nothing(self):
        table = self.server.folder / "bad.csv"
        table.write_text("Name,Moons\nVulcan,0\nX,many\n")
        done = self.server.command("records", "import", "Planets", str(table), check=False)
        self.assertEqual(done.returncode, 74)
        self.assertIn("line 3", done.stderr)
        self.assertEqual(self.server.command("records", "import", "a/b", str(table), check=False).returncode, 74)
        self.assertEqual(self.server.command("records", "export", "None", "x.csv", check=False).returncode, 74)
        self.assertIn("Planets\t8", self.server.command("records", "list").stdout)


if __name__ == "__main__":
    unittest.main()
