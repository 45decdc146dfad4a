#!/usr/bin/env bash
# Runs the golden cases under valgrind's memcheck: no read of what was never written, and none outside
# of a buffer, however the system chooses its string functions. Installs what is missing; what
# valgrind has to say is in build/release/memcheck.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
# shellcheck source=scripts/lib/ctest.sh
source scripts/lib/ctest.sh

readonly build=build/release
readonly logs=$PWD/$build/memcheck

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"

echo "==> Building the tool for the golden cases in $build"
cmake --preset release -DQUILLMERE_TESTS=ON >/dev/null
cmake --build "$build" --target quillmere_golden -- --quiet

echo "==> Running the golden cases under valgrind"
rm -rf "$logs"
mkdir -p "$logs"
# An error is status 99, which no case expects. Without the names of inlined functions valgrind starts
# a tenth sooner.
GOLDEN_UNDER="valgrind --quiet --read-inline-info=no --error-exitcode=99 --log-file=$logs/%p" \
  ctest --preset release --output-on-failure --parallel "$(nproc)" --tests-regex '^golden\.' |
  without_passed_tests || {
  find "$logs" -size +0 -exec cat {} +
  exit 1
}
