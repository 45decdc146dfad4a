#!/usr/bin/env bash
# The alerts are rules that Prometheus takes, and each of them fires when it should: alerts_test.sh SOURCE
#
# Ends with 77 where there is no promtool.
set -euo pipefail
cd "$1"

if ! command -v promtool >/dev/null; then
  echo "skipped: there is no promtool"
  exit 77
fi
promtool check rules --lint=all --lint-fatal packaging/prometheus/quillmere-archive.rules.yml
promtool test rules tests/packages/alerts_test.yml
# Each one has been seen.
while read -r alert; do
  grep --quiet "alertname: $alert\$" tests/packages/alerts_test.yml || {
    echo "No test has $alert fire." >&2
    exit 1
  }
done < <(sed -n 's/^ *- alert: //p' packaging/prometheus/quillmere-archive.rules.yml)
