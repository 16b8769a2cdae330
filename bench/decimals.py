"""Decimals beside Python's decimal, which is libmpdec: values of 38 and 100 digits as plx-bench has them, the interpreter's own time for the
loop taken off."""
import decimal
import json
import random
import subprocess
import timeit

from peers import SOURCE, row, title

NAMES = {"parse": "NumberParse<%d>", "print": "NumberPrint<%d>", "add": "Number<%d, Sum>", "multiply": "Number<%d, Product>",
         "divide": "Number<%d, Quotient>"}


def theirs(digits):
    """Nanoseconds for one of each."""
    choose = random.Random(digits)
    scale = 8 if digits == 38 else digits // 2

    def value(integral, fraction):
        return "".join(choose.choice("123456789") for _ in range(integral)) + "." + "".join(choose.choice("123456789") for _ in range(fraction))
    decimal.setcontext(decimal.Context(prec=digits, rounding=decimal.ROUND_HALF_UP))
    text = value(digits - scale, scale)
    names = {"Decimal": decimal.Decimal, "text": text, "whole": decimal.Decimal(text), "left": decimal.Decimal(value(digits // 4, scale)),
             "right": decimal.Decimal(value(digits // 8, scale // 2))}
    work = {"parse": "Decimal(text)", "print": "str(whole)", "add": "left + right", "multiply": "left * right", "divide": "left / right"}
    loop = min(timeit.repeat("left", globals=names, number=1000000, repeat=5))
    return {name: (min(timeit.repeat(code, globals=names, number=1000000, repeat=5)) - loop) * 1e3 for name, code in work.items()}


def main():
    output = subprocess.run([SOURCE / "build" / "release" / "bench" / "plx-bench", "--benchmark_filter=^BM_Number", "--benchmark_format=json"],
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout
    ours = {run["name"]: run["cpu_time"] for run in json.loads(output)["benchmarks"]}
    title("decimals, nanoseconds", "ours", "Python", "ratio")
    for digits in (38, 100):
        for name, peer in theirs(digits).items():
            mine = ours["BM_" + NAMES[name] % digits]
            row(f"{digits} digits, {name}", mine, peer, f"{peer / mine:.2f}")


main()
