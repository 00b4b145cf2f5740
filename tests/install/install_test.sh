#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs host programs
# against it with find_package(kvi) (the SDK alone, and the reference host
# library) and with pkg-config, and checks what a host author finds there.
set -euo pipefail
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
fail() { echo "install test: $*" >&2; exit 1; }

# A trailing slash in the prefix must not reach the pkg-config files.
cmake --install "$build" --prefix "$prefix/" >/dev/null
cmake -S "$source/consumer" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
"$scratch/consumer/consumer"
module=$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --variable=module kvi)
"$scratch/consumer/host_consumer" "$module"

# pkg-config: plain paths, and enough to build the same host program.
flags=$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs kvi-host)
[ "$module" = "$prefix/lib/libkvishaders.so" ] || fail "pkg-config's module is '$module'"
case "$flags" in *//* | *..*) fail "pkg-config's flags are not plain paths: $flags" ;; esac
[[ " $flags " == *" -I$prefix/include "* ]] || fail "pkg-config gives no -I$prefix/include: $flags"
# shellcheck disable=SC2086  # the flags are words
c++ -std=c++17 -o "$scratch/host_consumer_pc" "$source/consumer/host_main.cpp" $flags
"$scratch/host_consumer_pc" "$module"

for doc in README.md docs/abi.md docs/host-contract.md docs/host-services.md; do
  [ -f "$prefix/share/doc/kvi/$doc" ] || fail "no share/doc/kvi/$doc"
done
echo "install and consume: ok"
