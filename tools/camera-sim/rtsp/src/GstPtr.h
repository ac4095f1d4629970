// GstPtr.h - owning pointers for the GLib/GStreamer handles the simulator holds.
#pragma once

#include <gst/gst.h>

#include <memory>

namespace camsim {

struct GObjectUnref {
  void operator()(gpointer object) const {
    if (object) g_object_unref(object);
  }
};
struct GstMiniObjectUnref {
  void operator()(gpointer object) const {
    if (object) gst_mini_object_unref(GST_MINI_OBJECT_CAST(object));
  }
};
struct GMainContextUnref {
  void operator()(GMainContext* context) const {
    if (context) g_main_context_unref(context);
  }
};
struct GMainLoopUnref {
  void operator()(GMainLoop* loop) const {
    if (loop) g_main_loop_unref(loop);
  }
};
// A source is removed from its context before the last reference goes.
struct GSourceDestroy {
  void operator()(GSource* source) const {
    if (source) {
      g_source_destroy(source);
      g_source_unref(source);
    }
  }
};
struct GErrorFree {
  void operator()(GError* error) const {
    if (error) g_error_free(error);
  }
};
struct GFree {
  void operator()(gpointer memory) const { g_free(memory); }
};

template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;
template <typename T>
using GstMiniPtr = std::unique_ptr<T, GstMiniObjectUnref>;
using GMainContextPtr = std::unique_ptr<GMainContext, GMainContextUnref>;
using GMainLoopPtr = std::unique_ptr<GMainLoop, GMainLoopUnref>;
using GSourcePtr = std::unique_ptr<GSource, GSourceDestroy>;
using GErrorPtr = std::unique_ptr<GError, GErrorFree>;
using GCharPtr = std::unique_ptr<gchar, GFree>;

}  // namespace camsim
