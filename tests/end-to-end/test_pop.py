"""plxPOP from a mailbox into records and files, over a real mail server and scripted ones."""
import email
import email.policy
import hashlib
import io
from email.message import EmailMessage

from harness import *

SMTP = email.policy.SMTP
CUT = 51200


def mailed(message, headers=()):
    for name, value in headers:
        message[name] = value
    return message.as_bytes(policy=SMTP)


def simple(number, body="Good morning\r\n"):
    return f"From: bob@test.org\r\nTo: alice@test\r\nSubject: number {number}\r\n\r\n{body}".encode()


def attached(files, body="See the files."):
    """A message with files, each (name as it is to stand in quotes, bytes)."""
    lines = ["Subject: files", "MIME-Version: 1.0", 'Content-Type: multipart/mixed; boundary="=-cut"', "", "--=-cut", "", body]
    for name, content in files:
        lines += ["--=-cut", "Content-Transfer-Encoding: base64", f'Content-Disposition: attachment; filename="{name}"', "",
                  base64.encodebytes(content).decode().replace("\n", "\r\n").rstrip()]
    return "\r\n".join(lines + ["--=-cut--", ""]).encode("latin-1")


class PopCase(ServerCase):
    @classmethod
    def setUpClass(cls):
        cls.mail = MailServer()
        names = ["alice", *(name for name in dir(cls) if name.startswith("test_"))]
        (cls.mail.folder / "users").write_text("".join(f"{name}:secret\n" for name in names))
        super().setUpClass()

    @classmethod
    def tearDownClass(cls):
        super().tearDownClass()
        cls.mail.stop()

    def setUp(self):
        """Each test has a mailbox and a database of its own."""
        self.name = self.id().rsplit(".", 1)[1]
        self.folder = self.server.root / "Attachments"
        shutil.rmtree(self.folder, ignore_errors=True)

    def put(self, *messages):
        """Puts messages into the mailbox, behind those that are there."""
        self.mail.put(self.name, *messages)

    def collect(self, more="", port=None):
        """Runs the tag; the page's text with the number of new messages in brackets at its end."""
        page = (f'<plxPOP username="{self.name}" password="secret" databaseName="{self.name}" '
                f'mailServer="127.0.0.1:{port or self.mail.pop3_port}" {more}>[&plxVariable.plxPOP_ResultCount;]')
        file = self.server.root / "collect.html"
        if not file.exists() or file.read_text() != page:  # one that is being written is no page
            file.write_text(page)
        answer = self.server.get("/collect.html")
        self.assertEqual(answer.status, 200)
        return answer.text

    def records(self):
        file = self.server.folder / "export.csv"
        file.unlink(missing_ok=True)
        self.server.command("records", "export", self.name, str(file))
        csv.field_size_limit(1 << 28)
        return list(csv.DictReader(io.StringIO(file.read_bytes().decode("latin-1"), newline="")))

    def files(self):
        return {file.name: file.read_bytes() for file in self.folder.iterdir()} if self.folder.exists() else {}

    def left(self):
        with contextlib.closing(self.mail.mailbox(self.name, "secret")) as box:
            return box.stat()[0]


class RealMail(PopCase):
    def check(self, message, record):
        """The record holds what Python's parser finds, as far as the header lines are not folded."""
        parsed = email.message_from_bytes(message, policy=email.policy.compat32)
        self.assertTrue(record["Header"].startswith("+OK "))
        head = message.partition(b"\r\n\r\n")[0].decode("latin-1")
        self.assertEqual(record["Header"].partition("\r\n")[2], head)
        for field in ("To", "From", "Date", "Subject", "Return-Path", "Received", "X-Sender", "Message-ID", "Mime-Version",
                      "Content-Type", "Status"):
            value = re.search(rf"(?im)^{field}:[ \t]*([^\r]*)", head)
            self.assertEqual(record[field], value.group(1) if value else "", field)
        name, address = email.utils.parseaddr(record["From"])
        self.assertEqual(record["From Email"], address)
        self.assertEqual(record["From Name"].strip('"').replace('\\"', '"'), name)
        self.assertEqual((record["Read"], record["Size"], record["AttachmentFileNames"]),
                         ("0", str(len(record["Message"])), ""))
        self.assertEqual(record["Message"], self.body(message, parsed)[:CUT])
        return {part.get_filename(): part.get_payload(decode=True) for part in parsed.walk()
                if part.get_content_disposition() == "attachment" and not part.is_multipart()}

    def body(self, message, parsed):
        """The text of the last part that is no attachment, as it was sent."""
        if not parsed.is_multipart():
            return message.partition(b"\r\n\r\n")[2].join([b"\r\n", b""]).decode("latin-1")
        texts = [part for part in parsed.get_payload() if part.get_content_disposition() != "attachment"]
        if not texts:
            return ""
        if not texts[-1].is_multipart():
            return texts[-1].get_payload().encode("ascii", "surrogateescape").decode("latin-1")
        whole, cut = message.decode("latin-1"), "--" + parsed.get_boundary()
        part = whole[:whole.index(cut + "--")].split(cut)[1:][parsed.get_payload().index(texts[-1])]
        return part.partition("\r\n\r\n")[2][:-2]

    def test_is_what_an_independent_parser_finds(self):
        picture, large = hashlib.shake_256(b"p").digest(70000), hashlib.shake_256(b"l").digest(15 << 20)

        plain = EmailMessage()
        plain.set_content("Line one.\n\n\ttwo...\nthe end.\n\n", cte="7bit")

        files = EmailMessage()
        files.set_content("Two files, two names.\n")
        files.add_attachment(picture, maintype="image", subtype="png", filename="one.png")
        files.add_attachment(b"", maintype="application", subtype="octet-stream", filename="empty.bin")

        levels = EmailMessage()
        levels.set_content("plain text")
        levels.add_alternative("<p>HTML text</p>", subtype="html")
        levels.get_payload()[1].add_related(picture, "image", "png", disposition="attachment", filename="inner.png")
        levels.make_mixed()
        levels.add_attachment(picture[:1000], maintype="image", subtype="gif", filename="outer.gif")

        big = EmailMessage()
        big.set_content("Large.\n")
        big.add_attachment(large, maintype="application", subtype="zip", filename="large.zip")

        people = [("From", "Ada Lovelace <ada@example.org>"), ("To", "alice@test"), ("Date", "Mon, 23 Nov 2026 14:00:00 +0000"),
                  ("Message-ID", "<1@example.org>")]
        listed = [("Return-Path", "<list-bounces@example.org>"), ("Received", "from a by b; Mon, 23 Nov 2026 14:00:00 +0000"),
                  ("Received", "from c by a; Mon, 23 Nov 2026 13:59:00 +0000"), ("List-Id", "Planets <planets.example.org>"),
                  ("Precedence", "list"), ("Subject", "[planets] Re: Mars"), ("X-Sender", "ada"), ("Status", "RO")]
        messages = [
            mailed(plain, people + listed),
            mailed(files, people + [("Subject", "files")]),
            mailed(levels, people),
            mailed(big, [("From", "bare@example.org")]),
            b"From: \"Quoted, Name\" <q@example.org>\r\nSubject: 8-bit caf\xe9 \xc3\xbc\r\n\r\nna\xefve \xff\r\n\ttab \x01\r\n",
            b"Subject: nothing else\r\n\r\n",
            simple("long", "0123456789" * 6000 + "\r\n"),
            b"Subject: only a file\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
            b"Content-Disposition: attachment; filename=a.txt\r\n\r\nraw\r\n--b--\r\n",
            b"Subject: not closed\r\nContent-Type: text/plain; boundary=b\r\n\r\n--b\r\nContent-Type: text/plain\r\n\r\ntext\r\n",
        ]
        self.put(*messages)
        self.assertEqual(self.collect('maximumAttachmentSize="0"'), f"[{len(messages)}]")
        records, wanted = self.records(), {}
        self.assertEqual(len(records), len(messages))
        for number, (message, record) in enumerate(zip(messages, records)):
            with self.subTest(number):
                wanted.update(self.check(message, record))
        self.assertEqual(sorted(wanted), ["a.txt", "empty.bin", "inner.png", "large.zip", "one.png", "outer.gif"])
        self.assertTrue(self.files() == wanted)

    def test_where_the_rules_differ(self):
        """A simple parser, on purpose: each row says what a full one would make of the message."""
        head = b"Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n"
        end, disposition = b"\r\n--b--\r\n", b"\r\nContent-Disposition: attachment; filename="
        rows = (
            ("would decode a quoted-printable text", head + b"--b\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
             b"a=3Db" + end, "a=3Db", {}),
            ("would show the page and not the picture in it", head + b"--b\r\nContent-Type: text/html\r\n\r\n<p>\r\n--b\r\n"
             b"Content-Disposition: inline; filename=\"p.png\"\r\n\r\npicture" + end, "picture", {}),
            ("would open a forwarded message", head + b"--b\r\n\r\ntext\r\n--b\r\nContent-Type: message/rfc822" + disposition +
             b"m.eml\r\n\r\nSubject: inner\r\n\r\ninner text" + end, "text", {"m.eml": b"Subject: inner\r\n\r\ninner text"}),
            ("would decode a name", head + b"--b" + disposition + b"\"=?utf-8?Q?caf=C3=A9?=.txt\"\r\n\r\none" + end, "",
             {"=?utf-8?Q?caf=C3=A9?=.txt": b"one"}),
            ("would read the boundary up to the semicolon", head.replace(b"\"b\"", b"b; charset=x") + b"--b\r\n\r\ntext" + end,
             "\r\n--b\r\n\r\ntext\r\n--b--\r\n", {}),
            ("would undo the transport's dots", b"Subject: dots\r\n\r\n.dot\r\n.\r\n..two\r\n", "\r\n..dot\r\n..\r\n...two\r\n", {}),
            ("would know Boundary= in capitals", head.replace(b"boundary", b"Boundary") + b"--b\r\n\r\ntext" + end,
             "\r\n--b\r\n\r\ntext\r\n--b--\r\n", {}),
        )
        for number, (why, message, body, files) in enumerate(rows):
            with self.subTest(why):
                shutil.rmtree(self.folder, ignore_errors=True)
                self.put(message)
                self.assertEqual(self.collect(), "[1]")
                self.assertEqual((self.records()[number]["Message"], self.files()), (body, files))
        self.put(b"Received-SPF: pass\r\nReceived: from a\r\nSubject: folded\r\n here\r\nFrom: A <B> <c@d>\r\n\r\n")
        self.collect()
        record = self.records()[-1]
        self.assertEqual([record[field] for field in ("Received", "Subject", "From Name", "From Email")],
                         ["pass", "folded", "A", "B> <c@d"])

    def test_large_files_are_left_out(self):
        raw = "Content-Disposition: attachment; filename={}\r\n\r\n{}"
        message = "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n" + "\r\n--b\r\n".join(
            ["\r\ntext", raw.format("small", "x" * 1024), raw.format("large", "x" * 1025)]) + "\r\n--b--\r\n"
        self.put(message.encode())
        self.assertEqual(self.collect('maximumAttachmentSize="1"'), "[1]")
        self.assertEqual((list(self.files()), self.records()[0]["Message"]), (["small"], "text"))


class Mailboxes(PopCase):
    def test_are_collected_once(self):
        self.put(*(simple(number) for number in range(3)))
        self.assertEqual(self.collect(), "[3]")
        self.assertEqual(self.collect(), "[0]")
        self.put(simple(3))
        self.assertEqual(self.collect('deleteMessagesOnServer="true"'), "[1]")
        self.assertEqual(self.left(), 3, "what was known stays on the server")
        self.assertEqual([row["Subject"] for row in self.records()], [f"number {number}" for number in range(4)])
        self.assertEqual(self.server.log().count("plxPOP:"), 0)

    def test_many_known_and_a_few_new(self):
        self.put(*(simple(number) for number in range(2000)))
        self.assertEqual(self.collect(), "[2000]")
        self.put(*(simple(2000 + number) for number in range(5)))
        self.assertEqual(self.collect(), "[5]")
        self.assertEqual(sorted(row["Subject"] for row in self.records()), sorted(f"number {n}" for n in range(2005)))

    def collect_at_once(self, count):
        texts = []
        threads = [threading.Thread(target=lambda: texts.append(self.collect())) for _ in range(count)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return texts

    def test_pages_at_once_build_one_database(self):
        self.put(simple(1))
        self.collect_at_once(8)
        record, = self.records()
        self.assertEqual((len(record), record["Subject"]), (20, "number 1"))

    def test_runs_at_once_share_what_there_is(self):
        self.assertEqual(self.collect(), "[0]")
        self.put(*(attached([(f"{number}.txt", b"%d" % number)]) for number in range(30)))
        texts = self.collect_at_once(6)
        self.assertEqual(sum(int(text[1:-1]) for text in texts), 30, texts)
        self.assertEqual((len(self.records()), self.files()), (30, {f"{number}.txt": b"%d" % number for number in range(30)}))

    def test_stay_where_they_are_until_their_files_are_saved(self):
        self.put(attached([("a.txt", b"a")]))
        self.server.write("Attachments", b"in the way")
        self.assertEqual((self.collect('deleteMessagesOnServer="yes"'), self.left()), ("[0]", 1))
        self.assertIn("an attachment of message 1 cannot be saved", self.server.log())
        self.folder.unlink()
        self.assertEqual((self.collect('deleteMessagesOnServer="yes"'), self.left(), self.files()), ("[1]", 0, {"a.txt": b"a"}))

    def test_other_places(self):
        self.put(attached([("a.txt", b"a")]))
        text = self.collect('resultVariableName="mail" attachmentFolderLocation="in/box">[&plxVariable.mail_ResultCount;]<p')
        self.assertEqual(text, "[1]<p>[]")
        self.assertEqual((self.server.root / "in/box/a.txt").read_bytes(), b"a")


class Demo(PopCase):
    def test_page_shows_what_came(self):
        pages = SOURCE / "sites/demo/pages"
        self.server.write("mail/collect.html", (pages / "mail/collect.html").read_text().replace(
            "127.0.0.1:8110", f"127.0.0.1:{self.mail.pop3_port}"))
        self.server.write("style.css", (pages / "style.css").read_bytes())
        self.name = "alice"
        self.put(simple(1, "Good morning <script>\r\n"), attached([("planets.txt", b"Mercury\n")], "The planets, attached."))
        browser = Browser()
        self.addCleanup(browser.close)
        browser.open(self.server.url + "/mail/collect.html")
        browser.js("document.querySelectorAll('details').forEach(one => one.open = true)")
        browser.shot("demo-collect.png")
        text = browser.text()
        for words in ("New: 2", "number 1", "Good morning <script>", "The planets, attached.", "Messages: 2"):
            self.assertIn(words, text)
        browser.open(self.server.url + "/mail/collect.html")
        self.assertIn("New: 0", browser.text())
        self.assertEqual(self.server.get("/Attachments/planets.txt").text, "Mercury\n")


class Hostile(PopCase):
    SECTIONS = 'downloads = ["/in/"]'
    EVIL = b'<script>alert(1)</script><plxIncludeHTTP url="/secret.html">&plxPath.q;'

    def test_names_stay_in_the_folder(self):
        names = ["../../x", "..\\..\\y", "/etc/z", ".htaccess", "n" * 300 + ".txt", "a\x01\x7fb.txt", "", "..", ".", "evil.plx",
                 "C:\\w.txt", "caf\xe9.txt", "<b>&amp;\".html"]
        self.put(attached([(name, name.encode()) for name in names], "The body"))
        before = set(self.server.folder.rglob("*"))
        self.assertEqual(self.collect(), "[1]")
        self.assertEqual(self.records()[0]["Message"], "The body")
        new = set(self.server.folder.rglob("*")) - before - {self.server.root / "collect.html", self.server.folder / "export.csv"}
        self.assertEqual({file.parent for file in new if "state" not in file.parts}, {self.folder, self.server.root})
        found = self.files()
        for name in ("x", "y", "z", "_htaccess", "a__b.txt", "evil.plx", "w.txt"):
            self.assertIn(name, found)
        self.assertEqual(len(found), len(names) - 1, "the one without a name has nowhere to go: " + repr(sorted(found)))
        self.assertLessEqual(max(map(len, found)), 255)

    def test_files_are_downloads(self):
        self.server.write("secret.html", "secret")
        names = ["evil.html", "evil.plx", "evil.svg", "index.html", "EVIL.HTM", "evil.html.txt"]
        self.put(attached([(name, self.EVIL) for name in names]))
        self.assertEqual(self.collect(), "[1]")
        shutil.copytree(self.folder, self.server.root / "in")
        for folder in ("/Attachments", "//Attachments", "/%41ttachments", "/in"):
            for name in ["", *names]:
                with self.subTest(folder + "/" + name):
                    answer = self.server.get(f"{folder}/{name}?q=1")
                    self.assertEqual((answer.status, answer.text), (200, self.EVIL.decode()))
                    self.assertTrue(answer.getheader("Content-Disposition").startswith("attachment"))
                    self.assertEqual(answer.getheader("X-Content-Type-Options"), "nosniff")
                    self.assertEqual(answer.getheader("Content-Type"), "application/octet-stream")


def scripted(answers):
    """A POP3 server that says what is set for a command or its first word: bytes, seconds of silence, and None to hang up."""
    def serve(connection):
        def say(steps):
            for step in steps if isinstance(steps, list) else [steps]:
                if step is None:
                    return False
                time.sleep(step) if isinstance(step, float) else connection.sendall(step)
            return True
        if not say(answers.get("", b"+OK ready\r\n")):
            return
        for line in connection.makefile("rb"):
            command = line.strip().decode()
            heard.append(command)
            if not say(answers.get(command, answers.get(command.split(" ")[0], b"+OK\r\n"))) or command == "QUIT":
                return
    heard = []
    listener = Listener(serve)
    listener.heard = heard
    return listener


def listing(*ids):
    return b"+OK\r\n" + b"".join(b"%d %s\r\n" % (number + 1, one.encode()) for number, one in enumerate(ids)) + b".\r\n"


class Scripted(PopCase):
    def run_against(self, answers, more=""):
        server = scripted(answers)
        self.addCleanup(server.close)
        text = self.collect(more, server.port)
        self.heard = server.heard
        return text

    def test_problems_are_told(self):
        unable = "The client was unable to connect to the POP server."
        for answers, problem in (
                ({"": b"-ERR busy\r\n"}, unable), ({"USER": b"-ERR who\r\n"}, "The username was invalid."),
                ({"PASS": b"-ERR no\r\n"}, "The password was invalid."), ({"": None}, ""), ({"UIDL": b"-ERR what\r\n"}, ""),
                ({"UIDL": None}, ""), ({"UIDL": b"+OK\r\n.\r\n"}, "")):
            with self.subTest(answers):
                text = self.run_against(answers)
                self.assertTrue(text.endswith("[0]"), text)
                self.assertIn(problem, text)
                self.assertTrue(problem or text == "[0]", text)
        text = self.collect(port=free_port())
        self.assertIn(unable, text)
        self.assertIn("Please try again in a few minutes.", text)
        self.assertEqual(self.records(), [])
        self.server.write("bad.html", '<plxPOP username="a" password="b" mailServer="127.0.0.1:1" databaseName="a/b">'
                          '[&plxVariable.plxPOP_ResultCount;]<plxPOP username="a">')
        text = self.server.get("/bad.html").text
        for words in ("The database could not be opened.", "Please contact the webmaster to report this problem.", "[0]",
                      "missing its", "password"):
            self.assertIn(words, text)

    def test_unique_ids_of_all_kinds(self):
        ids = ["i" * 70, "O'Brien''s", "'OR'Unique'<>'", "Case", "case", "caf\xe9", "<script>", "12"]
        script = {"UIDL": listing(*ids), "RETR": b"+OK\r\nSubject: x\r\n\r\ntext\r\n.\r\n"}
        self.assertEqual(self.run_against(script), f"[{len(ids)}]")
        self.assertEqual([row["Unique ID"].encode("latin-1").decode() for row in self.records()], ids)
        self.assertEqual(self.run_against(script), "[0]")
        self.assertNotIn("RETR 1", self.heard)
        wild = b"+OK\r\n1\r\n\r\n 2\r\n3  x\r\n4 a\x00b\r\n5 \x01\r\n6 " + b"x" * 5000 + b"\r\n7 good more\r\n8 cut"
        self.assertEqual(self.run_against({**script, "UIDL": [wild, None]}), "[0]")
        self.assertEqual(self.run_against({**script, "UIDL": wild.replace(b"8 cut", b".\r\n")}), "[1]")
        self.assertEqual(len(self.records()), len(ids) + 1)

    def test_what_broke_is_filled_later(self):
        good = b"+OK\r\nSubject: %s\r\n\r\ntext\r\n.\r\n"
        script = {"UIDL": listing("a", "b", "c"), "RETR 1": good % b"one", "RETR 3": good % b"three"}
        delete = 'deleteMessagesOnServer="yes"'
        cut = [b"+OK\r\nSubject: two\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\nContent-Disposition: "
               b"attachment; filename=half\r\n\r\nhalf\r\n--b--\r\n", None]
        self.assertEqual(self.run_against({**script, "RETR 2": cut}, delete), "[1]")
        self.assertEqual(self.heard[-3:], ["RETR 1", "DELE 1", "RETR 2"])
        self.assertEqual([(row["Unique ID"], row["Subject"], row["Header"] == "") for row in self.records()],
                         [("a", "one", False), ("b", "", True)])
        self.assertEqual(self.files(), {})
        self.assertIn("the connection broke at message 2", self.server.log())
        self.assertEqual(self.run_against({**script, "RETR 2": b"-ERR locked\r\n"}, delete), "[1]")
        self.assertEqual(self.heard[-4:], ["RETR 2", "RETR 3", "DELE 3", "QUIT"])
        self.assertEqual(self.run_against({**script, "RETR 2": good % b"two"}, delete), "[1]")
        self.assertEqual(self.heard[-3:], ["RETR 2", "DELE 2", "QUIT"])
        self.assertEqual(sorted(row["Subject"] for row in self.records()), ["one", "three", "two"])
        self.assertEqual(self.run_against(script), "[0]")


if __name__ == "__main__":
    unittest.main(verbosity=2)
