"""The record engine beside plain sqlite3, and over ODBC to a PostgreSQL of its own beside plain unixODBC. The argument is a regular
expression over the names of benchmarks."""
import os
import subprocess
import sys
import tempfile

from peers import SOURCE, free_port

BUILD = SOURCE / "build" / "release" / "bench"


def main():
    folder, port = tempfile.mkdtemp(prefix="plx-postgres."), free_port()
    os.chmod(folder, 0o755)
    server = subprocess.Popen(["bash", SOURCE / "tests" / "support" / "postgres.sh", folder, str(port)], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE)
    try:
        environment = dict(os.environ)
        if server.stdout.readline() == b"ready\n":
            environment |= {"PLX_BENCH_SOURCE": f"Driver=psqlodbcw.so;Servername=127.0.0.1;Database=test;Port={port}",
                            "PLX_BENCH_USER": "test", "PLX_BENCH_PASSWORD": "test,pass;{word}"}
        with open(BUILD.parent / "bench.json", "wb") as output:
            subprocess.run([BUILD / "plx-server-bench", f"--benchmark_filter={(sys.argv + ['Record'])[1]}", "--benchmark_format=json"],
                           stdout=output, stderr=subprocess.DEVNULL, env=environment, check=True)
        subprocess.run([sys.executable, SOURCE / "bench" / "ratios.py", BUILD.parent / "bench.json"], check=True)
    finally:
        server.stdin.close()
        server.stdout.close()
        server.wait(30)


main()
