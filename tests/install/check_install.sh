#!/usr/bin/env bash
# Installs the built tree into a temporary prefix, checks the layout, runs
# the installed sitelist from there (its run path finds the library), then
# builds and runs a consumer through the CMake package and through pkg-config.
set -euo pipefail
build_dir=$1
source_dir=$2
# The build's own compiler flags (sanitizers): an instrumented library needs
# an instrumented caller.
extra_flags=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*"; exit 1; }
# Nothing of the library's logging reaches the system log from here.
export VLM_LOG_SINK=none

prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
lib=$(find "$prefix" -name 'libvlmCmnLib.so.4' | head -1)
[ -n "$lib" ] || fail "libvlmCmnLib.so.4 not installed"
libdir=$(dirname "$lib")
[ -L "$libdir/libvlmCmnLib.so" ] || fail "libvlmCmnLib.so link missing"
[ "$(stat -c %a "$(readlink -f "$lib")")" = 644 ] || fail "the shared library is not mode 644"

# Headers: only the project's own folder under include/.
[ "$(ls "$prefix/include")" = vlmCmnLib ] || fail "include/ holds $(ls "$prefix/include" | tr '\n' ' ')"
for h in sitehlp/SitesHelper.h sitehlp/Logging.h sitehlp/export.h xmlschema/sitelist.h platform/AString.h \
         platform/ABuffer.h platform/Forward.h; do
  [ -f "$prefix/include/vlmCmnLib/$h" ] || fail "header vlmCmnLib/$h not installed"
done

# The installed tool runs from its prefix without LD_LIBRARY_PATH.
tool=$prefix/bin/sitelist
[ -x "$tool" ] || fail "bin/sitelist not installed"
runpath=$(readelf -d "$tool" | sed -n 's/.*Library runpath: \[\(.*\)\]/\1/p')
[ "$runpath" = "\$ORIGIN/../${libdir#"$prefix"/}" ] || fail "run path of sitelist is '$runpath'"
[ "$(env -u LD_LIBRARY_PATH "$tool" --version)" = "sitelist 4.0.0" ] || fail "installed sitelist --version"
mkdir -p "$work/data/etc"
cp "$source_dir/examples/agent/SiteList.xml" "$work/data/etc/SiteList.xml"
versions=$(env -u LD_LIBRARY_PATH "$tool" --data-dir "$work/data" versions)
expected=$'Global version  20260301120000\nLocal version   20260301120500\nType            Client'
[ "$versions" = "$expected" ] || fail "installed sitelist versions printed: $versions"

# Its man page and bash completion, as generated in the build.
cmp -s "$build_dir/tools/man/sitelist.1.gz" "$prefix/share/man/man1/sitelist.1.gz" || fail "man page not installed"
cmp -s "$build_dir/tools/completion/sitelist" "$prefix/share/bash-completion/completions/sitelist" ||
  fail "bash completion not installed"

# A consumer through the CMake package.
cmake -S "$source_dir/tests/install/consumer" -B "$work/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS="$extra_flags" -DCMAKE_EXE_LINKER_FLAGS="$extra_flags" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake-build/consumer"

# A consumer through pkg-config: the project's include folder, no -std=.
pc_dir=$(dirname "$(find "$prefix" -name vlmCmnLib.pc | head -1)")
flags=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs vlmCmnLib)
case "$flags" in *-std=*) fail "pkg-config flags carry a -std= flag: $flags" ;; esac
read -r -a cflags <<<"$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags vlmCmnLib)"
[ ${#cflags[@]} -eq 1 ] && [ "$(cd "${cflags[0]#-I}" && pwd -P)" = "$(cd "$prefix/include/vlmCmnLib" && pwd -P)" ] ||
  fail "pkg-config --cflags is '${cflags[*]}'"
# shellcheck disable=SC2086
g++ $extra_flags "$source_dir/tests/install/consumer/main.cpp" -o "$work/consumer-pc" $flags
LD_LIBRARY_PATH="$libdir" "$work/consumer-pc"
