#!/usr/bin/env python3
"""Runs every benchmark program of a build and prints one Markdown table.

Each pair of benchmarks is registered as "<Operation>/ovra" and
"<Operation>/ref" and measured in the same process on the same data; the
table gives both times per operation, their ratio (ovra / ref, below 1 is
faster), both throughputs where bytes apply, and the target when one is set.

    python3 bench/run.py [BUILD_DIR] [extra benchmark options...]

BUILD_DIR defaults to build-bench; extra options (for example
--benchmark_repetitions=5 or --benchmark_filter=MD5) go to every program.
"""
import glob
import json
import os
import subprocess
import sys

# Targets: the first prefix an operation name starts with decides.
# (prefix, largest ratio allowed, or None for "report only")
TARGETS = [
    ("MD5 1 MiB", 1.1), ("SHA-1 1 MiB", 1.1), ("MD4 1 MiB", 1.1),
    ("HMAC", 1.0),
    ("DES", 1.0), ("RC2", 1.0), ("RC4", 1.25),
    ("RSA-2048", 3.0),
    ("Base64", 1.0),
    ("Format", 1.2),
    ("Messages", 1.2),
    ("Len/4096", 2.5), ("Len/65536", 2.5), ("Cmp/4096", 2.5), ("Cmp/65536", 2.5),
    ("Str/4096", 4.0), ("Str/65536", 4.0),
    ("Text ucs", 1.0),
    ("Text UTF-8", 0.25),
    ("PtrFromPtrMap sized", 1.5), ("PtrFromBstrMap sized", 1.5),
    ("PtrList", 1.0),
    ("FinderWalk ", 1.2), ("FinderWalk/", 1.2),
]
# Pairs measured against memcpy: the figure is the fraction of memcpy's
# bandwidth reached, and the target a lower bound on it.
BANDWIDTH_TARGETS = [("Checksum", 0.3), ("UTF-8 ASCII decode 1 MiB, vs copy", None),
                     ("UTF-8 ASCII decode", 0.8), ("UTF-8 ASCII", 0.3),
                     ("UTF-8", None)]


def target_for(name):
    for prefix, bound in BANDWIDTH_TARGETS:
        if name.startswith(prefix):
            return ("fraction", bound)
    for prefix, bound in TARGETS:
        if name.startswith(prefix):
            return ("ratio", bound)
    return None


def time_ns(bench):
    """Time per iteration in nanoseconds (Google Benchmark reports a unit)."""
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[bench.get("time_unit", "ns")]
    return bench["real_time"] * scale


def run_program(path, extra):
    out = subprocess.run([path, "--benchmark_format=json"] + extra,
                         check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                         text=True).stdout
    # A --benchmark_filter that matches nothing in this program prints nothing.
    return json.loads(out)["benchmarks"] if out.strip() else []


def collect(build_dir, extra):
    programs = sorted(p for p in glob.glob(os.path.join(build_dir, "bench", "*"))
                      if os.path.isfile(p) and os.access(p, os.X_OK)
                      and (os.path.basename(p).startswith("ovra_bench_")
                           or os.path.basename(p).endswith("Bench")))
    if not programs:
        sys.exit("no benchmark programs under %s/bench (configure with "
                 "-DOVRA_BUILD_BENCH=ON and build first)" % build_dir)
    pairs = {}
    order = []
    for program in programs:
        for bench in run_program(program, extra):
            # With repetitions, keep the median only.
            if bench.get("run_type") == "aggregate" and bench.get("aggregate_name") != "median":
                continue
            name = bench.get("run_name", bench["name"])
            for side in ("ovra", "ref"):
                suffix = "/" + side
                if suffix in name:
                    op = name[:name.index(suffix)] + name[name.index(suffix) + len(suffix):]
                    op = op.replace("/real_time", "")
                    if op not in pairs:
                        pairs[op] = {}
                        order.append(op)
                    pairs[op][side] = bench
    return order, pairs


def mbps(bench):
    rate = bench.get("bytes_per_second")
    return "%.0f" % (rate / 1e6) if rate else "-"


def main():
    args = sys.argv[1:]
    build_dir = args.pop(0) if args and not args[0].startswith("-") else "build-bench"
    order, pairs = collect(build_dir, args)
    print("| operation | ovra ns/op | ref ns/op | ratio | ovra MB/s | ref MB/s | target | |")
    print("|---|---|---|---|---|---|---|---|")
    missed = 0
    for op in order:
        pair = pairs[op]
        if "ovra" not in pair or "ref" not in pair:
            continue
        ours, ref = time_ns(pair["ovra"]), time_ns(pair["ref"])
        ratio = ours / ref if ref else float("inf")
        target = target_for(op)
        verdict, shown = "", "-"
        if target:
            kind, bound = target
            if kind == "ratio":
                shown = "<= %.2f" % bound
                ok = ratio <= bound
            elif bound is None:
                shown = "%.2f of memcpy" % (1 / ratio if ratio else 0)
                ok = None
            else:
                shown = ">= %.2f of memcpy (%.2f)" % (bound, 1 / ratio if ratio else 0)
                ok = ratio and 1 / ratio >= bound
            if ok is not None:
                verdict = "met" if ok else "MISSED"
                missed += 0 if ok else 1
        print("| %s | %.1f | %.1f | %.2f | %s | %s | %s | %s |"
              % (op, ours, ref, ratio, mbps(pair["ovra"]), mbps(pair["ref"]), shown, verdict))
    print("\n%d target(s) missed" % missed)


if __name__ == "__main__":
    main()
