"""Prints each benchmark beside its peers on the same input: peer's time / our time."""
import json
import re
import sys

PEERS = ("StdStrings", "StdStringKey", "StdString", "StdSearch", "StdEqual", "StdHash", "StdRegex", "Memmem", "StringViews", "Absl", "CppDecFloat",
         "OpenSSL", "Poco", "GLib", "Copy", "GMime", "VMime", "Gcrypt", "Nettle", "RE2", "PCRE2JIT", "Platform", "SQLiteByKey", "SQLite", "PlainODBC")


def cut(name):
    """BM_Work_Peer<parameters>/size as (work, peer or None, parameters)."""
    work, parameters = re.match(r"BM_([^</]*)(.*)", name).groups()
    for peer in PEERS:
        if work.endswith("_" + peer):
            return work[:-len(peer) - 1], peer, parameters
    return work, None, parameters


with open(sys.argv[1]) as file:
    # What waits for a disk is measured in real time, the rest in the processor's.
    runs = [(*cut(run["name"]), run["real_time" if run["name"].endswith("/real_time") else "cpu_time"] * {"ns": 1, "us": 1e3, "ms": 1e6}[run["time_unit"]])
            for run in json.load(file)["benchmarks"]]

print(f"{'work':48} {'ours':>14}  above 1.00 we are faster")
for work, peer, parameters, ours in runs:
    if peer is None:
        peers = [f"{other} {theirs / ours:.2f}" for base, other, same, theirs in runs
                 if other and same == parameters and base in (work, work.partition("_")[0])]
        print(f"{work + parameters:48} {ours:11.1f} ns  {', '.join(peers)}")
