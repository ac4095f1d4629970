#!/usr/bin/env bash
# Cross-builds the libraries the Windows DLL links in (libcurl, libmicrohttpd,
# pugixml) and GoogleTest for the Windows tests, from Debian's own source
# packages, with mingw-w64 (posix threads). Static libraries only, so the DLL
# carries them inside.
#
# They are built once into a cache outside the tree, keyed by the source
# package versions, the cross compiler and this recipe; a second run finds them
# and does nothing. Prints the prefix on its last line.
#   scripts/windows-deps.sh            (NETCAM_WINDOWS_CACHE overrides the cache folder)
set -euo pipefail
cd "$(dirname "$0")/.."
recipe="$PWD/scripts/windows-deps.sh"
toolchain="$PWD/cmake/mingw-w64-x86_64.cmake"

triple=x86_64-w64-mingw32
CC=$triple-gcc-posix
CXX=$triple-g++-posix

missing() {
  echo "windows-deps: $1 is missing; $2" >&2
  exit 1
}
command -v "$CXX" >/dev/null || missing "$CXX" "install g++-mingw-w64-x86-64-posix (scripts/install-deps.sh does)"
command -v dpkg-source >/dev/null || missing "dpkg-source" "install dpkg-dev (scripts/install-deps.sh does)"
command -v make >/dev/null || missing "make" "install build-essential (scripts/install-deps.sh does)"
[ -f /usr/include/rapidjson/document.h ] || missing "RapidJSON" "install rapidjson-dev (scripts/install-deps.sh does)"
[ -f /usr/include/asio.hpp ] || missing "Asio" "install libasio-dev (scripts/install-deps.sh does)"
[ -f /usr/src/googletest/CMakeLists.txt ] || missing "/usr/src/googletest" "install googletest (scripts/install-deps.sh does)"

# The version apt would fetch of each source package; none means no deb-src entry.
source_version() {
  local version
  version=$(apt-cache showsrc "$1" 2>/dev/null | sed -n 's/^Version: //p' | sort -V | tail -n 1)
  [ -n "$version" ] || missing "source package $1" \
    "enable Debian's source packages (scripts/install-deps.sh adds a deb-src entry and runs apt-get update)"
  echo "$version"
}
curl_version=$(source_version curl)
mhd_version=$(source_version libmicrohttpd)
pugixml_version=$(source_version pugixml)
gtest_version=$(dpkg-query -W -f='${Version}' googletest)
headers_version="rapidjson $(dpkg-query -W -f='${Version}' rapidjson-dev) asio $(dpkg-query -W -f='${Version}' libasio-dev)"
compiler_version=$("$CXX" -dumpfullversion 2>/dev/null || "$CXX" -dumpversion)

key=$( (echo "curl $curl_version mhd $mhd_version pugixml $pugixml_version gtest $gtest_version $headers_version gcc $compiler_version"
        cat "$recipe" "$toolchain") | sha256sum | cut -c1-16)
cache="${NETCAM_WINDOWS_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/netcam-plugin/windows-deps}"
prefix="$cache/$key"
if [ -f "$prefix/.complete" ]; then
  echo "windows-deps: cached (curl $curl_version, libmicrohttpd $mhd_version, pugixml $pugixml_version," \
    "googletest $gtest_version)" >&2
  echo "$prefix"
  exit 0
fi

echo "windows-deps: building into $prefix (curl $curl_version, libmicrohttpd $mhd_version," \
  "pugixml $pugixml_version, googletest $gtest_version)" >&2
# Builds of earlier versions or recipes are not used again.
rm -rf "$cache"
mkdir -p "$prefix"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
jobs=$(nproc)
log="$work/build.log"

# Runs a step with its output in the log; on failure shows the log's end.
step() {
  local what=$1
  shift
  echo "windows-deps:   $what" >&2
  if ! "$@" >>"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "windows-deps: $what failed" >&2
    exit 1
  fi
}

# apt-get source unpacks and patches as Debian builds it.
fetch() {
  (cd "$work" && apt-get source -qq "$1=$2") >>"$log" 2>&1 || {
    tail -n 20 "$log" >&2
    missing "source package $1 $2" "check the deb-src entry and run apt-get update"
  }
  find "$work" -maxdepth 1 -mindepth 1 -type d -name "$1-*" | head -n 1
}

export PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig"
unset PKG_CONFIG_PATH

# libcurl: HTTP with Digest and Basic, which the plug-in uses (its camera URLs
# are http://). No TLS and no SSPI: with SSPI curl hands Digest to Windows'
# WDigest package instead of its own code, and Wine has none, so the DLL could
# not be proven here. curl's own Digest hashes through Windows' CryptoAPI.
curl_src=$(fetch curl "$curl_version")
step "libcurl configure" bash -c "cd '$curl_src' && ./configure --host=$triple --prefix='$prefix' \
  CC=$CC CFLAGS='-O2' --disable-shared --enable-static --without-ssl --disable-sspi --without-zlib --without-brotli \
  --without-zstd --without-libidn2 --without-libpsl --without-librtmp --without-libssh2 --without-nghttp2 \
  --without-ngtcp2 --without-nghttp3 --without-libgsasl --disable-ldap --disable-ldaps --disable-rtsp \
  --disable-dict --disable-telnet --disable-tftp --disable-pop3 --disable-imap --disable-smtp --disable-gopher \
  --disable-mqtt --disable-smb --disable-ftp --disable-file --disable-manual --disable-ntlm --disable-kerberos-auth \
  --disable-negotiate-auth --disable-alt-svc --disable-hsts --disable-doh --disable-netrc"
step "libcurl build" make -C "$curl_src/lib" -j "$jobs"
step "libcurl install" bash -c "mkdir -p '$prefix/lib/pkgconfig' && make -C '$curl_src/lib' install && make -C '$curl_src/include' install && \
  install -m 644 '$curl_src/libcurl.pc' '$prefix/lib/pkgconfig/'"

# libmicrohttpd: the event centre's server, without TLS.
mhd_src=$(fetch libmicrohttpd "$mhd_version")
step "libmicrohttpd configure" bash -c "cd '$mhd_src' && ./configure --host=$triple --prefix='$prefix' \
  CC=$CC CFLAGS='-O2' --disable-shared --enable-static --disable-https --disable-doc --disable-examples \
  --disable-curl --disable-nls --disable-tools --without-gnutls --enable-asserts=no"
# Its configure marks the API for export from a DLL even in a static build; the
# plug-in DLL must export its boundary alone.
step "libmicrohttpd static API" sed -i 's/^#define _MHD_EXTERN .*/#define _MHD_EXTERN extern/' "$mhd_src/MHD_config.h"
step "libmicrohttpd build" make -C "$mhd_src/src/microhttpd" -j "$jobs"
step "libmicrohttpd install" bash -c "make -C '$mhd_src/src/microhttpd' install && \
  make -C '$mhd_src/src/include' install && install -m 644 '$mhd_src/libmicrohttpd.pc' '$prefix/lib/pkgconfig/'"

# pugixml and GoogleTest through their own CMake files.
cmake_lib() {
  local name=$1 src=$2
  shift 2
  step "$name configure" cmake -S "$src" -B "$work/build-$name" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF "$@"
  step "$name build" cmake --build "$work/build-$name"
  step "$name install" cmake --install "$work/build-$name"
}
pugixml_src=$(fetch pugixml "$pugixml_version")
cmake_lib pugixml "$pugixml_src" -DPUGIXML_BUILD_TESTS=OFF
cmake_lib googletest /usr/src/googletest -DBUILD_GMOCK=ON -DINSTALL_GTEST=ON

# RapidJSON and Asio are headers only: Debian's, copied so that the cross build
# never reads the build machine's /usr/include.
step "RapidJSON and Asio headers" cp -r /usr/include/rapidjson /usr/include/asio /usr/include/asio.hpp "$prefix/include/"

touch "$prefix/.complete"
echo "windows-deps: done" >&2
echo "$prefix"
