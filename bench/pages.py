"""Pages per second of PLX Server beside nginx with server-side includes, Apache with mod_include and PHP's built-in server: the
same page with 0, 1 and 100 tags and with 10 values, and a file.

A tag of ours is switched off: a call into the module, its look at the switch, and back; the others' is a value that they put in."""
import contextlib
import re
import subprocess

from peers import Server, apache, nginx, php, row, title, tree_seconds

FILLER = "<p>" + "Some text of an ordinary page, as long as a paragraph is. " * 40 + "</p>\n"
COUNTS = {"no tag": 0, "1 tag": 1, "100 tags": 100}
VALUE = "10 values"
QUERY = "?name=Ada&more=text"


def pages(ending, tag, value):
    def page(text, count):
        return "<!DOCTYPE html>\n" + FILLER + (text + "\n") * count + FILLER
    files = {f"{count}.{ending}": page(tag, count) for count in COUNTS.values()}
    return files | {f"values.{ending}": page(value, 10), "file.txt": FILLER}


def visit(url, pid):
    """Pages per second, and microseconds of the server's processor for each."""
    before = tree_seconds(pid)
    output = subprocess.run(["wrk", "-t1", "-c16", "-d1s", url], capture_output=True, text=True, check=True).stdout
    used = tree_seconds(pid) - before
    # PHP's server closes each connection, which wrk takes for an error of reading.
    assert "Non-2xx" not in output and not re.search(r"connect [1-9]|write [1-9]|timeout [1-9]", output), output
    return float(re.search(r"Requests/sec:\s+([\d.]+)", output).group(1)), used / int(re.search(r"(\d+) requests in", output).group(1)) * 1e6


@contextlib.contextmanager
def ours(files):
    login = ("admin", "correct horse")
    server = Server(files, login=login)
    server.switch_tags_off(login)
    try:
        yield server.url, server.process.pid
    finally:
        server.stop()


def main():
    kinds = [(ours, "html", "<plxPOP>", "&plxPath.name;"), (nginx, "shtml", '<!--#echo var="host" -->', '<!--#echo var="arg_name" -->'),
             (apache, "shtml", '<!--#echo var="HTTP_HOST" -->', '<!--#echo var="QUERY_STRING" -->'),
             (php, "php", "<?= htmlspecialchars($_SERVER['HTTP_HOST']) ?>", "<?= htmlspecialchars($_GET['name']) ?>")]
    works = {name: f"{count}.ENDING" for name, count in COUNTS.items()} | {VALUE: "values.ENDING" + QUERY, "a file of 2 KB": "file.txt"}
    rates = {name: [0.0] * len(kinds) for name in works}
    costs = {name: [1e9] * len(kinds) for name in works}
    with contextlib.ExitStack() as stack:
        places = [stack.enter_context(kind[0](pages(*kind[1:]))) for kind in kinds]
        for _ in range(5):  # in turn, so that what else the machine does meets all of them
            for name, path in works.items():
                for index, (url, pid) in enumerate(places):
                    found, cost = visit(f"{url}/{path.replace('ENDING', kinds[index][1])}", pid)
                    rates[name][index] = max(rates[name][index], found)
                    costs[name][index] = min(costs[name][index], cost)
    title("pages per second", "ours", "nginx", "Apache", "PHP", "/ nginx", "/ Apache", "/ PHP")
    for name in works:
        row(name, *(f"{one:,.0f}" for one in rates[name]), *(f"{rates[name][0] / one:.2f}" for one in rates[name][1:]))
    title("microseconds of the processor for a page", "ours", "nginx", "Apache", "PHP", "nginx /", "Apache /", "PHP /")
    for name in works:
        row(name, *(f"{one:.1f}" for one in costs[name]), *(f"{one / costs[name][0]:.2f}" for one in costs[name][1:]))


main()
