#!/bin/sh
# The shared library exports exactly the functions declared in the public header.
# usage: check_exports.sh LIBRARY HEADER
set -eu
lib=$1
header=$2
tmp=${TMPDIR:-/tmp}/qubor-exports.$$
nm -D --defined-only "$lib" | awk '$2 == "T" || $2 == "W" {print $3}' | sort -u > "$tmp.lib"
tr '\n' ' ' < "$header" | grep -o 'QBR_API[^;]*;' | grep -o 'QBR_[a-z][a-z0-9_]*[ ]*(' | tr -d ' (' | sort -u > "$tmp.hdr"
status=0
if ! diff -u "$tmp.hdr" "$tmp.lib"; then
  echo "exported symbols differ from the functions declared in $header (- header, + library)"
  status=1
fi
rm -f "$tmp.lib" "$tmp.hdr"
exit $status
