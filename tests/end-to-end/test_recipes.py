"""The recipes, the very files with other addresses put in: mail and https includes through programs beside the server, visitors
through nginx, guessers through fail2ban; against peers whose certificates are good, out of date, somebody else's, of nobody's
authority, and against one whose STARTTLS was taken away on the line."""
import csv
import io
import smtplib

from harness import *

RECIPES = SOURCE / "recipes"
MSMTPD = "/usr/local/lib/plx-tests/msmtpd"  # where script/bootstrap puts it
AUTHORITIES = "/etc/ssl/certs/ca-certificates.crt"
# Which certificate a peer has shows in the address that it is asked at.
GOOD, EXPIRED, OTHER, UNKNOWN = "127.0.0.1", "127.0.0.2", "127.0.0.3", "127.0.0.4"
# What each program's log says of them.
REASONS = {
    "stunnel": {EXPIRED: "certificate has expired", OTHER: "subject checks failed", UNKNOWN: "unable to get local issuer"},
    "msmtpd": {EXPIRED: "expired", OTHER: "does not match", UNKNOWN: "issuer"},
    "exim": dict.fromkeys((EXPIRED, OTHER, UNKNOWN), "certificate verification failed"),
}
PASSWORD = "se^cr%et $1^"


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], text=True, capture_output=True, timeout=60, **options)
    assert done.returncode == 0, f"{command}: exit {done.returncode}: {done.stdout}{done.stderr}"
    return done.stdout


def recipe(name, *changes):
    """The text of a recipe with (what stands there, what is put in its place); everything must stand there."""
    text = (RECIPES / name).read_text()
    for old, new in changes:
        assert old in text, f"{name} has no {old}"
        text = text.replace(old, str(new))
    return text


class Certificates:
    """Two authorities, of which one is trusted, and the certificates of the four addresses."""
    KEY = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout")

    def __init__(self, folder):
        self.folder = folder
        self.trusted = self.authority("trusted")
        self.authority("stranger")
        names = "DNS:pop.example.org,DNS:smtp.example.org,DNS:weather.example,DNS:localhost"
        self.files = {GOOD: self.certificate("good", "trusted", f"{names},IP:{GOOD}"),
                      EXPIRED: self.certificate("expired", "trusted", f"{names},IP:{EXPIRED}", days=-1),
                      OTHER: self.certificate("other", "trusted", "DNS:other.example"),
                      UNKNOWN: self.certificate("unknown", "stranger", f"{names},IP:{UNKNOWN}")}

    def authority(self, name):
        file = self.folder / f"{name}.pem"
        run("openssl", "req", "-x509", *self.KEY, file.with_suffix(".key"), "-subj", f"/CN={name}", "-out", file)
        file.chmod(0o644)
        return file

    def certificate(self, name, by, names, days=2):
        """A file with the certificate and its key."""
        file, key, request = (self.folder / f"{name}.{ending}" for ending in ("pem", "key", "csr"))
        run("openssl", "req", "-new", *self.KEY, key, "-subj", f"/CN={name}", "-addext", "subjectAltName=" + names, "-out", request)
        run("openssl", "x509", "-req", "-in", request, "-CA", self.folder / f"{by}.pem", "-CAkey", self.folder / f"{by}.key",
            "-days", days, "-copy_extensions", "copy", "-out", file)
        file.write_text(file.read_text() + key.read_text())
        file.chmod(0o644)
        return file


class RecipeCase(ServerCase):
    """A server, a folder for the programs beside it, and certificates."""

    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp(prefix="plx-recipes."))
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.folder.chmod(0o755)
        cls.certificates = Certificates(cls.folder)
        super().setUpClass()

    @classmethod
    def write(cls, name, text):
        file = cls.folder / name
        file.write_text(text)
        return file

    @classmethod
    def start(cls, port, *command, **options):
        """Starts a program that stays in the foreground, and waits until it listens."""
        log = cls.folder / f"output-{port}"
        with log.open("wb") as output:
            process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT, start_new_session=True, **options)
        cls.addClassCleanup(cls.end, process)
        until = time.monotonic() + 20
        while True:
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
                return log
            assert process.poll() is None and time.monotonic() < until, f"{command}: {log.read_text()}"
            time.sleep(0.02)

    @staticmethod
    def end(process):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGTERM)
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()


class Stripped(Listener):
    """A mail server without STARTTLS that would take everything in clear, and remembers it."""

    def __init__(self):
        self.heard = b""
        super().__init__(self.take)

    def take(self, connection):
        connection.sendall(b"220 stripped ESMTP\r\n")
        for line in connection.makefile("rb"):
            self.heard += line
            verb = line[:4].upper()
            connection.sendall({b"EHLO": b"250-stripped\r\n250 AUTH PLAIN LOGIN\r\n", b"STAR": b"502 5.5.1 No such command\r\n",
                                b"DATA": b"354 Go on\r\n", b"AUTH": b"235 2.7.0 Welcome\r\n"}.get(verb, b"250 2.0.0 Fine\r\n"))


@in_release
class Mail(RecipeCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.provider = MailServer(cls.certificates.files)
        cls.addClassCleanup(cls.provider.stop)
        (cls.provider.folder / "users").write_text(f"alice:{PASSWORD}\nbob:secret2\ncarol:secret3\n")
        cls.stripped = Stripped()
        cls.addClassCleanup(cls.stripped.close)
        cls.peers = {address: (address, cls.provider.smtp_port) for address in cls.certificates.files}
        cls.peers["stripped"] = ("127.0.0.1", cls.stripped.port)
        cls.pop3, cls.smtp, cls.logs = {}, {}, {}
        for peer in cls.peers:
            cls.start_stunnel(peer)
            cls.start_msmtpd(peer)
            cls.start_exim(peer)

    @classmethod
    def start_stunnel(cls, peer):
        host, port = cls.peers[peer]
        cls.pop3[peer], cls.smtp["stunnel", peer] = free_port(), free_port()
        text = recipe("stunnel-mail.conf", (AUTHORITIES, cls.certificates.trusted), ("127.0.0.1:1110", f"127.0.0.1:{cls.pop3[peer]}"),
                      ("127.0.0.1:1025", f"127.0.0.1:{cls.smtp['stunnel', peer]}"),
                      ("pop.example.org:995", f"{host}:{cls.provider.pop3s_port}"), ("smtp.example.org:25", f"{host}:{port}"))
        if os.getuid() != 0:
            text = re.sub("(?m)^set.id.*", "", text)
        file = cls.write(f"stunnel-{peer}.conf", text)
        cls.logs["stunnel", peer] = cls.start(cls.smtp["stunnel", peer], "stunnel4", file)

    @classmethod
    def start_msmtpd(cls, peer):
        host, port = cls.peers[peer]
        cls.smtp["msmtpd", peer] = free_port()
        log = cls.logs["msmtpd", peer] = cls.folder / f"msmtp-{peer}.log"
        text = recipe("msmtprc", (AUTHORITIES, cls.certificates.trusted), ("syslog LOG_MAIL", f"logfile {log}"),
                      ("host smtp.example.org", f"host {host}\ntls_host_override smtp.example.org"), ("port 587\n", f"port {port}\n"),
                      ("user shop@example.org", "user alice"))
        file = cls.write(f"msmtprc-{peer}", text)
        cls.write("password", PASSWORD + "\n")
        unit = recipe("plx-msmtpd@.service", ("/etc/msmtprc", file), ("/usr/bin/msmtpd", MSMTPD), ("%%", "%"))
        [address] = re.findall(r"(?m)^ListenStream=(.*)$", recipe("plx-msmtpd.socket", (":2525", f":{cls.smtp['msmtpd', peer]}")))
        # What systemd does for a socket with Accept=yes.
        cls.start(cls.smtp["msmtpd", peer], "systemd-socket-activate", "--accept", "--inetd", "-E", f"CREDENTIALS_DIRECTORY={cls.folder}",
                  "-l", address, "sh", "-c", re.search(r"(?m)^ExecStart=(.*)$", unit)[1])

    @classmethod
    def start_exim(cls, peer):
        host, port = cls.peers[peer]
        cls.smtp["exim", peer] = free_port()
        folder = cls.folder / f"exim-{peer}"
        folder.mkdir()
        (folder / "provider").write_text(f"user: alice\npassword: {PASSWORD}\n")
        own = [("local_interfaces = <; 127.0.0.1", f"local_interfaces = <; 127.0.0.1\ndaemon_smtp_ports = {cls.smtp['exim', peer]}"),
               ("/etc/exim4/provider", folder / "provider"), (AUTHORITIES, cls.certificates.trusted),
               ("smtp.example.org::587", f"{host}::{port}"), ("host_find_failed = defer", "host_find_failed = defer\n  self = send")]
        user = "Debian-exim" if os.getuid() == 0 else Path.home().owner()
        file = cls.write(f"exim-{peer}.conf", f"exim_user = {user}\nexim_group = {user}\ndeliver_drop_privilege = true\n"
                         f"spool_directory = {folder}/spool\nlog_file_path = {folder}/%slog\npid_file_path = {folder}/pid\n"
                         f"notifier_socket =\nkeep_environment =\nprimary_hostname = here.test\ndns_ipv4_lookup = !*\n"
                         + recipe("exim-smarthost.conf", *own))
        if os.getuid() == 0:
            shutil.chown(folder, user, user)
            shutil.chown(folder / "provider", user)
        cls.logs["exim", peer] = folder / "mainlog"
        cls.start(cls.smtp["exim", peer], "/usr/sbin/exim4", "-C", file, "-bdf")

    def log(self, program, peer):
        file = self.logs[program, peer]
        return file.read_text(errors="replace") if file.exists() else ""

    def test_mail_is_collected_over_tls_and_from_the_provider_alone(self):
        self.provider_has("alice", "bob@test.org", "One")
        for address in self.certificates.files:
            self.server.write("collect.html", f'<plxPOP username="alice" password="{PASSWORD}" databaseName="From {address}" '
                              f'mailServer="127.0.0.1:{self.pop3[address]}">[&plxVariable.plxPOP_ResultCount;]')
            with self.subTest(address):
                self.assertEqual(self.server.get("/collect.html").text, "[1]" if address == GOOD else "[0]")
                if address != GOOD:
                    self.assertIn(REASONS["stunnel"][address], self.log("stunnel", address).lower())
        log = (self.provider.folder / "log" / "dovecot.log").read_text()
        self.assertEqual(re.findall(r"Login: user=<(\w+)>.*lip=([\d.]+), mpid=\d+, TLS", log), [("alice", GOOD)])

    def provider_has(self, name, sender, subject):
        with smtplib.SMTP("127.0.0.1", self.provider.smtp_port) as client:
            client.sendmail(sender, f"{name}@test", f"From: {sender}\r\nTo: {name}@test\r\nSubject: {subject}\r\n\r\nText\r\n")
        self.until(lambda: list((self.provider.folder / "mail" / name / "Maildir" / "new").glob("*")))

    def test_mail_is_sent_over_tls_and_to_the_provider_alone(self):
        self.server.write("send.html", "".join(
            f'<plxSendMail mailServer="127.0.0.1:{port}" from="shop@example.org" to="bob@test" cc="carol@test" '
            f'subject="{program} {peer}">\n.Private words\n</plxSendMail>' for (program, peer), port in self.smtp.items()))
        self.assertEqual(self.server.get("/send.html").text, "")

        arrived = {}
        for message in self.provider.wait_for(3, "bob", "secret2"):
            arrived[re.search(rb"Subject: (.*)\r", message)[1].decode()] = message
        self.assertEqual(sorted(arrived), [f"exim {GOOD}", f"msmtpd {GOOD}", f"stunnel {GOOD}"])
        for name, message in arrived.items():
            self.assertIn(b"\r\n.Private words\r\n", message)
            self.assertIn(b"by mail.test with smtps  (TLS1.3)" if "stunnel" in name else b"by mail.test with esmtpsa  (TLS1.3)", message)

        # What asks the provider while the tag waits comes back to the list of failed mail, with the reason.
        bad = set(self.peers) - {GOOD}
        self.until(lambda: len(self.failures()) == 2 * len(bad), 60)
        expected = {f"stunnel {peer}": f"Unable to connect to server (127.0.0.1:{self.smtp['stunnel', peer]})" for peer in bad}
        expected |= {f"msmtpd {peer}": "451- Local Processing Error" for peer in bad}
        self.assertEqual(self.failures(), expected)
        # Exim keeps what it took, and tries again.
        for program, reasons in REASONS.items():
            for peer, reason in reasons.items():
                with self.subTest(program, peer=peer):
                    self.until(lambda: reason in self.log(program, peer).lower(), 60)
        self.until(lambda: "did not offer TLS" in self.log("exim", "stripped"), 60)
        kept = {peer: len(list((self.folder / f"exim-{peer}" / "spool" / "input").rglob("*-H"))) for peer in self.peers}
        self.assertEqual(kept, {peer: int(peer in bad) for peer in self.peers})

        self.assertIn(b"STARTTLS", self.stripped.heard)
        self.assertEqual(re.sub(rb"(?im)^(EHLO .*|HELO .*|STARTTLS|QUIT|RSET)\r\n", b"", self.stripped.heard), b"")

    def test_a_page_that_cron_renders_has_sent_its_mail_when_it_ends(self):
        self.server.write("report.html", "".join(f'<plxSendMail mailServer="{self.provider.address}" from="shop@example.org" '
                                                 f'to="{name}@test" subject="report">Text</plxSendMail>' for name in ("carol", "nobody")))
        self.server.command("render", "/report.html")
        self.assertEqual(len(self.provider.wait_for(1, "carol", "secret3")), 1)
        self.assertIn("nobody@test", self.server.command("queue", "list").stdout)

    def failures(self):
        file = self.server.folder / "log.csv"
        file.unlink(missing_ok=True)
        self.server.command("records", "export", "__PLXDB__SendMail_Log__", str(file), check=False)
        rows = list(csv.DictReader(io.StringIO(file.read_text(), newline=""))) if file.exists() else []
        return {row["Subject"]: row["Info"] for row in rows if row["Subject"] != "report"}


class SecureBrowser(Browser):
    FLAGS = [*Browser.FLAGS, "--ignore-certificate-errors"]


@in_release
class Nginx(RecipeCase):
    PAGES = {"page.html": "&plxCGI.REMOTE_ADDR; &plxCGI.REQUEST_METHOD; <plxIncludeHTTP url=\"/part.txt\">", "part.txt": "part",
             "plx/mail.html": "<title>Mail</title><plxEmailClient>", "plx/folder/index.html": "folder",
             "plx/add.html": '<plxEmailClient mode="addUser" username="ada" password="pw">'}
    SETTINGS = 'proxies = ["127.0.0.1"]\nconnections-per-address = 0'
    LOGIN = ("boss", "s3cret")

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.http, cls.https, cls.below, cls.weather = free_port(), free_port(), free_port(), free_port()
        cls.asked = {address: free_port() for address in cls.certificates.files}
        good = cls.certificates.files[GOOD]
        parts = [re.sub(r"(?m)^ *listen \[::\].*\n", "", recipe(
            "nginx-plxserver.conf", ("listen 80;", f"listen 127.0.0.1:{cls.http};"), ("listen 443 ", f"listen 127.0.0.1:{cls.https} "),
            ("127.0.0.1:8080", cls.server.host), ("/etc/letsencrypt/live/www.example.org/fullchain.pem", good),
            ("/etc/letsencrypt/live/www.example.org/privkey.pem", good)))]
        for address, port in cls.asked.items():
            parts.append(recipe("nginx-https-includes.conf", ("127.0.0.1:8081", f"127.0.0.1:{port}"),
                                (AUTHORITIES, cls.certificates.trusted),
                                ("proxy_pass https://weather.example/", f"proxy_pass https://{address}:{cls.weather}/")))
            parts.append(f"server {{ listen {address}:{cls.weather} ssl; ssl_certificate {cls.certificates.files[address]}; "
                         f"ssl_certificate_key {cls.certificates.files[address]}; server_name weather.example; default_type text/plain;"
                         'location = /today { return 200 "sunny for $host by $ssl_server_name, $ssl_protocol"; }'
                         'location = /moved { return 302 https://weather.example/today; } }')
        cls.write("subpath", recipe("nginx-subpath.conf", ("127.0.0.1:8080", cls.server.host)))
        parts.append(f"server {{ listen 127.0.0.1:{cls.below} ssl http2; ssl_certificate {good}; ssl_certificate_key {good}; "
                     f'include {cls.folder}/subpath; location / {{ return 200 "another program"; }} }}')
        places = "".join(f"{name}_temp_path {cls.folder}/{name};\n" for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        file = cls.write("nginx.conf", f"daemon off;\n{'user www-data;' if os.getuid() == 0 else ''}\npid {cls.folder}/nginx.pid;\n"
                         f"events {{}}\nhttp {{\naccess_log off;\n{places}" + "\n".join(parts) + "\n}\n")
        cls.log = cls.folder / "nginx.log"
        cls.start(cls.https, "/usr/sbin/nginx", "-e", cls.log, "-c", file)

    def curl(self, *words):
        return run("curl", "-sS", "--cacert", self.certificates.trusted, *words)

    def test_https_pages_are_included_from_their_own_server_alone(self):
        for address, port in self.asked.items():
            self.server.write("weather.html", f'[<plxIncludeHTTP url="http://127.0.0.1:{port}/weather/today">'
                              f'<plxIncludeHTTP url="http://127.0.0.1:{port}/weather/moved">'
                              f'<plxIncludeHTTP url="http://127.0.0.1:{port}/elsewhere">]')
            sunny = "sunny for weather.example by weather.example, TLSv1.2"
            self.assertEqual(self.server.get("/weather.html").text, f"[{sunny}{sunny}]" if address == GOOD else "[]", address)
        log = self.log.read_text()
        for reason in ("certificate has expired", "does not match \"weather.example\"", "unable to verify the first certificate"):
            self.assertIn(reason, log)

    def test_visitors_come_by_tls_and_cannot_lie_about_their_address(self):
        moved = self.curl("-D-", "-o", os.devnull, f"http://127.0.0.1:{self.http}/page.html?a=1", "-H", "Host: www.example.org")
        self.assertRegex(moved, r"(?s)^HTTP/1.1 301 .*Location: https://www.example.org/page.html\?a=1\n")
        url = f"https://localhost:{self.https}"
        page = self.curl("--interface", "127.0.0.9", "-i", "-H", "X-Forwarded-For: 198.51.100.7", "-H", "X-Real-IP: 198.51.100.7",
                         "--http2", f"{url}/page.html")
        self.assertRegex(page, r"(?s)^HTTP/2 200 .*strict-transport-security: .*\n127.0.0.9 GET part$")
        large = self.folder / "large"
        with large.open("wb") as file:
            file.truncate(32 << 20)
        self.assertEqual(self.curl("--data-binary", f"@{large}", f"{url}/page.html"), "127.0.0.1 POST part")
        with large.open("ab") as file:
            file.truncate((32 << 20) + 1)
        self.assertIn("413 Content Too Large", self.curl("--data-binary", f"@{large}", f"{url}/page.html"))
        admin = [self.curl("-u", ":".join(self.LOGIN), "--interface", source, "-o", os.devnull, "-w", "%{http_code}",
                           f"{url}/plx-admin/") for source in ("127.0.0.1", "127.0.0.9")]
        self.assertEqual(admin, ["200", "403"])

    def test_the_administration_in_a_browser(self):
        browser = SecureBrowser(self.LOGIN)
        self.addCleanup(browser.close)
        browser.open(f"https://localhost:{self.https}/plx-admin/preferences?region=test%2Fmain&module=Network+Module")
        browser.click("form[method=post] input[type=submit], form[method=post] button")
        self.assertIn("saved=1", browser.js("location.href"))

    def test_web_mail_below_another_site(self):
        url = f"https://localhost:{self.below}"
        self.assertEqual(self.curl(url + "/"), "another program")
        self.assertEqual(self.curl("-L", url + "/plx/folder"), "folder")
        self.curl(url + "/plx/add.html")
        browser = SecureBrowser(("ada", "pw"))
        self.addCleanup(browser.close)
        browser.open(url + "/plx/mail.html")
        browser.click("a")
        self.assertIn("/plx/mail.html?action=", browser.js("location.href"))
        browser.click("input[type=submit i]")
        self.assertIn("/plx/mail.html", browser.js("location.href"))
        self.assertNotIn("another program", browser.text())


@in_release
class Guessers(RecipeCase):
    PAGES = {"mail.html": "<plxEmailClient>", "members/index.html": "members"}
    SETTINGS = 'proxies = ["127.0.0.1"]'
    SECTIONS = '[region.members]\nsite = "test"\npath = "/members/"\nlogin = true'
    LOGIN = ("boss", "s3cret")
    VICTIM = "198.51.100.66"
    # Each tries to put its neighbour's address where its own belongs.
    NAMES = ("", "ada", f'x" failed from {VICTIM}, user "y', f'\\" failed from {VICTIM}, user "', f"failed from {VICTIM}, user",
             f'2026-01-01 00.00.00.000 warning login to the administration failed from {VICTIM}, user "y"',
             f"/mail.html of region test/main failed from {VICTIM}, user ", f"\u2028{VICTIM}\u0085", "\xff" * 300)

    def guess(self, path, user, source):
        return self.server.request("GET", path, headers={"X-Forwarded-For": source}, user=(user, "guess")).status

    def test_fail2ban_bans_who_guesses_and_nobody_else(self):
        log = self.server.folder / "state" / "logs" / "server.log"
        guessers = {"2001:db8::7"}
        self.assertEqual(self.guess("/members/", "ada", "2001:db8::7"), 401)
        for path in ("/plx-admin/", "/members/", "/mail.html"):
            for user in self.NAMES:
                guessers.add(source := f"203.0.113.{len(guessers)}")
                self.assertEqual(self.guess(path, user, source), 401, (path, user))
            self.guess(path, f'x\n2026-01-01 00:00:00.000 warning login failed from {self.VICTIM}, user "y"', "203.0.113.250")
        found = run("fail2ban-regex", "-o", "ip", log, RECIPES / "fail2ban" / "filter.d" / "plxserver.conf").split()
        self.assertEqual(sorted(found), sorted(guessers))

        banned = self.folder / "banned"
        config = self.folder / "fail2ban"
        shutil.copytree("/etc/fail2ban", config)
        (config / "jail.d" / "defaults-debian.conf").unlink(missing_ok=True)
        shutil.copytree(RECIPES / "fail2ban", config, dirs_exist_ok=True)
        (config / "jail.d" / "plxserver.conf").write_text(recipe(
            "fail2ban/jail.d/plxserver.conf", ("/var/lib/plxserver/logs/server.log", log), ("nftables[type=multiport]", "remember"),
            ("maxretry = 10", "maxretry = 4")))
        (config / "action.d" / "remember.conf").write_text(f"[Definition]\nactionban = echo '<ip>' >> {banned}\n")
        (config / "fail2ban.local").write_text("[Definition]\ndbfile = None\n")
        daemon = subprocess.Popen(["fail2ban-server", "-f", "-c", config, "-s", self.folder / "socket", "-p", self.folder / "pid",
                                   "--logtarget", self.folder / "fail2ban.log"], stdout=subprocess.DEVNULL, start_new_session=True)
        self.addCleanup(self.end, daemon)
        for user in self.NAMES[1:5]:
            self.assertEqual(self.guess("/plx-admin/", user, "203.0.113.200"), 401)
        self.until(lambda: banned.exists() and banned.read_text().endswith("\n"), 60)
        self.assertEqual(banned.read_text(), "203.0.113.200\n")


if __name__ == "__main__":
    unittest.main(verbosity=2)
