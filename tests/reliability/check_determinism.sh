#!/usr/bin/env bash
# Runs determinism_run in separate processes at 1, 2, 3, 5, 16 and 64 OpenMP threads, and pinned
# to one processor and spread over all of them (taskset), and requires every file each run
# writes to be the same, bit for bit. The cache's info record keeps machine facts (a time
# stamp among them), which are left out: everything else in it must match too.
#   check_determinism.sh DETERMINISM_RUN BODY_ABC
set -euo pipefail
RUN="$1"
BODY="$2"
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT
all="0-$(($(nproc) - 1))"
configs=("1 $all" "2 $all" "3 $all" "5 $all" "16 $all" "64 $all" "16 0" "64 0" "2 0")
i=0
for cfg in "${configs[@]}"; do
  set -- $cfg
  mkdir -p "$WORK/$i"
  OMP_NUM_THREADS="$1" taskset -c "$2" "$RUN" "$WORK/$i" "$BODY" >/dev/null
  # Machine facts out of the info record.
  grep -v '"System' "$WORK/$i/hair/info" > "$WORK/$i/hair/info.stable" && rm "$WORK/$i/hair/info"
  i=$((i + 1))
done
files=$(cd "$WORK/0" && find . -type f | sort)
count=$(echo "$files" | wc -l)
[ "$count" -ge 10 ] || { echo "only $count files written"; exit 1; }
bad=0
for n in $(seq 1 $((i - 1))); do
  for f in $files; do
    if ! cmp -s "$WORK/0/$f" "$WORK/$n/$f"; then
      echo "differs: $f with threads/processors '${configs[$n]}' against '${configs[0]}'"
      bad=1
    fi
  done
  extra=$(cd "$WORK/$n" && find . -type f | sort)
  [ "$extra" = "$files" ] || { echo "different file sets in run $n"; bad=1; }
done
if [ "$bad" = 0 ]; then
  echo "determinism: $count files identical over ${#configs[@]} runs (threads x processors: ${configs[*]})"
fi
exit $bad
