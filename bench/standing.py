"""What the server costs before and between requests: start to the first page, memory and wake-ups when idle, sizes; with the argument
"build", the time to build it from scratch."""
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from peers import MODULE, SERVER, SOURCE, Server, row, status, title


def start_to_first_page():
    """Seconds from the start of the process until the bytes of its first page are here."""
    server = Server({"n.html": "<p>&plxCGI.host;</p>"})
    best = 1e9
    try:
        address = server.config.read_text().replace('"127.0.0.1:0"', f'"{server.host}"')
        server.config.write_text(address)
        for _ in range(5):
            server.process.terminate()
            server.process.wait(30)
            begun = time.monotonic()
            server.process = subprocess.Popen([SERVER, "serve", "--config", str(server.config)], stdout=subprocess.DEVNULL,
                                              stderr=subprocess.DEVNULL, cwd=server.folder)
            while True:
                try:
                    assert server.get("/n.html").status == 200
                    break
                except ConnectionRefusedError:
                    time.sleep(0.0005)
            best = min(best, time.monotonic() - begun)
    finally:
        server.stop()
    return best


def wake_ups(pid):
    text = "".join(file.read_text() for file in Path(f"/proc/{pid}/task").glob("*/status"))
    return sum(int(line.split()[1]) for line in text.splitlines() if "voluntary_ctxt_switches" in line)


def idle():
    server = Server({"n.html": "<plxIncludeHTTP></plxIncludeHTTP>&plxCGI.host;"})
    try:
        fresh = status(server.process.pid, "VmRSS")
        for _ in range(100):
            assert server.get("/n.html").status == 200
        time.sleep(7)  # until clients that have left are forgotten
        before = wake_ups(server.process.pid)
        time.sleep(10)
        return fresh, status(server.process.pid, "VmRSS"), wake_ups(server.process.pid) - before
    finally:
        server.stop()


def stripped(file):
    with tempfile.NamedTemporaryFile() as copy:
        subprocess.run(["strip", "-o", copy.name, file], check=True)
        return os.path.getsize(copy.name)


def build():
    title("build from scratch, without ccache", "seconds", "others' load")
    for name, targets in (("server and module", ["plxserver", "plxmodule-network"]), ("everything", ["all"])):
        folder = tempfile.mkdtemp(prefix="plx-build.")
        try:
            begun = time.monotonic()
            load = os.getloadavg()[0]
            environment = {**os.environ, "CCACHE_DISABLE": "1"}
            subprocess.run(["cmake", "-G", "Ninja", "-S", SOURCE, "-B", folder, "-DCMAKE_BUILD_TYPE=RelWithDebInfo"], check=True,
                           stdout=subprocess.DEVNULL, env=environment)
            subprocess.run(["cmake", "--build", folder, "-j2", "--target", *targets, "--", "--quiet"], check=True, env=environment)
            row(name, f"{time.monotonic() - begun:.0f}", f"{load:.1f}")
        finally:
            shutil.rmtree(folder)


def main():
    if sys.argv[1:] == ["build"]:
        return build()
    title("standing still", "found", "aim")
    row("start to first page, ms", f"{start_to_first_page() * 1e3:.1f}", "100")
    fresh, used, woken = idle()
    row("memory, freshly started, MB", f"{fresh / 1e6:.1f}", "32")
    row("memory, after 100 pages, MB", f"{used / 1e6:.1f}", "32")
    row("wake-ups in 10 seconds", woken, "0")
    for name, file in (("server", SERVER), ("module", MODULE)):
        row(f"{name}, stripped, MB", f"{stripped(file) / 1e6:.2f}")
        row(f"{name}, with what a debugger wants, MB", f"{os.path.getsize(file) / 1e6:.2f}")


main()
