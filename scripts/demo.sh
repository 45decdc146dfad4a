#!/usr/bin/env bash
# Shows the four actions of quillmere at work, and two nights of quillmere-archive. Installs what is
# missing, builds both for the stand-in host product, makes a small catalogue for them and exports it.
# Everything is kept in build/demo.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/demo
readonly exported=$build/exported
readonly archive=$build/archive
readonly output=$build/output.txt

# Prints the heading "$1" with an empty line before it.
heading() {
  printf '\n==> %s\n' "$1"
}

# Prints the first $1 and the last $2 lines of $output, and of each line its first 100 bytes.
show_some_output() {
  local head=$1 tail=$2 lines
  lines=$(wc -l <"$output")
  {
    head -n "$head" "$output"
    echo "... $((lines - head - tail)) lines more ..."
    tail -n "$tail" "$output"
  } | LC_ALL=C sed 's/^\(.\{97\}\).\{4,\}/\1.../'
}

# action ARGUMENT...: shows a command line of the tool and runs it. What it prints goes to $output.
# Ends the demo when the status is not 0.
action() {
  local status=0
  echo "\$ quillmere $*"
  "$build/quillmere_standin" "$@" >"$output" || status=$?
  if ((status != 0)); then
    cat "$output"
    echo "The demo failed: this action ended with status $status." >&2
    exit 1
  fi
}

# archive ARGUMENT...: the same with a command of quillmere-archive.
archive() {
  local status=0
  echo "\$ quillmere-archive $*"
  "$build/quillmere_archive_standin" "$@" >"$output" || status=$?
  if ((status != 0)); then
    cat "$output"
    echo "The demo failed: this command ended with status $status." >&2
    exit 1
  fi
}

# catalogue NIGHTS: a catalogue for quillmere-archive, which holds that of fewer nights.
catalogue() {
  "$build/standin/make_catalogue" --root "$build/standin-root" --seed 1 --clients 2 --policies 2 \
    --nights "$1" >/dev/null
}

install_missing "${BUILD_PACKAGES[@]}"

echo "==> Building quillmere and quillmere-archive for the stand-in host product in $build"
cmake --preset release -B "$build" -DQUILLMERE_TESTS=OFF >/dev/null
cmake --build "$build" --target quillmere_standin quillmere_archive_standin make_catalogue -- --quiet

heading "Making a catalogue of backup images, with the stand-in"
"$build/standin/make_catalogue" --root "$build/standin-root" --seed 1 \
  --clients 2 --policies 1 --schedules 2 --images 24 --entries 30
echo "In what follows, quillmere is $build/quillmere_standin, built for the stand-in's root."
rm -rf "$exported"
mkdir -p "$exported"

heading "list_backups: the product's own listing of the images, here of all clients"
action --action list_backups
show_some_output 9 2
# The row of an image begins with its id: the client's name, "_" and the time of the backup.
client=$(sed -n '/^[^ _]*_[0-9]* /{s/_.*//p;q}' "$output")
echo "[status 0]"

heading "dump_backup_set_list: which backup sets the client $client has, the newest three"
action --action dump_backup_set_list --client "$client" --count 3 --output_dir "$exported"
cat "$exported/backup_sets.json"
time=$(sed -n '/BackupCreateTime/{s/[^0-9]//gp;q}' "$exported/backup_sets.json")
echo "[status 0]"

heading "dump_backup_set: every image of the newest set, named by its creation time"
action --action dump_backup_set --client "$client" --time "$time" --output_dir "$exported"
(cd "$exported" && wc --bytes -- "$client"_*.json)
image=$(find "$exported" -name "${client}_*.json" -printf '%f\n' | sort | head -n 1)
echo "[status 0]"

heading "dump_backup: one image, its metadata and its file entries, here to standard output"
action --action dump_backup --backup_id "${image%.json}"
show_some_output 26 8
echo "[status 0]"

heading "init: an empty archive, in a new directory"
rm -rf "$archive"
archive init "$archive"
echo "[status 0]"

heading "sync: every image of the first three nights, and the backup sets"
catalogue 3
archive sync "$archive"
show_some_output 3 1
echo "[status 0]"

heading "sync, a night later: only what is new"
catalogue 4
archive sync "$archive"
cat "$output"
echo "[status 0]"

heading "list: what is kept"
archive list "$archive"
cat "$output"
echo "[status 0]"

heading "find: which images hold a file"
archive find "$archive" '*/file-1*' --client alpha
show_some_output 4 1
echo "[status 0]"

heading "All commands ended with status 0. The documents are in $exported, the archive in $archive."
