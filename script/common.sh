# Sourced by the scripts beside it: where the repository is, and how the build is called.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
PLX_ROOT=$PWD
jobs=${PLX_JOBS:-$(nproc)}
note() { printf '\033[1m==>\033[0m %s\n' "$*" >&2; }
[ -t 2 ] || note() { printf '==> %s\n' "$*" >&2; }
die() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# configure PRESET: only when the build folder is not there or a list of sources has changed (ninja does the latter).
configure() {
  [ -f "build/$1/build.ninja" ] || cmake --preset "$1" >"/tmp/plx-configure.$$" || {
    cat "/tmp/plx-configure.$$" >&2
    rm -f "/tmp/plx-configure.$$"
    die "configuring the preset $1 failed"
  }
  rm -f "/tmp/plx-configure.$$"
}
