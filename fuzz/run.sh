#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each on its corpus for SECONDS (default 60).
#   fuzz/run.sh [SECONDS] [TARGET...]
# The corpus of a target is fuzz/corpus/<target>/ (where new finds are kept) plus the seeds that
# fuzz/seeds.txt names for it from the tests' data. A crash, leak or sanitizer report stops the run
# with exit code 1 and leaves the input as fuzz/build/crash-*.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-60}"
shift || true
build="${MEROVANE_FUZZ_BUILD:-$root/fuzz/build}"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DMEROVANE_FUZZ=ON >/dev/null
cmake --build "$build" --target fuzz_all >/dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for exe in "$build"/fuzz/fuzz_*; do targets+=("$(basename "$exe" | sed 's/^fuzz_//')"); done
fi
export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
for t in "${targets[@]}"; do
  corpus="$root/fuzz/corpus/$t"
  mkdir -p "$corpus"
  seeds=()
  while read -r name dir; do
    [ "$name" = "$t" ] && seeds+=("$root/$dir")
  done < <(grep -v '^#' "$root/fuzz/seeds.txt")
  log="$build/$t.log"
  echo "== fuzz_$t for ${seconds}s"
  (cd "$build" && "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -max_len=65536 -timeout=20 -rss_limit_mb=2048 \
    -print_final_stats=1 "$corpus" "${seeds[@]}" >"$log" 2>&1) || { tail -40 "$log"; exit 1; }
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$log" | sed "s/^/   $t /"
done
