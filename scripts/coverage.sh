#!/usr/bin/env bash
# Counts which lines and branches of the product code the tests run, and fails when a line or one of the
# tool's branches is never run, or too many of the archive's. Left out are branches that the compiler
# makes, such as those of exceptions and destructors, as far as they can be told; the archive has some
# that cannot. Installs what is missing; a page for each file is in build/coverage/pages.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
# shellcheck source=scripts/lib/ctest.sh
source scripts/lib/ctest.sh

readonly build=build/coverage

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" gcovr

echo "==> Building both programs and their tests in $build"
cmake --preset coverage -DQUILLMERE_TESTS=ON >/dev/null
cmake --build "$build" --target quillmere quillmere_golden quillmere_unit \
  quillmere_archive_unit -- --quiet

echo "==> Running the unit tests and the golden cases"
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" --output-on-failure --parallel "$(($(nproc) + 1))" \
  --tests-regex '^(unit|archive|golden|realroot)\.' | without_passed_tests

mkdir -p "$build/pages"
gcovr -j "$(nproc)" --root . --filter src/ --filter archive/ --exclude-throw-branches \
  --exclude-unreachable-branches --json "$build/coverage.json" "$build"
# measure FOLDER LINES BRANCHES: fails when less of FOLDER is run, in percent.
measure() {
  echo "==> $1"
  gcovr --root . --filter "$1/" --add-tracefile "$build/coverage.json" \
    --html-details "$build/pages/$1.html" --print-summary \
    --fail-under-line "$2" --fail-under-branch "$3"
}

measure src 100 100
measure archive 100 94
