#!/usr/bin/env bash
# Builds the plug-in for 64-bit Windows with mingw-w64 (posix threads):
# netcam_plugin.dll, plugin-host.exe and the Windows tests, against libraries
# cross-built from Debian's source packages (scripts/windows-deps.sh, cached).
# Checks that the DLL imports only Windows' own DLLs and exports only the
# boundary, then stages the install layout in stage-windows/ and zips it as
# netcam-plugin-<version>-windows-x64.zip.
#   scripts/windows-build.sh
set -euo pipefail
cd "$(dirname "$0")/.."

for tool in x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-objdump x86_64-w64-mingw32-strip cmake ninja zip; do
  if ! command -v "$tool" >/dev/null; then
    echo "windows-build: $tool is missing (scripts/install-deps.sh installs it)" >&2
    exit 1
  fi
done

prefix=$(bash scripts/windows-deps.sh | tail -n 1)
build=build-windows
cmake -S . -B "$build" -G Ninja --no-warn-unused-cli -UNETCAM_TEST_AREAS -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DNETCAM_WINDOWS_DEPS="$prefix" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNETCAM_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)"

dll="$build/src/netcam_plugin.dll"
host="$build/tools/plugin-host/plugin-host.exe"

# Only DLLs every Windows 10 machine has; no mingw runtime, no libstdc++.
imports=$(x86_64-w64-mingw32-objdump -p "$dll" | sed -n 's/^\s*DLL Name: //p' | sort -fu)
allowed='^(kernel32|ws2_32|advapi32|crypt32|bcrypt|msvcrt|user32|iphlpapi|mswsock|secur32|ntdll)\.dll$'
foreign=$(echo "$imports" | grep -viE "$allowed" || true)
# Exactly the boundary's names; the Windows boundary test checks the full list.
exports=$(x86_64-w64-mingw32-objdump -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/{/Table/d;p}' |
  awk 'NF > 1 {print $NF}')
stray=$(echo "$exports" | grep -vE '^(ZPLUGIN_GetPluginInterface|DeviceObject_[A-Za-z]+)$' || true)
echo "windows-build: $dll imports: $(echo "$imports" | tr '\n' ' ')"
echo "windows-build: $dll exports $(echo "$exports" | wc -l) names: ZPLUGIN_GetPluginInterface and DeviceObject_*"
if [ -n "$foreign" ] || [ -n "$stray" ]; then
  [ -n "$foreign" ] && echo "windows-build: the DLL imports DLLs Windows does not ship: $foreign" >&2
  [ -n "$stray" ] && echo "windows-build: the DLL exports names outside the boundary: $stray" >&2
  exit 1
fi

# The platform's install layout, as an integrator copies it.
version=$(sed -n 's/^project(netcam_plugin VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
stage=stage-windows
rm -rf "$stage"
mkdir -p "$stage/plugins/axis" "$stage/META_INFO/extdev_axis.d/runtime_script" "$stage/bin"
x86_64-w64-mingw32-strip -o "$stage/plugins/axis/netcam_plugin.dll" "$dll"
x86_64-w64-mingw32-strip -o "$stage/bin/plugin-host.exe" "$host"
cp scripts/Setup.xml "$stage/META_INFO/extdev_axis.d/runtime_script/Setup.xml"
sed "s/@VERSION@/$version/" scripts/windows-package-readme.txt | sed 's/$/\r/' >"$stage/README.txt"
zipfile="netcam-plugin-$version-windows-x64.zip"
rm -f "$zipfile"
(cd "$stage" && zip -qr -X "../$zipfile" .)
echo "windows-build: staged $stage/ and packed $zipfile ($(du -k "$zipfile" | cut -f1) KiB):"
unzip -l "$zipfile" | sed -n 's/^ *\([0-9][0-9]*\) .*  \(.*\)$/  \2 (\1 bytes)/p' | grep -v -e '/ (0 bytes)$' -e ' files ('
