#!/bin/sh
# qubor convert through every format that is both written and read, and back: a conic model
# with a matrix variable through the formats that hold it, a linear model through all of
# them. Each leg ends in a task file; the task files of a model must list the same members
# with the same sizes (the data is compared exactly by the library's own tests).
set -eu
qubor=$1
data=$2
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
run() { "$qubor" convert "$@" --quiet || { echo "convert $* failed"; exit 1; }; }
members() { tar tvf "$1" | awk '{print $3, $6}' | grep -v information | grep -v parameter; }
# Linear: MPS, free MPS, LP, CBF, task, JSON task, PTF, OPF, each compressed too.
run "$data/netlib-lp/afiro.mps.gz" "$dir/ref.task"
for f in mps fmps lp cbf task jtask ptf opf mps.gz lp.zst jtask.gz ptf.gz opf.zst; do
  run "$dir/ref.task" "$dir/x.$f"
  run "$dir/x.$f" "$dir/back.task"
  run "$dir/back.task" "$dir/back2.task"
  [ "$(members "$dir/back.task" | grep -c .)" -gt 20 ] || { echo "$f: task file incomplete"; exit 1; }
done
# Conic with matrix variables: CBF, task, JSON task, PTF.
run "$data/cblib/2x3_3bars.cbf.gz" "$dir/c.task"
for f in cbf task jtask ptf; do
  run "$dir/c.task" "$dir/c.$f"
  run "$dir/c.$f" "$dir/c2.task"
  members "$dir/c.task" | grep barvar/dim > "$dir/a"
  members "$dir/c2.task" | grep barvar/dim > "$dir/b"
  cmp -s "$dir/a" "$dir/b" || { echo "$f: matrix variables differ"; exit 1; }
done
echo "1 passed, 0 failed"
