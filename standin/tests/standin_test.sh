#!/usr/bin/env bash
# Tests of the stand-in host product: standin_test.sh MAKE_CATALOGUE CASE
set -euo pipefail

make_catalogue=$1
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
qvroll=$root/bin/admincmd/qvroll
qvmeta=$root/bin/admincmd/qvmeta
rec_unfold=$root/bin/rec_unfold

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# expect WHAT EXPECTED ACTUAL
expect() {
  [[ $2 == "$3" ]] || fail "$1: expected <$2>, got <$3>"
}

# refused STDERR COMMAND...: the command prints nothing but that line on standard error, status 1.
refused() {
  local expected=$1 status=0
  shift
  "$@" >"$root/stdout" 2>"$root/stderr" || status=$?
  expect "status of $*" 1 "$status"
  expect "standard output of $*" "" "$(cat "$root/stdout")"
  expect "standard error of $*" "$expected" "$(cat "$root/stderr")"
}

catalogue_file_of() {
  local client=${1%%_*} time=${1#*_}
  echo "$root/db/images/$client/${time:0:4}000000/$("$qvroll" -id "$1" | awk 'NR == 3 {print $NF}')"
}

commands_print_what_readers_expect() {
  "$make_catalogue" --root "$root" --seed 3 --images 24 >/dev/null
  # A block is an empty line, a header and rows; the date is 20 wide, then comes a number.
  "$qvroll" | awk '
    NR == 1 && $0 != "" {exit 1}
    $0 == "" {blocks++; header = 1; next}
    header {if (substr($0, 1, 9) != "Backupid ") exit 1; header = 0; next}
    {rows++}
    !/^[^ _]+_[0-9]+ +[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9][0-9][0-9]     +[0-9]+ +[0-9.]+[KMGTP] / {exit 1}
    END {if (blocks != 3 || rows != 24) exit 1}' || fail "the listing"
  local id
  "$qvroll" | awk '/_/ {print $1}' | while read -r id; do
    expect "lines of -id $id" 3 "$("$qvroll" -id "$id" | wc -l)"
    "$qvmeta" -json -backupid "$id" | sed 's/%%/%/g' | python3 -m json.tool >/dev/null ||
      fail "metadata of $id"
    "$rec_unfold" -dump "$(catalogue_file_of "$id")" | LC_ALL=C awk -F '\t' '
      NR == 1 {if ($1 != "num") exit 1}
      NF != 11 || /^0/ {exit 1}
      {for (i = 1; i <= NF; i++) if ($i == "") exit 1}' || fail "entries of $id"
  done
}

filters_choose_rows() {
  "$make_catalogue" --root "$root" --seed 4 --images 90 >/dev/null
  local all
  all=$("$qvroll")
  expect "-client" "$(awk '/^alpha_/' <<<"$all")" "$("$qvroll" -client alpha | grep _)"
  expect "blocks of -client" 1 "$("$qvroll" -client alpha | grep -c '^$')"
  expect "-policy" "$(grep ' Daily ' <<<"$all")" "$("$qvroll" -policy Daily | grep _)"
  expect "-sched" "$(grep ' full ' <<<"$all")" "$("$qvroll" -sched full | grep _)"
  expect "all three" "$(grep '^alpha_.* incr .* Daily ' <<<"$all")" \
    "$("$qvroll" -sched incr -client alpha -policy Daily | grep _)"
}

wrong_calls_say_so() {
  "$make_catalogue" --root "$root" >/dev/null
  local usage="usage: qvroll [-client CLIENT] [-policy POLICY] [-sched SCHEDULE] | -id ID"
  refused "qvroll: $usage" "$qvroll" -bogus x
  refused "qvroll: $usage" "$qvroll" -client
  refused "qvroll: no image matches" "$qvroll" -client nobody
  refused "qvroll: no such image" "$qvroll" -id alpha_1
  refused "qvroll: no such image" "$qvroll" -id nounderscore
  refused "qvroll: no such image" "$qvroll" -id ../../x_1500000000
  refused "qvmeta: usage: qvmeta -json -backupid ID" "$qvmeta"
  refused "qvmeta: no such image" "$qvmeta" -json -backupid alpha_1600000000
  refused "rec_unfold: usage: rec_unfold -dump FILE" "$rec_unfold" -x y
  refused "rec_unfold: cannot unfold the catalogue file" "$rec_unfold" -dump "$root/missing"
}

same_seed_same_bytes() {
  local other
  other=$(mktemp -d)
  "$make_catalogue" --root "$root" --seed 9 >/dev/null
  "$make_catalogue" --root "$other" --seed 9 >/dev/null
  diff -r "$root/db" "$other/db" || fail "the same seed gave other bytes"
  "$make_catalogue" --root "$other" --seed 10 >/dev/null
  ! diff -rq "$root/db" "$other/db" >/dev/null || fail "another seed gave the same bytes"
  rm -rf "$other"
}

one_set() {
  "$make_catalogue" --root "$root" --set 25 --entries 10 >"$root/summary"
  grep -qx 'rows=26' "$root/summary" || fail "rows"
  expect "images, then their parent" "25 of 10, last 0" \
    "$("$qvroll" | awk '/_/ {n[$6]++; last = $6} END {print n[10] " of 10, last " last}')"
  local id
  id="$(sed -n 's/^set_client=//p' "$root/summary")_$(sed -n 's/^set_time=//p' "$root/summary")"
  expect "the parent" "$id" "$("$qvroll" | tail -n 1 | cut -d ' ' -f 1)"
}

counts_are_exact() {
  "$make_catalogue" --root "$root" --images 7 --clients 2 --entries 123 --no-parents >/dev/null
  expect "rows" 7 "$("$qvroll" | grep -c _)"
  expect "parents" 0 "$("$qvroll" | awk '/_/ && $6 == 0' | wc -l)"
  expect "entries" 124 "$("$rec_unfold" -dump "$(catalogue_file_of "$("$qvroll" |
    awk 'NR == 3 {print $1}')")" | wc -l)"
  "$make_catalogue" --root "$root" --images 5000 --clients 7 --listing-only >/dev/null
  expect "rows of a listing alone" 5000 "$("$qvroll" | grep -c _)"
  expect "ids, each once" 5000 "$("$qvroll" | awk '/_/ {print $1}' | sort -u | wc -l)"
  expect "files beside the listing" 0 "$(find "$root/db/images" -type f | wc -l)"
}

generator_refuses_wrong_calls() {
  refused 'make_catalogue: --images takes a whole number, not "x"' \
    "$make_catalogue" --root "$root" --images x
  local status=0
  "$make_catalogue" >/dev/null 2>"$root/stderr" || status=$?
  expect "status without --root" 1 "$status"
  expect "usage" "usage: make_catalogue --root DIR [--seed N] [--clients N] [--policies N] [--schedules N]" \
    "$(head -n 1 "$root/stderr")"
}

"$2"
