"""The command line: good and bad configurations, rendering, logins, starting and stopping."""
import signal
import socket
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

from harness import MODULE, SERVER, Server


class Commands(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory(prefix="plx-commands.")
        self.addCleanup(self.temporary.cleanup)
        self.folder = Path(self.temporary.name)
        (self.folder / "site").mkdir()
        (self.folder / "site" / "page.html").write_text('[&plxPath.name;]<plxIncludeHTTP>')
        self.good = f'state = "state"\nlisten = "127.0.0.1:0"\nmodules = ["{MODULE}"]\n[site.one]\nhosts = ["localhost"]\nroot = "site"\n'

    def run_server(self, config, *arguments, input=None):
        file = self.folder / "plxserver.conf"
        file.write_text(config)
        return subprocess.run([SERVER, *arguments, "--config", str(file)], input=input, capture_output=True, text=True, timeout=60)

    def test_bad_configurations_are_told_with_file_line_and_remedy(self):
        rows = (
            ("unknown key", "page-treads = 5\n" + self.good, ["plxserver.conf:1", "page-treads", "page-threads"]),
            ("no module", self.good.replace(MODULE, "missing.so"), ["missing.so"]),
        )
        for why, config, words in rows:
            for command in ("check", "serve"):
                with self.subTest(why, command=command):
                    done = self.run_server(config, command)
                    self.assertEqual(done.returncode, 78, done.stderr)
                    for word in words:
                        self.assertIn(word, done.stderr + done.stdout)

    def test_a_port_in_use_is_told(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            done = self.run_server(self.good.replace(":0", f":{port}"), "serve")
            self.assertEqual(done.returncode, 69)
            self.assertIn(f"127.0.0.1 port {port}", done.stderr)

    def test_check_render_and_user(self):
        self.assertEqual(self.run_server(self.good, "check").returncode, 0)
        done = self.run_server(self.good.replace("localhost", "no.such.host.invalid"), "check")
        self.assertEqual(done.returncode, 0)
        self.assertIn("Put this line into /etc/hosts: 127.0.0.1 no.such.host.invalid", done.stderr)
        done = self.run_server(self.good, "render", "/page.html", "name=A<da")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertTrue(done.stdout.startswith("[A&lt;da]"), done.stdout)
        self.assertIn("missing its", done.stdout)
        self.assertNotEqual(self.run_server(self.good, "render", "/nothing.html").returncode, 0)
        self.assertEqual(self.run_server(self.good, "user", "set", "ada", input="secret\n").returncode, 0)
        self.assertIn("ada", self.run_server(self.good, "user", "list").stdout)
        logins = (self.folder / "state" / "logins" / "server.logins")
        self.assertNotIn("secret", logins.read_text())
        self.assertEqual(logins.stat().st_mode & 0o777, 0o600)
        self.assertEqual(self.run_server(self.good, "user", "remove", "ada").returncode, 0)
        self.assertNotEqual(self.run_server(self.good, "user", "remove", "ada").returncode, 0)

    def test_wrong_words_are_usage_errors(self):
        for words in ([], ["brew"], ["serve", "--nothing"], ["render"]):
            with self.subTest(words):
                done = subprocess.run([SERVER, *words], capture_output=True, text=True, timeout=60)
                self.assertEqual(done.returncode, 64, done.stderr)
        done = subprocess.run([SERVER, "--help"], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, 0)
        for word in ("serve", "render", "check", "user"):
            self.assertIn(word, done.stdout)


class Life(unittest.TestCase):

    def test_a_reload_takes_a_new_site_and_keeps_the_old_one_on_a_mistake(self):
        server = Server({"page.html": "old"})
        self.addCleanup(server.stop)
        other = server.folder / "other"
        other.mkdir()
        (other / "page.html").write_text("new")
        good = server.config.read_text()

        for line, shown in (('rooot = "other"', lambda: "rooot" in server.log()),
                            ('root = "other"', lambda: server.get("/page.html").text == "new")):
            self.assertEqual(server.get("/page.html").text, "old")
            server.config.write_text(good.replace('root = "site"', line))
            server.process.send_signal(signal.SIGHUP)
            end = time.monotonic() + 20
            while not shown() and time.monotonic() < end:
                time.sleep(0.02)
            self.assertTrue(shown(), line)


if __name__ == "__main__":
    unittest.main()
