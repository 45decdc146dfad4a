#!/usr/bin/env bash
# Makes screenshot.png anew: builds the tool for the stand-in host product, has the stand-in make a
# catalogue, exports all of it, and has Chromium take a picture of the report. Installs what is
# missing. Everything else is kept in build/report.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/report
readonly exported=$build/exported
readonly program=$build/quillmere_standin

install_missing "${BUILD_PACKAGES[@]}" chromium fonts-inter python3
cmake --preset release -B "$build" -DQUILLMERE_TESTS=OFF >/dev/null
cmake --build "$build" --target quillmere_standin make_catalogue -- --quiet
"$build/standin/make_catalogue" --root "$build/standin-root" --seed 3 \
  --clients 3 --policies 2 --schedules 2 --images 150 --entries 1000 >/dev/null

# For each client and policy a directory with their set list, and in it one for each set. In a row
# of the listing, the id is the first word, and the policy the ninth.
rm -rf "$exported"
"$program" --action list_backups | awk '$1 ~ /_[0-9]+$/ { sub(/_.*/, "", $1); print $1, $9 }' |
  sort --unique | while read -r client policy; do
  directory=$exported/$client/$policy
  mkdir -p "$directory"
  "$program" --action dump_backup_set_list --client "$client" --policy "$policy" --count 0 \
    --output_dir "$directory"
  sed -n '/BackupCreateTime/s/[^0-9]//gp' "$directory/backup_sets.json" | while read -r time; do
    mkdir "$directory/$time"
    "$program" --action dump_backup_set --client "$client" --policy "$policy" --time "$time" \
      --output_dir "$directory/$time"
  done
done

python3 examples/report/make_report.py "$exported" -o "$build/report.html"
profile=$(mktemp --directory)
trap 'rm -rf "$profile"' EXIT
# As root, Chromium has no sandbox. The page is local, and its policy lets it load nothing.
chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
  --disable-background-networking --disable-component-update --disable-sync \
  --log-level=3 --user-data-dir="$profile" --hide-scrollbars --window-size=1400,1730 \
  --virtual-time-budget=10000 --screenshot=examples/report/screenshot.png \
  "file://$PWD/$build/report.html"
