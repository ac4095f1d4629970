#!/usr/bin/env bash
# Proves the Windows build under Wine: the suite's Windows tests (those that
# need no camera simulator in their process), then plugin-host.exe's tour of
# every capability against a camera-sim on its own loopback address, the tour's
# video files decoded by ffmpeg, and the live CPU and memory per stream beside
# the Linux host's on the same camera.
#   scripts/windows-test.sh        (after scripts/windows-build.sh and scripts/build.sh normal)
# RTSP is served on port 554: as root it runs as it is, otherwise inside a
# private network namespace (unshare -rn).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

wine=$(command -v wine64 || command -v wine || true)
[ -n "$wine" ] || wine=/usr/lib/wine/wine64
for need in "$wine" build-windows/CTestTestfile.cmake stage-windows/bin/plugin-host.exe build/tools/camera-sim/camera-sim \
  build/tools/plugin-host/plugin-host; do
  if [ ! -e "$need" ]; then
    echo "windows-test: $need is missing (scripts/install-deps.sh installs Wine; scripts/windows-build.sh and" \
      "scripts/build.sh normal build the rest)" >&2
    exit 1
  fi
done

if [ "$(id -u)" -ne 0 ] && [ -z "${NETCAM_IN_NAMESPACE:-}" ]; then
  exec env NETCAM_IN_NAMESPACE=1 unshare -rn bash -c 'ip link set lo up && exec bash "$0" "$@"' "$0" "$@"
fi

export WINEPREFIX="${WINEPREFIX:-${XDG_CACHE_HOME:-$HOME/.cache}/netcam-plugin/wine}"
export WINEDEBUG=-all
wineserver=$(dirname "$(readlink -f "$wine")")/wineserver
[ -x "$wineserver" ] || wineserver=$(command -v wineserver64 || command -v wineserver)
mkdir -p "$WINEPREFIX"
# A new prefix is set up once, before anything is timed: otherwise the first
# test program waits for Wine to create it and can run past its time-out.
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "windows-test: creating the Wine prefix $WINEPREFIX"
  timeout 300 "$wine" wineboot --init >/dev/null 2>&1 || true
  timeout 120 "$wineserver" -w || "$wineserver" -k || true
fi
# One Wine server for every program of this run: each test starts in a fraction of a second.
"$wineserver" -p 2>/dev/null || true  # already running for this prefix: that one serves
# The first program a new server runs also starts Wine's services, which keep
# that program's output open for as long as the server lives: ctest would wait
# on the first test until its time-out. Start them here with nothing to inherit.
timeout 120 "$wine" wineboot </dev/null >/dev/null 2>&1 || true
work=$(mktemp -d)
simulator=""
cleanup() {
  [ -n "$simulator" ] && kill "$simulator" 2>/dev/null && wait "$simulator" 2>/dev/null
  "$wineserver" -k 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

echo "== windows tests under Wine"
status=0
(cd build-windows && ctest -j "$(nproc)" --output-on-failure --timeout 600) || status=1
cases=$(grep -ah '^\[==========\] [0-9]* tests\? from .* ran' build-windows/Testing/Temporary/LastTest.log |
  awk '{n += $2} END {print n + 0}')
executables=$(find build-windows/tests -name CTestTestfile.cmake -exec cat {} + | grep -c '^add_test')
echo "windows-test: $cases test cases in $executables executables ran under Wine"

echo "== windows tour against camera-sim"
# A camera on a free loopback address: the simulator refuses an address it cannot bind.
address="" port=""
for attempt in $(seq 1 20); do
  candidate="127.$((RANDOM % 200 + 20)).$((RANDOM % 256)).$((RANDOM % 250 + 2))"
  build/tools/camera-sim/camera-sim --address "$candidate" --http-port 0 >"$work/camera.out" 2>"$work/camera.err" &
  simulator=$!
  for wait in $(seq 1 100); do
    line=$(grep -m1 'listening on' "$work/camera.out" || true)
    [ -n "$line" ] && break
    kill -0 "$simulator" 2>/dev/null || break
    sleep 0.1
  done
  if [ -n "$line" ]; then
    address=$candidate
    port=$(echo "$line" | sed -n 's|.*http://[0-9.]*:\([0-9]*\).*|\1|p')
    break
  fi
  wait "$simulator" 2>/dev/null || true
  simulator=""
done
if [ -z "$address" ]; then
  echo "windows-test: camera-sim did not start: $(cat "$work/camera.err")" >&2
  exit 1
fi
echo "camera-sim at http://$address:$port, RTSP on 554"

# The staged layout with an event port of its own, so that nothing else listening interferes.
cp -r stage-windows "$work/stage"
event_port=0
while [ "$event_port" -eq 0 ] || [ -n "$(ss -Hltn "sport = :$event_port")" ]; do event_port=$((RANDOM % 20000 + 30000)); done
sed -i "s|<Event>[0-9]*</Event>|<Event>$event_port</Event>|" "$work/stage/META_INFO/extdev_axis.d/runtime_script/Setup.xml"
camera=(--camera "$address:$port" --user root --password pass)
cd "$work/stage"
export NETCAM_LOG_FILE="$work/stage/netcam_plugin.log"
# Every Wine run is bounded: a program that never ends fails the step, it does not hang the test command.
if ! timeout 600 "$wine" bin/plugin-host.exe "${camera[@]}" tour | tee "$work/tour.txt"; then
  echo "windows-test: the Windows tour failed; the plug-in's log is $root/build-windows/tour-plugin.log" >&2
  cp "$NETCAM_LOG_FILE" "$root/build-windows/tour-plugin.log"
  status=1
fi
for video in tour-live.mpg tour-live-h265.mpg tour-playback.mpg; do
  if [ ! -s "$video" ]; then
    echo "windows-test: the tour wrote no $video" >&2
    status=1
    continue
  fi
  errors=$(ffmpeg -nostdin -v error -i "$video" -f null - 2>&1 | wc -l)
  frames=$(ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=codec_name,nb_read_frames -of csv=p=0 \
    "$video")
  echo "windows-test: $video: $frames (codec, frames decoded), $errors decoder error lines"
  [ "$errors" -eq 0 ] || status=1
done
cp tour-live.mpg tour-live-h265.mpg tour-playback.mpg tour-snapshot.jpg "$root/build-windows/" 2>/dev/null || true

echo "== live CPU and memory per stream, Windows (Wine) beside Linux, same camera"
streams=8 seconds=10
timeout 120 "$wine" bin/plugin-host.exe "${camera[@]}" live --streams "$streams" --seconds "$seconds" \
  --output "$work/w.mpg" >"$work/live-windows.txt" 2>&1 || { echo "windows-test: the Windows live run failed or did not end" >&2; status=1; }
NETCAM_LOG_FILE="$work/linux.log" timeout 120 "$root/build/tools/plugin-host/plugin-host" --plugin "$root/build/src/netcam_plugin.so" \
  "${camera[@]}" live --streams "$streams" --seconds "$seconds" --output "$work/l.mpg" >"$work/live-linux.txt" 2>&1 ||
  status=1
figure() { sed -n "s/^usage: .*cpu \([0-9.]*\) ms per stream-second, memory \([-0-9.]*\) MB per stream/\\$2/p" "$1"; }
cpu_w=$(figure "$work/live-windows.txt" 1) cpu_l=$(figure "$work/live-linux.txt" 1)
mem_w=$(figure "$work/live-windows.txt" 2) mem_l=$(figure "$work/live-linux.txt" 2)
if [ -n "$cpu_w" ] && [ -n "$cpu_l" ] && [ -n "$mem_w" ] && [ -n "$mem_l" ]; then
  awk -v n="$streams" -v cw="$cpu_w" -v cl="$cpu_l" -v mw="$mem_w" -v ml="$mem_l" 'BEGIN {
    printf "  %d live streams         Windows (Wine)     Linux    ratio\n", n
    printf "  CPU, ms per stream-s   %12.2f  %10.2f   %s\n", cw, cl, (cl > 0 ? sprintf("%.2fx", cw / cl) : "n/a")
    printf "  memory, MB per stream  %12.2f  %10.2f   %s\n", mw, ml, (ml > 0 ? sprintf("%.2fx", mw / ml) : "n/a")
  }'
else
  echo "windows-test: the live comparison gave no figures:" >&2
  cat "$work/live-windows.txt" "$work/live-linux.txt" >&2
  status=1
fi

if grep -q '^tour: ok' "$work/tour.txt" && [ $status -eq 0 ]; then
  echo "windows-test: ok ($cases test cases under Wine; every tour line ok; the videos decode)"
else
  echo "windows-test: FAILED" >&2
  status=1
fi
exit $status
