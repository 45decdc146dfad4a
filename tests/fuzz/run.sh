#!/usr/bin/env bash
# Builds the fuzzers with clang, runs them and prints what they did. Installs what is missing.
#
#   tests/fuzz/run.sh [-j JOBS] SECONDS [TARGET...]
#
# Each TARGET (all of them, when none is named) runs for SECONDS seconds, JOBS at a time (1, when
# left out). Everything is kept in build/fuzz, also the inputs that a target has found worth keeping:
# the next run goes on from there. Ends with status 1 when a target fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/fuzz
readonly here=tests/fuzz

usage() {
  echo "usage: tests/fuzz/run.sh [-j JOBS] SECONDS [TARGET...]" >&2
  exit 2
}

jobs=1
while getopts j: option; do
  case $option in
    j) jobs=$OPTARG ;;
    *) usage ;;
  esac
done
shift $((OPTIND - 1))
readonly number='^[1-9][0-9]*$'
[[ $jobs =~ $number && ${1-} =~ $number ]] || usage
readonly seconds=$1
targets=("${@:2}")
if ((${#targets[@]} == 0)); then
  targets=(listing catalogue_file file_entries metadata archive_json archive_document
    archive_pattern)
fi

# Bytes that an input may have: more make it slower, and show nothing new.
max_len() {
  case $1 in
    catalogue_file) echo 512 ;;
    metadata) echo 1024 ;;
    *) echo 2048 ;;
  esac
}

# Runs the fuzzer of the target $1, with all that it writes in a log.
fuzz() {
  local target=$1 corpus=$build/corpus/$1 kept
  local -a options=(
    -artifact_prefix="$build/findings/$target/" -print_final_stats=1
    -max_total_time="$seconds" -max_len="$(max_len "$target")" -timeout=10)
  if [[ -e $here/dictionaries/$target.dict ]]; then
    options+=(-dict="$here/dictionaries/$target.dict")
  fi
  mkdir -p "$corpus" "$build/findings/$target"
  options+=("$corpus")
  for kept in "$here/corpus/$target" "$here/found/$target"; do
    [[ ! -d $kept ]] || options+=("$kept")
  done
  # Most of what the targets do is allocate: short traces of that, and few freed blocks that are
  # kept from reuse, make them a fifth faster.
  ASAN_OPTIONS=malloc_context_size=5:quarantine_size_mb=16 \
    "$build/tests/fuzz/fuzz_$target" "${options[@]}" >"$build/$target.log" 2>&1
}

# The number that the log $1 gives for the statistic $2.
statistic() {
  sed -n "s/^stat::$2: *//p" "$1"
}

# Prints what the target $1 did, which ended with status $2.
report() {
  local target=$1 status=$2 log=$build/$1.log coverage input
  coverage=$(grep --only-matching --extended-regexp 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -n 1)
  printf '%-15s %9s executions  %6s a second  %-20s %6s new units  ' "$target" \
    "$(statistic "$log" number_of_executed_units)" "$(statistic "$log" average_exec_per_sec)" \
    "$coverage" "$(statistic "$log" new_units_added)"
  if ((status == 0)); then
    echo "no crash"
    return
  fi
  input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
  cat <<END
FAILED with status $status
    what was wrong  $(grep --max-count=1 --extended-regexp 'CHECK FAILED|ERROR: |error: ' "$log")
    the input       ${input:-none was written}
    once more       $build/tests/fuzz/fuzz_$target $input
    the whole log   $log
    Keep the input in $here/found/$target/ with the change that mends it: it is replayed ever after.
END
}

# Runs the target $1 and prints what it did, in one piece. Its status is the fuzzer's.
run() {
  local status=0
  fuzz "$1" || status=$?
  printf '%s\n' "$(report "$1" "$status")"
  return "$status"
}

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" clang-14 libclang-rt-14-dev

echo "==> Building the fuzzers in $build"
cmake -G Ninja -B "$build" -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_UNITY_BUILD=ON -DQUILLMERE_TESTS=ON -DQUILLMERE_FUZZ=ON -DQUILLMERE_WERROR=ON >/dev/null
cmake --build "$build" --target "${targets[@]/#/fuzz_}" -- --quiet

echo "==> Running ${targets[*]}: $seconds s each, $jobs at a time"
# In memory where that can be: some targets write a file for every input.
scratch=/dev/shm
[[ -w $scratch ]] || scratch=/tmp
TMPDIR=$(mktemp --directory "$scratch/quillmere_fuzz.XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

failed=0
running=0
for target in "${targets[@]}"; do
  if ((running == jobs)); then
    wait -n || failed=1
    running=$((running - 1))
  fi
  run "$target" &
  running=$((running + 1))
done
for (( ; running > 0; running--)); do
  wait -n || failed=1
done
exit "$failed"
