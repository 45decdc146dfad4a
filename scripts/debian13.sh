#!/usr/bin/env bash
# Builds the last commit and runs all its tests on Debian 13, in a system of its own.
#
#   scripts/debian13.sh [PRESET [OPTION...]]
#
# The arguments are those of scripts/test.sh; without any, warnings of the compiler and of CMake are
# errors. The system is made by debootstrap, from the mirror that apt uses here, and is kept in
# build/debian13/root for the next time. Takes root, or sudo.
#
# What the system needs mounted is mounted in a mount namespace that ends with this script, however
# it ends: nothing has to be unmounted, and nothing that is removed here can have a mount in it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly folder=build/debian13
readonly root=$folder/root
readonly tree=$folder/tree

# The mirror with Debian's own packages that apt uses here.
mirror() {
  # shellcheck disable=SC2016  # for apt-get to expand
  apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' | sed -n 1p
}

make_system() {
  local from
  from=$(mirror)
  if [[ -z $from ]]; then
    echo "apt knows no mirror of Debian: see to its sources, and run apt-get update." >&2
    return 1
  fi
  echo "==> Making a Debian 13 system in $root"
  rm -rf --one-file-system "$root.new"
  debootstrap --variant=minbase trixie "$root.new" "$from"
  mv "$root.new" "$root"
}

# test_inside [ARGUMENT...]: to be run as root, in a mount namespace of its own.
test_inside() {
  if [[ ! -d $root ]]; then
    make_system
  fi
  # A system of its own is a mount of its own: tests make namespaces in it.
  mount --bind "$root" "$root"
  cd "$root"
  mkdir -p quillmere
  mount --bind "../tree" quillmere
  mount -t proc proc proc
  mount --rbind /sys sys
  mount --rbind /dev dev
  cp --remove-destination --dereference /etc/resolv.conf etc/resolv.conf
  # How to get packages is the same here and there. Nothing else of the environment is meant for that
  # system.
  local -a environment=(HOME=/root ${http_proxy:+"http_proxy=$http_proxy"})
  if [[ -n ${NODE_EXTRA_CA_CERTS:-} ]]; then
    cp "$NODE_EXTRA_CA_CERTS" etc/npm-authorities.pem
    environment+=(NODE_EXTRA_CA_CERTS=/etc/npm-authorities.pem)
  fi
  chroot . /usr/bin/env --ignore-environment "${environment[@]}" \
    PATH=/usr/sbin:/usr/bin:/sbin:/bin /quillmere/scripts/test.sh "$@"
}

if [[ ${1:-} == --inside ]]; then
  test_inside "${@:2}"
  exit
fi

install_missing debian-archive-keyring debootstrap git mount util-linux
mkdir -p "$folder"
as_root rm -rf --one-file-system "$tree"
git clone --quiet --no-hardlinks . "$tree"
(($# > 0)) || set -- release -DQUILLMERE_WERROR=ON -Werror=dev
as_root unshare --mount --pid --fork --kill-child scripts/debian13.sh --inside "$@"
