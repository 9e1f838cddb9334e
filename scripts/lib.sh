# shellcheck shell=sh disable=SC2034 # the scripts that read this one use its lists
# Shared by the scripts: finds the project's root and installs Debian packages that are missing.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

say() { printf '\n== %s\n' "$*"; }

# need PACKAGES...: installs what is not there yet; asks for root only then.
# shellcheck disable=SC2048,SC2086 # a word may hold several names, parted here
need() {
  missing=
  for package in $*; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
  done
  [ -n "$missing" ] || return 0
  say "Installing:$missing"
  as_root=
  [ "$(id -u)" = 0 ] || as_root=sudo
  $as_root apt-get update -q
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends $missing
}

build_packages="g++ cmake make libcli11-dev nlohmann-json3-dev libfmt-dev"
test_packages="libgtest-dev libgmock-dev nettle-dev zlib1g-dev iproute2"
lint_packages="clang clang-format clang-tidy shellcheck mandoc"

# build PRESET [CMAKE OPTION...]
build() {
  preset=$1
  shift
  cmake --preset "$preset" "$@" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)" -- --no-print-directory -s
}
