"""A mailbox of web mail beside a Maildir and an mbox file with the same messages, both by Python's mailbox: added one by one,
counted, and listed with their subjects. The argument is the number of messages."""
import mailbox
import sys
import tempfile

from peers import once, row, timed, title


def message(number):
    return (f"From: ada@example.com\nSubject: Number {number}\nDate: Mon, 6 Jul 2026 10:00:00 +0000\n\n" + "x" * 1000 + "\n").encode()


def theirs(box, reopen, count):
    def add():
        for number in range(count):
            box.add(message(number))
        box.flush()
    seconds = {"add": timed(add)[0]}
    seconds["count"], found = timed(lambda: len(reopen()))
    assert found == count
    seconds["list"], subjects = timed(lambda: [one["Subject"] for one in reopen()])
    assert len(subjects) == count and subjects[0].startswith("Number")
    return seconds


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 100000
    with tempfile.TemporaryDirectory(prefix="plx-bench.") as folder:
        ours = {name: seconds for name, (seconds, *_) in once("mailbox", folder, count).items()}
    title(f"mailbox of {count:,} messages, seconds", "ours", "Maildir", "mbox", "/ Maildir", "/ mbox")
    with tempfile.TemporaryDirectory(prefix="plx-bench.") as folder:
        maildir = theirs(mailbox.Maildir(folder + "/d"), lambda: mailbox.Maildir(folder + "/d"), count)
    with tempfile.TemporaryDirectory(prefix="plx-bench.") as folder:
        mbox = theirs(mailbox.mbox(folder + "/m"), lambda: mailbox.mbox(folder + "/m"), count)
    for name in ("add", "count", "list"):
        row(name, ours[name], maildir[name], mbox[name], f"{maildir[name] / ours[name]:.1f}", f"{mbox[name] / ours[name]:.1f}")


main()
