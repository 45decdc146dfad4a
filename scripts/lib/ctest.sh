# shellcheck shell=bash
# Reads what CTest prints and leaves out the tests that passed, so that the end of a long log says why
# the others failed.
without_passed_tests() {
  grep --invert-match --extended-regexp '^ +Start +[0-9]+: |   Passed  ' || true
}
