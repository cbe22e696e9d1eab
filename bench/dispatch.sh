#!/bin/sh
# 4 KiB random reads with O_DIRECT: the asynchronous dispatcher (quorel read
# --async) against fio's libaio engine and the io_uring dispatcher (quorel
# read --uring) against fio's io_uring engine, at the same depth with one
# submission per I/O for fio, and the synchronous dispatcher (quorel read
# --sync) against fio's psync engine. The two run in turn on the same target,
# ROUNDS times; the best run of each counts.
#
#   bench/dispatch.sh [TARGET]   a file or block device; default: a 1 GiB file
#                                in $BENCH_DIR (default /var/tmp), made and removed
#
# In the storage test bed, on its scsi_debug disk (without the driver's
# default one-jiffy response delay; knobs go in as kernel parameters):
#   QUOREL_TESTBED_EXTRA="build/i386/tools/quorel $(command -v fio)" \
#   QUOREL_TESTBED_SCSI_DEBUG="dev_size_mb=64 delay=0" QUOREL_TESTBED_APPEND="IOS=20000 ROUNDS=2" \
#   scripts/testbed bench/dispatch.sh
#
# fio keeps a helper thread that wakes every few milliseconds; the library
# starts no thread. On a virtual machine that alone changes the figures
# (a CPU that stays idle between completions wakes slowly: a plain
# io_submit/io_getevents loop in C doubles its IOPS with a 1 ms sleeper
# beside it), so both tools run beside the same sleeper unless AWAKE=0.
#
# Knobs: QUOREL (the tool), IOS (I/Os per run, default 65536), DEPTHS (default
# "1 8 32 128"), ROUNDS (default 3), AWAKE (default 1), URING (default 1; 0
# leaves the io_uring rows out).
set -eu

quorel=${QUOREL:-$(command -v quorel || echo "$(dirname "$0")/../build/i386/tools/quorel")}
ios=${IOS:-65536}
depths=${DEPTHS:-1 8 32 128}
rounds=${ROUNDS:-3}
command -v fio >/dev/null || { echo "fio is not installed (apt-get install fio)" >&2; exit 77; }

target=${1:-${QUOREL_SCSI_DEBUG:-}}
made=""
if [ -z "$target" ]; then
  target=${BENCH_DIR:-/var/tmp}/quorel-dispatch-bench
  made=$target
  fio --name=make --filename="$target" --size=1G --rw=write --bs=1M --direct=1 --ioengine=psync \
      --output=/dev/null >/dev/null
fi
scratch=$(mktemp -d)
sleeper=""
trap '[ -n "$sleeper" ] && kill "$sleeper"; rm -rf "$scratch"; [ -n "$made" ] && rm -f "$made"' EXIT
if [ "${AWAKE:-1}" = 1 ] && command -v perl >/dev/null; then
  perl -e 'select(undef, undef, undef, 0.001) while 1' &
  sleeper=$!
fi
if [ -b "$target" ]; then
  size=$(( $(cat /sys/class/block/"$(basename "$target")"/size) * 512 ))
else
  size=$(stat -c %s "$target")
fi

# IOPS of one run of each tool.
quorel_iops() {  # MODE DEPTH (progress lines and errors go to a file, shown on failure)
  "$quorel" read "$target" "--$1" --depth "$2" --bs 4K --size "$size" --ios "$ios" --direct --random \
    2>"$scratch/err" | sed -n 's/.*IOPS \([0-9]*\).*/\1/p' | grep . || { cat "$scratch/err" >&2; echo 0; }
}
fio_iops() {  # ENGINE DEPTH
  fio --name=bench --filename="$target" --size="$size" --number_ios="$ios" --rw=randread --bs=4k --direct=1 \
      --ioengine="$1" --iodepth="$2" --iodepth_batch_submit=1 --iodepth_batch_complete_min=1 \
      --norandommap --randrepeat=0 --output-format=terse --terse-version=3 |
    awk -F';' '{ printf "%d\n", $8 }'
}
best() { sort -n | tail -n1; }

echo "target $target ($((size >> 20)) MiB), $ios random 4 KiB O_DIRECT reads per run, best of $rounds" \
     "${sleeper:+(beside a 1 ms sleeper)}"
printf '%-28s %10s %10s %7s\n' "" "quorel" "fio" "ratio"
run() {  # LABEL QUOREL-MODE FIO-ENGINE DEPTH
  : > "$scratch/q"
  : > "$scratch/f"
  for r in $(seq "$rounds"); do
    quorel_iops "$2" "$4" >> "$scratch/q"
    fio_iops "$3" "$4" >> "$scratch/f"
  done
  q=$(best < "$scratch/q")
  f=$(best < "$scratch/f")
  printf '%-28s %10s %10s %7s\n' "$1" "$q" "$f" "$(awk -v q="$q" -v f="$f" 'BEGIN { printf "%.2fx", (f > 0 ? q / f : 0) }')"
}
for depth in $depths; do
  run "async vs libaio, depth $depth" async libaio "$depth"
done
if [ "${URING:-1}" = 1 ]; then
  for depth in $depths; do
    run "uring vs io_uring, depth $depth" uring io_uring "$depth"
  done
fi
run "sync vs psync" sync psync 1
