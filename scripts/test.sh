#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests. Says which of them were skipped, and
# fails when one was for anything but a kernel or a container that does not let it run.
#
#   scripts/test.sh [PRESET [CMAKE_OPTION...]]
#
# PRESET is one of CMakePresets.json with tests: release (the default), debug or asan. The options go
# to CMake as they are, for example -DQUILLMERE_WERROR=ON. The build is kept in build/PRESET.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
# shellcheck source=scripts/lib/ctest.sh
source scripts/lib/ctest.sh

# What takes a mount namespace or the tracing of processes, and the unit tests, which need nothing
# that could be installed.
may_be_skipped='unit\..*|realroot\..*|e2e\.exports_of_the_shipped_program|faults\.full_disk'
may_be_skipped+='|faults\.refused_processes|packages\.static_program_in_an_empty_root'
if ! has_clickhouse; then
  may_be_skipped+='|databases\..*'
fi

preset=${1:-release}
install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"

echo "==> Configuring build/$preset"
cmake --preset "$preset" "${@:2}" -DQUILLMERE_TESTS=ON
echo "==> Building"
cmake --build --preset "$preset"
echo "==> Running all tests"
output=$(mktemp)
trap 'rm -f "$output"' EXIT
status=0
# One more than there are processors: some wait for the disk.
ctest --preset "$preset" --output-on-failure --parallel "$(($(nproc) + 1))" | tee "$output" || status=$?
if ((status != 0)); then
  echo "==> Without the tests that passed:"
  without_passed_tests <"$output"
fi

skipped=$(sed -n 's/^[[:space:]]*[0-9]* - \(.*\) (Skipped)$/\1/p' "$output")
if [[ -n $skipped ]]; then
  echo "==> Skipped; ctest --preset $preset -V -R NAME says why:"
  echo "$skipped"
fi
avoidable=$(grep -Evx "$may_be_skipped" <<<"$skipped" || true)
if [[ -n $avoidable ]]; then
  printf '==> Failed: what these take can be installed:\n%s\n' "$avoidable" >&2
  exit 1
fi
exit "$status"
