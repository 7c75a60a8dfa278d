# Shared by the scripts of this folder; sourced, not run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

# Configures (on the first call) and builds one preset: build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  local log=build/$preset.log
  mkdir -p build
  if ! cmake --preset "$preset" >"$log" 2>&1; then
    cat "$log" >&2
    return 1
  fi
  local targets=()
  if [ "$#" -gt 0 ]; then
    targets=(--target "$@")
  fi
  if ! cmake --build --preset "$preset" "${targets[@]}" >"$log" 2>&1; then
    grep -E -A 12 'error|FAILED' "$log" | head -n 120 >&2 || true
    echo "the build of preset $preset failed; all of its output is in $log" >&2
    return 1
  fi
}
