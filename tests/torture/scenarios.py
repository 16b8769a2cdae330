"""What the server does while things fail, and what must be true afterwards.

A scenario is prepared once; every fault begins with a copy of that state. `act` is the phase in which the fault is, and notes what the
server acknowledged. `check` holds right after it, also for a server that was killed and started again; `finish` is the next ordinary
run, after which `check_end` says exactly what there is."""
import hashlib
import http.client
import io
import sqlite3
import struct

from harness import *

FORM = {"Content-Type": "application/x-www-form-urlencoded"}
PATIENCE = 20


def equal(found, wanted, what):
    assert found == wanted, f"{what}: {found!r:.300} instead of {wanted!r:.300}"


class Served(Server):
    """A server over a copy of a prepared folder, which can be started again and traced."""

    def __init__(self, folder, template=None, environment=None):
        self.folder, self.root, self.config = folder, folder / "site", folder / "plxserver.conf"
        self.settings, self.sections, self.stopping, self.acked = "page-threads = 4\nadministration-threads = 1", "", False, {}
        if template:
            shutil.copytree(template, folder, symlinks=True)
        else:
            self.root.mkdir(parents=True)
            self.configure()
        folder.chmod(0o755)
        self.start(environment)

    def start(self, environment=None):
        self.environment = environment
        self.output = open(self.folder / "output", "wb")
        self.process = subprocess.Popen([SERVER, "serve", "--config", str(self.config)], stdout=self.output, stdin=subprocess.DEVNULL,
                                        stderr=subprocess.STDOUT, env={**os.environ, **(environment or {})})
        self.port = self.wait_for_port()
        self.host, self.stopping = f"127.0.0.1:{self.port}", False
        self.url = f"http://{self.host}"

    def end(self):
        """Stops in order and keeps the folder; the exit code."""
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(60)
        self.output.close()
        return self.process.returncode

    def ask(self, path, post=None, user=None, patience=PATIENCE):
        """The answer with its text, None when there was none or only a part of it."""
        headers = {"Authorization": "Basic " + base64.b64encode(":".join(user).encode()).decode()} if user else {}
        if post is not None:
            headers |= FORM | {"Origin": self.url}
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=patience)
        try:
            connection.request("POST" if post is not None else "GET", path,
                               urllib.parse.urlencode(post) if post is not None else None, headers)
            answer = connection.getresponse()
            answer.body = answer.read()
            answer.text = answer.body.decode("latin-1")
            return answer
        except (OSError, http.client.HTTPException):
            return None
        finally:
            connection.close()

    def complaints(self):
        """Lines of the log that tell of a problem."""
        return len(re.findall(r"(?m)^\S+ \S+ (?:warning|error) ", self.log()))

    def threads(self):
        with contextlib.suppress(OSError):
            return len(os.listdir(f"/proc/{self.process.pid}/task"))
        return 0

    def records(self, database):
        """The records of a database, a dict each; the database files must be sound."""
        for name in ("records.sqlite", "preferences.sqlite"):
            if (self.folder / "state" / name).exists():
                with contextlib.closing(sqlite3.connect(self.folder / "state" / name)) as connection:
                    equal(connection.execute("PRAGMA integrity_check").fetchall(), [("ok",)], name)
        file = self.folder / "export.csv"
        file.unlink(missing_ok=True)
        self.command("records", "export", database, str(file), check=False)
        csv.field_size_limit(1 << 28)
        return list(csv.DictReader(io.StringIO(file.read_bytes().decode("latin-1"), newline=""))) if file.exists() else []


class Scenario:
    PAGES, KINDS, RUNS = {}, ("fail", "kill", "short"), 200

    def __init__(self, mail, user):
        self.mail, self.user, self.mark = mail, user, ""

    def prepare(self, server):
        for name, text in {**self.PAGES, "alive.html": "alive"}.items():
            server.write(name, text)

    def begin(self, server):
        """Before the fault."""

    def settle(self, server):
        """After `act`, the fault still on."""

    def check(self, server, killed):
        pass

    def finish(self, server):
        pass

    def check_end(self, server):
        pass

    # ---- The real mail server ----
    def empty_mailbox(self, *messages):
        home = self.mail.folder / "mail" / self.user
        owner = home.parent.stat()
        shutil.rmtree(home, ignore_errors=True)
        for folder in (home, home / "Maildir", *(home / "Maildir" / name for name in ("cur", "new", "tmp"))):
            folder.mkdir(exist_ok=True)
            os.chown(folder, owner.st_uid, owner.st_gid)
        for number, message in enumerate(messages):
            file = home / "Maildir" / "new" / f"{1700000000 + number}.M{number}.test"
            file.write_bytes(message)
            os.chown(file, owner.st_uid, owner.st_gid)

    def mail_log(self):
        """What the mail server noted of the mailbox's messages."""
        lines = (self.mail.folder / "log" / "exim-mainlog").read_text(errors="replace").splitlines()
        names = {word for line in lines if self.user + "@" in line for word in line.split()[2:3]}
        return [line for line in lines if line.split()[2:3] and line.split()[2] in names]

    def mailbox_holds(self):
        """The messages at the mail server, once it has delivered what it took."""
        spool, home = self.mail.folder / "spool" / "input", self.mail.folder / "mail" / self.user / "Maildir"
        until = time.monotonic() + PATIENCE
        while time.monotonic() < until:
            waiting = False
            for file in spool.rglob("*-H"):  # the header and whom it is for; written before the message is taken
                with contextlib.suppress(OSError):
                    waiting |= self.user.encode() + b"@" in file.read_bytes()
            if not waiting:
                break
            time.sleep(0.02)
        found = []
        for file in (*home.glob("new/*"), *home.glob("cur/*")):
            with contextlib.suppress(OSError):
                found.append(file.read_bytes())
        return found


class Pages(Scenario):
    """A static file, a page, and a page that includes another; nothing is stored."""
    PAGES = {"inner.html": "inner " * 2000, "page.html": "[&plxPath.x;]",
             "outer.html": '<plxIncludeHTTP url="http://&plxPath.host;/inner.html">|'}
    KINDS = ("fail", "short")
    FILE = hashlib.shake_256(b"file").digest(300000)

    def prepare(self, server):
        super().prepare(server)
        server.write("file.bin", self.FILE)

    def act(self, server):
        for path in ("/file.bin", "/page.html?x=1", "/outer.html?host=" + server.host):
            server.acked[path.split("?")[0]] = server.ask(path)

    def check(self, server, killed):
        inner = self.PAGES["inner.html"].encode()
        for path, whole in (("/file.bin", self.FILE), ("/page.html", b"[1]"), ("/outer.html", inner + b"|")):
            answer = server.acked.get(path)
            if answer is None or answer.status >= 400 or b"cannot be shown" in answer.body or answer.body == whole:
                continue
            if path == "/outer.html" and b"500 Internal Server Error" in answer.body:
                continue  # which is what the other page was
            # What an include got before its connection broke is shown.
            assert path == "/outer.html" and answer.body.endswith(b"|") and inner.startswith(answer.body[:-1]), \
                f"{path}: {answer.status}, {len(answer.body)} bytes of {len(whole)}"

    def finish(self, server):
        self.act(server)

    def check_end(self, server):
        whole = (self.FILE, b"[1]", self.PAGES["inner.html"].encode() + b"|")
        for path, bytes_ in zip(("/file.bin", "/page.html", "/outer.html"), whole):
            answer = server.acked[path]
            assert answer is not None and answer.body == bytes_, f"{path}: {answer and answer.body[-300:]}"


class Sending(Scenario):
    """A message from a page. The mail server takes it, or refuses it for good so that it goes into the list."""
    RUNS = 60  # each half second of silence counts
    TO, BODY = "&plxPath.u;@test", "line one\n.dot\n" + "text " * 300 + "\nthe end"

    def prepare(self, server):
        self.PAGES = {"send.html": f'<plxSendMail mailServer="{self.mail.address}" from="bob@test.org" to="{self.TO}" '
                      f'subject="&plxPath.mark;" attachmentData="data/a.txt">{self.BODY}</plxSendMail>sent',
                      "admin.html": '<plxSendMail mode="admin"></plxSendMail>'}
        super().prepare(server)
        server.ask("/admin.html")

    def begin(self, server):
        self.empty_mailbox()
        server.ask("/alive.html")
        self.idle = server.threads()
        self.mark = f"{self.user}-{time.time_ns()}"

    def act(self, server):
        answer = server.ask(f"/send.html?u={self.user}&mark={self.mark}")
        server.acked["sent"] = answer is not None and answer.status == 200 and answer.text == "sent"

    def settle(self, server):
        """Until the thread that sends has ended, or holds what no disk takes."""
        until = time.monotonic() + 40
        while server.alive() and server.threads() > self.idle and time.monotonic() < until:
            time.sleep(0.02)

    def delivered(self):
        found = [one for one in self.mailbox_holds() if self.mark.encode() in one]
        for one in found:
            assert b"the end\r\n" in one.replace(b"\n", b"\r\n").replace(b"\r\r\n", b"\r\n") and one.count(b"Delimiter--") == 1, \
                "half a message was delivered"
        return len(found)

    def stored(self, server):
        """Names of the failed messages' files, each whole, once those that a process left behind are among them."""
        server.ask("/admin.html")
        names = []
        for file in (server.folder / "state" / "regions").glob("*/*/FM/msg*"):
            text = file.read_bytes()
            if self.mark.encode() in text:
                assert text.endswith(b"Delimiter--\n.\n"), f"{file.name} is cut"
                names.append(file.name)
        return names

    def listed(self, server):
        return [row for row in server.records("__PLXDB__SendMail_Log__") if row["Subject"] == self.mark]

    def check(self, server, killed):
        if not killed:
            self.settle(server)
        delivered, stored, listed = self.delivered(), self.stored(server), self.listed(server)
        places = f"{delivered} delivered, stored {stored}, listed {[row['Message ID'] for row in listed]}"
        assert delivered <= 1 and len(stored) <= 1 and len(listed) <= 1, "twice: " + places
        # A disk that takes no file, and a mail server that takes no message, leave the list to name it.
        if server.acked.get("sent"):
            assert delivered or stored or (listed and not killed), f"lost: {places}, {server.threads()} of {self.idle} threads, " \
                f"mail server: {self.mail_log()}"
        for row in listed if killed else ():
            assert "msg" + row["Message ID"] in stored or delivered, "listed without its text: " + places

    def finish(self, server):
        self.act(server)
        self.settle(server)

    def check_end(self, server):
        assert server.acked["sent"], "the page does not send any more"
        assert self.delivered() + len(self.listed(server)) >= 1, "the next message did not get through"


class Refused(Sending):
    TO = "nobody@test"

    def check_end(self, server):
        assert self.listed(server), "the next failure was not recorded"


class Resending(Sending):
    """A message of the list, sent again to a mail server that takes it now."""

    def prepare(self, server):
        super().prepare(server)
        self.mark = "prepared-message"
        text = f"Subject: {self.mark}\nFrom: bob@test.org\nTo: nobody@test\n\nthe end\n--x_MIME_Multipart_Delimiter--\n.\n"
        folder = server.folder / "state" / "regions" / "test" / "main" / "FM"
        folder.mkdir(parents=True)
        (folder / "msg246161210000000").write_text(text)
        server.ask("/SendMail", {"MessageID": "msg246161210000000", "Status": "F", "SMTPServer": self.mail.address, "From": "bob@test.org",
                                 "ReplyTo": "", "To": "nobody@test", "CC": "", "BCC": "", "Subject": self.mark, "Info": "x"})
        assert len(self.listed(server)) == 1

    def begin(self, server):
        super().begin(server)
        self.row = server.records("__PLXDB__SendMail_Log__")[0]
        self.admin(server, "Save", To=f"{self.user}@test", Subject=self.mark, SMTPServer=self.row["SMTP Server"],
                   From="bob@test.org", ReplyTo="", CC="", BCC="")
        file = next((server.folder / "state" / "regions").glob("*/*/FM/msg*"))
        file.write_text(file.read_text().replace("prepared-message", self.mark))

    def admin(self, server, action, **more):
        return server.ask("/admin.html", {"plxSendMail" + name: value for name, value in {
            "Action": action, "RecordID": self.row["PLXIDFIELD"], "MessageID": self.row["Message ID"], "Page": "1", **more}.items()})

    def act(self, server):
        self.admin(server, "Send")
        server.acked["sent"] = True  # it was in the list

    def finish(self, server):
        if self.listed(server):
            self.before = self.delivered()
            super().finish(server)

    def delivered(self):
        """A stored message that cannot be read is sent without its text, and stays where it is."""
        found = [one for one in self.mailbox_holds() if self.mark.encode() in one]
        empty = [one for one in found if not one.replace(b"\r", b"").partition(b"\n\n")[2].strip()]
        self.unread = len(empty)
        return len(empty) + (super().delivered() if len(empty) < len(found) else 0)

    def check(self, server, killed):
        delivered = self.delivered()
        if not self.unread:
            super().check(server, killed)
            assert delivered or self.listed(server), "in the folder and not in the list"

    def check_end(self, server):
        delivered = self.delivered()
        equal((len(self.listed(server)), len(self.stored(server))), (0, self.unread), "what is left in the list and the folder")
        assert 1 <= delivered <= 2, f"delivered {delivered} times"


class Collecting(Scenario):
    """A POP3 mailbox into a database and a folder, with deletion at the mail server."""
    FILES = {name: hashlib.shake_256(name.encode()).digest(size) for name, size in (("a.txt", 30), ("a1.txt", 40), ("b.bin", 20000))}
    CONTENTS = ({"a.txt": "a.txt", "b.bin": "b.bin"}, {}, {"a.txt": "a1.txt"})

    def prepare(self, server):
        self.PAGES = {"collect.html": f'<plxPOP username="&plxPath.u;" password="secret" databaseName="Mail" mailServer="127.0.0.1:'
                      f'{self.mail.pop3_port}" deleteMessagesOnServer="yes">[&plxVariable.plxPOP_ResultCount;]'}
        super().prepare(server)
        self.empty_mailbox()
        equal(self.collect(server), "[0]", "collecting nothing")

    def collect(self, server):
        answer = server.ask(f"/collect.html?u={self.user}")
        return answer.text if answer is not None else None

    def begin(self, server):
        messages = []
        for number, files in enumerate(self.CONTENTS):
            lines = [f"Subject: number {number}", "From: Bob <bob@test.org>", "MIME-Version: 1.0",
                     'Content-Type: multipart/mixed; boundary="=-cut"', "", "--=-cut", "", f"body {number}"]
            for name, content in files.items():
                lines += ["--=-cut", "Content-Transfer-Encoding: base64", f'Content-Disposition: attachment; filename="{name}"', "",
                          base64.encodebytes(self.FILES[content]).decode().replace("\n", "\r\n").rstrip()]
            messages.append("\r\n".join(lines + ["--=-cut--", ""]).encode())
        self.empty_mailbox(*messages)
        server.ask("/alive.html")

    def act(self, server):
        server.acked["count"] = self.collect(server)

    def check(self, server, killed):
        rows = server.records("Mail")
        equal(len({row["Unique ID"] for row in rows}), len(rows), "records for one message")
        whole = [row for row in rows if row["Header"]]
        there = {one.partition(b"number ")[2][:1].decode() for one in self.mailbox_holds()}
        for number in range(3):
            found = [row for row in whole if row["Subject"] == f"number {number}"]
            assert len(found) <= 1, f"message {number} is there twice"
            assert found or str(number) in there, f"message {number} is lost"
            for row in found:
                equal((row["Message"], row["From Email"], row["Size"]), (f"body {number}", "bob@test.org", "6"), f"record {number}")
                for content in self.CONTENTS[number].values():
                    assert self.FILES[content] in self.files(server).values(), f"the file {content} is lost"
        for name, content in self.files(server).items():
            assert content in self.FILES.values(), f"{name} is half a file"
        equal(len(set(self.files(server).values())), len(self.files(server)), "files that are there twice")
        told = re.search(r"\[(\d+)\]$", server.acked.get("count") or "[0]")
        assert told is None or int(told.group(1)) <= len(whole), "counted and not stored"

    def files(self, server):
        folder = server.root / "Attachments"
        return {file.name: file.read_bytes() for file in folder.iterdir() if not file.name.startswith(".")} if folder.exists() else {}

    def finish(self, server):
        for file in (server.root / "Attachments").glob(".plx-*"):
            os.utime(file, (time.time() - 90000,) * 2)
        server.acked["count"] = None
        self.again = self.collect(server)

    def check_end(self, server):
        assert re.fullmatch(r"\[\d+\]", self.again or ""), f"the next run said {self.again}"
        self.check(server, False)
        equal(sorted(row["Subject"] for row in server.records("Mail") if row["Header"]), ["number 0", "number 1", "number 2"], "records")
        found = self.files(server)
        equal(sorted(hashlib.sha256(one).hexdigest() for one in found.values()),
              sorted(hashlib.sha256(one).hexdigest() for one in self.FILES.values()), f"files {sorted(found)}")
        equal(sorted(file.name for file in (server.root / "Attachments").glob(".*")), [], "left-over files")


class WebMail(Scenario):
    """Mail from a POP3 server into a web mail user's mailbox, where one message is already."""
    PAGES = {"mail.html": "<plxEmailClient>", "add.html": '<plxEmailClient mode="addUser" username="ada" password="pw">'}
    USER = ("ada", "pw")

    def texts(self):
        return [f"From: bob@test.org\r\nSubject: number {number}\r\nDate: Mon, 23 Nov 2026 10:00:0{number} +0000\r\n\r\n"
                f"{'x' * (3000 * number + 5)}\r\n".encode() for number in (3, 1, 0, 2, 4)]

    def prepare(self, server):
        super().prepare(server)
        server.ask("/add.html")
        self.empty_mailbox(self.texts()[0])
        self.options(server)

    def options(self, server):
        return server.ask("/mail.html", {"1plxEmailClientAction=ip1lcx": "Save", "Name_plxEmailClient": "Ada", "POPUsername_plxEmailClient":
                          self.user, "POPPassword_plxEmailClient": "secret", "POPServer_plxEmailClient": f"127.0.0.1:{self.mail.pop3_port}"},
                          self.USER)

    def begin(self, server):
        self.empty_mailbox(self.texts()[0])
        self.options(server)
        server.ask("/mail.html", user=self.USER)
        self.empty_mailbox(*self.texts())

    def act(self, server):
        answer = server.ask("/mail.html", user=self.USER)
        server.acked["ok"] = answer is not None and answer.status == 200 and "cannot be shown" not in answer.text

    def messages(self, server):
        folder = server.root / "plxEmailClient Data" / "ada" / "Mailboxes"
        index, texts = (folder / "Inbox.idx").read_bytes(), (folder / "Inbox.mbx").read_bytes()
        found = []
        for at in range(0, len(index) // 256 * 256, 256):
            offset, length = struct.unpack_from("=II", index, at + 12)
            if offset + length <= len(texts) and length:
                found.append(texts[offset:offset + length])
        return found, index, len(texts)

    def check(self, server, killed):
        found, _, _ = self.messages(server)
        wanted = [text + b".\r\n" for text in self.texts()]
        for text in found:
            assert text in wanted, f"half a message: {text[:60]!r}"
        equal(len(set(found)), len(found), "messages")
        assert wanted[0] in found, "the message that was there is lost"
        equal(len(self.mailbox_holds()), 5, "messages left on the mail server")

    def finish(self, server):
        self.act(server)

    def check_end(self, server):
        assert server.acked["ok"], "the next check of mail failed"
        self.check(server, False)
        found, index, _ = self.messages(server)
        equal(len(found), 5, "messages")
        reached, todo = set(), [0]
        while todo:
            at = todo.pop()
            assert at not in reached and at % 256 == 0 and at < len(index), f"a link leads to {at}"
            reached.add(at)
            todo += [child for child in struct.unpack_from("=II", index, at + 4) if child]
        equal(len(reached), len(index) // 256, "records that links lead to")


class Building(Scenario):
    """The first pages that need the modules' databases, which make them."""
    PAGES = {"add.html": '<plxEmailClient mode="addUser" username="ada" password="pw">', "list.html": '<plxSendMail mode="admin"></plxSendMail>'}
    FIELDS = {"__PLXDB__Email_Client__": 15, "__PLXDB__SendMail_Log__": 12, "Mail": 20}

    def prepare(self, server):
        self.PAGES = self.PAGES | {"collect.html": f'<plxPOP username="&plxPath.u;" password="secret" databaseName="Mail" '
                                   f'mailServer="127.0.0.1:{self.mail.pop3_port}">[&plxVariable.plxPOP_ResultCount;]'}
        super().prepare(server)
        self.empty_mailbox()

    def begin(self, server):
        self.empty_mailbox()

    def act(self, server):
        for path in ("/add.html", "/list.html", "/collect.html?u=" + self.user):
            answer = server.ask(path)
            server.acked[path[:5]] = answer is not None and "cannot be shown" not in answer.text

    def finish(self, server):
        self.act(server)

    def check_end(self, server):
        for name, fields in self.FIELDS.items():
            server.records(name)
            equal(len((server.folder / "export.csv").read_text("latin-1").partition("\n")[0].split(",")), fields, "fields of " + name)
        equal([row["Username"] for row in server.records("__PLXDB__Email_Client__")], ["ada"], "users")


class Accounts(Scenario):
    """Records added, changed and deleted by pages: the users of the web mail."""
    PAGES = {"add.html": '<plxEmailClient mode="addUser" username="&plxPath.u;" password="one">', "delete.html":
             '<plxEmailClient mode="deleteUser" username="&plxPath.u;">', "change.html":
             '<plxEmailClient mode="changePassword" username="&plxPath.u;" password="one" newPassword="two">'}

    def prepare(self, server):
        super().prepare(server)
        for user in ("ada", "eve"):
            server.ask("/add.html?u=" + user)

    def begin(self, server):
        self.passwords = {row["Username"]: row["Password"] for row in server.records("__PLXDB__Email_Client__")}
        equal(sorted(self.passwords), ["ada", "eve"], "users")

    def act(self, server):
        for step, path in (("add", "/add.html?u=bob"), ("change", "/change.html?u=ada"), ("delete", "/delete.html?u=eve")):
            # A tag whose database refuses shows nothing in the page; the log tells.
            before, answer = server.complaints(), server.ask(path)
            server.acked[step] = answer is not None and answer.status == 200 and answer.text == "" and server.complaints() == before

    def check(self, server, killed):
        rows = server.records("__PLXDB__Email_Client__")
        users = {row["Username"]: row["Password"] for row in rows}
        equal(len(users), len(rows), "records of one user")
        assert users.get("ada") and all(users.values()) and set(users) <= {"ada", "bob", "eve"}, f"users {sorted(users)}"
        if server.acked.get("add"):
            assert "bob" in users, "a user that was added is lost"
        if server.acked.get("change"):
            assert users["ada"] != self.passwords["ada"], "a change is lost"
        if server.acked.get("delete"):
            assert "eve" not in users, "a user that was deleted is there"
        elif not server.acked.get("delete") and "eve" in users:
            equal(users["eve"], self.passwords["eve"], "eve's password")

    def finish(self, server):
        self.act(server)

    def check_end(self, server):
        self.check(server, False)
        users = {row["Username"]: row["Password"] for row in server.records("__PLXDB__Email_Client__")}
        assert sorted(users) == ["ada", "bob"] and users["ada"] != self.passwords["ada"], f"users {sorted(users)}"


class Preferences(Scenario):
    """A module's preferences, set and read through the administration."""
    ADMIN, ADDRESS = ("admin", "geheim"), "/plx-admin/preferences?region=test%2Fmain&module=Network+Module"

    def prepare(self, server):
        super().prepare(server)
        server.command("user", "set", "admin", input="geheim\n")
        self.save(server, "old.test")

    def save(self, server, name):
        answer = server.ask(self.ADDRESS, {"plxSendMailPreference_UseMailServerName": "always", "plxSendMailPreference_mailServerName": name,
                                           "plxSendMailPreference_GMTOffset": "3"}, self.ADMIN)
        return answer is not None and answer.status == 303

    def names(self, server):
        answer = server.ask(self.ADDRESS, user=self.ADMIN)
        return re.findall(r'name="plxSendMailPreference_mailServerName"[^>]*value="([^"]*)"', answer.text) if answer else None

    def begin(self, server):
        equal(self.names(server), ["old.test"], "the preference")

    def act(self, server):
        server.acked["saved"] = self.save(server, "new.test")

    def check(self, server, killed):
        names = self.names(server)
        assert names == ["new.test"] or (names == ["old.test"] and not server.acked.get("saved")), f"the preference is {names}"

    def finish(self, server):
        assert self.save(server, "last.test"), "the preference cannot be set any more"

    def check_end(self, server):
        equal(self.names(server), ["last.test"], "the preference")


class Command(Scenario):
    """A command of its own process, all or nothing."""
    INPUT = ""

    def words(self, server):
        raise NotImplementedError

    def act(self, server):
        """Without strace: under the environment that the server has."""
        done = subprocess.run([SERVER, *self.words(server), "--config", str(server.config)], input=self.INPUT.encode(),
                              capture_output=True, env={**os.environ, **(server.environment or {})})
        server.acked["done"] = done.returncode == 0


class Logins(Command):
    """A password set from the command line while the server runs."""
    INPUT = "neu\n"

    def words(self, server):
        return "user", "set", "admin"

    def prepare(self, server):
        super().prepare(server)
        server.command("user", "set", "admin", input="alt\n")
        server.command("user", "set", "other", input="x\n")

    def works(self, server, *login):
        answer = server.ask("/plx-admin/", user=login)
        return answer is not None and answer.status == 200

    def check(self, server, killed):
        assert self.works(server, "other", "x"), "another user's login is lost"
        new = self.works(server, "admin", "neu")
        assert new or (self.works(server, "admin", "alt") and not server.acked["done"]), "the login is lost"

    def finish(self, server):
        server.command(*self.words(server), input=self.INPUT)

    def check_end(self, server):
        server.acked["done"] = True
        self.check(server, False)


class Import(Command):
    """Records imported from a file while the server runs."""
    ROWS = 500

    def words(self, server):
        return "records", "import", "Planets", str(server.folder / "planets.csv")

    def prepare(self, server):
        super().prepare(server)
        (server.folder / "planets.csv").write_bytes(b"Name,Note\r\n" + b"".join(
            b"planet %d,%s\r\n" % (number, b"n" * 50) for number in range(self.ROWS)))
        self.count = 0

    def check(self, server, killed):
        rows = len(server.records("Planets"))
        assert rows == self.ROWS or (rows == 0 and not server.acked["done"]), f"{rows} records of {self.ROWS}"
        self.count = rows

    def finish(self, server):
        server.command(*self.words(server))

    def check_end(self, server):
        equal(len(server.records("Planets")), self.count + self.ROWS, "records")


SCENARIOS = {one.__name__.lower(): one for one in (Pages, Sending, Refused, Resending, Collecting, WebMail, Building, Accounts, Preferences, Logins,
                                                   Import)}
