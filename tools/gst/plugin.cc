// The GStreamer plug-in `vorlith`, installed to <libdir>/gstreamer-1.0.
#include <gst/gst.h>

#include "tools/gst/vorlith_sr.h"

static gboolean plugin_init(GstPlugin* plugin) { return gst_vorlith_sr_register(plugin); }

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, vorlith,
                  "Two-times video enlargement by a small neural network", plugin_init, VORLITH_VERSION,
                  "Proprietary", "Vorlith", "Vorlith")
