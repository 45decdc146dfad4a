#!/usr/bin/env bash
# Measures the tool against its floors and against what a user would write instead, on the stand-in
# for the product, and prints one table. Installs what is missing; everything is kept in build/bench.
#
#   scripts/bench.sh [--quick|--full] [--only REGEX]
#
# --quick (the default) takes less than two minutes, at a fifth or less of the full sizes. --full
# takes half an hour and up to 20 GB of memory, and puts its tables into bench/README.md. --only
# measures the cases in whose names REGEX is found, and keeps no table.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/bench
readonly node=$build/bench/node

options=()
while (($# > 0)); do
  case $1 in
    --quick) ;;
    --full) options+=(--full) ;;
    --only)
      options+=(--only "${2?--only takes a regular expression}")
      shift
      ;;
    *)
      echo "usage: scripts/bench.sh [--quick|--full] [--only REGEX]" >&2
      exit 1
      ;;
  esac
  shift
done

install_missing "${BUILD_PACKAGES[@]}" hyperfine jq libbenchmark-dev mawk miller openssl patch \
  python3 time zstd

echo "==> Building everything in $build"
cmake --preset release -B "$build" -DQUILLMERE_BENCH=ON -DQUILLMERE_TESTS=OFF >/dev/null
cmake --build "$build" -- --quiet

# A rival that Debian does not have. Without it the rest is measured all the same.
install_duckdb() {
  echo "==> Installing DuckDB for Node.js in $node"
  mkdir -p "$node"
  command -v npm >/dev/null || install_missing nodejs npm
  npm install --prefix "$node" --no-save --no-package-lock --no-audit --no-fund --silent \
    @duckdb/node-api@1.5.6-r.1
}
if [[ ! -d $node/node_modules ]] && ! install_duckdb; then
  rm -rf "$node"
fi

echo "==> Measuring"
python3 bench/run.py "$build" "${options[@]}"
