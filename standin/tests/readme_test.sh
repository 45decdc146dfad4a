#!/usr/bin/env bash
# The shell lines of the stand-in's README work, and nobody complains: readme_test.sh README BUILD
# BUILD is a build of everything, which takes the place of the demo's.
set -euo pipefail
readonly readme=$1 build=$2

folder=$(mktemp --directory)
trap 'rm -rf "$folder"' EXIT
# shellcheck disable=SC2016  # it is the fences that are looked for
sed -n '/^```sh$/,/^```$/{/^```/!p}' "$readme" | sed "s#build/demo#$build#g" >"$folder/lines"
[[ -s $folder/lines ]] || {
  echo "There are no shell lines in $readme." >&2
  exit 1
}
cd "$folder"
bash -euo pipefail lines >stdout 2>stderr || {
  cat stderr
  exit 1
}
diff /dev/null stderr
for what in 'Backupid  ' '"backup_id": "alpha_1500055473"' '"backup_sets": [' '"fentries": ['; do
  grep --quiet --fixed-strings "$what" stdout || {
    echo "Nothing printed $what" >&2
    exit 1
  }
done
