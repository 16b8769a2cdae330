"""Two servers behind nginx on one PostgreSQL and one shared folder: what was acknowledged is there, whatever ends meanwhile."""
import html
import io

from harness import *

LOGIN = ("admin", "correct horse")
FORM = {"Content-Type": "application/x-www-form-urlencoded"}
LOG = "__PLXDB__SendMail_Log__"
USERS = "__PLXDB__Email_Client__"
DOUBLED = "Interrupted"  # begins the reason of what a server left that was killed


def ask(address, port, method, path, post=None, user=None, headers=None):
    """One request on a connection of its own; None when no answer came."""
    connection = http.client.HTTPConnection(address, port, timeout=60)
    headers = {"Connection": "close", "Host": f"127.0.0.1:{port}", **(headers or {}), **(FORM if post is not None else {})}
    if user:
        headers["Authorization"] = "Basic " + base64.b64encode(":".join(user).encode()).decode()
    with contextlib.closing(connection), contextlib.suppress(OSError, http.client.HTTPException):
        connection.request(method, path, urllib.parse.urlencode(post) if post is not None else None, headers)
        answer = connection.getresponse()
        answer.text = answer.read().decode("latin-1")
        return answer
    return None


class Member:
    """One server of the farm, on an address of this machine that is its own."""

    def __init__(self, farm, number, database_port):
        self.farm, self.number, self.address = farm, number, f"127.0.0.{10 + number}"
        self.folder = farm.folder / f"member{number}"
        self.folder.mkdir()
        self.config = self.folder / "plxserver.conf"
        self.config.write_text(
            f'listen = "{self.address}:{farm.port}"\nstate = "state"\nshared = "{farm.folder}/shared"\nmodules = ["{MODULE}"]\n'
            f'proxies = ["127.0.0.1"]\nconnections-per-address = 0\n'
            f'records-source = "Driver=psqlodbcw.so;Servername=127.0.0.1;Database=test;Port={database_port}"\n'
            f'records-user = "test"\nrecords-password = "test,pass;{{word}}"\n'
            f'[site.test]\nhosts = ["127.0.0.1"]\nroot = "{farm.folder}/site"\n'
            '[region.left]\nsite = "test"\npath = "/left/"\n[region.right]\nsite = "test"\npath = "/right/"\n')

    def start(self):
        with open(self.folder / "output", "ab") as output:
            self.process = subprocess.Popen([SERVER, "serve", "--config", str(self.config)], stdout=output, cwd=self.folder,
                                            stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        until = time.monotonic() + 30
        while not self.ask("GET", "/plain.txt"):
            assert self.process.poll() is None and time.monotonic() < until, "did not start: " + self.said()
            time.sleep(0.02)

    def said(self):
        return (self.folder / "output").read_text(errors="replace")

    def log(self, name="server.log"):
        return (self.folder / "state" / "logs" / name).read_text(errors="replace")

    def ask(self, method, path, post=None, user=None, headers=None):
        return ask(self.address, self.farm.port, method, path, post, user, headers)

    def command(self, *arguments, input=None):
        done = subprocess.run([SERVER, *arguments, "--config", str(self.config)], input=input, text=True, capture_output=True,
                              timeout=60)
        assert done.returncode == 0, f"{arguments}: exit {done.returncode}: {done.stdout}{done.stderr}"
        return done.stdout

    def rows(self, database):
        file = self.folder / "export.csv"
        self.command("records", "export", database, str(file))
        csv.field_size_limit(1 << 28)
        return list(csv.DictReader(io.StringIO(file.read_text("latin-1"), newline="")))

    def end(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        return self.process.wait(90)


class Front:
    """nginx before the members; those that are marked down get no new requests."""

    def __init__(self, farm):
        self.farm, self.folder, self.generation = farm, farm.folder / "nginx", 0
        self.folder.mkdir()
        self.write()
        self.process = subprocess.Popen(["/usr/sbin/nginx", "-e", str(self.folder / "error.log"), "-c", str(self.folder / "nginx.conf")],
                                        stdin=subprocess.DEVNULL)
        self.wait()

    def write(self, down=()):
        self.generation += 1
        servers = "".join(f"server {member.address}:{self.farm.port} {'down' if member in down else 'max_fails=1 fail_timeout=1s'};\n"
                          for member in self.farm.members)
        paths = "".join(f"{name}_temp_path {self.folder}/{name};\n" for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        (self.folder / "nginx.conf").write_text(
            f"daemon off; worker_processes 1; pid {self.folder}/nginx.pid; error_log {self.folder}/error.log;\n"
            f"events {{ worker_connections 512; }}\nhttp {{ access_log off;\n{paths}upstream farm {{ {servers} }}\n"
            f"server {{ listen 127.0.0.1:{self.farm.port}; add_header X-Front {self.generation} always;\n"
            "location / { proxy_pass http://farm; proxy_set_header Host $http_host; proxy_set_header X-Forwarded-For $remote_addr;\n"
            "proxy_connect_timeout 10s; proxy_next_upstream error timeout http_503; } } }\n")

    def wait(self):
        """Until the processes with the present configuration are the only ones."""
        until = time.monotonic() + 30
        children = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        while True:
            answer = self.farm.ask("GET", "/plain.txt")
            if answer and answer.headers["X-Front"] == str(self.generation) and len(children.read_text().split()) == 1:
                return
            assert time.monotonic() < until, (self.folder / "error.log").read_text()
            time.sleep(0.02)

    def reload(self, down=()):
        self.write(down)
        self.process.send_signal(signal.SIGHUP)
        self.wait()

    def stop(self):
        self.process.terminate()
        self.process.wait(30)


class Wire:
    """A way to the database that can be cut (refused) and held up (silent)."""

    def __init__(self, port):
        self.target, self.port, self.flows = port, free_port(), threading.Event()
        self.socket, self.open = None, set()
        self.mend()

    def mend(self):
        self.flows.set()
        if not self.socket:
            self.socket = socket.create_server(("127.0.0.1", self.port))
            threading.Thread(target=self.accept, args=(self.socket,), daemon=True).start()

    def hold(self):
        self.flows.clear()

    def cut(self):
        listener, self.socket = self.socket, None
        with contextlib.suppress(OSError):
            listener.shutdown(socket.SHUT_RDWR)
        listener.close()
        for one in list(self.open):
            with contextlib.suppress(OSError):
                one.shutdown(socket.SHUT_RDWR)

    def accept(self, listener):
        with contextlib.suppress(OSError):
            while True:
                near, _ = listener.accept()
                far = socket.create_connection(("127.0.0.1", self.target))
                self.open |= {near, far}
                for source, target in ((near, far), (far, near)):
                    threading.Thread(target=self.carry, args=(source, target), daemon=True).start()

    def carry(self, source, target):
        with source, contextlib.suppress(OSError):
            while part := source.recv(65536):
                self.flows.wait()
                target.sendall(part)
        with contextlib.suppress(OSError):
            target.shutdown(socket.SHUT_RDWR)
        self.open.discard(source)


class Farm(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp(prefix="plx-farm."))
        cls.folder.chmod(0o755)
        cls.port = free_port()
        (cls.folder / "shared").mkdir(0o700)
        cls.mail = MailServer()
        cls.database_port = free_port()
        database = Path(tempfile.mkdtemp(prefix="plx-postgres."))
        database.chmod(0o755)
        cls.database = subprocess.Popen(["bash", SUPPORT / "postgres.sh", database, str(cls.database_port)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)
        assert cls.database.stdout.readline() == b"ready\n", "PostgreSQL did not start"
        send = f'<plxSendMail mailServer="{cls.mail.address}" from="bob@test.org" to="&plxPost.to;" subject="&plxPost.n;">number</plxSendMail>'
        pop = (f'<plxPOP username="carol" password="secret3" databaseName="Collected" mailServer="127.0.0.1:{cls.mail.pop3_port}">'
               "[&plxVariable.plxPOP_ResultCount;]")
        pages = {"plain.txt": "plain", "send.html": send + "done", "collect.html": pop,
                 "failed.html": '<plxSendMail mode="admin"></plxSendMail>',
                 "add.html": '<plxEmailClient mode="addUser" username="&plxPost.n;" password="pw">done',
                 "mail.html": "<plxEmailClient>", "left/tag.html": "[<plxSendMail></plxSendMail>]", "right/empty.html": "x"}
        for name, text in pages.items():
            file = cls.folder / "site" / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        cls.wire = Wire(cls.database_port)
        cls.members = [Member(cls, 1, cls.wire.port), Member(cls, 2, cls.database_port)]
        cls.first, cls.second = cls.members
        cls.first.command("user", "set", LOGIN[0], input=LOGIN[1] + "\n")
        for member in cls.members:
            member.start()
        cls.front = Front(cls)

    @classmethod
    def tearDownClass(cls):
        cls.front.stop()
        codes = [member.end() for member in cls.members]
        cls.database.stdin.close()
        cls.database.stdout.close()
        cls.database.wait(30)
        cls.mail.stop()
        shutil.rmtree(cls.folder, ignore_errors=True)
        assert codes == [0, 0], codes

    @classmethod
    def ask(cls, method, path, post=None, user=None, headers=None):
        return ask("127.0.0.1", cls.port, method, path, post, user, headers)

    def until(self, condition, seconds=30):
        end = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), end, "what was waited for did not happen")
            time.sleep(0.05)

    def preferences(self, region):
        return f"/plx-admin/preferences?region=test%2F{region}&module=Network+Module"

    def save(self, where, region, server, **more):
        """Saves the mail server's name; true when that was acknowledged."""
        answer = where.ask("POST", self.preferences(region), {"plxSendMailPreference_mailServerName": server, **more}, LOGIN,
                           {"Origin": f"http://127.0.0.1:{self.port}"})
        return answer is not None and answer.status == 303

    def saved(self, where, region):
        """The mail server's name as a member shows it; None when it shows nothing."""
        answer = where.ask("GET", self.preferences(region), user=LOGIN)
        found = answer and re.search(r'name="plxSendMailPreference_mailServerName" value="([^"]*)"', answer.text)
        return html.unescape(found.group(1)) if found else None

    def setUp(self):
        self.over, self.strict, self.wrong = threading.Event(), threading.Event(), []
        self.added, self.sent, self.kept = [], {}, {"left": "", "right": ""}

    def post(self, path, **arguments):
        """True when the page says that it is done."""
        answer = self.ask("POST", path, arguments)
        done = answer is not None and answer.status == 200 and answer.text.endswith("done") and "cannot be shown" not in answer.text
        if not done and self.strict.is_set():
            self.wrong.append((path, arguments, answer and answer.status, answer and answer.text[-500:]))
        return done

    def add(self, name):
        for number in range(1000000):
            if self.over.is_set():
                return
            if self.post("/add.html", n=f"{name}-{number}"):
                self.added.append(f"{name}-{number}")

    def send(self, name):
        for number in range(1000000):
            if self.over.wait(0.15):
                return
            to = "nobody@test" if number % 4 == 0 else "alice@test"
            if self.post("/send.html", n=f"{name}-{number}", to=to):
                self.sent[f"{name}-{number}"] = to

    def keep(self, region):
        for number in range(1000000):
            if self.over.is_set():
                return
            if self.save(self, region, f"{region}{number}"):
                self.kept[region] = f"{region}{number}"
                for member in self.members:
                    shown = self.saved(member, region)
                    if shown not in (None, self.kept[region]):
                        self.wrong.append((region, self.kept[region], shown))
            elif self.strict.is_set():
                self.wrong.append((region, number, "was not saved"))
            else:
                self.kept[region] = None  # kept or not: the next one tells

    def look(self, member):
        """What nobody holds comes into the list when it is looked at; what a server still sends must not."""
        while not self.over.wait(0.2):
            member.ask("GET", "/failed.html")

    def test_loses_nothing_and_doubles_nothing(self):
        threads = [threading.Thread(target=work, args=(name,)) for work, names in
                   ((self.add, "ab"), (self.send, "cd"), (self.keep, ("left", "right")), (self.look, self.members)) for name in names]
        for thread in threads:
            thread.start()
        try:
            time.sleep(4)
            self.second.end(signal.SIGKILL)
            time.sleep(1)
            self.mortal = set(self.sent)
            time.sleep(3)
            self.second.start()
            time.sleep(2)
            # One after the other is taken out, ended, started and put back: no visitor notices.
            self.strict.set()
            for member in self.members:
                self.front.reload(down=[member])
                self.assertEqual(member.end(), 0)
                member.start()
                self.front.reload()
                time.sleep(1)
        finally:
            self.over.set()
            for thread in threads:
                thread.join()
        self.assertEqual(self.wrong, [])
        self.check_records()
        self.check_mail()
        for region, value in self.kept.items():
            self.assertEqual({self.saved(member, region) for member in self.members}, {value})
        for member in self.members:
            self.assertIn("POST /SendMail ", member.log("access.log"), "reports come to either server")

    def check_records(self):
        names = [row["Username"] for row in self.first.rows(USERS)]
        self.assertEqual(len(names), len(set(names)))
        self.assertEqual(set(self.added) - set(names), set())
        self.assertGreater(len(self.added), 50)

    def check_mail(self):
        outbox = self.folder / "shared" / "regions" / "test" / "main" / "FM.outbox"
        self.until(lambda: self.ask("GET", "/failed.html").status == 200 and not list(outbox.iterdir()), 60)
        arrived, failed, seen = {}, {}, 0
        for row in self.first.rows(LOG):
            self.assertNotIn(row["Subject"], failed)
            failed[row["Subject"]] = row["Info"]
        expected = sum(to == "alice@test" and name not in failed for name, to in self.sent.items())
        until = time.monotonic() + 60
        while seen < expected:
            self.assertLess(time.monotonic(), until, f"{seen} of {expected} messages came")
            for message in self.mail.messages():
                name = re.search(rb"\r\nSubject: (\S+)\r\n", message).group(1).decode()
                arrived[name] = arrived.get(name, 0) + 1
                seen += name in self.sent and name not in failed
            time.sleep(0.1)
        self.assertEqual({name: count for name, count in arrived.items() if count > 1}, {})
        for name, to in self.sent.items():
            self.assertTrue(name in arrived or name in failed, f"{name} to {to} is lost")
            self.assertFalse(name in arrived and not failed.get(name, DOUBLED).startswith(DOUBLED), f"{name} is doubled")
            self.assertTrue(to == "alice@test" or name in failed, name)
            self.assertTrue(name in self.mortal or not failed.get(name, "").startswith(DOUBLED), f"{name} was taken from who sent it")
        stored = {file.name for file in (outbox.parent / "FM").iterdir()}
        self.assertEqual(stored, {"msg" + row["Message ID"] for row in self.second.rows(LOG)})
        self.assertGreater(len(self.sent), 50)

    def both(self, work):
        """Does the work on each member at once, twice; the results."""
        results = []
        threads = [threading.Thread(target=lambda member=member: results.append(work(member))) for member in self.members * 2]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return results

    def test_a_mailbox_is_collected_once(self):
        self.mail.put("carol", *(f"From: a@test.org\nSubject: number {number}\n\ntext\n".encode() for number in range(40)))
        texts = self.both(lambda member: member.ask("GET", "/collect.html").text)
        self.assertEqual(sum(int(re.search(r"\[(\d+)\]$", text).group(1)) for text in texts), 40, texts)
        self.assertEqual(sorted(row["Subject"] for row in self.first.rows("Collected")),
                         sorted(f"number {number}" for number in range(40)))

    def test_web_mail_goes_on_at_another_server(self):
        self.assertEqual(self.first.ask("POST", "/add.html", {"n": "eve"}).status, 200)
        user = ("eve", "pw")
        press = lambda text, label: {re.search(rf'name="(1plxEmailClientAction=[^"]+)" value="{label}"', text).group(1): label}
        self.assertEqual(self.second.ask("GET", "/mail.html", user=("eve", "wrong")).status, 401)
        main = self.second.ask("GET", "/mail.html", user=user)
        self.assertEqual(main.status, 200)
        options = self.first.ask("POST", "/mail.html", press(main.text, "Options"), user)
        fields = dict(re.findall(r'<input type="(?:hidden|text|password)" name="([^"]+)" value="([^"]*)"', options.text))
        fields.update({"Name_plxEmailClient": "Eve Example"}, **press(options.text, "Save"))
        self.assertEqual(self.second.ask("POST", "/mail.html", fields, user).status, 200)
        self.assertIn("Eve Example", self.first.ask("GET", "/mail.html", user=user).text)

    def test_logins_and_switches_of_one_are_those_of_all(self):
        self.second.command("user", "set", "ida", input="first horse\n")
        for member in self.members:
            self.assertEqual(member.ask("GET", "/plx-admin/", user=("ida", "first horse")).status, 200)
        self.first.command("user", "remove", "ida")
        for member in self.members:
            self.assertEqual(member.ask("GET", "/plx-admin/", user=("ida", "first horse")).status, 401)
        self.assertTrue(self.save(self.first, "left", "one", plxSendMail="yes"))
        self.assertEqual(self.saved(self.second, "left"), "one")
        self.until(lambda: all(self.is_on(member) for member in self.members))
        self.assertTrue(self.save(self.second, "left", "two"))
        self.until(lambda: not any(self.is_on(member) for member in self.members))

    def is_on(self, member):
        """Whether the tag of the region works; the page has nothing in its place where it is switched off."""
        answer = member.ask("GET", "/left/tag.html")
        self.assertEqual(answer.status, 200)
        return answer.text.strip() != "[]"

    def test_a_lost_database_leaves_what_is_known(self):
        def is_refused():
            answer = self.first.ask("POST", self.preferences("left"), {"plxSendMail": "yes"}, LOGIN,
                                    {"Origin": f"http://127.0.0.1:{self.port}"})
            return answer.status != 303 and "Not every preference could be kept." in answer.text

        self.assertTrue(self.save(self.second, "left", "known"))
        self.until(lambda: not self.is_on(self.first))
        for trouble in (self.wire.cut, self.wire.hold):
            trouble()
            self.assertTrue(is_refused())
            self.assertFalse(self.is_on(self.first))
            self.assertTrue(self.save(self.second, "left", "meanwhile", plxSendMail="yes"))
            self.assertFalse(self.is_on(self.first), "what is known last is read")
            self.wire.mend()
            self.until(lambda: self.is_on(self.first), 60)
            self.assertTrue(self.save(self.first, "left", "again"))
            self.until(lambda: not self.is_on(self.second))
        # A start goes on from there, too; a first one cannot.
        self.wire.cut()
        self.assertEqual(self.first.end(), 0)
        self.first.start()
        self.assertFalse(self.is_on(self.first))
        self.assertTrue(is_refused())
        done = subprocess.run([SERVER, "serve", "--config", str(self.first.config), "--set", f"state={self.folder}/new"],
                              capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, "cannot be used" in done.stderr), (69, True), done.stderr)
        self.wire.mend()
        self.until(lambda: self.save(self.first, "left", "mended"), 60)

    def test_says_what_is_wrong_with_the_shared_folder(self):
        def said(command, *settings):
            done = subprocess.run([SERVER, command, "--config", str(self.first.config), *settings], capture_output=True, text=True,
                                  timeout=60)
            return done.returncode, done.stdout + done.stderr

        code, text = said("check")
        self.assertEqual(code, 0, text)
        self.assertIn("The data source of records and preferences answers.", text)
        for command in ("check", "serve"):
            code, text = said(command, "--set", f"shared={self.folder}/none", "--set", f"state={self.folder}/other")
            self.assertEqual(code, 69, text)
            self.assertIn(f"{self.folder}/none: the shared folder is not there.", text)
        self.assertIn("lies in the shared folder", said("check", "--set", f"state={self.folder}/shared/state")[1])
        code, text = said("serve", "--set", f"listen=127.0.0.1:{free_port()}")
        self.assertEqual(code, 69)
        self.assertIn("another server uses this folder", text)
        code, text = said("check", "--set", "records-source=Driver=psqlodbcw.so;Servername=127.0.0.1;Port=1")
        self.assertEqual(code, 69, text)


if __name__ == "__main__":
    unittest.main()
