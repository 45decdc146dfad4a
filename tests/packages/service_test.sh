#!/usr/bin/env bash
# The units of the nightly service are what systemd takes them for, as they are and with each of the
# examples beside them, and they leave the service little to do harm with.
#
#   service_test.sh SOURCE PROGRAM
#
# Ends with 77 where there is no systemd-analyze.
set -euo pipefail
readonly units=$1/packaging/systemd program=$2

if ! command -v systemd-analyze systemd-sysusers >/dev/null; then
  echo "skipped: there is no systemd-analyze"
  exit 77
fi
folder=$(mktemp --directory)
trap 'rm -rf "$folder"' EXIT
readonly service=$folder/quillmere-archive.service
# Only the path of the program is another one here.
sed "s|^ExecStart=/usr/bin/quillmere-archive |ExecStart=$program |" "$units/quillmere-archive.service" \
  >"$service"
cp "$units/quillmere-archive.timer" "$folder"
failed=0

# check EXPOSURE WHAT: systemd finds nothing wrong with the units, and sees no more than this exposure,
# in tenths.
check() {
  # It prints what is wrong, and fails for some of it only.
  local report
  report=$(SYSTEMD_UNIT_PATH=$folder: systemd-analyze verify --man=no --recursive-errors=no \
    "$service" "$folder/quillmere-archive.timer" 2>&1) || failed=1
  if [[ $report ]]; then
    printf '%s: %s\n' "$2" "$report"
    failed=1
  fi
  if ! SYSTEMD_UNIT_PATH=$folder: systemd-analyze security --offline=yes --threshold="$1" \
    --no-pager "$service" >"$folder/security"; then
    printf '%s: %s\n' "$2" "$(tail -n 1 "$folder/security")"
    failed=1
  fi
}

check 14 "the unit"
mkdir "$service.d"
for example in "$units"/examples/*.conf; do
  cp "$example" "$service.d"
  case $example in
    */root.conf) check 20 "with $example" ;;
    *) check 15 "with $example" ;;
  esac
  rm "$service.d"/*
done
users=$(systemd-sysusers --dry-run "$units/quillmere-archive.sysusers" 2>&1)
if [[ $users != *"user 'quillmere-archive'"* ]] && ! getent passwd quillmere-archive >/dev/null; then
  echo "no user is made: $users"
  failed=1
fi
# Whoever enables the timer has the service started; nothing else does.
if [[ $(grep --files-with-matches '^\[Install\]' "$units"/*.*) != "$units/quillmere-archive.timer" ]]; then
  echo "the timer, and nothing else, is there to be enabled"
  failed=1
fi
exit "$failed"
