#!/usr/bin/env bash
# The platform runs the plug-in on 64-bit Windows. This compiles every source
# of src/ and xml/ with the mingw-w64 cross compiler, syntax only, against the
# same library headers, and fails on the first source that does not compile:
# a POSIX-only call in the plug-in's own code is caught here, not on the
# platform's build machine. (platform/ stands in for the platform's libraries
# and is Linux-only, so only its headers take part.)
#   scripts/windows-check.sh
set -euo pipefail
cd "$(dirname "$0")/.."

CXX=x86_64-w64-mingw32-g++-posix
if ! command -v "$CXX" >/dev/null; then
  echo "windows-check: $CXX is missing (scripts/install-deps.sh installs it)" >&2
  exit 1
fi

# Only the libraries the plug-in may use, never the Linux system headers.
headers=$(mktemp -d)
trap 'rm -rf "$headers"' EXIT
curl_dir=$(dirname "$(find /usr/include -name curl.h -path '*/curl/curl.h' | head -n 1)")
ln -s "$curl_dir" "$headers/curl"
ln -s /usr/include/rapidjson "$headers/rapidjson"
ln -s /usr/include/pugixml.hpp "$headers/pugixml.hpp"
ln -s /usr/include/pugiconfig.hpp "$headers/pugiconfig.hpp"

includes=(-Iinclude -Isrc -Ixml/include -isystem "$headers")
for dir in platform/*/include; do includes+=(-I"$dir"); done

mapfile -t sources < <(find src xml -name '*.cpp' | sort)
failed=0
for source in "${sources[@]}"; do
  if ! "$CXX" -std=c++20 -fsyntax-only -Wall -Wextra -DCURL_STATICLIB "${includes[@]}" "$source"; then
    echo "windows-check: $source does not compile for Windows" >&2
    failed=$((failed + 1))
  fi
done
if [ "$failed" -ne 0 ]; then
  echo "windows-check: $failed of ${#sources[@]} sources failed" >&2
  exit 1
fi
echo "windows-check: all ${#sources[@]} sources of src/ and xml/ compile for 64-bit Windows"
