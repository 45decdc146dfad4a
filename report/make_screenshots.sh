#!/usr/bin/env bash
# Makes docs/report-light.png and docs/report-dark.png anew: builds the programs for the stand-in host
# product, has the stand-in make a catalogue of 60 nights, archives it, and has Chromium take pictures of
# the page. Installs what is missing. Everything else is kept in build/report.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/report
readonly archive=$build/archive

install_missing "${BUILD_PACKAGES[@]}" chromium chromium-driver fonts-inter python3 python3-selenium
cmake --preset release -B "$build" -DQUILLMERE_TESTS=OFF >/dev/null
cmake --build "$build" --target quillmere_archive_standin make_catalogue -- --quiet
"$build/standin/make_catalogue" --root "$build/standin-root" --seed 7 \
  --clients 8 --policies 3 --nights 60 --entries 400 >/dev/null
# Some images come with a complaint, and one series misses a night.
"$build/standin-root/bin/admincmd/qvroll" |
  awk 'NR % 23 == 0 {print "rec_unfold", $1, "complain licence expires in 12 days"}' \
    >"$build/standin-root/faults"
rm -rf "$archive"
"$build/quillmere_archive_standin" init --server backup1 "$archive"
"$build/quillmere_archive_standin" sync --quiet "$archive" 2>/dev/null
rm "$archive"/sets/FILER-7/Daily/incr/15044*.json

commands=$(mktemp --directory)
trap 'rm -rf "$commands"' EXIT
ln -s "$PWD/$build/quillmere_archive_standin" "$commands/quillmere-archive"
PATH=$commands:$PATH report/quillmere-report -o "$build/report.html" "$archive"
/usr/bin/python3 tests/report/screenshots.py "$build/report.html" docs
