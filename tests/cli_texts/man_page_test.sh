#!/usr/bin/env bash
# The manual page has nothing that mandoc warns of: man_page_test.sh PAGE
set -euo pipefail

if ! command -v mandoc >/dev/null; then
  echo "skipped: there is no mandoc"
  exit 77
fi
mandoc -T lint -W warning "$1"
