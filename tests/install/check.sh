#!/usr/bin/env bash
# Installs the built library into a scratch prefix, runs the installed tool,
# builds a small program against it twice (with pkg-config and with
# find_package(quorel)), then builds the examples against it and runs each.
# Nothing here sets LD_LIBRARY_PATH: the programs carry their run paths.
set -euo pipefail
src=$1 build=$2 toolchain=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name 'libquorel.so.1' | head -n1)")
test -L "$libdir/libquorel.so"
test -f "$work/prefix/include/quorel/quorel.h"
if [[ -x "$work/prefix/bin/quorel" ]]; then
  echo "== the installed tool"
  readelf -d "$work/prefix/bin/quorel" | grep -E 'R(UN)?PATH'
  "$work/prefix/bin/quorel" info
fi

echo "== pkg-config"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
flags=$(pkg-config --cflags --libs quorel)
echo "pkg-config quorel: $flags"
g++ -o "$work/consumer-pc" "$src/tests/install/consumer/main.cpp" $flags -Wl,-rpath,"$libdir"
"$work/consumer-pc"

echo "== find_package"
cmake -S "$src/tests/install/consumer" -B "$work/consumer-cmake" \
  ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer-cmake" >/dev/null
"$work/consumer-cmake/consumer"

echo "== examples"
cmake -S "$src/examples" -B "$work/examples" \
  ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/examples" >/dev/null
for example in worker_pool echo device_capacity disk_usage async_reader capture_output application; do
  echo "-- $example"
  timeout 60 "$work/examples/$example"
done
# The echo server serves until it is ended: one line there and back, on the
# port it chose.
echo "-- echo_server"
"$work/examples/echo_server" 0 > "$work/echo_server.out" &
server=$!
trap '{ kill "$server" && wait "$server"; } 2>/dev/null || true; rm -rf "$work"' EXIT
for _ in $(seq 100); do grep -q ' port ' "$work/echo_server.out" && break; sleep 0.1; done
cat "$work/echo_server.out"
port=$(sed -n 's/^echoing on 127\.0\.0\.1 port //p' "$work/echo_server.out")
exec 3<>"/dev/tcp/127.0.0.1/$port"
printf 'hello quorel\n' >&3
read -r -t 10 reply <&3
exec 3>&-
echo "sent \"hello quorel\", got \"$reply\""
[[ "$reply" == "hello quorel" ]]
