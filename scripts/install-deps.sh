#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the demo need.
# Idempotent: packages already present are left alone and apt is only asked
# when something is missing.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-14-dev
  libcurl4-openssl-dev rapidjson-dev libpugixml-dev libmicrohttpd-dev
  libasio-dev libssl-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libgstrtspserver-1.0-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad
  gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-tools
  libgtest-dev libgmock-dev libbenchmark-dev
  ffmpeg iproute2 util-linux curl
  libjpeg-dev
  # The Windows build: the cross compiler, the tools that fetch and unpack
  # Debian's source packages of the libraries it cross-builds, GoogleTest's
  # sources, Wine to run what it builds, and zip for the package.
  g++-mingw-w64-x86-64-posix dpkg-dev googletest wine64 zip unzip
)

# Source packages (apt-get source) come from the same archives as the binary
# packages: deb-src entries are derived from the machine's own apt sources,
# so that no archive address is written down here. Returns 1 when they were
# there already.
enable_source_packages() {
  local stanzas=/etc/apt/sources.list.d/netcam-plugin-src.sources lines=/etc/apt/sources.list.d/netcam-plugin-src.list
  [ -f "$stanzas" ] || [ -f "$lines" ] && return 1
  # deb822 files: every enabled "Types: deb" stanza again as "Types: deb-src".
  local derived
  derived=$(for file in /etc/apt/sources.list.d/*.sources; do
    [ -f "$file" ] || continue
    awk 'BEGIN { RS = ""; ORS = "\n\n" }
         /(^|\n)Types:[ \t]*deb[ \t]*(\n|$)/ && !/(^|\n)Enabled:[ \t]*no/ {
           sub(/(^|\n)Types:[ \t]*deb[ \t]*(\n|$)/, "\nTypes: deb-src\n"); sub(/^\n/, ""); print }' "$file"
  done)
  # One-line files: each "deb ..." line again as "deb-src ...".
  local oneline
  oneline=$(sed -n 's/^deb\([[:space:]]\)/deb-src\1/p' /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null ||
    true)
  if [ -z "$derived" ] && [ -z "$oneline" ]; then
    echo "install-deps: no Debian archive found in /etc/apt to derive source packages from" >&2
    exit 1
  fi
  echo "install-deps: enabling source packages from the archives apt already uses"
  [ -z "$derived" ] || echo "$derived" | $SUDO tee "$stanzas" >/dev/null
  [ -z "$oneline" ] || echo "$oneline" | $SUDO tee "$lines" >/dev/null
  return 0
}

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

updated=0
if enable_source_packages; then
  $SUDO apt-get update -qq
  updated=1
fi

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#PACKAGES[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
[ $updated -eq 1 ] || $SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
