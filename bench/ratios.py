"""Prints each benchmark beside its peers: BM_Name/size beside BM_Name_Peer/size, as peer's time / our time."""
import json
import sys

with open(sys.argv[1]) as file:
    runs = {run["name"]: run["cpu_time"] * {"ns": 1, "us": 1e3, "ms": 1e6}[run["time_unit"]]
            for run in json.load(file)["benchmarks"]}

print(f"{'work':44} {'ours':>12}  peers (above 1.00 we are faster)")
for name, ours in runs.items():
    base, _, size = name.partition("/")
    if any(name != other and base.startswith(other.partition("/")[0] + "_") for other in runs):
        continue
    peers = [f"{other.partition('/')[0][len(base) + 1:]} {theirs / ours:.2f}" for other, theirs in runs.items()
             if other.startswith(base + "_") and other.partition("/")[2] == size]
    print(f"{name[3:]:44} {ours:10.1f} ns  {', '.join(peers)}")
