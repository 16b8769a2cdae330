"""Breaks what the server stands on, one fault at a time, and checks what it left. Called by script/torture."""
import argparse
import itertools
import os
import queue
import random
import sys
import threading
import time
import traceback
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "end-to-end"))
from faults import *
from scenarios import *


KINDS = ("fail", "kill", "short")
MAILBOXES = itertools.count()  # each fault has one of its own
MAILBOX_COUNT = 20000


class Bench:
    """One scenario's prepared state, from which every fault begins."""

    def __init__(self, name, mail, work, shortener):
        self.name, self.mail, self.work, self.shortener = name, mail, work / name, shortener
        self.work.mkdir()
        self.template = self.work / "template"
        server = Served(self.template)
        self.scenario().prepare(server)
        equal(server.end(), 0, "the exit code after preparing")

    def scenario(self):
        # What a mail server still delivers of the last fault's message must not meet the next one's mailbox.
        return SCENARIOS[self.name](self.mail, f"u{next(MAILBOXES)}")

    def act(self, scenario, server, fault):
        """The phase with the fault on; how many calls it met."""
        if isinstance(scenario, Command):
            trace = Trace(fault, command=[SERVER, *scenario.words(server), "--config", str(server.config)],
                          stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            trace.process.communicate(scenario.INPUT.encode())
            server.acked["done"] = trace.process.returncode == 0
            assert trace.process.returncode in (0, -9, 137) or trace.process.returncode < 128, \
                f"the command ended with {trace.process.returncode}"
        else:
            trace = Trace(fault, server.process.pid)
            try:
                scenario.act(server)
                scenario.settle(server)
            finally:
                counts = trace.end()
            return trace, counts
        return trace, trace.end()

    def count(self):
        """The calls of a run without a fault."""
        server = Served(self.work / "count", self.template)
        scenario = self.scenario()
        scenario.begin(server)
        _, counts = self.act(scenario, server, None)
        scenario.check(server, False)
        assert not server.acked or all(server.acked.values()), f"without a fault: {server.acked}"
        scenario.finish(server)
        scenario.check_end(server)
        equal(server.end(), 0, "the exit code")
        shutil.rmtree(server.folder)
        return counts

    def run(self, fault, worker):
        """Tries one fault; how many calls it met. What must not be is an AssertionError."""
        folder = self.work / f"w{worker}"
        shutil.rmtree(folder, ignore_errors=True)
        if fault.startswith("short:"):
            with self.shortener.environment(fault.split(":")[1]) as (count, environment):
                self.try_out(Served(folder, self.template, environment), self.scenario(), None, strict=True)
                return count()
        # SQLite takes an interrupted fsync for a failed one, and the loader of programs an interrupted read.
        strict = "EINTR" in fault and "sync" not in fault and not issubclass(SCENARIOS[self.name], Command)
        return self.try_out(Served(folder, self.template), self.scenario(), fault, strict)

    def try_out(self, server, scenario, fault, strict):
        try:
            scenario.begin(server)
            if fault is None:
                scenario.act(server)
                scenario.settle(server)
                injected = 1
            else:
                trace, _ = self.act(scenario, server, fault)
                injected = trace.injected
            killed = fault is not None and "SIGKILL" in fault and not isinstance(scenario, Command)
            if killed:
                with contextlib.suppress(subprocess.TimeoutExpired):
                    server.process.wait(10 if injected else 0.3)
                    injected = 1
                    server.output.close()
            if not server.alive():
                assert killed and server.process.returncode == -9, f"the server died: {server.process.returncode} {server.said()[-800:]}"
                server.start()
            equal(getattr(server.ask("/alive.html"), "text", None), "alive", "the server afterwards")
            if strict:
                assert all(server.acked.values()), f"an interruption shows: {server.acked}"
            scenario.check(server, killed)
            scenario.finish(server)
            scenario.check_end(server)
            equal(server.end(), 0, "the exit code")
            shutil.rmtree(server.folder)
            return injected
        finally:
            if server.alive():
                server.process.kill()
                server.process.wait()


def choose(bench, kinds, counts, number, generator):
    """Up to `number` of a kind's faults, all of them where there are no more."""
    if kinds == "short":
        return [f"short:{generator.randrange(1 << 30)}" for _ in range(max(1, number // 10))]
    faults = candidates(counts, kinds)
    return generator.sample(faults, min(number, len(faults)))


def main():
    parser = argparse.ArgumentParser(prog="script/torture", description="Makes system calls fail, be interrupted and be cut short, and kills "
                                     "the server at its writes; checks after each that nothing is lost, doubled or half there.")
    parser.add_argument("--seed", type=int, default=None, help="of the choice of faults")
    parser.add_argument("--budget", type=float, default=3600, help="seconds after which no new fault is begun")
    parser.add_argument("--thin", action="store_true", help="25 faults a scenario and at most four minutes")
    parser.add_argument("--fault", help="this one alone, as a failure named it")
    parser.add_argument("--jobs", type=int, default=6)
    parser.add_argument("--keep", action="store_true", help="leave the folders of failures")
    parser.add_argument("scenario", nargs="*", help=", ".join(SCENARIOS))
    arguments = parser.parse_args()
    names = arguments.scenario or list(SCENARIOS)
    if unknown := set(names) - set(SCENARIOS):
        parser.error("there is no scenario " + ", ".join(sorted(unknown)))
    seed = arguments.seed if arguments.seed is not None else random.SystemRandom().randrange(1 << 30)
    generator, start = random.Random(seed), time.monotonic()
    budget = min(arguments.budget, 200) if arguments.thin else arguments.budget
    print(f"seed {seed}", flush=True)

    work = Path(tempfile.mkdtemp(prefix="plx-torture."))
    work.chmod(0o755)
    mail = MailServer()
    (mail.folder / "users").write_text("".join(f"u{number}:secret\n" for number in range(MAILBOX_COUNT)))
    failed = False
    try:
        shortener = Shortener(work)
        benches, tasks, figures = {}, [], {}
        for name in names:
            benches[name] = Bench(name, mail, work, shortener)
            counts = {} if arguments.fault else benches[name].count()
            figures[name] = {"calls": sum(counts.values()), **dict.fromkeys(KINDS, 0), "hits": 0, "failures": []}
            if arguments.fault:
                tasks.append((name, arguments.fault))
                continue
            scenario = SCENARIOS[name]
            chosen = []
            for kind in scenario.KINDS:
                chosen += choose(benches[name], kind, counts, 25 // len(scenario.KINDS) if arguments.thin else scenario.RUNS, generator)
            tasks += [(name, fault) for fault in chosen]
        generator.shuffle(tasks)
        waiting, lock = queue.SimpleQueue(), threading.Lock()
        for task in tasks:
            waiting.put(task)

        def work_off(worker):
            while time.monotonic() - start < budget:
                try:
                    name, fault = waiting.get_nowait()
                except queue.Empty:
                    return
                problem = None
                try:
                    hits = benches[name].run(fault, worker)
                except Exception as error:
                    hits, problem = 1, error if isinstance(error, AssertionError) else traceback.format_exc()
                with lock:
                    figures[name]["short" if "short" in fault else "kill" if "SIGKILL" in fault else "fail"] += hits > 0
                    figures[name]["hits"] += hits
                    if problem:
                        figures[name]["failures"].append(fault)
                        print(f"FAILED {name} {fault}\n  {problem}\n  again: script/torture {name} --fault {fault}", flush=True)

        threads = [threading.Thread(target=work_off, args=(worker,), daemon=True) for worker in range(arguments.jobs)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        print(f"{'scenario':12} {'calls':>6} {'failed':>7} {'killed':>7} {'short':>6} {'met':>8} {'wrong':>6}")
        for name, row in figures.items():
            print(f"{name:12} {row['calls']:6} {row['fail']:7} {row['kill']:7} {row['short']:6} {row['hits']:8} {len(row['failures']):6}")
            failed |= bool(row["failures"])
        left = waiting.qsize()
        print(f"{time.monotonic() - start:.0f} seconds" + (f", {left} faults not tried for lack of time" if left else ""), flush=True)
    finally:
        mail.halt() if arguments.keep else mail.stop()
        if not arguments.keep:
            shutil.rmtree(work, ignore_errors=True)
    sys.exit(failed)


main()
