# Shared by the scripts: finds the project's root and installs Debian packages that are missing.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

say() { printf '\n== %s\n' "$*"; }

# need PACKAGE...: installs what is not there yet; asks for root only then.
need() {
  missing=
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
  done
  [ -n "$missing" ] || return 0
  say "Installing:$missing"
  as_root=
  [ "$(id -u)" = 0 ] || as_root=sudo
  $as_root apt-get update -q
  # shellcheck disable=SC2086
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends $missing
}

build_packages="g++ cmake make libcli11-dev nlohmann-json3-dev libfmt-dev"
test_packages="libgtest-dev libgmock-dev nettle-dev zlib1g-dev mandoc iproute2"

# build PRESET [CMAKE OPTION...]
build() {
  preset=$1
  shift
  cmake --preset "$preset" "$@" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)" -- --no-print-directory -s
}
