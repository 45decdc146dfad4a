# shellcheck shell=bash
# Reads contents.txt. To be sourced, from the top folder of the tree.

# expected_contents KIND: each file of the packages of this kind, "MODE PATH", sorted by path.
expected_contents() {
  local mode path kinds
  while read -r mode path kinds; do
    if [[ $mode != '#' && ,$kinds, == *,$1,* ]]; then
      echo "$mode $path"
    fi
  done <packaging/contents.txt | LC_ALL=C sort --key=2
}

# actual_contents FOLDER: each file below FOLDER, in the same form. Folders count when others may not
# enter them, or when nothing is in them.
actual_contents() {
  {
    find "$1" ! -type d -printf '%m %P\n'
    find "$1" -mindepth 1 -type d \( ! -perm 755 -o -empty \) -printf '%m %P/\n'
  } | LC_ALL=C sort --key=2
}

# check_contents KIND FOLDER: compares the two, and shows what differs.
check_contents() {
  if ! diff <(expected_contents "$1") <(actual_contents "$2"); then
    echo "$1: these files are not as packaging/contents.txt says (<)." >&2
    return 1
  fi
}
