#!/usr/bin/env bash
# No test goes missing unnoticed: test_script_test.sh SOURCE
#
# Runs scripts/test.sh with stand-ins for CMake, which prints its arguments, and CTest, which prints
# $SUMMARY and ends with $STATUS.
set -euo pipefail
readonly source=$1
bin=$(mktemp -d)
trap 'rm -rf "$bin"' EXIT

# stand_in NAME COMMAND: a program that does COMMAND.
stand_in() {
  printf '#!/bin/sh\n%s\n' "$2" >"$bin/$1"
  chmod +x "$bin/$1"
}
stand_in dpkg-query 'echo " installed "'
stand_in cmake 'echo "cmake $*"'
# shellcheck disable=SC2016  # the stand-in expands them
stand_in ctest 'printf "%b" "$SUMMARY"; exit "$STATUS"'

# expect STATUS LINES CTEST_STATUS SUMMARY: the script ends with STATUS and has LINES in its output.
expect() {
  local status=0 output
  output=$(STATUS=$3 SUMMARY=$4 PATH="$bin:$PATH" \
    "$source/scripts/test.sh" debug -DQUILLMERE_TESTS=OFF 2>&1) || status=$?
  if ((status != $1)) || [[ $'\n'$output$'\n' != *$'\n'"$2"$'\n'* ]]; then
    printf 'expected status %s and the lines "%s", got status %s and:\n%s\n' "$1" "$2" "$status" "$output"
    exit 1
  fi
}

readonly skipped='The following tests did not run:\n\t 12 - realroot.a-case (Skipped)\n'
expect 0 'cmake --preset debug -DQUILLMERE_TESTS=OFF -DQUILLMERE_TESTS=ON' 0 ''
expect 8 '==> Running all tests' 8 ''
readonly of_two='        Start  1: unit.a\n1/2 Test  #1: unit.a ....   Passed    0.01 sec\n        Start 12: unit.b\n'
readonly failed='2/2 Test #12: unit.b ....***Failed    0.02 sec\nunit.b says why\n'
printf -v expected '==> Without the tests that passed:\n%b' "$failed"
expect 8 "${expected%$'\n'}" 8 "$of_two$failed"
expect 0 'realroot.a-case' 0 "$skipped"
expect 1 '==> Failed: what these take can be installed:' 0 "$skipped\t131 - completion.zsh (Skipped)\n"
# shellcheck source=scripts/lib/packages.sh
source "$source/scripts/lib/packages.sh"
if has_clickhouse; then
  expect 1 'databases.some' 0 "$skipped\t132 - databases.some (Skipped)\n"
else
  expect 0 'databases.some' 0 "$skipped\t132 - databases.some (Skipped)\n"
fi

cmake -G Ninja -S "$source" -B "$bin/build" -DQUILLMERE_TESTS=OFF >/dev/null
if ctest --test-dir "$bin/build" --quiet --tests-regex left_out; then
  echo "A build without the tests is green."
  exit 1
fi
