#!/usr/bin/env bash
# Installs the built tree into a temporary prefix, then builds and runs a
# consumer through the CMake package and through pkg-config.
set -euo pipefail
build_dir=$1
source_dir=$2
# The build's own compiler flags (sanitizers): an instrumented library needs
# an instrumented caller.
extra_flags=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
lib=$(find "$work/prefix" -name 'libvlmCmnLib.so.4' | head -1)
[ -n "$lib" ] || { echo "libvlmCmnLib.so.4 not installed"; exit 1; }
[ -L "$(dirname "$lib")/libvlmCmnLib.so" ] || { echo "libvlmCmnLib.so link missing"; exit 1; }
for h in sitehlp/SitesHelper.h sitehlp/export.h xmlschema/sitelist.h platform/AString.h platform/ABuffer.h platform/Forward.h; do
  [ -f "$work/prefix/include/$h" ] || { echo "header $h not installed"; exit 1; }
done
cmake -S "$source_dir/tests/install/consumer" -B "$work/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS="$extra_flags" -DCMAKE_EXE_LINKER_FLAGS="$extra_flags" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH="$(dirname "$lib")" "$work/cmake-build/consumer"
pc_dir=$(dirname "$(find "$work/prefix" -name vlmCmnLib.pc | head -1)")
flags=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs vlmCmnLib)
# shellcheck disable=SC2086
g++ $extra_flags "$source_dir/tests/install/consumer/main.cpp" -o "$work/consumer-pc" $flags
LD_LIBRARY_PATH="$(dirname "$lib")" "$work/consumer-pc"
