#!/usr/bin/env python3
"""Reading time of MPS files against two peer programs, each in a fresh process.

    python3 bench/read/compare_peers.py [--qubor PATH] [--runs N] FILE.mps...

Per file: the least task-clock (CPU milliseconds, from `perf stat`) over N interleaved runs
of `glpsol --check --freemps FILE`, `clp FILE -quit` and `qubor info FILE --quiet`, and the
ratios of the peers' times to ours. Our time includes the library's start-up.
"""
import argparse
import os
import subprocess

ENV = dict(os.environ, OPENBLAS_NUM_THREADS="1")


def task_clock_ms(cmd):
    r = subprocess.run(["perf", "stat", "-x,", "-e", "task-clock"] + cmd, env=ENV,
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    for line in r.stderr.splitlines():
        if "task-clock" in line:
            return float(line.split(",")[0])
    raise RuntimeError("no task-clock for " + " ".join(cmd))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--qubor", default="build/qubor")
    ap.add_argument("--runs", type=int, default=9)
    ap.add_argument("files", nargs="+")
    a = ap.parse_args()
    for f in a.files:
        cmds = {"glpsol": ["glpsol", "--check", "--freemps", f], "clp": ["clp", f, "-quit"],
                "qubor": [a.qubor, "info", f, "--quiet"]}
        best = {k: float("inf") for k in cmds}
        for _ in range(a.runs):
            for k, c in cmds.items():
                best[k] = min(best[k], task_clock_ms(c))
        print("%-16s glpsol %7.1f ms  clp %7.1f ms  qubor %7.1f ms   glpsol/qubor %.2f  clp/qubor %.2f" %
              (os.path.basename(f), best["glpsol"], best["clp"], best["qubor"],
               best["glpsol"] / best["qubor"], best["clp"] / best["qubor"]))


if __name__ == "__main__":
    main()
