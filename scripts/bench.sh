#!/usr/bin/env bash
# Measures the tool against its floors and against what a user would write instead, on the stand-in
# for the product, and prints one table. Installs what is missing; everything is kept in build/bench.
#
#   scripts/bench.sh [--quick|--full] [--only TEXT]
#
# --quick (the default) takes less than two minutes, at a fifth or less of the full sizes. --full
# takes half an hour and up to 20 GB of memory, and puts its table into bench/README.md. --only runs the
# cases with this text in their title and puts their table nowhere.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/bench

mode=()
case ${1:---quick} in
  --quick) ;;
  --full) mode=(--full) ;;
  *)
    echo "usage: scripts/bench.sh [--quick|--full] [--only TEXT]" >&2
    exit 1
    ;;
esac

install_missing "${BUILD_PACKAGES[@]}" hyperfine jq libbenchmark-dev mawk miller openssl python3 time

echo "==> Building everything in $build"
cmake --preset release -B "$build" -DQUILLMERE_BENCH=ON -DQUILLMERE_TESTS=OFF >/dev/null
cmake --build "$build" -- --quiet

echo "==> Measuring"
python3 bench/run.py "$build" "${mode[@]}" "${@:2}"
