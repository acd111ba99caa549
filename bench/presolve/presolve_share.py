#!/usr/bin/python3
"""Presolve's share of the solve time, and the size it leaves, per model.

    presolve_share.py QUBOR_BIN DIR [--threads N] [--min-time S]

Runs `QUBOR_BIN solve` on every *.mps.gz of DIR (decompressed once into a temporary folder),
reads the log's presolve and optimizer times, and prints them with the share of presolve for
each model whose optimizer time is at least --min-time seconds (default 0.1).
"""
import argparse
import gzip
import os
import re
import shutil
import subprocess
import tempfile


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("qubor")
    ap.add_argument("dir")
    ap.add_argument("--threads", type=int, default=1)
    ap.add_argument("--min-time", type=float, default=0.1)
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
            out = subprocess.run([a.qubor, "solve", model, "--sol", model + ".sol", "--param",
                                  "QBR_IPAR_NUM_THREADS", str(a.threads)],
                                 capture_output=True, text=True).stdout
            pre = re.search(r"Presolve terminated\. Time: (\S+)", out)
            opt = re.search(r"^  Optimizer\s+: (\S+)", out, re.M)
            if not pre or not opt:
                continue
            tp, to = float(pre.group(1)), float(opt.group(1))
            if to < a.min_time:
                continue
            share = tp / to
            worst = max(worst, share)
            print(f"{name[:-7]:14s} presolve {tp:7.2f} s  optimizer {to:7.2f} s  share {100 * share:5.1f} %")
            os.remove(model)
    finally:
        shutil.rmtree(tmp)
    print(f"largest share {100 * worst:.1f} %")


if __name__ == "__main__":
    main()
