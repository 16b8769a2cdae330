"""The server under load and under clients and peers that misbehave, as figures: script/soak runs it.

Each scenario has a server of its own. What it claims is checked; what is a matter of the machine is only printed."""
import argparse
import asyncio
import os
import random
import statistics
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "end-to-end"))
from harness import *  # noqa: E402

BASIC = {"keeper": "open sesame", "visitor": "open sesame", "ada": "pw"}
FORM = "Content-Type: application/x-www-form-urlencoded\r\n"
failures = []


def claim(holds, sentence):
    print(("  ok    " if holds else "  FAILED ") + sentence, flush=True)
    if not holds:
        failures.append(sentence)


def credentials(user):
    return "Authorization: Basic " + base64.b64encode(f"{user}:{BASIC[user]}".encode()).decode() + "\r\n"


class Process:
    """What the kernel says of the server."""

    def __init__(self, pid):
        self.folder = Path(f"/proc/{pid}")

    def status(self, name):
        text = (self.folder / "status").read_text()
        return int(re.search(rf"^{name}:\s+(\d+)", text, re.M).group(1))

    def memory(self):
        return self.status("VmRSS") / 1024  # MB

    def threads(self):
        return self.status("Threads")

    def files(self):
        return len(os.listdir(self.folder / "fd"))

    def switches(self):
        """How often any thread has woken up by itself."""
        return sum(int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", (task / "status").read_text(), re.M).group(1))
                   for task in (self.folder / "task").iterdir())


class Client:
    """One visitor: a connection that is kept where the server keeps it."""

    def __init__(self, port, source="127.0.0.1"):
        self.port, self.source, self.reader, self.writer = port, source, None, None

    async def ask(self, method, path, headers="", body="", patience=120):
        """(status, body); a status of 0 for no answer."""
        data = body.encode()
        text = f"{method} {path} HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n{headers}"
        if method == "POST":
            text += f"Content-Length: {len(data)}\r\n"
        for fresh in (self.writer is None, True):
            try:
                if self.writer is None:
                    self.reader, self.writer = await asyncio.open_connection("127.0.0.1", self.port,
                                                                             local_addr=(self.source, 0))
                self.writer.write(text.encode() + b"\r\n" + data)
                return await asyncio.wait_for(self.answer(), patience)
            except (OSError, asyncio.IncompleteReadError, asyncio.TimeoutError) as problem:
                await self.close()
                # An idle connection may be closed at the moment it is used again.
                if fresh or isinstance(problem, asyncio.TimeoutError):
                    return 0, repr(problem).encode()
        return 0, b""

    async def answer(self):
        head = (await self.reader.readuntil(b"\r\n\r\n")).decode("latin-1")
        length = re.search(r"Content-Length: (\d+)", head)
        body = await self.reader.readexactly(int(length.group(1))) if length else b""
        if "Connection: close" in head:
            await self.close()
        return int(head[9:12]), body

    async def close(self):
        if self.writer:
            self.writer.close()
            with contextlib.suppress(OSError):
                await self.writer.wait_closed()
        self.reader = self.writer = None


def start(settings="", pages=None, sections="", login=None):
    # Without it the kernel shows what the process holds to root alone.
    return Server(pages, settings + "\ncore-dumps = true", sections, login)


# ---- Visitors ----

def demo_server(mail):
    """The demo site, with a mail server of this test's own."""
    server = start("connections-per-address = 0\nconnections = 1024",
                   sections='[region.private]\nsite = "test"\npath = "/private/"\nlogin = true')
    for file in (SOURCE / "sites/demo/pages").rglob("*"):
        if file.is_file():
            data = file.read_bytes().replace(b"127.0.0.1:8025", mail.address.encode())
            server.write(file.relative_to(SOURCE / "sites/demo/pages"),
                         data.replace(b"127.0.0.1:8110", f"127.0.0.1:{mail.pop3_port}".encode()))
    server.command("user", "set", "visitor", "--region", "test/private", input=BASIC["visitor"] + "\n")
    server.command("user", "set", "keeper", input=BASIC["keeper"] + "\n")
    server.command("records", "import", "Planets", str(SOURCE / "sites/demo/planets.csv"))
    return server


def demo_requests():
    """What visitors do, each with how often."""
    plain = ["/", "/include/", "/include/post.html", "/include/login.html", "/include/problems.html", "/values.html?name=Ada",
             "/records.html", "/records.html?kind=gas", "/mail/", "/webmail/", "/webmail/accounts.html", "/style.css",
             "/origin/hello.html", "/mail/failed.html", "/mail/planets.txt"]
    requests = [(20, "GET", path, "", "", (200,)) for path in plain]
    send = "from=visitor%40example.org&to={}%40test&subject=Soak&message=Just+to+say+hello."
    requests += [
        (6, "POST", "/mail/sent.html", FORM, send.format("bob"), (200,)),
        (1, "POST", "/mail/sent.html", FORM, send.format("carol"), (200,)),
        (3, "POST", "/mail/sent.html", FORM, send.format("nobody"), (200,)),
        (2, "POST", "/mail/attached.html", FORM, "", (200,)),
        (2, "GET", "/mail/collect.html", "", "", (200,)),
        (6, "GET", "/webmail/client.html", credentials("ada"), "", (200,)),
        (1, "GET", "/webmail/client.html?action=Check", credentials("ada"), "", (200,)),
        # The page /include/login.html guesses at this user's password, which closes the user to new addresses.
        (6, "GET", "/private/", credentials("visitor"), "", (200, 429)),
        (6, "GET", "/private/", "", "", (401,)),
        (6, "GET", "/plx-admin/", credentials("keeper"), "", (200,)),
        (6, "GET", "/plx-admin/metrics", credentials("keeper"), "", (200,)),
        (6, "GET", "/no-such-page.html", "", "", (404,)),
        (6, "GET", "/SendMail", "", "", (200, 403)),
        (6, "GET", "/%2e%2e/%2e%2e/etc/passwd", "", "", (400, 404))]
    return requests


async def visit(number, port, until, tally, seed):
    choice = random.Random(seed * 1000 + number)
    requests = demo_requests()
    weights = [row[0] for row in requests]
    client = Client(port, f"127.0.0.{2 + number % 200}")
    while time.monotonic() < until:
        _, method, path, headers, body, expected = choice.choices(requests, weights)[0]
        begun = time.monotonic()
        status, text = await client.ask(method, path, headers, body)
        tally.times.setdefault(path.split("?")[0], []).append(time.monotonic() - begun)
        tally.statuses[status] = tally.statuses.get(status, 0) + 1
        hasProblem = b"This part of the page" in text and "records.html" not in path and "problems.html" not in path
        if (status not in expected or hasProblem) and status != 503:
            tally.wrong.setdefault(f"{method} {path}", []).append(f"{status} {text[text.find(b'This part'):][:300]!r}")
        if status == 503:
            tally.busy += 1
        await asyncio.sleep(choice.random() * tally.pause)
    await client.close()


class Tally:
    def __init__(self, pause):
        self.statuses, self.times, self.wrong, self.busy, self.pause = {}, {}, {}, 0, pause


async def watch(process, until, samples):
    while time.monotonic() < until:
        samples.append((process.memory(), process.files(), process.threads()))
        await asyncio.sleep(1)


def growth(samples, column):
    """Of the median of the last third over that of the third before it, in percent. Peaks say nothing: hashing a password takes
    16 MB for a moment."""
    third = len(samples) // 3
    middle = lambda rows: statistics.median(row[column] for row in rows)
    return (middle(samples[2 * third:]) / middle(samples[third:2 * third]) - 1) * 100


def visitors(options):
    """200 clients over all pages of the demo, with a real mail server."""
    mail = MailServer()
    server = demo_server(mail)
    server.request("POST", "/webmail/addUser.html", "username=ada&password=pw", {"Content-Type": FORM[14:-2]})
    options_form = {"1plxEmailClientAction=ip1lcx": "Save", "Name_plxEmailClient": "Ada", "EmailAddress_plxEmailClient": "ada@test",
                    "POPUsername_plxEmailClient": "carol", "POPPassword_plxEmailClient": "secret3",
                    "POPServer_plxEmailClient": f"127.0.0.1:{mail.pop3_port}", "SMTPServer_plxEmailClient": mail.address}
    server.request("POST", "/webmail/client.html", urllib.parse.urlencode(options_form), {"Content-Type": FORM[14:-2]}, ("ada", "pw"))
    process, samples, tally = Process(server.process.pid), [], Tally(1.0)

    async def run():
        until = time.monotonic() + options.minutes * 60
        await asyncio.gather(watch(process, until, samples),
                             *(visit(number, server.port, until, tally, options.seed) for number in range(200)))

    # Mail is collected as it comes, so that the last minute is like the first.
    over = threading.Event()

    def empty_mailboxes():
        while not over.wait(15):
            for name, password in (("alice", "secret"), ("bob", "secret2"), ("carol", "secret3")):
                with contextlib.suppress(poplib.error_proto, OSError):
                    mail.messages(name, password)

    janitor = threading.Thread(target=empty_mailboxes)
    janitor.start()
    asyncio.run(run())
    over.set()
    janitor.join()
    count = sum(tally.statuses.values())
    print(f"  {count} requests in {options.minutes} min ({count / options.minutes / 60:.0f}/s): {tally.statuses}")
    slow = sorted(((statistics.median(times), max(times), path) for path, times in tally.times.items()), reverse=True)
    for median, longest, path in slow[:6]:
        print(f"    {path:24} median {median * 1000:7.1f} ms, longest {longest * 1000:8.1f} ms")
    print(f"  memory {samples[0][0]:.1f} MB at the start, {max(row[0] for row in samples):.1f} MB at most; files "
          f"{max(row[1] for row in samples)} and threads {max(row[2] for row in samples)} at most")
    for path, example in tally.wrong.items():
        print(f"    {len(example)} times {path}: {example[0]}")
    claim(not tally.wrong, f"no answer but stated ones ({sum(map(len, tally.wrong.values()))} others)")
    if options.minutes >= 5:
        claim(growth(samples, 0) < 1, f"resident memory is flat after warm-up ({growth(samples, 0):+.2f} %)")
        claim(growth(samples, 1) < 10, f"open files are flat after warm-up ({growth(samples, 1):+.2f} %)")
    else:
        print(f"  memory {growth(samples, 0):+.2f} %, files {growth(samples, 1):+.2f} % in the last third (too short a run to claim)")

    def is_quiet():
        figures = server.request("GET", "/plx-admin/metrics", user=("keeper", BASIC["keeper"])).text
        return re.search(r"pages_running 0\n", figures) and re.search(r"pages_given_up 0\n", figures)
    claim(wait(is_quiet, 60), "no page hangs when the visitors have left")
    claim("error" not in re.sub(r".* Network Module: (mail|include|mailbox) .*|SendMail|failed", "", server.said()).lower(), "nothing was complained about on standard error")
    claim(server.stop() == 0, "the server stops in order")
    mail.stop()


def wait(condition, seconds):
    until = time.monotonic() + seconds
    while time.monotonic() < until:
        if condition():
            return True
        time.sleep(0.05)
    return False


# ---- Limits ----

def limits(options):
    """More visitors than the house holds: 503 at once, and service again when they leave."""
    peer = Listener(lambda connection: (connection.recv(65536), time.sleep(2), connection.sendall(b"HTTP/1.0 200 OK\r\n\r\nlate")))
    server = start("page-threads = 8\nwaiting-pages = 8\nconnections = 300\nconnections-per-address = 0",
                   {**{f"slow{number}.html": f'<plxIncludeHTTP url="{peer.url}/">' for number in range(10)},
                    "page.html": "here", "file.txt": "file"})

    async def run():
        clients = [Client(server.port) for _ in range(100)]
        waiting = [asyncio.create_task(client.ask("GET", f"/slow{number % 10}.html")) for number, client in enumerate(clients)]
        await asyncio.sleep(1)
        begun = time.monotonic()
        refused = await Client(server.port).ask("GET", "/page.html")
        took = time.monotonic() - begun
        file = await Client(server.port).ask("GET", "/file.txt")
        statuses = [status for status, _ in await asyncio.gather(*waiting)]
        claim(refused[0] == 503, f"beyond the limit the answer is 503 at once ({took * 1000:.1f} ms)")
        claim(file[0] == 200, "files are served all the same")
        claim(statuses.count(200) == 16 and statuses.count(503) == 84, f"who was let in is served ({statuses.count(200)}), the others are told")
        begun = time.monotonic()
        status, _ = await Client(server.port).ask("GET", "/page.html")
        claim(status == 200, f"service again at once when the load falls ({(time.monotonic() - begun) * 1000:.1f} ms)")
        held = [Client(server.port) for _ in range(300)]
        await asyncio.gather(*(client.ask("GET", "/file.txt") for client in held))
        status, _ = await Client(server.port).ask("GET", "/file.txt")
        claim(status == 503, "a connection beyond the limit is told, too")
        await asyncio.gather(*(client.close() for client in held))
        await asyncio.sleep(0.2)
        status, _ = await Client(server.port).ask("GET", "/file.txt")
        claim(status == 200, "and served when others have left")

    asyncio.run(run())
    claim(server.stop() == 0, "the server stops in order")
    peer.close()


# ---- Pages within pages ----

def nested(options):
    """Pages that include pages that include a third, at every limit."""
    pages = {"third.html": "core"}
    for number in range(100):
        pages[f"outer{number}.html"] = f'(<plxIncludeHTTP url="middle{number}.html">)'
        pages[f"middle{number}.html"] = '[<plxIncludeHTTP url="third.html">]'
    for threads, waiting_pages in ((1, 0), (2, 4), (8, 1000), (100, 0), (256, 1024)):
        server = start(f"page-threads = {threads}\nwaiting-pages = {waiting_pages}\nconnections-per-address = 0", pages)

        async def run():
            asked = [Client(server.port).ask("GET", f"/outer{number}.html", patience=60) for number in range(100)]
            return await asyncio.gather(*asked)

        begun = time.monotonic()
        answers = asyncio.run(run())
        whole = sum(body == b"([core])" for _, body in answers)
        claim({status for status, _ in answers} <= {200, 503},
              f"{threads} threads, {waiting_pages} waiting: all answered in {time.monotonic() - begun:.2f} s, {whole} of 100 whole")
        if threads == 256:
            claim(whole == 100, "all whole where there is room")
        claim(server.get("/third.html").text == "core" and server.stop() == 0, "and the server goes on and stops in order")


# ---- Silent peers ----

def silent(options):
    """A page whose peer accepts and says nothing."""
    release = threading.Event()
    peer = Listener(lambda connection: (connection.recv(65536), release.wait()))
    server = start("page-threads = 16\noverdue-pages = 16\npage-time = 2\nconnections-per-address = 0",
                   {"hangs.html": f'<plxIncludeHTTP url="{peer.url}/">', "page.html": "here"}, login=("keeper", BASIC["keeper"]))
    process = Process(server.process.pid)

    async def run():
        until = time.monotonic() + 8
        statuses, others = [], []

        async def hang(number):
            while time.monotonic() < until:
                begun = time.monotonic()
                status, body = await Client(server.port, f"127.0.0.{2 + number}").ask("GET", "/hangs.html")
                statuses.append((status, time.monotonic() - begun))
                await asyncio.sleep(0.05)

        async def look():
            while time.monotonic() < until:
                for path, headers in (("/page.html", ""), ("/plx-admin/requests", credentials("keeper"))):
                    begun = time.monotonic()
                    status, _ = await Client(server.port).ask("GET", path, headers)
                    others.append((path, status, time.monotonic() - begun))
                await asyncio.sleep(0.1)

        await asyncio.gather(look(), *(hang(number) for number in range(8)))
        return statuses, others

    statuses, others = asyncio.run(run())
    count = lambda code: sum(status == code for status, _ in statuses)
    claim({status for status, _ in statuses} == {503, 504}, f"every visitor of the page is told: 504 {count(504)} times, 503 {count(503)} times")
    late = max(took for status, took in statuses if status == 504)
    claim(late < 2 + 3, f"by the page deadline of 2 s ({late:.2f} s at most)")
    admin = [row for row in others if row[0] != "/page.html"]
    claim(all(status == 200 for _, status, _ in others), f"other pages and the administration stay reachable ({len(others)} times, "
          f"at most {max(row[2] for row in others) * 1000:.0f} ms)")
    claim(bool(admin), "also while threads hang")
    figures = server.request("GET", "/plx-admin/metrics", user=("keeper", BASIC["keeper"])).text
    hanging = int(re.search(r"pages_given_up (\d+)", figures).group(1))
    claim(0 < hanging <= 16 and process.threads() <= 16 + 16 + 8, f"{hanging} pages hang, the process has {process.threads()} threads")
    release.set()

    def is_over():
        return "pages_given_up 0\n" in server.request("GET", "/plx-admin/metrics", user=("keeper", BASIC["keeper"])).text
    claim(wait(is_over, 30), "and all end when the peer closes")
    claim(server.stop() == 0, "the server stops in order")
    peer.close()


# ---- Clients that take their time ----

def slow(options):
    """Idle, dribbling and endless clients beside visitors."""
    server = start("connections = 2048\nconnections-per-address = 0\nheader-time = 8\nbody-time = 8",
                   {"page.html": "here &plxPath.n;", "file.txt": "file"})
    process = Process(server.process.pid)
    begun_at = process.memory()

    async def idle():
        client = Client(server.port, "127.0.0.9")
        await client.ask("GET", "/file.txt")
        return client

    async def dribble(start_text, piece, cut):
        reader, writer = await asyncio.open_connection("127.0.0.1", server.port)
        begun = time.monotonic()
        try:
            writer.write(start_text)
            while not reader.at_eof() and time.monotonic() < begun + 60:
                writer.write(piece)
                await writer.drain()
                with contextlib.suppress(asyncio.TimeoutError):
                    if not await asyncio.wait_for(reader.read(65536), 1):
                        break
        except OSError:
            pass
        cut.append(time.monotonic() - begun)
        writer.close()

    async def flood(start_text, piece, total, cut):
        """Sends without end, as fast as it is taken."""
        reader, writer = await asyncio.open_connection("127.0.0.1", server.port)
        begun, sent, answer = time.monotonic(), len(start_text), b""
        try:
            writer.write(start_text)
            while sent < total:
                writer.write(piece)
                await asyncio.wait_for(writer.drain(), 30)
                sent += len(piece)
        except (OSError, asyncio.TimeoutError):
            pass
        with contextlib.suppress(OSError, asyncio.TimeoutError):
            answer = await asyncio.wait_for(reader.read(100), 30)
        cut.append((time.monotonic() - begun, answer[9:12]))
        writer.close()

    async def run():
        idlers = await asyncio.gather(*(idle() for _ in range(900)))
        headers, bodies, floods, taken = [], [], [], []
        offenders = [asyncio.create_task(dribble(b"GET /page.html HTTP/1.1\r\nHost: x\r\nX: ", b"x", headers)) for _ in range(25)]
        offenders += [asyncio.create_task(dribble(b"POST /page.html HTTP/1.1\r\nHost: x\r\nContent-Type: text/plain\r\n"
                                                  b"Content-Length: 100000\r\n\r\n", b"x", bodies)) for _ in range(25)]
        offenders += [asyncio.create_task(flood(b"GET / HTTP/1.1\r\n", b"X-%d: y\r\n" % number * 1000, 64 << 20, floods)) for number in range(5)]
        offenders += [asyncio.create_task(flood(b"GET /", b"a" * 65536, 64 << 20, floods)) for _ in range(5)]
        until, highest = time.monotonic() + 6, 0
        while time.monotonic() < until:
            begun = time.monotonic()
            status, _ = await Client(server.port).ask("GET", "/page.html?n=1")
            taken.append((status, time.monotonic() - begun))
            highest = max(highest, process.memory())
            await asyncio.sleep(0.02)
        await asyncio.gather(*offenders)
        for client in idlers:
            await client.close()
        return headers, bodies, floods, taken, highest

    headers, bodies, floods, taken, highest = asyncio.run(run())
    times = sorted(took for _, took in taken)
    claim(all(status == 200 for status, _ in taken), f"{len(taken)} new clients are served meanwhile: median {times[len(times) // 2] * 1000:.1f} ms, "
          f"99 % {times[len(times) * 99 // 100] * 1000:.1f} ms (this machine also runs the offenders)")
    claim(all(took < 8 + 3 for took in headers), f"a byte a second of header is cut at the deadline of 8 s ({max(headers):.1f} s)")
    claim(all(took < 8 + 6 + 3 for took in bodies), f"a byte a second of body is cut at its deadline ({max(bodies):.1f} s)")
    claim(all(status in (b"400", b"414", b"431", b"") for _, status in floods), f"endless headers and lines are refused (in {max(took for took, _ in floods):.2f} s)")
    claim(highest - begun_at < 24, f"memory {begun_at:.1f} MB before, {highest:.1f} MB at most with all of them")
    claim(server.stop() == 0, "the server stops in order")


# ---- Nobody there ----

def idle(options):
    """An idle server costs nothing."""
    server = start(pages={"page.html": "here"})
    server.get("/page.html")
    process = Process(server.process.pid)
    time.sleep(3)  # the page's line reaches the log within a second
    before = process.switches()
    time.sleep(5)
    claim(process.switches() == before, f"no thread of an idle server wakes up in 5 s ({process.switches() - before} times)")
    print(f"  {process.memory():.1f} MB, {process.threads()} threads, {process.files()} files")
    claim(server.stop() == 0, "the server stops in order")


SCENARIOS = {"visitors": visitors, "limits": limits, "nested": nested, "silent": silent, "slow": slow, "idle": idle}


def main():
    parser = argparse.ArgumentParser(prog="script/soak", description=__doc__.split("\n")[0])
    parser.add_argument("--minutes", type=float, default=10, help="how long the visitors stay (10)")
    parser.add_argument("--seed", type=int, default=int(time.time()) % 100000)
    parser.add_argument("scenario", nargs="*", help="all of them without a name")
    options = parser.parse_args()
    print(f"seed {options.seed}")
    for name in options.scenario or SCENARIOS:
        print(f"{name}: {SCENARIOS[name].__doc__}", flush=True)
        SCENARIOS[name](options)
    print(f"{len(failures)} claims failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
