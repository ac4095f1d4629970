#!/usr/bin/env bash
# Runs every test: a normal build, then an AddressSanitizer + UBSan build.
# Installs what it needs first.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
if [ -f tests/lsan.supp ]; then export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"; fi

status=0
for flavour in normal asan; do
  echo "== $flavour build"
  bash scripts/build.sh "$flavour"
  dir=build; [ "$flavour" = asan ] && dir=build-asan
  echo "== $flavour tests"
  (cd "$dir" && ctest -j "$(nproc)" --output-on-failure --timeout 600) || status=1
done
exit $status
