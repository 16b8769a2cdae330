# Sourced by the scripts beside it: where the repository is, and how the build is called.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
PLX_ROOT=$PWD
jobs=${PLX_JOBS:-$(nproc)}
note() { printf '\033[1m==>\033[0m %s\n' "$*" >&2; }
[ -t 2 ] || note() { printf '==> %s\n' "$*" >&2; }
die() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# configure PRESET: every time, because packages that were missing before may be there now; a second or two.
configure() {
  local output
  output=$(cmake --preset "$1" 2>&1) || {
    printf '%s\n' "$output" >&2
    die "configuring the preset $1 failed"
  }
}
