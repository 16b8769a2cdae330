"""plxEmailClient's region administration: who gets in, the users over pages, their changes, the region's options."""
import html
import itertools
import io

from harness import *

KEEPER = ("keeper", "open sesame")
SERVER_LOGIN = ("root", "correct horse")
ACTIONS = {"list": "iflpwi", "add": "ipbey8", "update": "iztaat", "confirm": "jjsiud", "delete": "j96esr",
           "options": "jtjome", "save": "k3atm0"}
STRANGE = ["O'Hara", "<script>alert(1)</script>", 'a"b&amp;c', "J\u00f6rg\u0096\u00ff", "../../site", "a__,__b",
           "</plxDoNotProcess>", "n" * 10000]

SOURCES = itertools.count(1)


def form(**arguments):
    """A form's body in the bytes that it was given in."""
    return urllib.parse.urlencode(arguments, encoding="latin-1")


def rows(text):
    """The users of a page as (name, password, page number, colour)."""
    found = []
    for color, row in re.findall(r'<tr bgcolor="(#cccccc|#aaaaaa)">(.*?)</form>', text, re.DOTALL):
        values = {name: html.unescape(value)
                  for name, value in re.findall(r'name="(\w+)_plxEmailClient" value="([^"]*)"', row)}
        found.append((values["Username"], values["Password"], values["PageNumber"], color))
    return found


class AdminCase(ServerCase):
    PAGES = {"admin.html": '<title>Users</title><plxEmailClient mode="admin">',
             "few.html": '<plxEmailClient mode="ADMIN" displayLimit="2">',
             "many.html": '<plxEmailClient mode="admin" displayLimit="200">',
             "none.html": '<plxEmailClient mode="admin" displayLimit="0">'}
    LOGIN = SERVER_LOGIN

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.server.command("user", "set", KEEPER[0], "--region", "test/main", input=KEEPER[1] + "\n")

    def setUp(self):
        for name in self.names():
            self.act("delete", Username=name)
        self.assertEqual(self.names(), [])

    def post(self, body, page="/admin.html", user=KEEPER, source="127.0.0.1"):
        return self.server.request("POST", page, body, {"Content-Type": "application/x-www-form-urlencoded",
                                                        "Origin": self.server.url}, user, source)

    def act(self, action, page="/admin.html", **arguments):
        body = form(**{"1plxEmailClientAction=" + ACTIONS[action]: "x"},
                    **{name + "_plxEmailClient": value for name, value in arguments.items()})
        answer = self.post(body, page)
        self.assertEqual(answer.status, 200)
        return answer.text

    def add_many(self, count):
        for number in range(count):
            self.act("add", Username=f"user{number:02}", Password=f"secret {number}")

    def names(self):
        """The names that the database holds, in latin-1."""
        file = self.server.folder / "users.csv"
        file.unlink(missing_ok=True)
        self.server.command("records", "export", "__PLXDB__Email_Client__", str(file), check=False)
        if not file.exists():
            return []
        return sorted(row["Username"] for row in csv.DictReader(io.StringIO(file.read_text("latin-1"), newline="")))


class Entering(AdminCase):
    def set_administrator(self, name, password):
        tags = {tag: "yes" for tag in ("plxEmailClient", "plxIncludeHTTP", "plxPOP", "plxSendMail")}
        body = form(AdminUsername_plxEmailClient=name, AdminPassword_plxEmailClient=password,
                    AdminPasswordVerification_plxEmailClient=password, **tags)
        path = "/plx-admin/preferences?" + urllib.parse.urlencode({"region": "test/main", "module": "Network Module"})
        self.assertEqual(self.post(body, path, SERVER_LOGIN).status, 303)

    def check(self, **logins):
        # Each from an address of its own, since one that fails again and again is slowed.
        for why, (is_admitted, user) in logins.items():
            for body in (None, form(**{"1plxEmailClientAction=iflpwi": "x"})):
                with self.subTest(why, user=user, posts=body is not None):
                    source = f"127.1.{next(SOURCES)}.1"
                    answer = (self.post(body, user=user, source=source) if body else
                              self.server.request("GET", "/admin.html", user=user, source=source))
                    self.assertEqual(answer.status, 200 if is_admitted else 401)
                    self.assertEqual("<form" in answer.text, is_admitted)
                    self.assertEqual(answer.getheader("WWW-Authenticate"),
                                     None if is_admitted else 'Basic realm="/admin.html"')

    def test_admits_the_administrator_or_else_the_logins_of_the_region(self):
        self.addCleanup(self.set_administrator, "", "")
        strangers = {"nobody": (False, None), "empty": (False, ("", "")), "unknown": (False, ("admin", "x"))}
        self.check(**strangers, keeper=(True, KEEPER), no_password=(False, (KEEPER[0], "")),
                   wrong_password=(False, (KEEPER[0], "open Sesame")))
        self.set_administrator("O'Hara", "pass:word")
        self.check(**strangers, keeper=(False, KEEPER), administrator=(True, ("O'Hara", "pass:word")),
                   other_case=(False, ("O'hara", "pass:word")), other_password=(False, ("O'Hara", "Pass:word")),
                   longer=(False, ("O'Hara", "pass:word ")), no_password=(False, ("O'Hara", "")))
        self.set_administrator("O'Hara", "")
        self.check(**strangers, keeper=(False, KEEPER), no_password=(False, ("O'Hara", "")))
        self.set_administrator("", "")
        self.check(**strangers, keeper=(True, KEEPER), no_name=(False, ("", "")))


class Users(AdminCase):
    def test_pages(self):
        self.add_many(23)

        def page(number, path="/admin.html"):
            text = self.act("list", path, PageNumber=number)
            return [name for name, _, _, _ in rows(text)], "&lt;&lt;" in text, "&gt;&gt;" in text

        everyone = [f"user{number:02}" for number in range(23)]
        for number, first, last, previous, following in (
                ("0", 0, 10, False, True), ("1", 10, 20, True, True), ("2", 20, 23, True, False),
                ("3", 20, 23, True, False), ("-7", 0, 10, False, True), ("x", 0, 10, False, True),
                ("4", 0, 0, True, False), ("2147483647", 0, 0, True, False)):
            with self.subTest(number):
                self.assertEqual(page(number), (everyone[first:last], previous, following))
        self.assertEqual(page("11", "/few.html"), (everyone[22:], True, False))
        self.assertEqual(page("0", "/none.html"), (everyone[:10], False, True))
        self.add_many(51)
        self.assertEqual(len(page("0", "/many.html")[0]), 50)
        self.assertEqual(len(page("1", "/many.html")[0]), 1)

    def test_in_a_browser(self):
        self.add_many(21)
        browser = Browser(KEEPER)
        self.addCleanup(browser.close)
        count = "document.querySelectorAll('input[value=Update]').length"
        user = lambda name: f"form[aria-label=\"User {name}\"] "

        browser.open(self.server.url + "/admin.html")
        browser.shot("webmail-admin-main.png")
        browser.click("input[value='Edit Users']")
        self.assertEqual(browser.js(count), 10)
        browser.type("input[name=Username_plxEmailClient]:not([type=hidden])", "<b>M\u00fcller & 'S\u00f6hne'")
        browser.type("input[name=Password_plxEmailClient]", "\u20ac \"first\"")
        browser.click("input[value=Add]")
        self.assertIn("<b>M\u00fcller & 'S\u00f6hne'", browser.text())
        browser.type("input[name=Username_plxEmailClient]:not([type=hidden])", "zoe")
        browser.click("input[value=Add]")
        browser.shot("webmail-admin-users.png")
        self.assertEqual(len(self.names()), 23)
        self.assertIn("<b>M\u00fcller & 'S\u00f6hne'", self.names())

        browser.type("form[aria-label^='User <b>'] input[name=Password_plxEmailClient]", "n\u00e4chstes <i>'\u20ac")
        browser.click("form[aria-label^='User <b>'] input[value=Update]")
        self.assertEqual(browser.js("document.querySelector('form[aria-label^=\"User <b>\"] "
                                    "input[name=Password_plxEmailClient]').value"), "n\u00e4chstes <i>'\u20ac")
        browser.click("form[aria-label^='User <b>'] input[value=Delete]")
        self.assertIn("Are you sure you want to delete the \"<b>M\u00fcller & 'S\u00f6hne'\" username?", browser.text())
        browser.shot("webmail-admin-delete.png")
        browser.click("input[value=No]")
        self.assertIn("<b>M\u00fcller", browser.text())
        browser.click("form[aria-label^='User <b>'] input[value=Delete]")
        browser.click("input[value=Yes]")
        self.assertNotIn("<b>M\u00fcller", browser.text())
        self.assertEqual(len(self.names()), 22)

        self.assertIsNone(browser.js("document.querySelector(\"input[value='<<']\")"))
        browser.click("input[value='>>']")
        browser.shot("webmail-admin-middle.png")
        browser.click("input[value='>>']")
        browser.shot("webmail-admin-last.png")
        browser.call("Emulation.setDeviceMetricsOverride", width=375, height=700, deviceScaleFactor=1, mobile=False)
        browser.shot("webmail-admin-phone.png")
        self.assertLessEqual(browser.js("document.documentElement.scrollWidth"), 375)
        self.assertEqual(browser.js(count), 2)
        self.assertIsNone(browser.js("document.querySelector(\"input[value='>>']\")"))
        for name in ("user20", "zoe"):
            browser.click(user(name) + "input[value=Delete]")
            browser.click("input[value=Yes]")
        self.assertEqual(browser.js(count), 10, "the page that emptied gives way to the one before it")
        self.assertIn("user10", browser.text())
        browser.click("input[value='<<']")
        self.assertIn("user00", browser.text())
        browser.click("input[value=Back]")
        self.assertIsNotNone(browser.js("document.querySelector(\"input[value='Edit Users']\")"))

    def test_names_and_passwords_of_any_bytes(self):
        for name in STRANGE:
            with self.subTest(name):
                shown = rows(self.act("add", Username=name, Password=name[::-1]))
                self.assertEqual(self.names(), [name])
                self.assertEqual(shown, [(name, name[::-1], "0", "#cccccc")])
                text = self.act("update", Username=name, Password=name + "!")
                self.assertEqual(rows(text)[0][:2], (name, name + "!"))
                self.assertEqual(rows(self.act("update", Username=name, Password=""))[0][:2], (name, ""))
                text += self.act("confirm", Username=name, PageNumber="0")
                self.assertNotIn("<script", text)
                self.assertNotIn("</plxDoNotProcess>", text)
                self.assertEqual(rows(self.act("delete", Username=name)), [])
                self.assertEqual(self.names(), [])
        self.assertTrue((self.server.root / "admin.html").exists())

    def test_refuses_what_cannot_be(self):
        self.act("add", Username="o'hara", Password="one")
        for action, name, words in (("add", "o'hara", "The specified username is already taken."),
                                    ("add", "", "No username was specified."),
                                    ("update", "nobody", "The specified username is unknown."),
                                    ("delete", "nobody", "The specified username is unknown.")):
            with self.subTest(action, name=name):
                text = self.act(action, Username=name, Password="two")
                self.assertIn(words, text)
                self.assertNotIn("<form", text)
        self.assertEqual([row[:2] for row in rows(self.act("list"))], [("o'hara", "one")])

    def test_deletes_the_mail_of_a_user_and_no_other(self):
        for name in ("ada", "bob", ".."):
            self.act("add", Username=name, Password="x")
        for name in ("ada", "bob"):
            self.server.write(f"plxEmailClient Data/{name}/Inbox", "mail")
        self.act("confirm", Username="ada")
        self.assertEqual(len(self.names()), 3)
        self.act("delete", Username="ada")
        self.act("delete", Username="..")
        self.assertEqual(self.names(), ["bob"])
        self.assertEqual([file.name for file in (self.server.root / "plxEmailClient Data").iterdir()], ["bob"])


class Options(AdminCase):
    def values(self):
        text = self.act("options")
        return [html.unescape(re.search(f'name="{name}_plxEmailClient" value="([^"]*)"', text).group(1))
                for name in ("POPServer", "STMPServer", "MaxAttachmentSize")]

    def test_are_kept_as_they_were_posted(self):
        self.assertEqual(self.values(), ["", "", "2000"])
        for size, kept in (("0750 K", "750"), ("1,500", "1500"), ("-3", "0"), ("x", "0"), ("999999999", "999999999")):
            with self.subTest(size):
                text = self.act("save", POPServer='"><script>', STMPServer="m\u00e4il'", MaxAttachmentSize=size)
                self.assertIn("Edit Users", text)
                self.assertEqual(self.values(), ['"><script>', "m\u00e4il'", kept])
        self.act("save", POPServer="")
        self.assertEqual(self.values(), ["", "", "2000"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
