"""The state folder: backups of a running server, restoring them, versions, and starts that are refused; and plxserver trace."""
import contextlib
import json
import os
import random
import re
import shutil
import signal
import sqlite3
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path

from harness import MODULE, SERVER, Server, ServerCase

MAIL = '<plxSendMail mailServer="127.0.0.1:1" from="ada@example.org" to="bob@example.org" subject="&plxPath.n;">text &plxPath.n;</plxSendMail>'
COUNTED = '<plxPOP password="hidden secret" mailServer="127.0.0.1:1" username="ada" database="d">[<plxIncludeHTTP url="other.html">]'


def run(*arguments, config, **options):
    return subprocess.run([SERVER, *map(str, arguments), "--config", str(config)], capture_output=True, text=True,
                          timeout=120, **options)


class Place:
    """Another server's configuration: state and site of its own, nothing in them yet."""

    def __init__(self, folder):
        self.folder = Path(folder)
        self.folder.mkdir()
        self.state, self.root = self.folder / "state", self.folder / "site"
        self.root.mkdir()
        self.config = self.folder / "plxserver.conf"
        self.config.write_text(f'listen = "127.0.0.1:0"\nstate = "state"\nmodules = ["{MODULE}"]\n'
                               '[site.test]\nhosts = ["127.0.0.1", "localhost"]\nroot = "site"\n')

    def failed_mail(self):
        """The subjects of the list of failed mail, once whatever was on its way has come into it."""
        done = run("queue", "list", "--json", config=self.config)
        assert done.returncode == 0, done.stderr
        return [mail["subject"] for mail in json.loads(done.stdout)]

    def records(self, database):
        file = self.folder / "out.csv"
        done = run("records", "export", database, file, config=self.config)
        assert done.returncode == 0, done.stderr
        return file.read_text().splitlines()[1:]


class Backups(ServerCase):
    PAGES = {"mail.html": MAIL}

    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="plx-state.")
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)

    def import_numbers(self, first, count):
        file = self.folder / f"{first}.csv"
        file.write_text("Number\r\n" + "".join(f"{number}\r\n" for number in range(first, first + count)))
        self.server.command("records", "import", "Numbers", str(file))

    def mailbox(self, messages):
        """A mailbox as web mail keeps it and adds to it, up to so many messages, each before its record."""
        box = self.server.root / "plxEmailClient Data" / "ada l" / "Mailboxes"
        box.mkdir(parents=True, exist_ok=True)
        for name, unit in (("Inbox.mbx", b"message\r\n.\r\n"), ("Inbox.idx", bytes(256))):
            with open(box / name, "ab") as file:
                file.write(unit * (messages - file.tell() // len(unit)))

    @contextlib.contextmanager
    def load(self):
        """Mail that fails, records and mailboxes that grow, all the time; yields the subjects that were acknowledged."""
        sent, stop, numbers = [], threading.Event(), iter(range(1000, 1 << 30))

        def send():
            while not stop.is_set():
                number = next(numbers)
                answer = self.server.get(f"/mail.html?n={number}")
                assert "alert" not in answer.text, answer.text
                sent.append(str(number))

        def grow():
            for count in range(100, 1 << 30):
                if stop.is_set():
                    return
                self.mailbox(count)
                self.import_numbers(count * 100, 50)

        threads = [threading.Thread(target=work) for work in (send, send, grow)]
        for thread in threads:
            thread.start()
        try:
            yield sent
        finally:
            stop.set()
            for thread in threads:
                thread.join()

    def test_has_all_that_was_there_when_it_began(self):
        self.server.command("user", "set", "admin", input="secret\n")
        self.import_numbers(0, 5000)
        with self.load() as sent:
            self.until(lambda: len(sent) > 20)
            for number in range(3):
                known = set(sent)
                target = self.folder / f"backup-{number}"
                done = run("backup", target, "--json", config=self.server.config)
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertEqual(json.loads(done.stdout)["backup"], str(target))
                place = Place(self.folder / f"new-{number}")
                done = run("restore", target, config=place.config)
                self.assertEqual(done.returncode, 0, done.stderr)
                listed = place.failed_mail()
                self.assertEqual(known - set(listed), set())
                self.assertEqual(len(listed), len(set(listed)), "twice in the list")
                self.assertLessEqual({str(row) for row in range(5000)}, {row.split(",")[-1] for row in place.records("Numbers")})
                self.assertIn("admin", run("user", "list", config=place.config).stdout)
                [box] = place.root.glob("plxEmailClient Data/ada l/Mailboxes")
                self.assertLessEqual((box / "Inbox.idx").stat().st_size // 256, (box / "Inbox.mbx").stat().st_size // 12)
        self.assertEqual([name for name in os.listdir(self.folder) if "unfinished" in name], [])

    def test_a_backup_that_is_killed_disturbs_nobody(self):
        self.import_numbers(0, 2000)
        random.seed(35)
        for number in range(12):
            target = self.folder / f"killed-{number}"
            process = subprocess.Popen([SERVER, "backup", str(target), "--config", str(self.server.config)],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(random.random() * 0.12)
            process.kill()
            process.wait()
            if target.exists():
                place = Place(self.folder / f"from-killed-{number}")
                done = run("restore", target, config=place.config)
                self.assertEqual(done.returncode, 0, "what has its name is whole: " + done.stderr)
        self.import_numbers(100000, 10)
        self.assertTrue(self.server.alive())

    def test_refuses_what_is_not_whole_or_in_use(self):
        self.server.get("/mail.html?n=1")
        target = self.folder / "backup"
        self.assertEqual(run("backup", target, config=self.server.config).returncode, 0)
        done = run("backup", target, config=self.server.config)
        self.assertEqual((done.returncode, "there already" in done.stderr), (73, True), done.stderr)
        done = run("restore", target, config=self.server.config)
        self.assertEqual((done.returncode, "Stop it first" in done.stderr), (69, True), done.stderr)

        def damage(file, change):
            broken = self.folder / "broken"
            shutil.rmtree(broken, ignore_errors=True)
            shutil.copytree(target, broken)
            change(broken / file)
            return broken

        manifest = (target / "manifest").read_text()
        rows = (
            ("a changed byte", "state/preferences.sqlite", lambda file: file.write_bytes(b"x" + file.read_bytes()[1:])),
            ("a missing file", "state/preferences.sqlite", Path.unlink),
            ("a cut manifest", "manifest", lambda file: file.write_text(manifest[:len(manifest) * 2 // 3])),
            ("a way out", "manifest", lambda file: file.write_text(manifest.replace(" state/pref", " state/../../pref"))),
            ("a newer format", "manifest", lambda file: file.write_text(manifest.replace("Backup 1", "Backup 2", 1))),
            ("no manifest", "manifest", Path.unlink),
        )
        place = Place(self.folder / "new")
        for why, file, change in rows:
            with self.subTest(why):
                done = run("restore", damage(file, change), config=place.config)
                self.assertEqual(done.returncode, 74, done.stderr)
                self.assertFalse(place.state.exists(), "touched")
        broken = damage("manifest", lambda file: file.write_text(manifest.replace("state-version 1", "state-version 2")))
        done = run("restore", broken, config=place.config)
        self.assertEqual((done.returncode, "newer" in done.stderr), (78, True), done.stderr)


class Restoring(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="plx-restore.")
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)
        self.old, self.new = self.filled("old"), self.filled("new")
        self.backup = self.folder / "backup"
        done = run("backup", self.backup, config=self.new.config)
        self.assertEqual(done.returncode, 0, done.stderr)

    def filled(self, name):
        place = Place(self.folder / name)
        (place.folder / "n.csv").write_text(f"Name\r\n{name}\r\n")
        assert run("records", "import", "Names", place.folder / "n.csv", config=place.config).returncode == 0
        assert run("user", "set", name, config=place.config, input="secret\n").returncode == 0
        failed = place.state / "regions" / "test" / "main" / "FM"
        failed.mkdir(parents=True)
        (failed / "msg1").write_text(name * 100000)
        box = place.root / "plxEmailClient Data" / name
        box.mkdir(parents=True)
        (box / "Inbox.mbx").write_text(name)
        return place

    def seen(self, place):
        """Which of the two a place is, as each of its parts has it."""
        parts = [place.records("Names"), run("user", "list", config=place.config).stdout.split(),
                 [(place.state / "regions/test/main/FM/msg1").read_text()[:3]],
                 [file.name for file in (place.root / "plxEmailClient Data").iterdir()]]
        return {name.split(",")[-1] for part in parts for name in part}

    def test_what_was_there_is_kept_and_nothing_is_merged(self):
        (self.old.state / "logins" / "test").mkdir()
        (self.old.state / "logins" / "test" / "main").write_text("x:y\n")
        done = run("restore", self.backup, "--json", config=self.old.config)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.seen(self.old), {"new"})
        self.assertFalse((self.old.state / "logins" / "test").exists())
        kept = [Path(path) for path in json.loads(done.stdout)["kept"]]
        [state] = [path for path in kept if path.name.startswith("before-restore-")]
        self.assertEqual((state / "regions/test/main/FM/msg1").read_text()[:3], "old")
        [site] = [path for path in kept if path.parent == self.old.root]
        self.assertTrue(site.name.startswith("."), "would be served")
        self.assertEqual((site / "old" / "Inbox.mbx").read_text(), "old")

    def test_killed_it_has_done_nothing_or_the_next_start_finishes_it(self):
        outcomes = set()
        for call in ("rename", "fsync", "openat", "unlink,unlinkat"):
            for when in (1, 2, 3, 5, 8, 12, 16, 20, 24):
                with self.subTest(call=call, when=when):
                    place = self.filled(f"o{call[0]}{when}")
                    old = place.folder.name
                    (place.state / "regions/test/main/FM/msg1").write_text("old" * 1000)
                    subprocess.run(["strace", "-f", "-o", "/dev/null", "-e", f"inject={call}:signal=KILL:when={when}", SERVER,
                                    "restore", str(self.backup), "--config", str(place.config)], capture_output=True, timeout=120)
                    server = subprocess.Popen([SERVER, "serve", "--config", str(place.config)], stdout=subprocess.PIPE,
                                              stderr=subprocess.STDOUT, text=True)
                    line = server.stdout.readline()
                    while line and not line.startswith("PLX Server: "):
                        line = server.stdout.readline()
                    server.send_signal(signal.SIGTERM)
                    server.communicate(timeout=60)
                    self.assertEqual(server.returncode, 0)
                    seen = {"old" if name == old else name for name in self.seen(place)}
                    self.assertIn(seen, ({"old"}, {"new"}))
                    outcomes |= seen
                    left = [path.name for path in [*place.state.iterdir(), *place.root.iterdir()] if "restoring" in path.name]
                    self.assertEqual(left, [])
        self.assertEqual(outcomes, {"old", "new"})

    @unittest.skipUnless(os.geteuid() == 0, "root alone can work for another user")
    def test_root_restores_for_the_owner_of_the_state(self):
        self.folder.chmod(0o755)
        place = Place(self.folder / "nobody")
        place.state.mkdir(0o700)
        for folder in (place.state, place.root):
            os.chown(folder, 65534, 65534)
        self.assertEqual(run("restore", self.backup, config=place.config).returncode, 0)
        self.assertEqual({path.lstat().st_uid for top in (place.state, place.root) for path in top.rglob("*")}, {65534})
        self.assertEqual(self.seen(place), {"new"})

    def test_a_site_that_is_not_configured_is_told(self):
        config = self.old.config.read_text()
        self.old.config.write_text(config.replace("site.test", "site.other"))
        done = run("restore", self.backup, config=self.old.config)
        self.assertEqual((done.returncode, "test" in done.stderr), (78, True), done.stderr)
        self.assertEqual(run("restore", self.backup, "--state-only", config=self.old.config).returncode, 0)


class Starting(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="plx-start.")
        self.addCleanup(temporary.cleanup)
        self.place = Place(Path(temporary.name) / "place")

    def refused(self, code, *words, user=None):
        done = run("serve", config=self.place.config, user=user, group=user)
        self.assertEqual(done.returncode, code, done.stderr)
        for word in words:
            self.assertIn(word, done.stderr)

    def test_a_newer_state_is_refused_by_every_command(self):
        self.assertEqual(run("records", "list", config=self.place.config).returncode, 0)
        with contextlib.closing(sqlite3.connect(self.place.state / "records.sqlite")) as database:
            database.execute("UPDATE plx_version SET number = 7")
            database.commit()
        before = (self.place.state / "records.sqlite").read_bytes()
        self.refused(78, "newer", "version 7")
        self.assertNotEqual(run("records", "list", config=self.place.config).returncode, 0)
        self.assertEqual((self.place.state / "records.sqlite").read_bytes(), before)
        (self.place.state / "records.sqlite").unlink()
        (self.place.state / "version").write_text("7\n")
        self.refused(78, "newer")
        for command in (["render", "/x.html"], ["backup", self.place.folder / "b"]):
            done = run(*command, config=self.place.config)
            self.assertEqual((done.returncode, "newer" in done.stderr), (78, True), done.stderr)

    def test_a_state_folder_that_is_none_is_told(self):
        self.place.state.write_text("a file")
        self.refused(78, "is no folder")
        self.place.state.unlink()
        self.place.state.mkdir()
        for folder in (self.place.folder.parent, self.place.folder):
            folder.chmod(0o755)
        if os.geteuid() != 0:
            self.place.state.chmod(0o500)
        self.refused(73, '"state"', user=65534 if os.geteuid() == 0 else None)

    def test_a_read_only_file_system_is_told(self):
        script = f'mount -t tmpfs none "$1" && mount -o remount,ro "$1" && exec "$2" serve --config "$3"'
        self.place.state.mkdir()
        done = subprocess.run(["unshare", "-m", "sh", "-c", script, "sh", str(self.place.state), SERVER,
                               str(self.place.config)], capture_output=True, text=True, timeout=60)
        if "unshare" in done.stderr or "mount:" in done.stderr:
            self.skipTest("no file system may be mounted here")
        self.assertEqual(done.returncode, 73, done.stderr)
        self.assertIn("Read-only file system", done.stderr)


class Trace(unittest.TestCase):
    def test_tells_every_call_and_no_password(self):
        server = Server({"page.html": COUNTED, "other.html": "inner"})
        self.addCleanup(server.stop)
        output = server.folder / "page.out"
        done = server.command("trace", "/page.html", "--output", str(output))
        self.assertRegex(output.read_text(), r"\[.*\]")
        self.assertRegex(done.stdout, r"(?m)^<plxPOP> .*/page\.html:1 \(Network Module\)$")
        self.assertRegex(done.stdout, r'(?m)^  GetTagParameter +"mailServer" 0 +-> "127\.0\.0\.1:1" +\d+ us$')
        self.assertRegex(done.stdout, r"(?m)^= .*bytes written.* +\d+ us$")
        done = server.command("trace", "/page.html", "--json")
        lines = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual({line["what"] for line in lines}, {"begins", "call", "ends"})
        self.assertIn(["password", 0], [line.get("arguments") for line in lines])
        self.assertNotIn("hidden secret", done.stdout)
        self.assertNotIn("\x1b", done.stdout)


if __name__ == "__main__":
    unittest.main()
