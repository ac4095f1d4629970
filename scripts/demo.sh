#!/usr/bin/env bash
# The main job: builds the plug-in and the host program, stages them in the
# platform's install layout and tours every capability against the embedded
# camera simulator. Installs what it needs first.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
bash scripts/build.sh normal

stage=stage
mkdir -p "$stage/bin" "$stage/plugins/axis" "$stage/META_INFO/extdev_axis.d/runtime_script"
cp build/src/netcam_plugin.so "$stage/plugins/axis/"
cp build/tools/plugin-host/plugin-host "$stage/bin/"
if [ ! -f "$stage/META_INFO/extdev_axis.d/runtime_script/Setup.xml" ]; then
  cp scripts/Setup.xml "$stage/META_INFO/extdev_axis.d/runtime_script/Setup.xml"
fi

# Everything the tour writes (its log, the live video file) lands in the stage.
cd "$stage"
export NETCAM_LOG_FILE="${NETCAM_LOG_FILE:-$PWD/netcam_plugin.log}"
exec bin/plugin-host --plugin plugins/axis/netcam_plugin.so tour "$@"
