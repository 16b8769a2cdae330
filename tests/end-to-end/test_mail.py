"""plxSendMail from the page to the mailbox, over a real mail server; failures, their administration and resending."""
import email
import email.policy
import hashlib
import io

from harness import *

ADMIN = '<title>Failed mail</title><plxSendMail mode="admin"></plxSendMail>'


def tag(mail, to="alice@test", body="Hello", more="", sender="bob@test.org", server=None):
    return (f'<plxSendMail mailServer="{server or mail.address}" from="{sender}" to="{to}" subject="&plxPath.subject;" '
            f'{more}>{body}</plxSendMail>sent')


def parsed(message):
    return email.message_from_bytes(message, policy=email.policy.default)


def failures(server):
    """The failed mail that the log holds, a dict each."""
    file = server.folder / "log.csv"
    file.unlink(missing_ok=True)
    server.command("records", "export", "__PLXDB__SendMail_Log__", str(file), check=False)
    return list(csv.DictReader(io.StringIO(file.read_text("latin-1"), newline=""))) if file.exists() else []


class MailCase(ServerCase):
    @classmethod
    def setUpClass(cls):
        cls.mail = MailServer()
        super().setUpClass()
        cls.server.write("admin.html", ADMIN)

    @classmethod
    def tearDownClass(cls):
        super().tearDownClass()
        cls.mail.stop()

    def send(self, path="/send.html"):
        answer = self.server.get(path)
        self.assertEqual((answer.status, answer.text.strip()[-4:]), (200, "sent"), answer.text)

    def failures(self):
        return failures(self.server)

    def stored(self):
        return sorted(file for file in (self.server.folder / "state" / "regions").glob("*/*/FM/*"))


class Sending(MailCase):
    def test_arrives_as_it_was_written(self):
        body = ".a dot begins\n..two\n.\nna\u00efve \u00fc\u20ac \u2014 8-bit\n\n" + "long " * 300 + "\nend"
        self.server.write("send.html", tag(self.mail, body=body, more='replyTo="carol@test.org"'))
        self.send("/send.html?subject=Gr%C3%BC%C3%9Fe")
        message, = self.mail.wait_for(1)
        head, _, text = message.partition(b"\r\n\r\n")
        self.assertEqual(text, body.replace("\n", "\r\n").encode() + b"\r\n")
        mail = parsed(message)
        self.assertEqual([mail["From"], mail["To"], mail["Reply-To"]], ["bob@test.org", "alice@test", "carol@test.org"])
        self.assertIn("Subject: Gr\u00fc\u00dfe\r\n".encode(), head)
        self.assertEqual(mail.get_content_type(), "text/plain")
        self.assertLess(abs(mail["Date"].datetime.timestamp() - time.time()), 120)

    def test_names_blind_recipients_nowhere(self):
        self.server.write("send.html", tag(self.mail, more='to="bob@test" cc="carol@test" bcc="dora@test"',
                                           body="<b>to all</b>").replace("to=\"alice", 'sendAsHTML="yes" to="alice'))
        (self.mail.folder / "users").write_text("alice:secret\nbob:secret2\ncarol:secret3\ndora:secret4\n")
        self.send()
        for name, password in (("alice", "secret"), ("bob", "secret2"), ("carol", "secret3"), ("dora", "secret4")):
            message, = self.mail.wait_for(1, name, password)
            mail = parsed(message)
            self.assertEqual(mail["To"], "alice@test, bob@test")
            self.assertEqual(mail["CC"], "carol@test")
            self.assertEqual(mail.get_content_type(), "text/html")
            sent = message.partition(b"From: ")[2]  # what stands above was written by the mail server
            self.assertNotIn(b"dora", sent)

    def test_carries_attachments(self):
        large = hashlib.shake_256(b"large").digest(10 << 20)
        self.server.write("files/large.bin", large)
        self.server.write("files/empty.txt", b"")
        self.server.write("send.html", tag(self.mail, more='attachmentFileLocation="files/large.bin" '
                          'attachmentFileLocation="/files/empty.txt" attachmentData="inline &lt;text&gt;/note.txt"'))
        self.send()
        message, = self.mail.wait_for(1)
        mail = parsed(message)
        self.assertEqual(mail["MIME-Version"], "1.0")
        names = {part.get_filename(): part.get_payload(decode=True) for part in mail.iter_attachments()}
        self.assertEqual(names["note.txt"], b"inline <text>/note.txt")
        self.assertEqual(names["empty.txt"], b"")
        self.assertEqual(names["large.bin"], large)
        self.assertEqual(next(mail.iter_parts()).get_content().strip(), "Hello")

    @in_release
    def test_a_thousand_leave_at_once(self):
        self.server.write("many.html", "".join(
            tag(self.mail, body=f"number {n}").replace("&plxPath.subject;", str(n)) for n in range(50)))
        threads = [threading.Thread(target=self.server.get, args=("/many.html",)) for _ in range(20)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        found = self.mail.wait_for(1000, seconds=240)
        self.assertEqual(len(found), 1000)
        count = {}
        for message in found:
            text = message.rstrip().rsplit(b"number ", 1)[1]
            count[text] = count.get(text, 0) + 1
        self.assertEqual(set(count.values()), {20})
        self.until(lambda: len(os.listdir(f"/proc/{self.server.process.pid}/task")) < 300)
        time.sleep(1)
        self.assertEqual(self.mail.messages(), [])
        self.assertEqual(self.failures(), [])


class Failing(MailCase):
    def setUp(self):
        self.mail.fault("rcpt", "")
        for fault in ("connect", "mail", "data"):
            self.mail.fault(fault, None)
        self.delete_all()

    def delete_all(self):
        for row in self.failures():
            self.admin(Action="DeleteMessage", RecordID=row["PLXIDFIELD"], MessageID=row["Message ID"], Confirmation="Yes")
        self.assertEqual((self.stored(), self.failures()), ([], []))

    def fail_with(self, page, info, more=None):
        self.server.write("send.html", page)
        before = len(self.failures())
        self.send("/send.html?subject=Trouble")
        self.until(lambda: len(self.failures()) == before + 1)
        row = self.failures()[-1]
        self.assertEqual(row["Info"], info)
        self.assertEqual((row["Status"], row["Attempts"]), ("F", "1"))
        return row

    def admin(self, **arguments):
        body = urllib.parse.urlencode({"plxSendMail" + name: value for name, value in arguments.items()})
        answer = self.server.request("POST", "/admin.html", body, {"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(answer.status, 200)
        return answer.text

    def test_tells_why(self):
        with socket.socket() as closed:
            closed.bind(("127.0.0.1", 0))
            port = closed.getsockname()[1]
            self.fail_with(tag(self.mail, to="nobody@test"), "550- Mailbox Unavailable")
            self.fail_with(tag(self.mail, server=f"127.0.0.1:{port}"), f"Unable to connect to server (127.0.0.1:{port})")
            self.fail_with(tag(self.mail, server="no.such.host.invalid"), "DNS lookup failed (no.such.host.invalid)")
            self.mail.fault("rcpt", "alice@test: 451 4.3.0 Later")
            self.fail_with(tag(self.mail), "451- Local Processing Error")
            self.mail.fault("rcpt", "")
            self.mail.fault("data", "552 5.3.4 Too much")
            self.fail_with(tag(self.mail), "552- Insufficient System Storage")
            self.mail.fault("data", None)
            self.mail.fault("connect", "421 4.3.2 Down for the night")
            self.fail_with(tag(self.mail), "421- Service Not Available")
        self.assertEqual(len(self.stored()), 6)
        self.assertEqual(sorted("msg" + row["Message ID"] for row in self.failures()), [file.name for file in self.stored()])

    def test_sends_again_until_it_arrives(self):
        body = ".dot\n..dots\nbytes \u00ff\u0001 and a tab\t.\nend"
        attachment = hashlib.shake_256(b"a").digest(100000)
        self.server.write("files/a.bin", attachment)
        row = self.fail_with(tag(self.mail, to="nobody@test", body=body, more='cc="carol@test" bcc="bob@test" '
                                 'attachmentFileLocation="files/a.bin"'), "550- Mailbox Unavailable")
        record = {"RecordID": row["PLXIDFIELD"], "MessageID": row["Message ID"], "Page": "1"}
        for attempt in range(2, 5):
            self.assertIn("The message is now being resent.", self.admin(Action="Send", **record))
            self.until(lambda: self.failures()[0]["Attempts"] == str(attempt))
        self.assertIn("alice@test", self.admin(Action="Save", To="alice@test", Subject="Better", SMTPServer=row["SMTP Server"],
                                               From=row["From"], ReplyTo="", CC="carol@test", BCC="bob@test", **record))
        self.admin(Action="Send", **record)
        self.until(lambda: not self.failures() and not self.stored())
        message, = self.mail.wait_for(1)
        mail = parsed(message)
        self.assertEqual((mail["To"], mail["CC"], mail["Subject"], mail["Bcc"]), ("alice@test", "carol@test", "Better", None))
        self.assertEqual(mail.get_all("From"), ["bob@test.org"])
        self.assertEqual(next(mail.iter_parts()).get_payload(decode=True), body.replace("\n", "\r\n").encode() + b"\r\n")
        part, = list(mail.iter_attachments())
        self.assertEqual(part.get_payload(decode=True), attachment)
        self.assertEqual(len(self.mail.wait_for(1, "carol", "secret3")), 1)
        self.assertEqual(len(self.mail.wait_for(1, "bob", "secret2")), 1)
        self.assertIn("No failed mail.", self.admin())
        self.assertIn("Please select an existing message.", self.admin(Action="Send", **record))

    @in_release
    def test_administration_in_a_browser(self):
        for number in range(23):
            self.server.write("send.html", tag(self.mail, to="nobody@test,nobody2@test",
                                               body=f"<script>alert({number})</script>\u0000\u0001&amp;"))
            self.send(f"/send.html?subject=Trouble+%3Cb%3E+number+{number:02}+of+many")
        self.until(lambda: len(self.failures()) == 23)
        browser = Browser()
        self.addCleanup(browser.close)
        rows = "[...document.querySelectorAll('table tr')].length - 1"
        browser.open(self.server.url + "/admin.html")
        browser.shot("mail-list.png")
        self.assertEqual(browser.js(rows), 10)
        self.assertIn("Page 1 of 3", browser.text())
        self.assertIn("Trouble <b> number ", browser.text())
        browser.click("input[value='>>']")
        browser.click("input[value='>>']")
        self.assertIn("Page 3 of 3", browser.text())
        self.assertEqual(browser.js(rows), 3)
        self.assertIsNone(browser.js("document.querySelector(\"input[value='>>']\")"))
        browser.click("input[value='<<']")
        self.assertIn("Page 2 of 3", browser.text())
        browser.click("input[value='Edit']")
        browser.shot("mail-edit.png")
        self.assertIn("Message text:", browser.text())
        self.assertIn("<script>alert(", browser.text())
        self.assertEqual(browser.js("document.querySelectorAll('script').length"), 0)
        browser.type("textarea[name=plxSendMailTo]", "alice@test")
        browser.type("textarea[name=plxSendMailSubject]", "Corrected \"<i>\" & sent")
        browser.click("input[value=Save]")
        self.assertIn("Page 2 of 3", browser.text())
        self.assertIn("Corrected \"<i>\" & sent", browser.text())
        browser.click("input[value=Send]")
        self.assertIn("If successful, the message will be removed from the list.", browser.text())
        browser.shot("mail-sent.png")
        message, = self.mail.wait_for(1)
        self.assertEqual(parsed(message)["Subject"], "Corrected \"<i>\" & sent")
        self.until(lambda: len(self.failures()) == 22)
        browser.click("input[type=submit]")
        browser.click("input[value=Delete]")
        browser.shot("mail-delete.png")
        browser.click("input[value=No]")
        self.assertEqual(len(self.failures()), 22)
        browser.click("input[value=Delete]")
        browser.click("input[value=Yes]")
        self.assertEqual((len(self.failures()), len(self.stored())), (21, 21))


class Stopping(unittest.TestCase):
    def test_loses_nothing(self):
        """Twenty messages on their way: half to a server that answers late, half to one that never does."""
        mail = MailServer()
        self.addCleanup(mail.stop)
        mail.fault("rcpt", "*: 550 No")
        silent = Listener(lambda connection: (connection.sendall(b"220 late\r\n"), time.sleep(120)))
        refused = tag(mail)
        server = Server({"slow.html": "".join([refused, tag(mail, server=f"127.0.0.1:{silent.port}")] * 10)})
        self.assertEqual(server.get("/slow.html").status, 200)
        server.process.send_signal(signal.SIGTERM)
        server.process.wait(100)
        self.assertEqual(server.process.returncode, 0, server.said())
        self.assertEqual(sorted(row["Info"] for row in failures(server)),
                         ["550- Mailbox Unavailable"] * 10 + [f"Unable to connect to server (127.0.0.1:{silent.port})"] * 10)
        self.assertEqual(len(list((server.folder / "state" / "regions").glob("*/*/FM/msg*"))), 20)
        server.stop()


if __name__ == "__main__":
    unittest.main(verbosity=2)
