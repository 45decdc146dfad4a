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

nights_grow() {
  local other
  other=$(mktemp -d)
  "$make_catalogue" --root "$root" --seed 5 --clients 2 --policies 3 --nights 9 >/dev/null
  "$make_catalogue" --root "$other" --seed 5 --clients 2 --policies 3 --nights 8 >/dev/null
  expect "what nine nights have no more" "" \
    "$(diff -r "$root/db/images" "$other/db/images" | grep -v "^Only in $root" || true)"
  expect "rows that nine nights have no more" "" \
    "$(comm -13 <("$qvroll" | sort -u) <("$other/bin/admincmd/qvroll" | sort -u))"
  # A full backup each week; the other policy is full on another night.
  expect "full backups of alpha" "Daily 2017-07-14 Daily 2017-07-21 Weekly-FS 2017-07-20" \
    "$("$qvroll" -client alpha -sched full | awk '/^alpha_/ && $6 == 0 {print $9, $1}' |
      while IFS=' _' read -r policy _ time; do
        echo "$policy $(date --utc --date "@$time" +%F)"
      done | sort | tr '\n' ' ' | sed 's/ $//')"
  rm -rf "$other"
}

newest_night_stands_first() {
  "$make_catalogue" --root "$root" --clients 2 --policies 3 --nights 6 --newest-first >/dev/null
  local client
  for client in alpha db.prod.example; do
    "$qvroll" -client "$client" | sed -n "s/^${client}_\\([0-9]*\\) .*/\\1/p" |
      sort --numeric-sort --reverse --check || fail "the order of $client"
  done
  # Behind the images that it began: the parent closes their set.
  expect "files of the night's first policy" "n n 0" \
    "$("$qvroll" -policy Daily -client alpha | awk '/_/ {print $6 == 0 ? 0 : "n"}' | head -n 3 | xargs)"
}

odd_names_reach_every_command() {
  "$make_catalogue" --root "$root" --clients 25 --policies 5 --nights 1 --odd-names >"$root/summary"
  grep -qx 'rows=285' "$root/summary" || fail "$(cat "$root/summary")"
  local id count=0
  while IFS= read -r id; do
    expect "lines of -id $id" 3 "$("$qvroll" -id "$id" | wc -l)"
    "$qvmeta" -json -backupid "$id" >>"$root/metadata" || fail "metadata of $id"
    "$rec_unfold" -dump "$(catalogue_file_of "$id")" >/dev/null || fail "entries of $id"
    count=$((count + 1))
  done < <("$qvroll" | LC_ALL=C sed -n 's/^\([^ ]*_[0-9]*\) .*/\1/p')
  expect "ids" 285 "$count"
  # One array of all of them.
  sed 's/%%/%/g; s/^}$/},/; $s/,$//; 1s/^/[/; $s/$/]/' "$root/metadata" |
    python3 -m json.tool >/dev/null || fail "metadata"
  [[ -z $(find . -maxdepth 1 -name 'run-by-a-name*') ]] || fail "a name was run"
}

# The ids of the catalogue's first images that are no parents, one a line.
some_images() {
  "$make_catalogue" --root "$root" --seed 3 --images 24 --no-parents >/dev/null
  "$qvroll" | sed -n 's/^\([^ _]*_[0-9]*\) .*/\1/p' | head -n 3
}

# half STATUS COMMAND...: the command prints the first half of its output, in whole lines, and ends
# with this status.
half() {
  local expected=$1 status=0 whole
  shift
  mv "$root/faults" "$root/later"
  whole=$("$@")
  mv "$root/later" "$root/faults"
  "$@" >"$root/stdout" 2>"$root/stderr" || status=$?
  expect "status of $*" "$expected" "$status"
  expect "standard error of $*" "" "$(cat "$root/stderr")"
  [[ $whole == "$(cat "$root/stdout")"$'\n'* ]] || fail "$*: not the beginning of its output"
  (($(wc -c <"$root/stdout") * 3 > ${#whole})) || fail "$*: less than half"
}

faults_end_the_output_half_way() {
  local -a ids
  mapfile -t ids < <(some_images)
  local file
  file=$(catalogue_file_of "${ids[0]}")
  echo "* ${ids[0]} fail" >"$root/faults"
  half 1 "$qvmeta" -json -backupid "${ids[0]}"
  half 1 "$qvroll" -id "${ids[0]}"
  half 1 "$rec_unfold" -dump "$file"
  expect "another image" 3 "$("$qvroll" -id "${ids[1]}" | wc -l)"
  "$rec_unfold" -dump "$(catalogue_file_of "${ids[1]}")" >/dev/null || fail "another image's entries"
  echo "rec_unfold * stop" >"$root/faults"
  half 0 "$rec_unfold" -dump "$file"
  "$qvmeta" -json -backupid "${ids[0]}" >/dev/null || fail "another command"
  echo "qvroll * fail" >"$root/faults"
  half 1 "$qvroll"
  half 1 "$qvroll" -client "${ids[0]%%_*}"
  expect "-id beside a listing that fails" 3 "$("$qvroll" -id "${ids[0]}" | wc -l)"
  echo "qvmeta * kill" >"$root/faults"
  half 137 "$qvmeta" -json -backupid "${ids[0]}"
}

faults_slow_complain_and_hang() {
  local -a ids
  mapfile -t ids < <(some_images)
  local start=$EPOCHREALTIME status=0
  printf '%s\n' "qvroll-id * slow 300" "* * complain licence expires in 12 days" >"$root/faults"
  expect "lines of -id" 3 "$("$qvroll" -id "${ids[0]}" 2>"$root/stderr" | wc -l)"
  expect "its complaint" "licence expires in 12 days" "$(cat "$root/stderr")"
  ((${EPOCHREALTIME/./} - ${start/./} >= 300000)) || fail "it was not slow"
  expect "complaint of the listing" "licence expires in 12 days" "$("$qvroll" 2>&1 >/dev/null)"
  echo "qvmeta ${ids[1]} hang" >"$root/faults"
  # It takes a signal that no program can ignore.
  timeout --kill-after=0.3 0.3 "$qvmeta" -json -backupid "${ids[1]}" >"$root/stdout" || status=$?
  expect "status of what hangs" 137 "$status"
  [[ -s $root/stdout ]] || fail "it hangs before it prints"
}

faults_forget() {
  local -a ids
  mapfile -t ids < <(some_images)
  local rows
  rows=$("$qvroll" | grep -c _)
  echo "qvmeta ${ids[1]} forget" >"$root/faults"
  expect "rows before" "$rows" "$("$qvroll" | grep -c _)"
  refused "qvmeta: no such image" "$qvmeta" -json -backupid "${ids[1]}"
  refused "qvroll: no such image" "$qvroll" -id "${ids[1]}"
  expect "rows behind" $((rows - 1)) "$("$qvroll" | grep -c _)"
  "$qvroll" | grep -q "^${ids[1]} " && fail "it is still listed"
  "$qvmeta" -json -backupid "${ids[0]}" >/dev/null || fail "the others stay"
}

"$2"
