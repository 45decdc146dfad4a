#!/usr/bin/env bash
# Counts which lines and branches of the product code the tests run, and fails when one of them is
# never run. Left out are branches that the compiler makes, such as those of exceptions and
# destructors. Installs what is missing; a page for each file is in build/coverage/pages.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/coverage

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" gcovr

echo "==> Building everything in $build"
cmake --preset coverage >/dev/null
cmake --build "$build" -- --quiet

echo "==> Running the tests of the program's behaviour"
find "$build" -name '*.gcda' -delete
# Of what else there is, nothing looks at the product's own code, or it holds its cost against bounds
# that counting breaks.
ctest --test-dir "$build" --quiet --output-on-failure --parallel "$(nproc)" \
  --tests-regex '^(unit|golden|realroot|e2e)\.' --exclude-regex '^e2e\.large_image$'

mkdir -p "$build/pages"
gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches \
  --html-details "$build/pages/index.html" --print-summary \
  --fail-under-line 100 --fail-under-branch 100 "$build"
