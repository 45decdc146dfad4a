#!/usr/bin/env bash
# Runs what quillmere-archive.service runs, as its user and under its restrictions, as far as they can
# be had where systemd is not at work: a system that is read-only but for the archive, a /tmp of its
# own, no new privileges, no capabilities, umask 0077. To be started as root in a private mount
# namespace in which the product's root is an empty directory.
#
#   packaging/run_as_service.sh MAKE_CATALOGUE
set -euo pipefail
readonly make_catalogue=$1
readonly unit=/usr/lib/systemd/system/quillmere-archive.service
readonly state=/var/lib/quillmere-archive product=/usr/ostra/keelhaven

fail() {
  echo "packaging/run_as_service.sh: $*" >&2
  exit 1
}

# as_service COMMAND...: runs it as the service would.
as_service() {
  (
    umask 0077
    exec setpriv --reuid quillmere-archive --regid quillmere-archive --clear-groups --no-new-privs \
      --bounding-set=-all --inh-caps=-all env --ignore-environment PATH=/usr/bin:/bin "$@"
  )
}

"$make_catalogue" --root "$product" --seed 1 --clients 2 --policies 2 --nights 3 >/dev/null
chmod -R go=rX "$product"

mount --make-rprivate /
mount --bind "$state" "$state"
while IFS= read -r target; do
  case $target in
    "$state" | /proc | /proc/* | /sys | /sys/* | /dev | /dev/*) ;;
    *) mount -o remount,bind,ro "$target" || fail "cannot make $target read-only" ;;
  esac
done < <(findmnt --list --noheadings --output TARGET)
mount -t tmpfs -o mode=1777 tmpfs /tmp

for place in /etc /usr "$product" /var/lib; do
  if as_service touch "$place/x" 2>/dev/null || touch "$place/x" 2>/dev/null; then
    fail "$place can be written to"
  fi
done

# The command as systemd puts it together.
[[ $(sed -n 's/^Environment=//p' "$unit") == "ARCHIVE=$state OPTIONS=" ]] || fail "the unit's environment"
# shellcheck disable=SC2016  # the unit's own variables
[[ $(sed -n 's/^ExecStart=//p' "$unit") == '/usr/bin/quillmere-archive sync $OPTIONS ${ARCHIVE}' ]] ||
  fail "the unit's command"
status=0
as_service /usr/bin/quillmere-archive sync "$state" || status=$?
((status == 4)) || fail "sync without an archive: status $status"
as_service /usr/bin/quillmere-archive init "$state"
as_service /usr/bin/quillmere-archive sync "$state"
as_service /usr/bin/quillmere-archive list "$state"
as_service /usr/bin/quillmere-archive verify "$state"

images=$("$product/bin/admincmd/qvroll" | awk '/_/ && $6 > 0' | wc -l)
kept=$(find "$state/images" -name manifest.json | wc -l)
((kept == images)) || fail "$kept of $images images are kept"
others=$(find "$state" -mindepth 1 ! \( -user quillmere-archive -group quillmere-archive \
  \( -type d -perm 700 -o -type f -perm 600 \) \))
[[ -z $others ]] || fail "not the service's alone: $others"
