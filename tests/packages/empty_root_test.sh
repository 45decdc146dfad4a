#!/usr/bin/env bash
# The static program in a root that holds nothing but what it is given here: no library, no locale,
# no /tmp, no /dev.
#
#   empty_root_test.sh PROGRAM INSTALL_ROOT
#
# Ends with 77 where the system allows no root of one's own.
set -euo pipefail
readonly program=$1 install_root=$2

root=$(mktemp --directory)
trap 'rm -rf "$root"' EXIT

inside=(unshare --mount)
((EUID == 0)) || inside+=(--user --map-root-user)
if ! reason=$("${inside[@]}" --root=/ true 2>&1); then
  echo "skipped: no root of one's own: $reason"
  exit 77
fi
inside+=(--root="$root" -- /quillmere)

# expect STATUS STDOUT STDERR ARGUMENT...: runs the program in the root. Each text ends in a newline
# unless it is empty.
expect() {
  local status=0 stdout=$2 stderr=$3
  [[ -z $stdout ]] || stdout+=$'\n'
  [[ -z $stderr ]] || stderr+=$'\n'
  "${inside[@]}" "${@:4}" >"$root.stdout" 2>"$root.stderr" || status=$?
  if ((status != $1)) || ! diff <(printf %s "$stdout") "$root.stdout" ||
    ! diff <(printf %s "$stderr") "$root.stderr"; then
    echo "quillmere ${*:4}: status $status, but $1 was expected; < above is expected, > is not" >&2
    exit 1
  fi
}
trap 'rm -rf "$root" "$root.stdout" "$root.stderr"' EXIT

# command NAME TEXT: makes a command of the product that prints its arguments on standard error, and
# TEXT.
command_that_prints() {
  mkdir -p "$root$install_root/${1%/*}"
  printf '#!/bin/sh\necho "%s $*" >&2\nprintf %%s '\''%s\n'\''\n' "${1##*/}" "$2" \
    >"$root$install_root/$1"
  chmod 755 "$root$install_root/$1"
}

echo "==> Nothing but the program"
cp "$program" "$root/quillmere"
expect 1 '' 'unknown action value: x' --action x

echo "==> No shell to start a command with"
expect 1 '' 'run command qvroll failed.' --action list_backups

echo "==> A shell and the product's commands"
# The shell is the system's own, with the libraries that it needs.
mkdir -p "$root/bin"
cp --dereference /bin/sh "$root/bin/sh"
while read -r library; do
  cp --dereference --parents "$library" "$root"
done < <(ldd /bin/sh | grep -o '/[^ ]*')
command_that_prints bin/admincmd/qvroll 'the listing'
expect 0 'the listing' 'qvroll -client c1 -policy P1 -sched full' \
  --action list_backups --client c1 --policy P1 --schedule full

command_that_prints bin/admincmd/qvmeta '{"id": 1}'
command_that_prints bin/admincmd/qvroll 'a
b
c name'
command_that_prints bin/rec_unfold $'1\t2\t3\t4\t5\t6\t7\t8\t9\t/f\t10'
mkdir "$root/out"
expect 0 '' "qvmeta -json -backupid a_12345
qvroll -id a_12345
rec_unfold -dump $install_root/db/images/a/1234000000/name" \
  --action dump_backup --backup_id a_12345 --output_dir /out
diff "$root/out/a_12345.json" - <<'END'
{
    "id": "1",
    "fentries": [
        {
            "filenum": "1",
            "length": "2",
            "plength": "3",
            "dlength": "4",
            "blknum": "5",
            "in_image": "6",
            "raw_partition_sz": "7",
            "gigabytes": "8",
            "device_num": "9",
            "path": "\/f",
            "data": "10"
        }
    ]
}
END

echo "==> An exception finds its way out of the program"
ulimit -c 0
expect 134 '' "terminate called after throwing an instance of 'std::out_of_range'
  what():  basic_string::at: __n (which is 1) >= this->size() (which is 1)" \
  --action dump_backup --backup_id a_1
