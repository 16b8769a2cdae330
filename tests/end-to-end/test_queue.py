"""Mail from the command line: plxserver queue, beside a server that runs and after one that was stopped, and plxserver check."""
import email
import json

from harness import *

PAGE = ('<plxSendMail mailServer="{}" from="bob@test.org" to="{}" subject="Gr\u00fc\u00dfe &plxPath.n;">.dot\n<b>line</b></plxSendMail>sent')


class Queue(unittest.TestCase):
    def setUp(self):
        self.mail, self.server = MailServer(), Server()
        self.addCleanup(self.mail.stop)
        self.addCleanup(self.server.stop)

    def list(self):
        return json.loads(self.server.command("queue", "list", "--json").stdout)

    def refuse(self, count):
        """That many messages that the mail server refuses; their numbers."""
        self.mail.fault("rcpt", "*: 550 5.1.1 not now")
        self.server.write("send.html", PAGE.format(self.mail.address, "alice@test"))
        for number in range(count):
            self.assertEqual(self.server.get(f"/send.html?n={number}").text, "sent")
        until = time.monotonic() + 60
        while len(self.list()) < count:
            self.assertLess(time.monotonic(), until, "the messages did not fail")
            time.sleep(0.1)
        self.mail.fault("rcpt", "")
        return [row["id"] for row in self.list()]

    def test_shows_exports_sends_and_deletes(self):
        self.assertIn("No failed mail", self.server.command("queue", "list").stderr)
        first, second, third = self.refuse(3)
        row = self.list()[0]
        self.assertEqual((row["to"], row["from"], row["attempts"], row["region"]), ("alice@test", "bob@test.org", 1, "test/main"))
        self.assertIn("550", row["reason"])
        self.assertIn("Gr\u00fc\u00dfe", row["subject"])
        self.assertRegex(self.server.command("queue", "list").stdout, rf"(?s){first}.*alice@test.*{second}.*{third}")
        self.assertIn("\r\n.dot\r\n<b>line</b>", self.server.command("queue", "show", first).stdout.replace("\n", "\r\n").replace("\r\r", "\r"))
        folder = self.server.folder / "exported"
        self.server.command("queue", "export", "--all", "--to", str(folder))
        files = sorted(folder.glob("*.eml"))
        self.assertEqual([file.stem for file in files], sorted([first, second, third]))
        self.assertEqual(email.message_from_bytes(files[0].read_bytes())["To"], "alice@test")

        done = self.server.command("queue", "resend", first, "12345", check=False)
        self.assertEqual(done.returncode, 64)
        self.assertIn("12345", done.stderr)
        self.assertIn(f"{first} is sent", done.stdout)
        self.assertIn(b".dot\r\n<b>line</b>", self.mail.wait_for(1)[0])
        self.server.command("queue", "delete", second)
        self.assertEqual([row["id"] for row in self.list()], [third])

        # Nobody takes the reports now; the command settles them itself.
        self.mail.fault("rcpt", "*: 450 4.2.0 busy")
        self.server.process.terminate()
        self.server.process.wait(60)
        done = self.server.command("queue", "resend", "--all", check=False)
        self.assertEqual(done.returncode, 75, done.stdout)
        self.assertRegex(done.stderr, rf"{third} failed again: .*450")
        self.assertEqual(self.list()[0]["attempts"], 2)
        self.mail.fault("rcpt", "")
        self.server.command("queue", "resend", "--all")
        self.assertEqual((len(self.mail.wait_for(1)), self.list()), (1, []))
        self.assertEqual(list((self.server.folder / "state" / "regions").glob("*/*/FM*/*")), [])

    def prefer(self, server, use="always", **more):
        answer = self.server.request("POST", "/plx-admin/preferences?region=test%2Fmain&module=Network+Module", urllib.parse.urlencode(
            {"plxSendMailPreference_UseMailServerName": use, "plxSendMailPreference_mailServerName": server, "plxSendMail": "yes", **more}),
            {"Content-Type": "application/x-www-form-urlencoded", "Origin": self.server.url}, ("keeper", "open sesame"))
        self.assertEqual(answer.status, 303)

    def test_check_tries_the_mail_servers_of_the_preferences(self):
        self.server.command("user", "set", "keeper", input="open sesame\n")
        self.assertIn("is good", self.server.command("check").stdout)
        done = self.server.command("check", "--send-test", "alice@example.org", check=False)
        self.assertEqual((done.returncode, "no region's preferences" in done.stderr), (64, True), done.stderr)
        refused = free_port()
        rows = ((f"127.0.0.1:{refused}", "no connection"), ("no.such.host.invalid", "cannot be looked up"),
                (f"127.0.0.1:{self.mail.pop3_port}", "greets with"))
        for address, words in rows:
            self.prefer(address)
            done = self.server.command("check", check=False)
            self.assertEqual(done.returncode, 69, done.stdout)
            self.assertRegex(done.stderr, f"region test/main: .*{words}")
        for preferences in ({"use": "never"}, {"plxSendMail": "no"}):
            self.prefer("no.such.host.invalid", **preferences)
            self.assertNotIn("mail server", self.server.command("check").stdout)

        self.prefer(self.mail.address, "byDefault")
        self.assertIn("answers", self.server.command("check").stdout)
        done = self.server.command("check", "--send-test", "alice@example.org", check=False)
        self.assertEqual(done.returncode, 69, done.stdout)
        self.assertRegex(done.stderr, "did not take the message .550")
        self.assertEqual([row["to"] for row in self.list()], ["alice@example.org"])
        done = self.server.command("check", "--send-test", "nobody", check=False)
        self.assertEqual((done.returncode, "cannot send to this address" in done.stderr), (64, True), done.stderr)


if __name__ == "__main__":
    unittest.main()
