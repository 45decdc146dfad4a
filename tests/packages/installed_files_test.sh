#!/usr/bin/env bash
# What the build installs is what packaging/contents.txt says, and it is usable where it is.
#
#   installed_files_test.sh SOURCE BUILD CMAKE
set -euo pipefail
readonly build=$2 cmake=$3
cd "$1"
# shellcheck source=packaging/contents.sh
source packaging/contents.sh

folder=$(mktemp --directory)
trap 'rm -rf "$folder"' EXIT
chmod 755 "$folder"

umask 022
"$cmake" --install "$build" --prefix "$folder" >/dev/null
check_contents installed "$folder"
python3 tests/packages/links_test.py "$folder"

gzip --decompress --stdout "$folder/share/man/man1/quillmere.1.gz" | cmp - man/quillmere.1
# Bytes 4 to 9 of a gzip file: no name in it, and no time. Otherwise no two builds are the same.
if [[ $(od -An -tx1 -j3 -N5 "$folder/share/man/man1/quillmere.1.gz") != ' 00 00 00 00 00' ]]; then
  echo "The manual page's compressed form holds a name or a time." >&2
  exit 1
fi
"$folder/bin/quillmere" --help | grep --quiet --line-regexp 'Usage:'

# The page is made of what is installed, by the program beside it, and nothing comes to lie there.
work=$(mktemp --directory)
trap 'rm -rf "$folder" "$work"' EXIT
"$folder/bin/quillmere-archive" init "$work/archive"
PATH=/usr/bin:/bin "$folder/bin/quillmere-report" -o "$work/page.html" "$work/archive"
grep --quiet --line-regexp '<!DOCTYPE html>' "$work/page.html"
check_contents installed "$folder"
