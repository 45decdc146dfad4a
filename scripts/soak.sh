#!/usr/bin/env bash
# Takes quillmere-archive further than CI does: a sync and a prune are killed at 200 points in time, and a
# catalogue of 100,000 images is synced in two halves and pruned, each compared with a plain model. Takes
# an hour or two and some 4 GB in /tmp (or TMPDIR). Installs what is missing.
#
#   scripts/soak.sh [KILLS [IMAGES]]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly kills=${1:-200} images=${2:-100000} build=$PWD/build/release
# A night of the catalogue has 36 images: eight clients, three policies, one or two images each.
readonly images_a_night=36

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
cmake --preset release >/dev/null
cmake --build --preset release --target quillmere quillmere-archive make_catalogue -- --quiet

# on_the_product TEST [CASE...]: runs a file of tests/archive at the product's root.
on_the_product() {
  local root
  root=$(sed -n 's/^QUILLMERE_INSTALL_ROOT:STRING=//p' "$build/CMakeCache.txt")
  python3 tests/e2e/private_root.py "$root" python3 "tests/archive/$1.py" \
    --program "$build/quillmere-archive" --tool "$build/quillmere" --root "$root" \
    --generator "$build/standin/make_catalogue" "${@:2}"
}

echo "==> $kills kills"
QUILLMERE_ARCHIVE_KILLS=$kills on_the_product crash_test Killed
QUILLMERE_ARCHIVE_KILLS=$kills on_the_product prune_test Ended
echo "==> $images images"
export QUILLMERE_ARCHIVE_TIMEOUT=14400 # seconds
QUILLMERE_ARCHIVE_NIGHTS=$(((images + images_a_night - 1) / images_a_night)) on_the_product nights_test
echo "Nothing was lost."
