#!/usr/bin/env bash
# Exports the newest backup set into EXPORTS/TIME, where TIME is its creation time, and prints that
# path. EXPORTS/TIME appears whole or not at all: the documents are written next to it first.
#
# Status: 0 it is there (also when an earlier run made it), 1 the export failed, 2 the arguments are
# wrong, 3 there is no backup set. $QUILLMERE names the tool where it is not in $PATH.
set -euo pipefail
shopt -s globasciiranges  # [A-Z] holds 26 letters, whatever the locale is

readonly tool=${QUILLMERE:-quillmere}

# fail STATUS MESSAGE
fail() {
  printf 'export_newest_set.sh: %s\n' "$2" >&2
  exit "$1"
}

# run_tool ARGUMENT...: runs the tool, and lets only a flawless run pass. The tool does not look at
# the status of the product's commands, so a complaint on standard error may be all there is to see
# of a list or an image that is not whole.
run_tool() {
  local status=0
  "$tool" "$@" "${filters[@]}" --output_dir "$work/set" 2>"$work/complaints" || status=$?
  cat "$work/complaints" >&2
  if ((status > 128)); then
    fail 1 "$tool was ended by signal $((status - 128)), its complaint is above"
  elif ((status != 0)); then
    fail 1 "$tool ended with status $status, its complaint is above"
  elif [[ -s $work/complaints ]]; then
    fail 1 "the product complained, so the export may not be whole"
  fi
}

filters=()
while (($# > 1)) && [[ $1 == --client || $1 == --policy ]]; do
  # The tool hands the value to a shell as it is.
  if [[ -z $2 || $2 == -* || $2 == *[!A-Za-z0-9._-]* ]]; then
    fail 2 "not safe in a command: $2"
  fi
  filters+=("$1" "$2")
  shift 2
done
if (($# != 1)) || [[ -z $1 || $1 == -* ]]; then
  fail 2 "usage: export_newest_set.sh [--client CLIENT] [--policy POLICY] EXPORTS"
fi
readonly exports=$1

# In EXPORTS, because a rename is atomic in one file system only.
work=$(mktemp -d "$exports/.export.XXXXXX") || exit 1
trap 'rm -rf "$work"' EXIT
mkdir "$work/set"

run_tool --action dump_backup_set_list
# Each member stands on a line of its own, and the newest set comes first.
time=$(sed -n '/"BackupCreateTime"/{s/[^-0-9]//gp;q}' "$work/set/backup_sets.json")
[[ -n $time ]] || fail 3 "there is no backup set"
[[ $time != 0 ]] || fail 1 "the newest set has the time 0, which --time cannot name"

if [[ ! -d $exports/$time ]]; then
  run_tool --action dump_backup_set --time "$time"
  # Were the rename on the disk before the documents, a power failure could leave empty ones.
  find "$work/set" -exec sync {} +
  mv --no-target-directory "$work/set" "$exports/$time"
fi
printf '%s\n' "$exports/$time"
