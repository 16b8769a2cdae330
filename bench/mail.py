"""Collecting messages from a real POP3 server and sending messages to a real SMTP server, beside getmail6, msmtp and swaks. The
argument is the number of messages (20).

A reply of the SMTP server is over when the server has been silent for half a second, five times for each message; the sixth reply,
to the message, ends with the connection. That is the bound, and "beyond" what we take besides, measured at a server that answers at
once, because Exim itself takes its time over a message. An answer of a POP3 server says where it ends, and is not waited for."""
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from peers import Listener, MailServer, Server, once, row, timed, title

SILENCE, REPLIES = 0.5, 5


def collect(count):
    mail, server = MailServer(), Server()
    try:
        head = b"From: bob@test.org\r\nTo: alice@test\r\nSubject: number %d\r\n\r\n"
        mail.put("alice", *[head % number + b"Good morning\r\n" * 100 for number in range(count)])
        server.write("collect.html", f'<plxPOP username="alice" password="secret" databaseName="Mail" '
                     f'mailServer="127.0.0.1:{mail.pop3_port}">[&plxVariable.plxPOP_ResultCount;]')
        ours, answer = timed(lambda: server.get("/collect.html"))
        assert f"[{count}]" in answer.text, answer.text
        with tempfile.TemporaryDirectory(prefix="plx-bench.") as folder:
            for name in ("cur", "new", "tmp"):
                Path(folder, "box", name).mkdir(parents=True)
            Path(folder, "getmailrc").write_text(
                f"[retriever]\ntype = SimplePOP3Retriever\nserver = 127.0.0.1\nport = {mail.pop3_port}\nusername = alice\n"
                f"password = secret\n[destination]\ntype = Maildir\npath = {folder}/box/\n[options]\nread_all = true\nverbose = 0\n")
            user = "nobody" if os.geteuid() == 0 else None  # it delivers no mail as root
            if user:
                for file in [Path(folder), *Path(folder).rglob("*")]:
                    shutil.chown(file, user)
            theirs, done = timed(lambda: subprocess.run(["getmail", "--getmaildir", folder], capture_output=True, text=True, user=user,
                                                         group="nogroup" if user else None, extra_groups=[] if user else None))
            found = len(list(Path(folder, "box", "new").iterdir()))
            assert found == count, f"getmail: {found}: {done.stdout}{done.stderr}"
        title(f"collecting {count} messages", "seconds", "of silence", "beyond")
        row("plxPOP", f"{ours:.3f}", "0", f"{ours:.3f}")
        row("getmail6", f"{theirs:.3f}")
        row("ratio", f"{theirs / ours:.2f}")
    finally:
        server.stop()
        mail.stop()


def answer_at_once(connection):
    """An SMTP server that has nothing to think about."""
    file = connection.makefile("rb")
    connection.sendall(b"220 ready\r\n")
    for line in file:
        if line.startswith(b"DATA"):
            connection.sendall(b"354 go ahead\r\n")
            while file.readline() != b".\r\n":
                pass
        if line.startswith(b"QUIT"):
            break
        if not line.startswith(b"DATA"):
            connection.sendall(b"250 yes\r\n")
    connection.sendall(b"250 taken\r\n221 bye\r\n")


def arrived(mail):
    folder = mail.folder / "mail" / "alice" / "Maildir" / "new"
    return len(os.listdir(folder)) if folder.exists() else 0


def send_by_page(mail, count):
    """One page that hands over all messages; they are sent side by side. Until the page, and until the last has arrived."""
    tag = f'<plxSendMail mailServer="{mail.address}" from="bob@test.org" to="alice@test" subject="A message">Good morning.</plxSendMail>'
    server, before = Server({"send.html": tag * count}), arrived(mail)
    try:
        begun = time.monotonic()
        assert server.get("/send.html").status == 200
        page = time.monotonic() - begun
        while arrived(mail) < before + count:
            assert time.monotonic() < begun + 600
            time.sleep(0.005)
        return page, time.monotonic() - begun
    finally:
        server.stop()


def send(count):
    few = min(count, 20)
    bound = REPLIES * SILENCE
    mail, peer = MailServer(), Listener(answer_at_once)
    message = "Subject: A message\r\nFrom: bob@test.org\r\nTo: alice@test\r\n\r\nGood morning.\r\n"
    try:
        alone = once("send", f"127.0.0.1:{peer.port}", "bob@test.org", "alice@test", few)["send"][0]
        real = once("send", mail.address, "bob@test.org", "alice@test", few)["send"][0]
        page, last = send_by_page(mail, count)
        place = ["--host=127.0.0.1", f"--port={mail.smtp_port}"]

        def msmtp():
            for _ in range(few):
                subprocess.run(["msmtp", "--file=/dev/null", *place, "--from=bob@test.org", "alice@test"], input=message, text=True,
                               check=True)

        def swaks():
            for _ in range(few):
                subprocess.run(["swaks", "--server", mail.address, "--from", "bob@test.org", "--to", "alice@test", "--silent", "3"],
                               check=True)
        peers = {"msmtp": timed(msmtp)[0] / few, "swaks": timed(swaks)[0] / few}
        title("sending, one behind the other", "s/message", "of silence", "beyond", "beyond %")
        row("ours, a server that answers at once", f"{alone:.4f}", bound, f"{alone - bound:.4f}", f"{(alone / bound - 1) * 100:.2f}")
        row("ours, Exim", f"{real:.4f}", bound, f"{real - bound:.4f}", f"{(real / bound - 1) * 100:.2f}")
        for name, seconds in peers.items():
            row(name + ", Exim", f"{seconds:.4f}", 0)
        title(f"{count} messages from one page, side by side", "page s", "all arrived s", "of silence", "msmtp s", "swaks s")
        row("plxSendMail", f"{page:.3f}", f"{last:.3f}", bound, *(f"{seconds * count:.2f}" for seconds in peers.values()))
    finally:
        peer.close()
        mail.stop()


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 20
    collect(count)
    send(count)


if __name__ == "__main__":
    main()
