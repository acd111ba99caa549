#!/usr/bin/python3
"""Presolve's share of the solve time, per model.

    presolve_share.py BENCH_SOLVE DIR [--threads N] [--min-time S] [--runs K]

Runs the bench_solve program (build/bench/solve/bench_solve) on every *.mps.gz of DIR,
decompressed once into a temporary folder, each model in a fresh process as a user's run
would be. bench_solve reads QBR_DINF_OPTIMIZER_TIME (the whole optimize call, presolve
included) and QBR_DINF_PRESOLVE_TIME at full precision. With --runs K each model runs K
times and the run with the least optimizer time is kept. Models whose optimizer time is
below --min-time seconds (default 0.1) are not listed.
"""
import argparse
import gzip
import os
import shutil
import subprocess
import tempfile


def run(bench, model, threads):
    out = subprocess.run([bench, "--threads", str(threads), model], capture_output=True, text=True).stdout
    fields = out.splitlines()[-1].split()
    return float(fields[2]), float(fields[3])


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("bench_solve")
    ap.add_argument("dir")
    ap.add_argument("--threads", type=int, default=1)
    ap.add_argument("--min-time", type=float, default=0.1)
    ap.add_argument("--runs", type=int, default=1)
    a = ap.parse_args()
    tmp = tempfile.mkdtemp()
    worst = 0.0
    try:
        for name in sorted(os.listdir(a.dir)):
            if not name.endswith(".mps.gz"):
                continue
            model = os.path.join(tmp, name[:-3])
            with gzip.open(os.path.join(a.dir, name), "rb") as src, open(model, "wb") as dst:
                shutil.copyfileobj(src, dst)
            try:
                to, tp = min(run(a.bench_solve, model, a.threads) for _ in range(a.runs))
            except (IndexError, ValueError):
                print(f"{name[:-7]:14s} no result")
                continue
            finally:
                os.remove(model)
            if to < a.min_time:
                continue
            share = tp / to
            worst = max(worst, share)
            print(f"{name[:-7]:14s} presolve {tp:8.4f} s  optimizer {to:8.4f} s  share {100 * share:5.1f} %", flush=True)
    finally:
        shutil.rmtree(tmp)
    print(f"largest share {100 * worst:.1f} %")


if __name__ == "__main__":
    main()
