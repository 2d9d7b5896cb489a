#!/usr/bin/env bash
# Builds the fuzz targets of every reader and runs each for SECONDS (20 by default):
#   scripts/fuzz.sh [SECONDS]
# The corpora start from the library's own writes and, for Alembic, from files the real
# Alembic library writes; they grow in build/fuzz/corpus, so later runs go on from there.
# Prints one line per target with its runs; exits non-zero at the first finding (the
# reproducer is left in build/fuzz/findings). Then the random caller of the Python package
# runs for SECONDS too (a crash names its seed and the call that made it).
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
SECONDS_PER_TARGET="${1:-20}"
bash "$ROOT/scripts/setup.sh" >/dev/null
cd "$ROOT"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)" >/dev/null
# Third-party registries that live as long as the process (OpenUSD, TBB) are not leaks.
export LSAN_OPTIONS="suppressions=$ROOT/tests/sanitizers/lsan.supp:print_suppressions=0"
BIN="$ROOT/build/fuzz/tests/fuzz"
SEEDS="$ROOT/build/fuzz/seeds"
CORPUS="$ROOT/build/fuzz/corpus"
FINDINGS="$ROOT/build/fuzz/findings"
rm -rf "$SEEDS"
mkdir -p "$SEEDS" "$CORPUS" "$FINDINGS"
"$BIN/fuzz_make_seeds" "$SEEDS"
"$ROOT/.venv/bin/python" "$ROOT/tests/alembic/abc_scenes.py" "$SEEDS/alembic" >/dev/null
"$ROOT/.venv/bin/python" "$ROOT/tests/fuzz/usd_seeds.py" "$SEEDS/usd"
cp "$ROOT"/tests/usd/resources/*.usdc "$SEEDS/usd/"
total=0
for t in string array geometry follicles feather cache alembic hostfiles usd; do
  mkdir -p "$CORPUS/$t"
  log="$ROOT/build/fuzz/$t.log"
  if ! "$BIN/fuzz_$t" -max_total_time="$SECONDS_PER_TARGET" -print_final_stats=1 -rss_limit_mb=2048 \
       -timeout=10 -artifact_prefix="$FINDINGS/$t-" "$CORPUS/$t" "$SEEDS/$t" >"$log" 2>&1; then
    echo "fuzz_$t: FINDING (see $log and $FINDINGS)"
    tail -40 "$log"
    exit 1
  fi
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1)
  echo "fuzz_$t: ${runs:-0} runs in ${SECONDS_PER_TARGET} s, corpus $(ls "$CORPUS/$t" | wc -l) inputs"
  total=$((total + ${runs:-0}))
done
echo "fuzz: $total runs, no finding"
# The Python package: every public callable at random with good and bad arguments, in
# subprocesses, for the same time.
"$ROOT/.venv/bin/python" "$ROOT/tests/python/random_calls.py" --seconds "$SECONDS_PER_TARGET" "$ROOT/build/fuzz/random_calls"
