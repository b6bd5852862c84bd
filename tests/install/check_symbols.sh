#!/usr/bin/env bash
# The shared library's SONAME and dynamic symbol table: only the sitehlp API
# and the schema name constants are exported.
set -euo pipefail
lib=$1
soname=$(readelf -d "$lib" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[ "$soname" = "libvlmCmnLib.so.4" ] || { echo "SONAME is '$soname'"; exit 1; }
symbols=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt)
[ -n "$symbols" ] || { echo "no symbols exported"; exit 1; }
bad=$(echo "$symbols" | grep -Ev '^(VLMCMNLIB_4$|sitehlp::|ZEL_XML_|STR_SITE_|vtable for sitehlp::|typeinfo for sitehlp::|typeinfo name for sitehlp::)' || true)
if [ -n "$bad" ]; then
  echo "symbols exported that are not the library's own:"
  echo "$bad"
  exit 1
fi
for required in 'sitehlp::CSitesHelper::ReadSiteList' 'sitehlp::CSitesHelper::PlaceSiteFiles' \
    'sitehlp::split_host_and_port' 'sitehlp::SetLogSink(' 'sitehlp::SetLogLevel(' ZEL_XML_SITELIST STR_SITE_TYPE_MASTER; do
  echo "$symbols" | grep -q "^$required" || { echo "$required not exported"; exit 1; }
done
if echo "$symbols" | grep -q 'EncryptDecryptPassword'; then echo "EncryptDecryptPassword is exported"; exit 1; fi
echo "$(echo "$symbols" | wc -l) symbols, all the library's own"
