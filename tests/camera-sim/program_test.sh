#!/usr/bin/env bash
# The camera-sim program as a user runs it: four cameras at once on their own
# loopback addresses, each announcing itself in one line, answering VAPIX with
# Digest authentication, and stopping cleanly on SIGTERM / SIGINT.
#   program_test.sh PATH-TO-camera-sim
set -u
sim="$1"
work=$(mktemp -d)
pids=()
cleanup() { for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null; done; rm -rf "$work"; }
trap cleanup EXIT
fail() { echo "FAIL: $*"; exit 1; }

base="127.$((RANDOM % 200 + 20)).$((RANDOM % 250)).$((RANDOM % 200 + 2))"
prefix=${base%.*}
last=${base##*.}
for i in 0 1 2 3; do
  address="$prefix.$((last + i))"
  "$sim" --address "$address" --http-port 0 --rtsp-port 0 --serial "SIM$i" >"$work/out$i" 2>"$work/err$i" &
  pids+=($!)
done

for i in 0 1 2 3; do
  for _ in $(seq 100); do
    grep -q "listening on" "$work/out$i" && break
    sleep 0.1
  done
  [ "$(wc -l <"$work/out$i")" -eq 1 ] || fail "camera $i printed $(wc -l <"$work/out$i") lines: $(cat "$work/out$i" "$work/err$i")"
  url=$(grep -o 'http://[0-9.]*:[0-9]*' "$work/out$i")
  answer=$(curl -s --digest -u root:pass -d '{"apiVersion":"1.3","method":"getAllProperties"}' \
    "$url/axis-cgi/basicdeviceinfo.cgi")
  echo "$answer" | grep -q "\"SerialNumber\":\"SIM$i\"" || fail "camera $i answered: $answer"
  status=$(curl -s -o /dev/null -w '%{http_code}' -u root:wrong --digest "$url/axis-cgi/basicdeviceinfo.cgi")
  [ "$status" = 401 ] || fail "camera $i accepted a wrong password ($status)"
done

kill -TERM "${pids[0]}" "${pids[1]}"
kill -INT "${pids[2]}" "${pids[3]}"
for i in 0 1 2 3; do
  wait "${pids[$i]}"
  code=$?
  [ "$code" -eq 0 ] || fail "camera $i exited with $code: $(cat "$work/err$i")"
done
pids=()

# Faults from the command line: one failed answer, then the camera's own; a bad
# fault is refused by name.
"$sim" --address "$prefix.$((last + 4))" --http-port 0 --rtsp-port 0 \
  --fault status:http,status=503,path=/axis-cgi/param.cgi,times=1 >"$work/fault" 2>&1 &
pids=($!)
for _ in $(seq 100); do grep -q "listening on" "$work/fault" && break; sleep 0.1; done
url=$(grep -o 'http://[0-9.]*:[0-9]*' "$work/fault")
for expected in 503 200; do
  status=$(curl -s -o /dev/null -w '%{http_code}' --digest -u root:pass "$url/axis-cgi/param.cgi?action=list&group=Brand")
  [ "$status" = "$expected" ] || fail "param.cgi answered $status, not $expected, under --fault"
done
"$sim" --address 127.0.0.1 --fault freeze:sideways >"$work/bad" 2>&1
[ $? -eq 2 ] && grep -q "freeze:sideways: 'sideways' is not a side" "$work/bad" || fail "bad --fault: $(cat "$work/bad")"

# An address that cannot be bound is a clear error, not a hang.
"$sim" --address 999.0.0.1 --http-port 0 --rtsp-port 0 >"$work/bad" 2>&1
code=$?
[ "$code" -ne 0 ] || fail "an invalid address was accepted"
echo "1 passed, 0 failed"
