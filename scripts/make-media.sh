#!/usr/bin/env bash
# Encodes the simulated camera's clips once into OUTDIR (default ./media).
# Idempotent: a clip already encoded with the same settings is kept (each clip
# has a .settings file beside it). Safe to run concurrently: each clip is
# written to a temporary file and renamed into place.
#
# Clips: 10 s of a moving test pattern, 640x360, 25 fps, a key frame every
# second, no B-frames; raw Annex B. The parameter sets come once at the start:
# the server's payloader repeats them before every key frame.
set -euo pipefail

OUTDIR="${1:-media}"
mkdir -p "$OUTDIR"

if ! command -v ffmpeg >/dev/null 2>&1; then
  echo "make-media: ffmpeg not found (scripts/install-deps.sh installs it)" >&2
  exit 1
fi

SOURCE="testsrc2=size=640x360:rate=25:duration=10"
COMMON=(-hide_banner -loglevel error -nostdin -y -f lavfi -i "$SOURCE" -pix_fmt yuv420p -an -g 25 -keyint_min 25
        -sc_threshold 0 -bf 0 -b:v 600k -maxrate 800k -bufsize 800k)

encode() {
  local name="$1"
  shift
  local target="$OUTDIR/$name"
  local settings="${COMMON[*]} $*"
  if [ -s "$target" ] && [ "$(cat "$target.settings" 2>/dev/null)" = "$settings" ]; then
    return 0
  fi
  local tmp
  tmp="$(mktemp "$OUTDIR/.${name}.XXXXXX")"
  if ! ffmpeg "${COMMON[@]}" "$@" "$tmp"; then
    rm -f "$tmp"
    echo "make-media: encoding $name failed" >&2
    return 1
  fi
  chmod 644 "$tmp"
  mv -f "$tmp" "$target"
  printf '%s' "$settings" >"$target.settings"
  echo "make-media: wrote $target"
}

encode clip.h264 -c:v libx264 -profile:v main -x264-params scenecut=0 -f h264
encode clip.h265 -c:v libx265 -x265-params bframes=0:open-gop=0:scenecut=0:log-level=error -f hevc
