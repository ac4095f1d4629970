// Sanitizer defaults for this test binary (built only with NETCAM_SANITIZE).
//
// GLib and GStreamer are built without frame pointers, so the fast unwinder
// stops at g_malloc and every leak in GLib memory looks alike; slow unwinding
// shows whose it is. The one suppression is GLib's own start-up allocation,
// which LeakSanitizer cannot see referenced (tools/camera-sim/rtsp/lsan.supp).
// The sanitizer runtime looks these up dynamically: they must stay visible
// whatever the default symbol visibility of the build.
#define CAMSIM_SANITIZER_HOOK extern "C" __attribute__((visibility("default"), used))

CAMSIM_SANITIZER_HOOK const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
CAMSIM_SANITIZER_HOOK const char* __lsan_default_suppressions() { return "leak:_dl_init\n"; }
