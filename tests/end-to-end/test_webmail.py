"""The web mail client: accounts from pages, login, every screen and button in a browser, mail of a real POP3 server."""
import struct

from harness import *

PAGES = {
    "mail.html": "<!DOCTYPE html><title>Web mail</title><plxEmailClient>",
    "add.html": '<plxEmailClient mode="addUser" username="&plxPath.u;" password="&plxPath.p;">',
    "query.html": '<plxEmailClient mode="QUERYUSER" username="&plxPath.u;">',
    "change.html": '<plxEmailClient mode="changePassword" username="&plxPath.u;" password="&plxPath.p;" newPassword="&plxPath.n;">',
    "delete.html": '<plxEmailClient mode="deleteUser" username="&plxPath.u;">',
    "bad.html": '<plxEmailClient mode="b&lt;d">',
}
ODD = "O'Brien <script>alert(1)</script> \u00fc"


def message(number, body="x" * 100, subject=None):
    return (f"From: sender{number}@test.org\nTo: ada@test\nSubject: {subject or f'Number {number}'}\n"
            f"Date: Mon, 23 Nov 2026 10:{number % 60:02}:00 +0000\n\n{body}\n").encode()


class WebMail(ServerCase):
    PAGES = PAGES

    @classmethod
    def setUpClass(cls):
        cls.mail = MailServer()
        super().setUpClass()

    @classmethod
    def tearDownClass(cls):
        super().tearDownClass()
        cls.mail.stop()

    def page(self, path, **arguments):
        answer = self.server.get(path + "?" + urllib.parse.urlencode(arguments))
        self.assertEqual(answer.status, 200)
        return answer.text

    def add(self, user, password="pw"):
        self.assertNotIn("cannot be shown", self.page("/add.html", u=user, p=password))

    def ask(self, user, password="pw", action="", post=None):
        body = urllib.parse.urlencode(post, encoding="latin-1") if post else None
        headers = {"Content-Type": "application/x-www-form-urlencoded"} if post else {}
        return self.server.request("POST" if post else "GET", "/mail.html" + (f"?action={action}" if action else ""), body,
                                   headers, user=(user, password))

    def inbox(self, user):
        folder = next((self.server.root).glob("plxEmailClient Data")) / user / "Mailboxes"
        return (folder / "Inbox.idx").read_bytes(), (folder / "Inbox.mbx").read_bytes()

    def test_accounts_from_pages(self):
        for user in ("ada", ODD, "..", "a" * 300):
            self.assertIn("No", self.page("/query.html", u=user), user)
            self.add(user)
            self.assertIn("Yes", self.page("/query.html", u=user), user)
            self.assertIn("The specified username is already taken.", self.page("/add.html", u=user, p="x"))
            self.assertIn("The specified password is invalid.", self.page("/change.html", u=user, p="wrong", n="x"))
            self.assertNotIn("cannot be shown", self.page("/change.html", u=user, p="pw", n="new"))
            self.assertIn("The specified password is invalid.", self.page("/change.html", u=user, p="pw", n="x"))
            self.page("/delete.html", u=user)
            self.assertIn("No", self.page("/query.html", u=user), user)
            self.assertIn("The specified username is unknown.", self.page("/delete.html", u=user))
        self.assertTrue(self.server.config.exists())
        self.assertIn("is an invalid plxEmailClient mode value.", self.page("/bad.html"))
        self.assertIn("missing its", self.page("/add.html", p="x"))

    def test_refuses_strangers(self):
        self.add("grace", "geheimnis")
        answer = self.server.get("/mail.html")
        self.assertEqual((answer.status, answer.headers["WWW-Authenticate"]), (401, 'Basic realm="/mail.html"'))
        self.assertNotIn("<form", answer.text)
        for user, password in (("grace", "GEHEIMNIS"), ("grace", ""), ("nobody", "pw"), ("x' OR Username<>'", "pw"), ("grace", "wrong")):
            self.assertEqual(self.ask(user, password).status, 401, user)
        self.assertEqual(self.ask("grace", "geheimnis").status, 429, "five failures are as many as are free")
        self.until(lambda: self.ask("grace", "geheimnis").status == 200)
        self.assertNotIn("geheimnis", self.server.log())

    @in_release
    def test_every_screen_in_a_browser(self):
        self.add("eve", "geheim")
        self.mail.put("alice", message(1), message(2, "y" * 5000), message(1, "the same again"))
        browser = Browser(login=("eve", "geheim"), size=(900, 800))
        self.addCleanup(browser.close)
        url = self.server.url + "/mail.html"
        browser.open(url)
        self.assertIn("unable to connect to the POP server", browser.text())
        self.assertIn("Inbox", browser.text())
        press = lambda label: browser.click(f"input[type=Submit][value='{label}']")

        press("Options")
        values = {"Name": "Eve \"<b>\" & co", "EmailAddress": "eve@test", "POPUsername": "alice", "POPPassword": "secret",
                  "POPServer": f"127.0.0.1:{self.mail.pop3_port}", "SMTPServer": "none"}
        for name, value in values.items():
            browser.type(f"input[name={name}_plxEmailClient]", value)
        press("Save")
        for name, value in values.items():
            self.assertEqual(browser.js(f"document.querySelector('input[name={name}_plxEmailClient]').value"), value)
        browser.shot("webmail-options.png")
        press("Exit")
        self.assertIn("Eve \"<b>\" & co", browser.text())
        self.assertRegex(browser.text(), r"Inbox\s+\d+\s+2/2")
        browser.shot("webmail-main.png")
        press("Check")
        press("Menu")
        self.assertRegex(browser.text(), r"Inbox\s+\d+\s+2/2")
        browser.click("a[href*='mailbox=Inbox']")
        self.assertEqual(browser.js("document.querySelectorAll('table[border=\"1\"] table[border=\"1\"] tr').length"), 3)
        browser.shot("webmail-list.png")

        browser.open(url + "?action=jtny3m")
        self.assertIn("(Default)", browser.text())
        for name in ("Work", "Play <i>"):
            browser.type("input[name=NewPersonality_plxEmailClient]", name)
            press("Add")
        browser.click("input[type=radio][value='2']", loads=False)
        press("Switch")
        self.assertTrue(browser.js("document.querySelector('input[type=radio][value=\"2\"]').checked"))
        self.assertIn("Play <i>", browser.text())
        press("Options")
        self.assertEqual(browser.js("document.querySelector('input[name=POPServer_plxEmailClient]').value"), "")
        browser.open(url + "?action=jtny3m")
        browser.click("input[type=radio][value='2']", loads=False)
        browser.shot("webmail-personalities.png")
        press("Delete")
        self.assertIn("Are you sure you want to delete your \"Play <i>\" personality?", browser.text())
        press("No")
        browser.click("input[type=radio][value='2']", loads=False)
        press("Delete")
        press("Yes")
        self.assertNotIn("Play <i>", browser.text())
        self.assertTrue(browser.js("document.querySelector('input[type=radio][value=\"0\"]').checked"))
        press("Exit")

        browser.open(url + "?action=lhvb08")
        browser.type("input[name=NewSignatureName_plxEmailClient]", "Formal")
        press("Add")
        browser.click("input[type=radio][value='1']", loads=False)
        press("Edit")
        browser.type("textarea[name=Signature_plxEmailClient]", "\nKind regards,\n</textarea>Eve")
        press("Save")
        self.assertEqual(browser.js("document.querySelector('textarea').value"), "\nKind regards,\n</textarea>Eve")
        press("Exit")
        browser.open(url + "?action=ifu54c")
        browser.js("document.querySelector('select').value = '1'")
        press("Save")
        self.assertEqual(browser.js("document.querySelector('select').value"), "1")
        browser.open(url + "?action=lhvb08")
        browser.click("input[type=radio][value='1']", loads=False)
        press("Delete")
        self.assertIn("Are you sure you want to delete your \"Formal\" signature?", browser.text())
        press("No")
        browser.click("input[type=radio][value='1']", loads=False)
        press("Delete")
        press("Yes")
        self.assertNotIn("Formal", browser.text())
        press("Exit")

        browser.open(url + "?action=n5erfv")
        press("Edit Custom Skin")
        browser.type("textarea", "<h1>&plxEmailClientNAME; &plxEmailClientFoo;</h1>&plxEmailClientMenuButton;")
        press("Save")
        press("Exit")
        browser.js("document.querySelector('select').value = '1'")
        press("Save")
        self.assertEqual(browser.js("document.querySelector('h1').innerHTML"), "Eve \"&lt;b&gt;\" &amp; co &amp;plxEmailClientFoo;")
        self.assertEqual(browser.js("document.querySelector('select').value"), "1", "the screen is there without its placeholder")
        browser.shot("webmail-skin.png")

    def test_keeps_mail_once_and_whole(self):
        self.add("ida")
        texts = [message(number, "z" * number * 50) for number in range(30)]
        with contextlib.closing(self.mail.mailbox("alice", "secret")) as box:
            for number in range(box.stat()[0]):
                box.dele(number + 1)
            box.quit()
        self.mail.put("alice", *texts)
        self.ask("ida", post={"1plxEmailClientAction=ip1lcx": "Save", "Name_plxEmailClient": ODD, "POPUsername_plxEmailClient": "alice",
                              "POPPassword_plxEmailClient": "secret",
                              "POPServer_plxEmailClient": f"127.0.0.1:{self.mail.pop3_port}"})
        threads = [threading.Thread(target=self.ask, args=("ida",)) for _ in range(3)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        index, messages = self.inbox("ida")
        self.assertEqual(len(index), 30 * 256)
        stored = []
        for at in range(0, len(index), 256):
            _, smaller, larger, offset, length, flags, size = struct.unpack_from("=IIIIIHI", index, at)
            self.assertTrue(smaller % 256 == larger % 256 == 0 and max(smaller, larger) < len(index) and flags == 0)
            text = messages[offset:offset + length]
            self.assertEqual(size, length - text.index(b"\r\n\r\n"))
            stored.append(text)
            self.assertIn(index[at + 186:at + 250].rstrip(b"\0"), text)
        self.assertEqual(sum(len(text) for text in stored), len(messages))
        self.assertEqual(sorted(stored), sorted(text.replace(b"\n", b"\r\n") + b".\r\n" for text in texts))
        self.assertEqual(self.server.get("/plxEmailClient%20Data/ida/Mailboxes/Inbox.mbx").status, 404)
        self.assertEqual(self.page("/delete.html", u="ida").count("cannot be shown"), 0)
        self.assertFalse((self.server.root / "plxEmailClient Data" / "ida").exists())


if __name__ == "__main__":
    unittest.main(verbosity=2)
