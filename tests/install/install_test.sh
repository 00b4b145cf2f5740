#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a host
# project against it with find_package(kvi), and checks the pkg-config file.
set -euo pipefail
build=$1 source=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
cmake -S "$source/consumer" -B "$prefix/consumer-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/consumer-build" >/dev/null
"$prefix/consumer-build/consumer"
pc=$(find "$prefix" -name kvi.pc)
cflags=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags kvi | tr -d " ")
test -f "${cflags#-I}/kvi/kvi.h"
module=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --variable=module kvi)
test -f "$module"
test -f "$prefix/include/kvi/kvi.h"
echo "install and consume: ok"
