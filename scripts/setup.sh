#!/usr/bin/env bash
# Installs what the build, the tests and the tools need, from Debian's archive.
# Safe to run again: packages already present are not reinstalled.
# `scripts/setup.sh --list` prints the packages instead (scripts/check-setup.sh
# proves with it that they are all a fresh machine needs).
set -euo pipefail

packages=(
  build-essential cmake pkg-config binutils
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libcli11-dev libtinyobjloader-dev
  libembree-dev libtbb-dev libopenimageio-dev openimageio-tools
  clang-14 libclang-rt-14-dev gcovr
  parallel
  llvm-14 lld-14  # the tools CMake pairs with clang-14 (archiver, linker); the sanitizers' symbolizer
  strace          # scripts/check-setup.sh traces the configure with it
)

if [ "${1:-}" = --list ]; then
  printf '%s\n' "${packages[@]}"
  exit 0
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "setup: these packages are missing and installing them needs root: ${missing[*]}" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
