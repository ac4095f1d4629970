#!/usr/bin/env bash
# Runs every test: a normal build and its suite; the Windows build (the DLL
# and plugin-host.exe cross-built with mingw-w64, its tests and its tour run
# under Wine against the camera simulator); an AddressSanitizer + UBSan build
# and its suite. Installs what it needs first.
#   scripts/test.sh [normal] [windows] [asan] [tsan]     (default: normal windows asan)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
if [ -f tests/lsan.supp ]; then export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"; fi

export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp"

flavours=("$@")
[ ${#flavours[@]} -gt 0 ] || flavours=(normal windows asan)

status=0
for flavour in "${flavours[@]}"; do
  started=$SECONDS
  if [ "$flavour" = windows ]; then
    # The Windows tour drives the Linux camera simulator of the normal build.
    echo "== windows build"
    bash scripts/build.sh normal >/dev/null
    bash scripts/windows-build.sh || { status=1; continue; }
    echo "== windows tests"
    bash scripts/windows-test.sh || status=1
  else
    echo "== $flavour build"
    bash scripts/build.sh "$flavour"
    dir=build; [ "$flavour" != normal ] && dir="build-$flavour"
    echo "== $flavour tests"
    (cd "$dir" && ctest -j "$(nproc)" --output-on-failure --timeout 600) || status=1
  fi
  echo "== $flavour took $((SECONDS - started)) s"
done
exit $status
