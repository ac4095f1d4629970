#!/usr/bin/env bash
# Configures and builds one flavour of the project.
#   scripts/build.sh [normal|asan|tsan] [extra cmake args...]
# Build trees: build/ (normal), build-asan/, build-tsan/.
set -euo pipefail
cd "$(dirname "$0")/.."

# Sanitized builds at -O1 with line tables only: the reports keep file and
# line, and the instrumented build takes about half the compile time of -O2 -g.
sanitized=(-DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG")

flavour="${1:-normal}"
shift || true
case "$flavour" in
  normal) dir=build; flags=() ;;
  asan) dir=build-asan; flags=(-DNETCAM_SANITIZE=ON -DNETCAM_BUILD_BENCH=OFF "${sanitized[@]}") ;;
  tsan) dir=build-tsan; flags=(-DNETCAM_TSAN=ON -DNETCAM_BUILD_BENCH=OFF "${sanitized[@]}") ;;
  *) echo "build.sh: unknown flavour $flavour (normal, asan, tsan)" >&2; exit 64 ;;
esac

# -U: a narrowed test selection left in the cache by hand never sticks.
cmake -S . -B "$dir" -G Ninja -UNETCAM_TEST_AREAS -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNETCAM_WERROR=ON \
  "${flags[@]}" "$@" >/dev/null
cmake --build "$dir" -j "$(nproc)"
