#!/usr/bin/env bash
# Checks what the compiler does not: the format of the C++ files (clang-format), their habits
# (clang-tidy, with the checks of .clang-tidy), what cppcheck thinks of the program and the stand-in,
# and the shell scripts (shellcheck). Changes nothing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

# The project's files, new ones included, that match the patterns "$@"; a zero byte ends each. The
# tree may belong to another user, as it does where a container mounts it.
project_files() {
  git -c safe.directory="$PWD" ls-files -z --cached --others --exclude-standard --deduplicate -- "$@"
}

# The files whose first line calls for a shell, or says that they are part of a script. A zero byte
# ends each.
shell_scripts() {
  local file first_line
  project_files | while IFS= read -r -d '' file; do
    if [[ -f $file ]] && IFS= read -r first_line <"$file" &&
      [[ $first_line =~ ^(#!.*[/ ](ba|da)?sh( |$)|# shellcheck shell=) ]]; then
      printf '%s\0' "$file"
    fi
  done
}

# compiled_files BUILD FOLDERS: writes how it compiles each C++ file to BUILD/tidy, once for those that
# are in several programs, and prints the files; a zero byte ends each. What it compiles into one of the
# FOLDERS, a pattern, is left out.
compiled_files() {
  mkdir -p "$1/tidy"
  python3 - "$1/compile_commands.json" "$2" "$1/tidy/compile_commands.json" <<'END'
import json, re, sys
with open(sys.argv[1]) as every:
    commands = {command["file"]: command for command in json.load(every)
                if not re.search(f" -o ({sys.argv[2]})/", command["command"])}
with open(sys.argv[3], "w") as chosen:
    json.dump(list(commands.values()), chosen)
for file in commands:
    print(file, end="\0")
END
}

# tidy BUILD FOLDERS CHECKS: looks at each file that BUILD does not compile into one of the FOLDERS, with
# those of .clang-tidy's checks.
tidy() {
  # The analyzer follows a third of the steps that it would: with all it takes twice as long.
  local -r analyzer=(--extra-arg=-Xclang --extra-arg=-analyzer-config --extra-arg=-Xclang
    --extra-arg=max-nodes=75000)
  # What clang-tidy writes to standard error is how many findings in foreign headers it left out.
  cmake --preset "$1" -DQUILLMERE_TESTS=ON >/dev/null &&
    compiled_files "build/$1" "$2" |
    xargs -0 --max-args=1 --max-procs="$(nproc)" \
      clang-tidy-14 -p "build/$1/tidy" --quiet --checks="$3" "${analyzer[@]}" \
      2> >(grep -Ev '^[0-9]+ warnings? generated\.$' >&2)
}

check_format() {
  project_files '*.cpp' '*.h' | xargs -0 clang-format-14 --dry-run -Werror
}

check_shell_scripts() {
  shell_scripts | xargs -0 shellcheck --external-sources
}

# Most of the time goes into foreign headers, so that several files at once take little longer than one
# of them. What looks at one file only, or gets lost in many, sees each by itself, and takes so long that
# it sees only what is shipped. The tests would take longer than all the rest.
check_habits() {
  local -r one_by_one='clang-analyzer-*,misc-unused-*'
  tidy asan tests "-${one_by_one//,/,-},-bugprone-suspicious-include" &&
    tidy release 'tests|bench|standin' "-*,$one_by_one"
}

check_with_cppcheck() {
  # It takes -0x1p63 for a positive number, and a test behind a division for one of its divisor. A loop
  # often reads better than an algorithm.
  cppcheck --std=c++20 --enable=warning,style,performance,portability --error-exitcode=1 --quiet \
    --suppress=incorrectLogicOperator:src/catalog/backup_sets.cpp \
    --suppress=zerodivcond:standin/make_catalogue.cpp \
    --suppress=useStlAlgorithm \
    -DQUILLMERE_INSTALL_ROOT='"/"' -DQUILLMERE_VERSION='"1"' \
    -I src -I . archive src standin
}

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${CHECK_PACKAGES[@]}"

failed=()
for check in check_format check_shell_scripts check_with_cppcheck check_habits; do
  echo "==> $check"
  "$check" || failed+=("$check")
done
if ((${#failed[@]} > 0)); then
  echo "Failed: ${failed[*]}"
  exit 1
fi
echo "Nothing to complain about."
