"""What the benchmarks of the whole system stand on: peers on loopback that hold the same files, processes watched, a table."""
import contextlib
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(SOURCE / "tests" / "end-to-end"))
from harness import MODULE, SERVER, Listener, MailServer, Server, free_port  # noqa: E402

ONCE = os.environ.get("PLX_BENCH_ONCE", str(SOURCE / "build" / "release" / "bench" / "plx-bench-once"))


def title(work, *columns):
    print(f"\n{work:44}" + "".join(f" {column:>14}" for column in columns), flush=True)


def row(work, *values):
    print(f"{work:44}" + "".join(f" {value if isinstance(value, str) else format(value, ',.4g'):>14}" for value in values), flush=True)


def doublings(work, sizes, times, peaks=None, texts=None):
    """A row for each size, then whether time grows with it and how many times the largest text the peak holds."""
    title(work, "processor s", "for twice", "peak MB", "of its text")
    for index, size in enumerate(sizes):
        twice = f"{times[index] / times[index - 1]:.2f}" if index else ""
        more = (peaks[index] / 1e6, f"{peaks[index] / texts[index]:.2f}" if texts else "") if peaks else ("", "")
        row(size, f"{times[index]:.4f}", twice, *more)
    row("each doubling, on average", "", f"{(times[-1] / times[0]) ** (1 / (len(times) - 1)):.2f}")


def once(*arguments):
    """What plx-bench-once measured: a dict of (seconds, processor's seconds, bytes) by name."""
    output = subprocess.run([ONCE, *map(str, arguments)], capture_output=True, text=True, check=True, timeout=1200).stdout
    return {name: (float(seconds), float(used), int(count)) for name, seconds, used, count in (line.split() for line in output.splitlines())}


def status(pid, key):
    """A number of a process: VmRSS and VmHWM in bytes."""
    return int(re.search(rf"^{key}:\s+(\d+)", Path(f"/proc/{pid}/status").read_text(), re.M).group(1)) * 1024


def processor_seconds(pid):
    """Of all its threads, those that have ended too."""
    return time.clock_gettime(~pid << 3 | 2)


def tree_seconds(pid):
    """Of the processor, of a server and the workers that it has."""
    children = Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    return processor_seconds(pid) + sum(tree_seconds(int(child)) for child in children)


def timed(work):
    begun = time.monotonic()
    result = work()
    return time.monotonic() - begun, result


@contextlib.contextmanager
def folder_of(files):
    with tempfile.TemporaryDirectory(prefix="plx-bench.") as name:
        folder = Path(name)
        folder.chmod(0o755)
        for file, text in files.items():
            (folder / file).write_bytes(text if isinstance(text, bytes) else text.encode())
        yield folder


@contextlib.contextmanager
def serving(command, port):
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        subprocess.run(["curl", "-s", "--retry", "100", "--retry-connrefused", "--retry-delay", "0", "-o", "/dev/null",
                        f"http://127.0.0.1:{port}/"], check=True)
        yield f"http://127.0.0.1:{port}", process.pid
    finally:
        process.terminate()
        process.wait()


@contextlib.contextmanager
def nginx(files):
    """With server-side includes in .shtml files, one worker. Gives, as the others do, the address and the process."""
    with folder_of(files) as folder:
        port = free_port()
        (folder / "nginx.conf").write_text(
            f"daemon off; worker_processes 1; pid {folder}/nginx.pid; error_log {folder}/error.log; user root;\n"
            f"events {{ }} http {{ access_log {folder}/access.log; types {{ text/html shtml; }} server {{\n"
            f"listen 127.0.0.1:{port}; root {folder}; ssi on; keepalive_requests 1000000;\n"
            + "".join(f"{name}_temp_path {folder}/t; " for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi")) + "} }\n")
        with serving(["/usr/sbin/nginx", "-e", f"{folder}/error.log", "-c", f"{folder}/nginx.conf"], port) as place:
            yield place


@contextlib.contextmanager
def apache(files):
    """With mod_include for .shtml files and the event module, as Debian sets it up."""
    with folder_of(files) as folder:
        port = free_port()
        modules = ("mpm_event", "authz_core", "mime", "include")
        (folder / "apache.conf").write_text(
            "".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so\n" for name in modules) +
            f"ServerRoot {folder}\nServerName 127.0.0.1:{port}\nListen 127.0.0.1:{port}\nPidFile {folder}/apache.pid\n"
            f"DefaultRuntimeDir {folder}\nUser www-data\nGroup www-data\nErrorLog {folder}/error.log\n"
            f"CustomLog {folder}/access.log \"%h %l %u %t \\\"%r\\\" %>s %O \\\"%{{Referer}}i\\\" \\\"%{{User-Agent}}i\\\"\"\n"
            f"DocumentRoot {folder}\nTypesConfig /etc/mime.types\nMaxKeepAliveRequests 0\n"
            f"<Directory {folder}>\nOptions +Includes\nRequire all granted\n</Directory>\n"
            "AddType text/html .shtml\nAddOutputFilter INCLUDES .shtml\n")
        with serving(["/usr/sbin/apache2", "-d", str(folder), "-f", f"{folder}/apache.conf", "-DFOREGROUND"], port) as place:
            yield place


@contextlib.contextmanager
def php(files):
    """PHP's built-in server, one process."""
    with folder_of(files) as folder:
        port = free_port()
        with serving(["php", "-q", "-S", f"127.0.0.1:{port}", "-t", str(folder)], port) as place:
            yield place
