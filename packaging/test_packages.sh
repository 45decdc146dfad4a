#!/usr/bin/env bash
# Builds the .deb, the .rpm and the .tar.gz, and tests them: that a second build gives the same bytes,
# what is in them, what lintian says, and that they can be installed, used and removed without a
# trace. Installs the Debian packages that it needs and that are missing.
#
#   packaging/test_packages.sh
#
# It installs the .deb on this system and removes it again, which takes root, or sudo. It refuses to
# do so where a package of this name is installed already. Everything is kept in build/package.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
# shellcheck source=packaging/contents.sh
source packaging/contents.sh

readonly build=build/package
readonly out=$build/packages
readonly state=/var/lib/quillmere-archive

# fail TEXT...: ends the test.
fail() {
  echo "packaging/test_packages.sh: $*" >&2
  exit 1
}

# check_linked FILE: a program in a package is static and stripped.
check_linked() {
  [[ $(readelf --wide --program-headers "$1") != *INTERP* ]] || fail "$1 is not static"
  [[ $(readelf --wide --sections "$1") != *.symtab* ]] || fail "$1 is not stripped"
}

# check_programs FOLDER: the two compiled programs in a package are so, and all three work.
check_programs() {
  local status=0
  check_program "$1/quillmere"
  check_linked "$1/quillmere-archive"
  "$1/quillmere-archive" --help >"$build/archive-usage.txt"
  grep --quiet '^Usage: quillmere-archive ' "$build/archive-usage.txt" ||
    fail "$1/quillmere-archive --help shows no usage"
  "$1/quillmere-archive" list / 2>"$build/archive-stderr.txt" || status=$?
  [[ $status == 4 && $(<"$build/archive-stderr.txt") == *'archive.json'* ]] ||
    fail "$1/quillmere-archive list /: status $status, $(<"$build/archive-stderr.txt")"
  "$1/quillmere-report" --help >"$build/report-usage.txt"
  grep --quiet '^usage: quillmere-report ' "$build/report-usage.txt" ||
    fail "$1/quillmere-report --help shows no usage"
}

check_program() {
  check_linked "$1"
  "$1" --help >"$build/usage.txt"
  grep --quiet --line-regexp 'Usage:' "$build/usage.txt" || fail "$1 --help shows no usage"
  if "$1" >/dev/null; then
    fail "$1 without an action ends with status 0"
  fi
}

# check_defaults ROOT: the one file of a package that is not below /usr.
check_defaults() {
  [[ $(find "$1/etc" ! -type d -printf '%m %P\n') == '644 default/quillmere-archive' ]] ||
    fail "in /etc there is: $(find "$1/etc" ! -type d)"
}

compile() {
  cmake --preset package >/dev/null
  cmake --build "$build" --target quillmere quillmere-archive make_catalogue -- --quiet
}

# run_cpack [ARGUMENT...]: makes the packages, in $out. Whatever umask this script was started with,
# others can read what is in them.
run_cpack() (
  umask 077
  cpack --config "$build/CPackConfig.cmake" -B "$out" "$@" >"$build/cpack.txt" 2>&1 || {
    cat "$build/cpack.txt"
    fail "cpack failed"
  }
)

build_packages() {
  compile
  rm -rf "$out"
  run_cpack
  chmod 644 "$out"/*.*
  deb=$(find "$out" -maxdepth 1 -name 'quillmere_*-1_amd64.deb')
  rpm=$(find "$out" -maxdepth 1 -name 'quillmere-*-1.x86_64.rpm')
  archive=$(find "$out" -maxdepth 1 -name 'quillmere-*-linux-x86_64.tar.gz')
  [[ $deb && $rpm && $archive ]] || fail "a package is missing in $out: $(ls "$out")"
}

# The same sources in another folder, with other times, give the same bytes.
check_second_build() {
  local again=$PWD/$build/again package
  rm -rf "$again"
  mkdir "$again"
  tar --create --exclude=./build --exclude=./.cache . | tar --extract --touch --directory "$again"
  (
    cd "$again"
    unset CCACHE_BASEDIR # else ccache would copy what it has of the first
    compile
    run_cpack
  )
  for package in "$deb" "$rpm" "$archive"; do
    cmp "$package" "$again/$package" || fail "a second build gives another ${package##*/}"
  done
}

# Without a repository, the time in the packages is that of the change log's newest entry.
check_build_without_repository() {
  local again=$build/again expected
  expected=$(date --date="$(sed -n '/^ -- /{s/.*>  //p;q}' packaging/debian/changelog)" +%s)
  rm -rf "$again/.git" "${again:?}/$out"
  (
    cd "$again"
    unset SOURCE_DATE_EPOCH
    run_cpack -G TGZ
  )
  [[ $(tar --list --verbose --full-time --utc --file "$again/$archive" | awk '{print $4, $5}' |
    sort --unique) == "$(date --utc --date="@$expected" '+%F %T')" ]] ||
    fail "the packages' time is not that of the change log"
}

# field NAME: a field of the Debian package.
field() {
  dpkg-deb --field "$deb" "$1"
}

check_deb() {
  dpkg-deb --raw-extract "$deb" "$unpacked/deb"
  check_contents deb "$unpacked/deb/usr"
  check_defaults "$unpacked/deb"
  [[ $(ls "$unpacked/deb") == $'DEBIAN\netc\nusr' ]] || fail "the .deb has more than these in it"
  [[ $(ls "$unpacked/deb/DEBIAN") == $'conffiles\ncontrol\nmd5sums\npostinst\npostrm' ]] ||
    fail "the .deb runs other scripts"
  (cd "$unpacked/deb" && md5sum --check --quiet DEBIAN/md5sums)
  [[ $(field Maintainer) == 'quillmere maintainers <maintainers@quillmere.invalid>' ]] ||
    fail "the .deb's maintainer is $(field Maintainer)"
  [[ -z $(field Depends) ]] || fail "the .deb depends on $(field Depends)"
  [[ $(dpkg-deb --contents "$deb" | awk '{print $2}' | sort --unique) == root/root ]] ||
    fail "not everything in the .deb is root's"
  python3 tests/packages/links_test.py "$unpacked/deb"
  check_programs "$unpacked/deb/usr/bin"
}

check_lintian() {
  lintian --allow-root --fail-on error,warning --display-level '>=warning' "$deb"
}

check_rpm() {
  local root=$PWD/$unpacked/rpm requires
  mkdir -p "$root"
  requires=$(rpm --query --requires --package "$rpm" | grep --invert-match '^rpmlib(')
  [[ $requires == /bin/sh ]] || fail "the .rpm requires $requires"
  [[ $(rpm --query --queryformat '%{BUILDHOST}' --package "$rpm") == localhost ]] ||
    fail "the .rpm names the machine that built it"
  [[ -z $(rpm --query --scripts --package "$rpm") ]] || fail "the .rpm runs scripts"
  # The package owns none of the system's folders, only one of its own.
  rpm --query --queryformat '[%{FILEMODES:perms} %{FILENAMES}\n]' --package "$rpm" |
    sed -n 's/^d[^ ]* //p' | grep --invert-match quillmere &&
    fail "the .rpm owns these folders of the system"
  # There is no /bin/sh in that root, but the package has no script that would need one. On Debian,
  # rpm says each time that packages are another program's business.
  as_root rpm --root "$root" --install --nodeps "$rpm" 2>"$build/rpm.txt" || {
    cat "$build/rpm.txt"
    fail "the .rpm cannot be installed"
  }
  check_contents rpm "$root/usr"
  check_defaults "$root"
  [[ $(rpm --query --configfiles --package "$rpm") == /etc/default/quillmere-archive ]] ||
    fail "the .rpm replaces the service's options"
  check_programs "$root/usr/bin"
  mkdir "$unpacked/programs_of_rpm"
  cp "$root"/usr/bin/quillmere* "$unpacked/programs_of_rpm"
  as_root rpm --root "$root" --erase quillmere 2>>"$build/rpm.txt"
  [[ -z $(find "$root" -name '*quillmere*') ]] || fail "removing the .rpm leaves something behind"
  as_root rm -rf "$root" # for whoever runs this again
}

check_archive() {
  mkdir -p "$unpacked/archive"
  tar --extract --file "$archive" --directory "$unpacked/archive"
  check_contents archive "$unpacked"/archive/quillmere-*
  python3 tests/packages/links_test.py "$unpacked/archive"
  check_programs "$unpacked"/archive/quillmere-*/bin
}

# All packages hold the same programs, and nothing in them or beside them names this machine's folders.
check_that_all_agree() {
  diff --recursive "$unpacked/deb/usr/bin" "$unpacked/programs_of_rpm"
  diff --recursive "$unpacked/deb/usr/bin" "$unpacked"/archive/quillmere-*/bin
  if grep --recursive --fixed-strings --files-with-matches -e "$PWD" "$unpacked/deb" "$unpacked/archive"; then
    fail "these files name the folder in which they were built"
  fi
}

# The installed package in use, each thing as its user comes across it.
check_installed() {
  [[ $(command -v quillmere) == /usr/bin/quillmere ]] || fail "quillmere is not in the path"
  quillmere --help | cmp - "$build/usage.txt"

  [[ $(man --where quillmere) == /usr/share/man/man1/quillmere.1.gz ]] ||
    fail "man finds $(man --where quillmere)"
  LC_ALL=C MANWIDTH=80 man quillmere >"$build/man.txt"
  head -n 5 "$build/man.txt"
  grep --quiet "export a host backup product's catalogue as JSON" "$build/man.txt" ||
    fail "man does not show the page"
  [[ $(LC_ALL=C MANWIDTH=120 man quillmere-archive) == *'keep every image of a host backup'* ]] ||
    fail "man does not show the page of quillmere-archive"

  # bash-completion loads it when the first word of the line is the program's name.
  # shellcheck disable=SC2016  # for that shell to expand
  env --ignore-environment PATH="$PATH" HOME=/nonexistent bash --norc --noprofile -i -c '
    source /usr/share/bash-completion/bash_completion
    _completion_loader quillmere
    COMP_WORDS=(quillmere --action list) COMP_CWORD=2
    _quillmere
    [[ $(complete -p quillmere) == "complete -F _quillmere quillmere" && ${COMPREPLY[*]} == list_backups ]] || exit
    _completion_loader quillmere-archive
    COMP_WORDS=(quillmere-archive s) COMP_CWORD=1
    _quillmere_archive
    [[ ${COMPREPLY[*]} == sync ]]
  ' 2>"$build/bash.txt" || fail "bash does not complete: $(cat "$build/bash.txt")"
  # shellcheck disable=SC2016  # for zsh to expand
  [[ $(zsh -f -c 'autoload -Uz compinit; compinit -u -D
    print -r -- $_comps[quillmere] $_comps[quillmere-archive]') == '_quillmere _quillmere-archive' ]] ||
    fail "zsh does not know the completion"
  python3 tests/cli_texts/bash_completion_test.py \
    --completion /usr/share/bash-completion/completions/quillmere
  python3 tests/cli_texts/zsh_completion_test.py \
    --completion /usr/share/zsh/vendor-completions/_quillmere
}

# One night of the service: its user was made, and a sync under its restrictions, as far as they can be
# had without systemd at work, fills the archive.
check_service() {
  getent passwd quillmere-archive >/dev/null || fail "the package makes no user"
  [[ $(stat --format '%a %U %G' "$state") == '700 quillmere-archive quillmere-archive' ]] ||
    fail "$state is $(stat --format '%a %U %G' "$state")"
  [[ ! -e /etc/systemd/system/timers.target.wants/quillmere-archive.timer ]] ||
    fail "the package enables its timer"
  as_root python3 tests/e2e/private_root.py /usr/ostra/keelhaven packaging/run_as_service.sh \
    "$build/standin/make_catalogue"
  # What is kept outlives the package.
  as_root dpkg --purge quillmere >/dev/null
  [[ -n $(as_root find "$state" -name manifest.json) ]] || fail "removing the package removes the archive"
  as_root find "$state" -mindepth 1 -delete
  as_root dpkg --install "$deb" >/dev/null
}

makes_user=false
remove_deb() {
  as_root dpkg --purge quillmere >/dev/null
  if [[ $makes_user == true ]]; then
    as_root userdel quillmere-archive
  fi
}

check_install_and_remove() {
  local file
  if is_installed quillmere; then
    fail "quillmere is installed on this system. Remove it first: apt-get purge quillmere"
  fi
  [[ ! -e $state ]] || fail "there is a $state on this system, which the test would empty"
  getent passwd quillmere-archive >/dev/null || makes_user=true
  trap remove_deb EXIT
  # Images for containers often leave manual pages and documents out.
  as_root dpkg --path-include='/usr/share/*' --install "$deb"
  dpkg --verify quillmere
  check_installed
  check_service
  dpkg-query --listfiles quillmere >"$build/files.txt"
  trap - EXIT
  remove_deb
  ! is_installed quillmere || fail "the package is still installed"
  while IFS= read -r file; do
    # Folders stay that other packages have files in.
    if [[ -e $file ]] && ! dpkg-query --search "$file" >/dev/null 2>&1 && [[ $file != /. ]]; then
      fail "removing the package leaves $file behind"
    fi
  done <"$build/files.txt"
  [[ ! -e $state ]] || fail "removing the package leaves $state behind"
  if command -v quillmere quillmere-archive; then
    fail "quillmere is still in the path"
  fi
}

install_missing "${BUILD_PACKAGES[@]}" bash-completion binutils dpkg-dev file git gzip lintian man-db \
  mount python3 rpm systemd util-linux zsh

readonly unpacked=$build/unpacked
echo "==> Building the packages in $out"
build_packages
rm -rf "$unpacked"
mkdir -p "$unpacked"
for check in check_second_build check_build_without_repository check_deb check_lintian check_rpm \
  check_archive check_that_all_agree check_install_and_remove; do
  echo "==> $check"
  "$check"
done
echo "All packages are as they should be:"
ls -l "$deb" "$rpm" "$archive"
