#!/bin/sh
# Builds the libFuzzer targets with clang in BUILD_DIR and runs each for
# SECONDS; exits non-zero as soon as one finds a crash or a broken property.
#   tests/fuzz/run-fuzzers.sh BUILD_DIR SECONDS
set -eu

[ $# -eq 2 ] || { echo "usage: $0 BUILD_DIR SECONDS" >&2; exit 64; }
build=$1 seconds=$2
here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(cd "$here/../.." && pwd)

mkdir -p "$build"
cmake -S "$source_dir" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DAC_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DAC_BUILD_BENCH=OFF >"$build/configure.log" 2>&1 || {
  cat "$build/configure.log" >&2
  exit 1
}
ninja -C "$build" -j2 ac_fuzzers

status=0
for fuzzer in "$build"/tests/fuzz/fuzz_*; do
  [ -x "$fuzzer" ] || continue
  name=$(basename "$fuzzer")
  corpus="$build/fuzz-corpus/$name"
  artifacts="$build/fuzz-artifacts/$name"
  mkdir -p "$corpus" "$artifacts"
  seeds="$here/seeds/$name"
  [ -d "$seeds" ] || seeds=
  echo "== $name (${seconds}s)"
  # New inputs go to the build's corpus; the checked-in seeds are only read.
  if "$fuzzer" -max_total_time="$seconds" -dict="$here/tokens.dict" -artifact_prefix="$artifacts/" \
      -print_final_stats=1 "$corpus" $seeds >"$artifacts/run.log" 2>&1; then
    grep -E '^stat::number_of_executed_units' "$artifacts/run.log" || true
  else
    echo "FAIL - $name: see $artifacts/run.log" >&2
    tail -n 40 "$artifacts/run.log" >&2
    status=1
  fi
done
exit $status
