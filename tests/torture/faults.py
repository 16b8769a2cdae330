"""Faults from outside: strace attached to a running process, and a library that makes transfers short.

A fault is a text: "CALL:error=E:when=K", the K-th call of each thread fails ("K+" from there on); "CALL:signal=SIGKILL:when=K", the
process dies as the call begins; "short:SEED", every transfer of the process moves as much as a seeded generator says and is
interrupted now and then. strace counts calls for each thread by itself."""
import collections
import contextlib
import mmap
import os
import re
import signal
import struct
import subprocess
import tempfile
from pathlib import Path

# What a call may answer on a machine in trouble.
ERRORS = {
    "openat": ("EMFILE", "EACCES", "EIO"), "read": ("EIO",), "pread64": ("EIO",), "getdents64": ("EIO",),
    "write": ("ENOSPC", "EIO"), "pwrite64": ("ENOSPC", "EIO"), "pwritev2": ("ENOSPC", "EIO"), "ftruncate": ("EIO",),
    "fsync": ("EIO", "ENOSPC"), "fdatasync": ("EIO", "ENOSPC"), "rename": ("EACCES", "ENOSPC"), "renameat": ("EACCES", "EIO"),
    "renameat2": ("EACCES", "ENOSPC"), "unlink": ("EACCES", "EIO"), "unlinkat": ("EACCES", "EIO"), "mkdir": ("ENOSPC", "EACCES"),
    "socket": ("EMFILE",), "connect": ("ECONNREFUSED", "ETIMEDOUT"), "accept": ("EMFILE", "ECONNABORTED"),
    "recvfrom": ("ECONNRESET",), "recvmsg": ("ECONNRESET",), "sendto": ("EPIPE", "ECONNRESET"), "sendmsg": ("EPIPE", "ECONNRESET"),
    "sendfile": ("EIO",), "clone3": ("EAGAIN",), "lseek": ("EIO",),
}
# A call that a signal interrupts has done nothing, and is to be repeated.
INTERRUPTED = ("openat", "read", "write", "pread64", "pwrite64", "pwritev2", "recvfrom", "recvmsg", "sendto", "sendmsg", "poll",
               "epoll_wait", "accept", "fsync", "fdatasync", "ftruncate")
# Between two of these the state that others see does not change.
KILLED = ("openat", "write", "pwrite64", "pwritev2", "rename", "renameat", "renameat2", "fsync", "fdatasync", "ftruncate", "unlink",
          "unlinkat", "rmdir", "mkdir", "sendto", "sendmsg", "connect", "recvfrom")
CALLS = sorted({*ERRORS, *INTERRUPTED, *KILLED})


def candidates(counts, kinds):
    """All faults of a kind for a run that made so many calls."""
    found = []
    for call, count in sorted(counts.items()):
        for k in range(1, count + 1):
            if "fail" in kinds:
                for error in ERRORS.get(call, ()):
                    found += [f"{call}:error={error}:when={k}", f"{call}:error={error}:when={k}+"]
                if call in INTERRUPTED:
                    found.append(f"{call}:error=EINTR:when={k}")
            if "kill" in kinds and call in KILLED:
                found.append(f"{call}:signal=SIGKILL:when={k}")
    return found


class Trace:
    """strace on a process that runs, or that it starts. `injected` counts the calls that the fault met."""

    def __init__(self, fault=None, pid=None, command=None, **options):
        self.file = tempfile.NamedTemporaryFile(prefix="plx-trace.", delete=False)
        words = ["strace", "-f", "-o", self.file.name]
        words += ["-e", "trace=" + ",".join("?" + call for call in CALLS)] if fault is None else [
            "-e", "trace=" + fault.split(":")[0], "-e", "inject=" + fault]
        if command:
            self.process = subprocess.Popen([*words, "--", *command], **options)
            return
        self.process = subprocess.Popen([*words, "-p", str(pid)], stderr=subprocess.PIPE)
        line = self.process.stderr.readline()
        assert b"attached" in line, line

    def end(self):
        """Leaves the process as it is. The traced calls of the thread that made most, by name."""
        self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(3)
        except subprocess.TimeoutExpired:  # it waits for a thread of a process that was killed
            self.process.kill()
            self.process.wait()
        if self.process.stderr:
            self.process.stderr.close()
        text = Path(self.file.name).read_text(errors="replace")
        os.unlink(self.file.name)
        self.file.close()
        self.injected = text.count("(INJECTED)") or int("+++ killed by SIGKILL" in text)
        threads = collections.Counter(re.findall(r"(?m)^(\d+) +(\w+)\(", text))
        counts = collections.defaultdict(int)
        for (_, call), count in threads.items():
            counts[call] = max(counts[call], count)
        return dict(counts)


class Shortener:
    """The library that makes transfers short, built once; a figure that processes share counts what it did."""

    def __init__(self, folder):
        self.library = folder / "short.so"
        subprocess.run(["cc", "-O2", "-shared", "-fPIC", "-o", self.library, Path(__file__).with_name("short.c"), "-ldl"], check=True)

    @contextlib.contextmanager
    def environment(self, seed):
        with tempfile.NamedTemporaryFile(prefix="plx-short.") as file:
            file.write(bytes(8))
            file.flush()
            count = lambda: struct.unpack("Q", Path(file.name).read_bytes())[0]
            yield count, {"LD_PRELOAD": str(self.library), "PLX_SHORT_SEED": str(seed), "PLX_SHORT_COUNT": file.name}
