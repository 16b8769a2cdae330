"""Pages per second of PLX Server beside nginx with server-side includes: the same page with 0, 1 and 100 tags, and a file.

A tag of ours is switched off: a call into the module, its look at the switch, and back; nginx's is a variable that it puts in itself."""
import re
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "end-to-end"))
from harness import Server, free_port  # noqa: E402

FILLER = "<p>" + "Some text of an ordinary page, as long as a paragraph is. " * 40 + "</p>\n"


def page(tag, count):
    return "<!DOCTYPE html>\n" + FILLER + (tag + "\n") * count + FILLER


def rate(url):
    best = 0.0
    for _ in range(3):
        output = subprocess.run(["wrk", "-t1", "-c16", "-d2s", url], capture_output=True, text=True, check=True).stdout
        assert "Non-2xx" not in output and "Socket errors" not in output, output
        best = max(best, float(re.search(r"Requests/sec:\s+([\d.]+)", output).group(1)))
    return best


def main():
    names = {"0 tags": 0, "1 tag": 1, "100 tags": 100}
    login = ("admin", "correct horse")
    ours = Server({f"{count}.html": page("<plxPOP>", count) for count in names.values()} | {"file.txt": FILLER}, login=login)
    ours.switch_tags_off(login)
    folder = Path(tempfile.mkdtemp(prefix="plx-bench."))
    folder.chmod(0o755)
    for count in names.values():
        (folder / f"{count}.shtml").write_text(page('<!--#echo var="host" -->', count))
    (folder / "file.txt").write_text(FILLER)
    port = free_port()
    (folder / "nginx.conf").write_text(
        f"daemon off; worker_processes 1; pid {folder}/nginx.pid; error_log {folder}/error.log;\n"
        f"user root; events {{ }} http {{ access_log {folder}/access.log; types {{ text/html shtml; }} server {{\n"
        f"listen 127.0.0.1:{port}; root {folder}; ssi on; keepalive_requests 1000000;\n"
        f"client_body_temp_path {folder}/t; proxy_temp_path {folder}/t; fastcgi_temp_path {folder}/t;\n"
        f"uwsgi_temp_path {folder}/t; scgi_temp_path {folder}/t; }} }}\n")
    nginx = subprocess.Popen(["/usr/sbin/nginx", "-e", f"{folder}/error.log", "-c", f"{folder}/nginx.conf"])
    try:
        subprocess.run(["curl", "-s", "--retry", "20", "--retry-connrefused", "--retry-delay", "0", "-o", "/dev/null",
                        f"http://127.0.0.1:{port}/file.txt"], check=True)
        print(f"{'page':10} {'ours/s':>10} {'nginx SSI/s':>12} {'ratio':>6}")
        for name, count in {**names, "file": None}.items():
            path = (f"{count}.html", f"{count}.shtml") if count is not None else ("file.txt", "file.txt")
            mine = rate(f"{ours.url}/{path[0]}")
            theirs = rate(f"http://127.0.0.1:{port}/{path[1]}")
            print(f"{name:10} {mine:10.0f} {theirs:12.0f} {mine / theirs:6.2f}")
    finally:
        nginx.terminate()
        nginx.wait()
        ours.stop()
        subprocess.run(["rm", "-rf", str(folder)], check=False)


main()
