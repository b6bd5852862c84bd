#!/usr/bin/env bash
# Builds the Debian packages with scripts/package (in a temporary build
# tree), checks their names, dependencies and contents, extracts them with
# dpkg-deb into a temporary root, runs the packaged sitelist from there and
# builds and runs a consumer against that root through the CMake package and
# through pkg-config; lintian must report no error.
#
#   check_packages.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1
build_dir=$2
work=$(mktemp -d)
# The packages' build tree is a temporary sibling of the calling build tree
# (build/package-test.XXXXXX beside build/default): compiled from the same
# relative places with the same flags, its objects come from the compiler
# cache when the calling tree is a default build.
package_build=$(mktemp -d "$(dirname "$build_dir")/package-test.XXXXXX")
trap 'rm -rf "$work" "$package_build"' EXIT
fail() { echo "$*"; exit 1; }
export VLM_LOG_SINK=none  # nothing of the library's logging reaches the system log

start=$SECONDS
if ! "$source_dir/scripts/package" --no-deps --build-dir "$package_build" "$work/debs" >"$work/package.log" 2>&1; then
  cat "$work/package.log"
  fail "scripts/package failed"
fi
echo "packages built in $((SECONDS - start)) s"

version=4.0.0-1
arch=$(dpkg --print-architecture)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
lib_deb=$work/debs/libvlmcmnlib4_${version}_$arch.deb
dev_deb=$work/debs/libvlmcmnlib-dev_${version}_$arch.deb
tool_deb=$work/debs/sitelist_${version}_$arch.deb
[ "$(ls "$work/debs")" = "$(printf '%s\n' "${dev_deb##*/}" "${lib_deb##*/}" "${tool_deb##*/}")" ] ||
  fail "packages built: $(ls "$work/debs" | tr '\n' ' ')"
for deb in "$lib_deb" "$dev_deb" "$tool_deb"; do
  echo "$(basename "$deb"): $(stat -c %s "$deb") bytes, installed size $(dpkg-deb -f "$deb" Installed-Size) KiB"
done

# Dependencies: the system libraries from dpkg-shlibdeps, our own packages by version.
lib_depends=$(dpkg-deb -f "$lib_deb" Depends)
for needed in 'libc6 (>= ' 'libstdc++6 (>= ' 'libssl3 (>= ' 'libboost-thread1.74.0 (>= ' 'libboost-filesystem1.74.0 (>= '; do
  [[ $lib_depends == *"$needed"* ]] || fail "libvlmcmnlib4 does not depend on $needed...: $lib_depends"
done
[ "$(dpkg-deb -f "$dev_deb" Depends)" = "libvlmcmnlib4 (= $version)" ] ||
  fail "libvlmcmnlib-dev depends on: $(dpkg-deb -f "$dev_deb" Depends)"
tool_depends=$(dpkg-deb -f "$tool_deb" Depends)
[[ $tool_depends == "libvlmcmnlib4 (>= $version), libc6 (>= "* ]] || fail "sitelist depends on: $tool_depends"
# The tool hashes certificates with libcrypto itself and checks sites with
# libcurl; Boost is the library's alone.
[[ $tool_depends == *'libcurl4 (>= '* ]] || fail "sitelist does not depend on libcurl4: $tool_depends"
[[ $tool_depends != *boost* ]] || fail "sitelist depends on the library's own dependencies"
dpkg-deb -e "$lib_deb" "$work/control"
[ "$(cat "$work/control/shlibs")" = "libvlmCmnLib 4 libvlmcmnlib4 (>= $version)" ] ||
  fail "shlibs: $(cat "$work/control/shlibs")"
[ "$(cat "$work/control/triggers")" = "activate-noawait ldconfig" ] || fail "no ldconfig trigger"

# Contents: each file in the package it belongs to.
contents() { dpkg-deb -c "$1" | awk '$1 !~ /^d/ { print $6 }' | sort; }
[ "$(contents "$lib_deb")" = "$(printf '%s\n' "./usr/lib/$multiarch/libvlmCmnLib.so.4" \
  "./usr/lib/$multiarch/libvlmCmnLib.so.4.0.0" ./usr/share/doc/libvlmcmnlib4/changelog.Debian.gz \
  ./usr/share/doc/libvlmcmnlib4/copyright)" ] || fail "libvlmcmnlib4 holds: $(contents "$lib_deb")"
[ "$(contents "$tool_deb")" = "$(printf '%s\n' ./usr/bin/sitelist ./usr/share/bash-completion/completions/sitelist \
  ./usr/share/doc/sitelist/changelog.Debian.gz ./usr/share/doc/sitelist/copyright \
  ./usr/share/man/man1/sitelist.1.gz)" ] || fail "sitelist holds: $(contents "$tool_deb")"
dev_contents=$(contents "$dev_deb")
for file in "./usr/lib/$multiarch/libvlmCmnLib.so" "./usr/lib/$multiarch/pkgconfig/vlmCmnLib.pc" \
            "./usr/lib/$multiarch/cmake/vlmCmnLib/vlmCmnLibConfig.cmake" ./usr/include/vlmCmnLib/sitehlp/SitesHelper.h \
            ./usr/include/vlmCmnLib/sitehlp/Logging.h ./usr/include/vlmCmnLib/xmlschema/sitelist.h; do
  grep -qxF "$file" <<<"$dev_contents" || fail "libvlmcmnlib-dev lacks $file"
done
[ -z "$(grep -v -e '^\./usr/include/vlmCmnLib/' -e "^\./usr/lib/$multiarch/" -e '^\./usr/share/doc/libvlmcmnlib-dev/' \
  <<<"$dev_contents")" ] || fail "libvlmcmnlib-dev holds files outside its folders"

# Extracted into a root of their own, the packages work together.
root=$work/root
for deb in "$lib_deb" "$dev_deb" "$tool_deb"; do dpkg-deb -x "$deb" "$root"; done
[ "$(env -u LD_LIBRARY_PATH "$root/usr/bin/sitelist" --version)" = "sitelist 4.0.0" ] || fail "packaged sitelist --version"
mkdir -p "$work/data/etc"
cp "$source_dir/examples/agent/SiteList.xml" "$work/data/etc/SiteList.xml"
[ "$(env -u LD_LIBRARY_PATH "$root/usr/bin/sitelist" --data-dir "$work/data" versions | sed -n 3p)" = \
  "Type            Client" ] || fail "packaged sitelist versions"
libdir=$root/usr/lib/$multiarch
cmake -S "$source_dir/tests/install/consumer" -B "$work/consumer-cmake" -G Ninja \
  -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/consumer-cmake" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/consumer-cmake/consumer"
# shellcheck disable=SC2046
g++ "$source_dir/tests/install/consumer/main.cpp" -o "$work/consumer-pc" \
  $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs vlmCmnLib)
LD_LIBRARY_PATH="$libdir" "$work/consumer-pc"

# lintian: no error; its warnings are shown.
command -v lintian >/dev/null || fail "lintian is missing (scripts/install-deps installs it)"
lintian_status=0
lintian --tag-display-limit 0 "$lib_deb" "$dev_deb" "$tool_deb" >"$work/lintian.log" 2>&1 || lintian_status=$?
grep -v '^running with root privileges' "$work/lintian.log" || true
if [ $lintian_status -ne 0 ] || grep -q '^E: ' "$work/lintian.log"; then
  fail "lintian reports errors (status $lintian_status)"
fi
echo "lintian: no error, $(grep -c '^W: ' "$work/lintian.log" || true) warnings"
echo "checked in $((SECONDS - start)) s"
