#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#
#   scripts/test.sh [PRESET [CMAKE_OPTION...]]
#
# PRESET is one of CMakePresets.json with tests: release (the default), debug or asan. The options go
# to CMake as they are, for example -DQUILLMERE_WERROR=ON. The build is kept in build/PRESET.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

preset=${1:-release}
install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"

echo "==> Configuring build/$preset"
cmake --preset "$preset" "${@:2}"
echo "==> Building"
cmake --build --preset "$preset"
echo "==> Running all tests"
ctest --preset "$preset" --output-on-failure --parallel "$(nproc)"
