"""What takes twice as long for twice as much, and how much memory it holds meanwhile: each work at n, 2n, 4n and 8n, in a process
of its own. Time may grow by 2.2 for each doubling, the peak, less what the process holds idle, to four times the largest text.

Time is what the process, the server for a page, had of the processor: a clock would show peers, disks and silences. An argument is
a regular expression over the names of works."""
import re
import sys
import tempfile
import time

from mail import fill
from peers import MailServer, Server, doublings, nginx, once, processor_seconds, status

MEGABYTES = (8, 16, 32, 64)
ITEMS = (125_000, 250_000, 500_000, 1_000_000)
IDLE = 4 << 20  # what plx-bench-once itself takes


def best(work, times=3):
    return min((work() for _ in range(times)), key=lambda found: found[0])


def by_once(name, sizes, texts, arguments, key):
    found = [best(lambda size=size: (lambda all_of: (all_of[key][1], all_of["peak"][2] - IDLE))(once(*arguments(size)))) for size in sizes]
    doublings(name, [f"{size:,}" for size in sizes], [one[0] for one in found], [one[1] for one in found], texts)


def fetching():
    with nginx({f"{size}.bin": b"x" * (size << 20) for size in MEGABYTES}) as (url, _):
        by_once("HTTP answer fetched, MB", MEGABYTES, [size << 20 for size in MEGABYTES],
                lambda size: ("http", f"{url}/{size}.bin", 3), "http")


def retrieving():
    mail = MailServer()
    try:
        fill(mail, [b"Subject: n\r\n\r\n" + (b"x" * 70 + b"\r\n") * ((size << 20) // 72) for size in MEGABYTES])
        by_once("POP3 RETR, MB", MEGABYTES, [size << 20 for size in MEGABYTES],
                lambda size: ("retr", f"127.0.0.1:{mail.pop3_port}", "alice", "secret", MEGABYTES.index(size) + 1), "retr")
    finally:
        mail.stop()


def counting():
    def one(size):
        with tempfile.TemporaryDirectory(prefix="plx-bench.") as folder:
            return once("mailbox", folder, size)
    found = [one(size) for size in ITEMS]
    for name in ("add", "count", "list"):
        doublings(f"mailbox: {name}, messages", [f"{size:,}" for size in ITEMS], [run[name][1] for run in found],
                  [run["peak"][2] - IDLE for run in found], [1300 * size for size in ITEMS] if name == "add" else None)


def each_size(name, sizes, setup, path):
    """A new server for each size, so that each has a peak of its own. The text is the page."""
    found = []
    for size in sizes:
        server = setup(size)
        try:
            pid, times = server.process.pid, []
            idle = status(pid, "VmRSS")
            for _ in range(5):
                before = processor_seconds(pid)
                answer = server.get(path)
                times.append(processor_seconds(pid) - before)
                assert answer.status == 200, answer.text[:500]
                if len(times) == 1:
                    peak = status(pid, "VmHWM") - idle
            found.append((min(times), peak, len(answer.text)))
        finally:
            server.stop()
    doublings(name, [f"{size:,}" for size in sizes], [one[0] for one in found], [one[1] for one in found], [one[2] for one in found])


def answering():
    each_size("HTTP response: a file served, MB", MEGABYTES, lambda size: Server({"n.bin": b"x" * (size << 20)}), "/n.bin")


def rendering():
    unit = "<p>Some text of an ordinary page before a value: &plxCGI.host;</p>\n"
    each_size("page rendered, KB with a value in each 70 B", (4096, 8192, 16384, 32768),
              lambda size: Server({"n.html": unit * ((size << 10) // len(unit))}), "/n.html")


def listing():
    def setup(count):
        server = Server({"n.html": '<plxRecords database="N">&plxField.Name; &plxField.Number;\n</plxRecords>'})
        file = server.folder / "n.csv"
        file.write_text("Name,Number\n" + "".join(f"Name of {number},{number}\n" for number in range(count)))
        server.command("records", "import", "N", str(file))
        return server
    each_size("records listed, records", ITEMS, setup, "/n.html")


def sending():
    found = []
    for size in MEGABYTES:
        mail = MailServer()
        server = Server({"n.bin": bytes(range(256)) * (size << 12),
                         "n.html": f'<plxSendMail mailServer="{mail.address}" from="bob@test.org" to="alice@test" subject="n" '
                                   'attachmentFileLocation="n.bin">Hello</plxSendMail>'})
        try:
            pid = server.process.pid
            idle, before = status(pid, "VmRSS"), processor_seconds(pid)
            assert server.get("/n.html").status == 200
            boxes = mail.folder / "mail" / "alice" / "Maildir" / "new"
            until = time.monotonic() + 120
            while not (boxes.exists() and list(boxes.iterdir())):
                assert time.monotonic() < until
                time.sleep(0.02)
            # The text is the message, its attachment in lines of 76.
            found.append((processor_seconds(pid) - before, status(pid, "VmHWM") - idle, (size << 20) * 78 // 57))
        finally:
            server.stop()
            mail.stop()
    doublings("mail sent with an attachment, MB of it", [str(size) for size in MEGABYTES], [one[0] for one in found], [one[1] for one in found],
              [one[2] for one in found])


for work in (fetching, retrieving, counting, answering, rendering, listing, sending):
    if re.search(sys.argv[1] if len(sys.argv) > 1 else ".", work.__name__):
        work()
