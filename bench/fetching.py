"""Fetching by HTTP/1.0 from nginx, which closes, beside libcurl with HTTP/1.0: both into one text, in a process of their own."""
from peers import nginx, once, row, title

SIZES = {"1 KB": (1 << 10, 2000), "1 MB": (1 << 20, 200), "100 MB": (100 << 20, 5)}


def main():
    with nginx({name.replace(" ", ""): b"x" * size for name, (size, _) in SIZES.items()}) as (url, _):
        title("fetched from nginx", "ours us", "libcurl us", "ratio", "peak MB", "libcurl's")
        for name, (size, times) in SIZES.items():
            best = {}
            for kind in ("http", "curl") * 3:
                found = once(kind, f"{url}/{name.replace(' ', '')}", times)
                assert found[kind][2] == size, found
                best[kind] = min(best.get(kind, (1e9, 0)), (found[kind][0], found["peak"][2]))
            ours, theirs = best["http"], best["curl"]
            row(name, ours[0] * 1e6, theirs[0] * 1e6, f"{theirs[0] / ours[0]:.2f}", ours[1] / 1e6, theirs[1] / 1e6)


main()
