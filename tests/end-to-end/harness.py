"""What the end-to-end tests stand on: the real server as a process, raw connections to it, origins beside it, a browser.

Run by ctest, which names the built programs in PLX_SERVER and PLX_MODULE."""
import base64
import contextlib
import csv
import http.client
import json
import os
import poplib
import random
import re
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest
import urllib.parse
from pathlib import Path

SERVER = os.environ["PLX_SERVER"]
MODULE = os.environ["PLX_MODULE"]
SOURCE = Path(__file__).resolve().parents[2]
SUPPORT = SOURCE / "tests" / "support"
SANITIZED = bool(os.environ.get("PLX_SANITIZED"))
# For what is about screens: the same under the sanitizers, and slow.
in_release = unittest.skipIf(SANITIZED, "tried without sanitizers")


def free_port():
    """Below those that connections get by themselves, so that none of them takes it before its server does."""
    while True:
        with socket.socket() as probe, contextlib.suppress(OSError):
            probe.bind(("127.0.0.1", random.SystemRandom().randrange(12000, 32000)))
            return probe.getsockname()[1]


class Server:
    """One plxserver on a free port, with a site of its own in a temporary folder, of the user with the number `user`."""

    def __init__(self, pages=None, settings="", sections="", login=None, user=None):
        self.folder = Path(tempfile.mkdtemp(prefix="plx-e2e."))
        self.folder.chmod(0o755)
        self.root = self.folder / "site"
        self.root.mkdir()
        for name, text in (pages or {}).items():
            self.write(name, text)
        self.config = self.folder / "plxserver.conf"
        self.settings, self.sections, self.stopping = settings, sections, False
        self.configure()
        if login:
            self.command("user", "set", login[0], input=login[1] + "\n")
        self.output = open(self.folder / "output", "wb")
        if user is not None:
            for file in [self.folder, *self.folder.rglob("*")]:
                os.chown(file, user, user)
        self.process = subprocess.Popen([SERVER, "serve", "--config", str(self.config)], stdout=self.output, cwd=self.folder,
                                        stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, user=user, group=user)
        self.port = self.wait_for_port()
        self.host = f"127.0.0.1:{self.port}"
        self.url = f"http://{self.host}"

    def configure(self):
        self.config.write_text(
            f'listen = "127.0.0.1:0"\nstate = "state"\nmodules = ["{MODULE}"]\n{self.settings}\n'
            f'[site.test]\nhosts = ["127.0.0.1", "localhost"]\nroot = "site"\n{self.sections}\n')

    def write(self, name, text):
        file = self.root / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(text if isinstance(text, bytes) else text.encode())

    def said(self):
        return (self.folder / "output").read_text(errors="replace")

    def log(self, name="server.log"):
        file = self.folder / "state" / "logs" / name
        return file.read_text(errors="replace") if file.exists() else ""

    def wait_for_port(self):
        until = time.monotonic() + 30
        while time.monotonic() < until:
            found = re.search(r"http://127\.0\.0\.1:(\d+)/", self.said())
            if found:
                return int(found.group(1))
            if self.process.poll() is not None:
                break
            time.sleep(0.02)
        raise AssertionError("the server did not start: " + self.said())

    def command(self, *arguments, input=None, check=True):
        done = subprocess.run([SERVER, *arguments, "--config", str(self.config)], input=input, text=True,
                              capture_output=True, timeout=60)
        if check and done.returncode != 0:
            raise AssertionError(f"{arguments}: exit {done.returncode}: {done.stdout}{done.stderr}")
        return done

    def get(self, path, **headers):
        return self.request("GET", path, headers=headers)

    def request(self, method, path, body=None, headers=None, user=None, source="127.0.0.1"):
        """`source` is the address that the request comes from, any of 127.0.0.0/8."""
        headers = {name.replace("_", "-"): value for name, value in (headers or {}).items()}
        if user:
            headers["Authorization"] = "Basic " + base64.b64encode(":".join(user).encode()).decode()
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60, source_address=(source, 0))
        with contextlib.closing(connection):
            connection.request(method, path, body=body, headers=headers)
            answer = connection.getresponse()
            answer.text = answer.read().decode("latin-1")
            return answer

    def switch_tags_off(self, user):
        """Disables the module's tags, each of which is then the way to the module and back and nothing else."""
        address = "/plx-admin/preferences?region=test%2Fmain&module=Network+Module"
        answer = self.request("POST", address, "none=yes", {"Origin": self.url,
                                                            "Content-Type": "application/x-www-form-urlencoded"}, user)
        assert answer.status == 303, answer.text

    def raw(self, data, seconds=20):
        """Sends bytes as they are and returns all that comes back until the server closes or is silent for `seconds`."""
        with socket.create_connection(("127.0.0.1", self.port), 10) as connection:
            with contextlib.suppress(OSError):
                connection.sendall(data)
            return receive(connection, seconds)

    def begin_stop(self):
        self.stopping = True
        self.process.send_signal(signal.SIGTERM)

    def alive(self):
        return self.process.poll() is None

    def stop(self):
        if self.alive():
            if not self.stopping:
                self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(40)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
                raise AssertionError("the server did not stop")
        self.output.close()
        shutil.rmtree(self.folder, ignore_errors=True)
        return self.process.returncode


def receive(connection, seconds=20):
    connection.settimeout(seconds)
    parts = []
    with contextlib.suppress(OSError):
        while part := connection.recv(65536):
            parts.append(part)
    return b"".join(parts)


class ServerCase(unittest.TestCase):
    """Tests over one server, which must be alive and stop in order afterwards."""
    PAGES, SETTINGS, SECTIONS, LOGIN = {}, "", "", None

    @classmethod
    def setUpClass(cls):
        cls.server = Server(cls.PAGES, cls.SETTINGS, cls.SECTIONS, cls.LOGIN)

    @classmethod
    def tearDownClass(cls):
        alive, said = cls.server.alive(), cls.server.said()
        code = cls.server.stop()
        assert alive and code == 0, f"the server ended with {code}: {said[-3000:]}"

    def until(self, condition, seconds=20):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            if condition():
                return
            time.sleep(0.02)
        self.fail("what was waited for did not happen")


class Origin:
    """A real HTTP server (nginx or apache) that pages include from; its script serves as long as its input is open."""

    def __init__(self, kind):
        self.folder = Path(tempfile.mkdtemp(prefix=f"plx-{kind}."))
        self.folder.chmod(0o755)
        self.port = free_port()
        self.process = subprocess.Popen([SUPPORT / f"{kind}.sh", self.folder, str(self.port)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)
        assert self.process.stdout.readline() == b"ready\n", f"{kind} did not start"
        self.url = f"http://127.0.0.1:{self.port}"

    def stop(self):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait(30)


class MailServer:
    """A real SMTP and POP3 server. Mailboxes are NAME@test; `faults` are those of script/mail-server. With `certificates`,
    {address: file}, it speaks TLS on these addresses, too."""

    def __init__(self, certificates=None):
        self.folder = Path(tempfile.mkdtemp(prefix="plx-mail."))
        self.folder.chmod(0o755)
        self.smtp_port, self.pop3_port = free_port(), free_port()
        self.tls_ports = []
        if certificates:
            self.tls_ports = [self.smtps_port, self.pop3s_port] = free_port(), free_port()
            (self.folder / "tls").mkdir()
            for address, file in certificates.items():
                shutil.copy(file, self.folder / "tls" / f"{address}.pem")
        self.address = f"127.0.0.1:{self.smtp_port}"
        self.process = None
        self.count = 0
        self.start()

    def put(self, name, *messages):
        """Puts messages into a mailbox as they are, behind those that are there."""
        home = self.folder / "mail" / name
        owner = home.parent.stat()
        for folder in (home, home / "Maildir", *(home / "Maildir" / part for part in ("cur", "new", "tmp"))):
            folder.mkdir(exist_ok=True)
            os.chown(folder, owner.st_uid, owner.st_gid)
        for message in messages:
            self.count += 1
            file = home / "Maildir" / "tmp" / f"{1700000000 + self.count}.M{self.count}.test"
            file.write_bytes(message)
            os.chown(file, owner.st_uid, owner.st_gid)
            file.rename(home / "Maildir" / "new" / file.name)

    def start(self):
        self.process = subprocess.Popen([SOURCE / "script" / "mail-server", self.folder, str(self.smtp_port),
                                         str(self.pop3_port), *map(str, self.tls_ports)], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        assert self.process.stdout.readline() == b"ready\n", "the mail server did not start"

    def halt(self):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait(30)

    def fault(self, name, text):
        file = self.folder / "ctl" / name
        if text is None:
            file.unlink(missing_ok=True)
        else:
            file.write_text(text + "\n")

    def mailbox(self, name, password):
        box = poplib.POP3("127.0.0.1", self.pop3_port, timeout=60)
        box.user(name)
        box.pass_(password)
        return box

    def messages(self, name="alice", password="secret"):
        """All messages of a mailbox as they were sent, line ends CR LF; they are deleted."""
        with contextlib.closing(self.mailbox(name, password)) as box:
            found = [b"".join(line + b"\r\n" for line in box.retr(number + 1)[1]) for number in range(box.stat()[0])]
            for number in range(len(found)):
                box.dele(number + 1)
            box.quit()
        return found

    def wait_for(self, count, name="alice", password="secret", seconds=60):
        """The next `count` messages of a mailbox, each once."""
        until, found = time.monotonic() + seconds, []
        while len(found) < count:
            assert time.monotonic() < until, f"{len(found)} of {count} messages came"
            found += self.messages(name, password)
            time.sleep(0.05)
        return found

    def stop(self):
        self.halt()
        shutil.rmtree(self.folder, ignore_errors=True)


class Browser:
    """Headless Chromium over its debugging pipe. `login` answers the login box; a refused login shows the 401 page."""
    FLAGS = ("--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
             "--disable-component-update --disable-sync --disable-dev-shm-usage").split()

    def __init__(self, login=None, size=(1200, 900)):
        self.login, self.asked = login, set()
        self.number, self.session, self.events, self.bytes = 0, None, [], b""
        self.profile = tempfile.mkdtemp(prefix="plx-browser.")
        to_browser, self.write_end = os.pipe()
        self.read_end, from_browser = os.pipe()

        def hand_over():  # the browser reads descriptor 3 and writes 4
            copies = os.dup(to_browser), os.dup(from_browser)
            for target, copy in zip((3, 4), copies):
                os.dup2(copy, target)
                os.set_inheritable(target, True)

        self.process = subprocess.Popen(
            ["/usr/bin/chromium", *self.FLAGS, f"--window-size={size[0]},{size[1]}", f"--user-data-dir={self.profile}",
             "--remote-debugging-pipe", "about:blank"], preexec_fn=hand_over, close_fds=False, start_new_session=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env={**os.environ, "HOME": self.profile})
        os.close(to_browser)
        os.close(from_browser)
        page = [one for one in self.call("Target.getTargets")["targetInfos"] if one["type"] == "page"][0]
        self.session = self.call("Target.attachToTarget", targetId=page["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network"):
            self.call(domain + ".enable")
        if login:
            self.call("Fetch.enable", handleAuthRequests=True)
        self.call("Emulation.setDeviceMetricsOverride", width=size[0], height=size[1], deviceScaleFactor=1, mobile=False)

    def send(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.write_end, json.dumps(message).encode() + b"\0")
        return self.number

    def next_message(self, seconds=60):
        while b"\0" not in self.bytes:
            if not select.select([self.read_end], [], [], seconds)[0]:
                raise AssertionError("the browser is silent")
            part = os.read(self.read_end, 1 << 20)
            if not part:
                raise AssertionError("the browser has ended")
            self.bytes += part
        text, _, self.bytes = self.bytes.partition(b"\0")
        message = json.loads(text)
        if message.get("method") == "Fetch.requestPaused":
            self.send("Fetch.continueRequest", requestId=message["params"]["requestId"])
        elif message.get("method") == "Fetch.authRequired":
            request = message["params"]["requestId"]
            answer = {"response": "CancelAuth"}
            if request not in self.asked:
                answer = {"response": "ProvideCredentials", "username": self.login[0], "password": self.login[1]}
            self.asked.add(request)
            self.send("Fetch.continueWithAuth", requestId=request, authChallengeResponse=answer)
        elif "method" in message:
            self.events.append(message)
        return message

    def call(self, method, **parameters):
        number = self.send(method, **parameters)
        while True:
            message = self.next_message()
            if message.get("id") == number:
                if "error" in message:
                    raise AssertionError(f"{method}: {message['error']}")
                return message["result"]

    def wait_for(self, event):
        while True:
            for index, message in enumerate(self.events):
                if message["method"] == event:
                    del self.events[:index + 1]
                    return message["params"]
            self.next_message()

    def open(self, url):
        self.events.clear()
        result = self.call("Page.navigate", url=url)
        assert not result.get("errorText"), result
        self.wait_for("Page.loadEventFired")

    def js(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def text(self):
        return self.js("document.body.innerText")

    def click(self, selector, loads=True):
        point = self.js("(()=>{const e=document.querySelector(%s);e.scrollIntoView({block:'center'});"
                        "const b=e.getBoundingClientRect();return [b.x+b.width/2,b.y+b.height/2]})()" % json.dumps(selector))
        self.events.clear()
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=point[0], y=point[1], button="left", clickCount=1)
        if loads:
            self.wait_for("Page.loadEventFired")

    def type(self, selector, text):
        self.js(f"document.querySelector({json.dumps(selector)}).focus()")
        self.js(f"document.querySelector({json.dumps(selector)}).select()")
        self.call("Input.insertText", text=text)

    def shot(self, name):
        """A picture of the whole page, kept in PLX_SHOTS when that is set."""
        picture = base64.b64decode(self.call("Page.captureScreenshot", format="png", captureBeyondViewport=True)["data"])
        if folder := os.environ.get("PLX_SHOTS"):
            Path(folder).mkdir(parents=True, exist_ok=True)
            (Path(folder) / name).write_bytes(picture)
        return picture

    def close(self):
        with contextlib.suppress(Exception):
            self.session = None
            self.send("Browser.close")
            self.process.wait(5)
        with contextlib.suppress(OSError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        shutil.rmtree(self.profile, ignore_errors=True)


class Listener(threading.Thread):
    """A peer for what no real server does on demand: answers each connection by a function of the socket."""

    def __init__(self, answer):
        super().__init__(daemon=True)
        self.answer = answer
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.url = f"http://127.0.0.1:{self.port}"
        self.start()

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.socket.accept()
                threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    def serve(self, connection):
        with contextlib.suppress(OSError), connection:
            self.answer(connection)

    def close(self):
        self.socket.close()
