#!/usr/bin/env bash
# Runs every test: the Windows compile check of the plug-in's sources, then a
# normal build and an AddressSanitizer + UBSan build. Installs what it needs first.
#   scripts/test.sh [normal] [asan] [tsan]     (default: normal asan)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

echo "== windows compile check"
bash scripts/windows-check.sh

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
if [ -f tests/lsan.supp ]; then export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"; fi

export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp"

flavours=("$@")
[ ${#flavours[@]} -gt 0 ] || flavours=(normal asan)

status=0
for flavour in "${flavours[@]}"; do
  echo "== $flavour build"
  bash scripts/build.sh "$flavour"
  dir=build; [ "$flavour" != normal ] && dir="build-$flavour"
  echo "== $flavour tests"
  (cd "$dir" && ctest -j "$(nproc)" --output-on-failure --timeout 600) || status=1
done
exit $status
