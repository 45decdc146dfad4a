#!/bin/sh
# shell_loop.sh [-c] ADMINCMD UNFOLD <IMAGES: runs what an export of a set runs, and nothing else:
# three commands for each line "ID FILE". With -c each of them in a shell of its own, as popen does.
set -eu
run() { "$@" >/dev/null; }
if [ "$1" = -c ]; then
  run() { sh -c "$*" >/dev/null; }
  shift
fi
while read -r id file; do
  run "$1/qvmeta" -json -backupid "$id"
  run "$1/qvroll" -id "$id"
  run "$2" -dump "$file"
done
