"""The command line: good and bad configurations, rendering, logins, starting and stopping."""
import os
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path

from harness import MODULE, SERVER, Listener, Server


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
            ("unreadable site", self.good.replace('"site"', '"nowhere"'), ["plxserver.conf:6", "nowhere"]),
            ("no number", "page-threads = many\n" + self.good, ["plxserver.conf:1", "page-threads"]),
            ("two sites of one host", self.good + '[site.two]\nhosts = ["localhost"]\nroot = "site"\n', ["localhost"]),
            ("no site", 'state = "state"\n', ["site"]),
        )
        for why, config, words in rows:
            for command in ("check", "serve"):
                with self.subTest(why, command=command):
                    done = self.run_server(config, command)
                    self.assertEqual(done.returncode, 78, done.stderr)
                    for word in words:
                        self.assertIn(word, done.stderr + done.stdout)

    def test_bad_modules_are_told(self):
        (self.folder / "text.so").write_text("no library")
        empty = self.folder / "empty.so"
        subprocess.run(["g++", "-shared", "-o", str(empty), "-x", "c++", "/dev/null"], check=True)
        for name in ("missing.so", "text.so", "empty.so"):
            with self.subTest(name):
                done = self.run_server(self.good.replace(MODULE, name), "check")
                self.assertNotEqual(done.returncode, 0)
                self.assertIn(name, done.stderr + done.stdout)

    def test_a_port_in_use_is_told(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            done = self.run_server(self.good.replace(":0", f":{port}"), "serve")
            self.assertEqual(done.returncode, 69)
            self.assertIn(f"127.0.0.1 port {port}", done.stderr)

    def test_check_render_and_user(self):
        self.assertEqual(self.run_server(self.good, "check").returncode, 0)
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
    def test_a_second_server_on_one_state_folder_is_refused(self):
        server = Server()
        self.addCleanup(server.stop)
        done = server.command("serve", check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("state", done.stderr)

    def test_a_stop_lets_pages_finish(self):
        def slow(connection):
            connection.recv(65536)
            entered.set()
            time.sleep(1.5)
            connection.sendall(b"HTTP/1.0 200 OK\r\n\r\nslow but whole")

        entered = threading.Event()
        peer = Listener(slow)
        self.addCleanup(peer.close)
        server = Server({"page.html": f'<plxIncludeHTTP url="{peer.url}/">'})
        texts = []
        visitor = threading.Thread(target=lambda: texts.append(server.get("/page.html").text))
        visitor.start()
        self.assertTrue(entered.wait(20))
        server.begin_stop()
        visitor.join(30)
        self.assertEqual(texts, ["slow but whole"])
        self.assertEqual(server.stop(), 0)

    def test_a_reload_takes_a_new_site_and_keeps_the_old_one_on_a_mistake(self):
        server = Server({"page.html": "old"})
        self.addCleanup(server.stop)
        other = server.folder / "other"
        other.mkdir()
        (other / "page.html").write_text("new")
        good = server.config.read_text()

        def reload(text, words):
            server.config.write_text(text)
            server.process.send_signal(signal.SIGHUP)
            end = time.monotonic() + 20
            while words not in server.log() + server.said() and time.monotonic() < end:
                time.sleep(0.02)

        reload(good.replace('root = "site"', 'rooot = "other"'), "rooot")
        self.assertEqual(server.get("/page.html").text, "old")
        server.config.write_text(good.replace('root = "site"', 'root = "other"'))
        server.process.send_signal(signal.SIGHUP)
        end = time.monotonic() + 20
        while server.get("/page.html").text != "new" and time.monotonic() < end:
            time.sleep(0.02)
        self.assertEqual(server.get("/page.html").text, "new")

    def test_tracing_shows_events_and_calls_without_passwords(self):
        server = Server({"page.html": '<plxIncludeHTTP url="http://127.0.0.1:9/" username="u" password="hush-hush">'},
                        settings="trace = true")
        self.addCleanup(server.stop)
        server.request("GET", "/page.html", user=("ada", "tell-nobody"))
        end = time.monotonic() + 20
        while "'MTPm'" not in server.log("trace.log") and time.monotonic() < end:
            time.sleep(0.02)
        trace = server.log("trace.log")
        self.assertIn("MTag", trace)
        self.assertIn("MTPm", trace)
        self.assertNotIn("tell-nobody", trace)
        self.assertNotIn("hush-hush", trace)


if __name__ == "__main__":
    unittest.main()
