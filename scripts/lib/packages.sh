# shellcheck shell=bash
# The Debian packages that the scripts need, and the function that installs the missing ones.

# shellcheck disable=SC2034  # the lists are read by the scripts that source this file
{
  BUILD_PACKAGES=(cmake g++ gzip libboost-dev libcli11-dev liblz4-dev libssl-dev libxxhash-dev
    libzstd-dev ninja-build nlohmann-json3-dev)
  TEST_PACKAGES=(binutils chromium chromium-driver jq libgmock-dev libgtest-dev locales mandoc mount
    nodejs postgresql prometheus python3 python3-jsonschema python3-pandas python3-selenium rsync
    sqlite3 strace systemd util-linux valgrind zsh zstd)
  CHECK_PACKAGES=(clang-format-14 clang-tidy-14 cppcheck git shellcheck)
}

# It comes with other builds of Node.js than Debian's, which its package can't be installed beside.
command -v npm >/dev/null || TEST_PACKAGES+=(npm)

# True where Debian has ClickHouse, as no later version than 12 does.
has_clickhouse() (
  # shellcheck source=/dev/null
  source /etc/os-release
  [[ ${ID:-} == debian ]] && ((${VERSION_ID:-13} <= 12))
)
if has_clickhouse; then
  TEST_PACKAGES+=(clickhouse-client clickhouse-server)
fi

# True when the Debian package $1 is installed.
is_installed() {
  [[ $(dpkg-query --show --showformat=' ${db:Status-Status} ' "$1" 2>/dev/null) == *' installed '* ]]
}

# Runs a command as root: as it is for root, through sudo for anyone else.
as_root() {
  if ((EUID == 0)); then
    "$@"
  else
    sudo "$@"
  fi
}

install_packages() {
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq -o=Dpkg::Use-Pty=0 install --no-install-recommends --yes "$@"
}

# install_missing PACKAGE...: installs those packages that are not there yet. When all of them are,
# it asks nobody for anything and does nothing.
install_missing() {
  local package
  local -a missing=()
  if ! command -v dpkg-query >/dev/null; then
    echo "This is not Debian. Please see to it that you have what these packages hold: $*"
    return
  fi
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  if ((${#missing[@]} == 0)); then
    return
  fi
  echo "==> Installing ${missing[*]}"
  if ((EUID != 0)) && ! command -v sudo >/dev/null; then
    echo "That takes root, and there is no sudo here. As root, run:" >&2
    echo "    apt-get update && apt-get install ${missing[*]}" >&2
    return 1
  fi
  # Their programs are needed, and no server of this machine.
  for package in clickhouse-server prometheus; do
    if [[ " ${missing[*]} " == *" $package "* && -d /run/systemd/system ]]; then
      as_root systemctl mask "$package.service"
    fi
  done
  as_root apt-get -qq update
  if [[ " ${missing[*]} " == *' postgresql '* ]] && ! is_installed postgresql-common; then
    # The same goes for this one, which otherwise makes a database and serves it.
    install_packages postgresql-common
    as_root sed -i 's/^#\?create_main_cluster *=.*/create_main_cluster = false/' \
      /etc/postgresql-common/createcluster.conf
  fi
  install_packages "${missing[@]}"
}
