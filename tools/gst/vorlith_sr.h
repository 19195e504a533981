// The `vorlithsr` element: NV12 in, NV12 at twice the width and height out,
// through the library's plug-in exactly as a host drives it.
#ifndef VORLITH_TOOLS_GST_VORLITH_SR_H_
#define VORLITH_TOOLS_GST_VORLITH_SR_H_

#include <gst/gst.h>

G_BEGIN_DECLS

GType gst_vorlith_sr_get_type(void);
#define GST_TYPE_VORLITH_SR (gst_vorlith_sr_get_type())

// Registers the element with `plugin` (null: statically, for tests).
gboolean gst_vorlith_sr_register(GstPlugin* plugin);

G_END_DECLS

#endif  // VORLITH_TOOLS_GST_VORLITH_SR_H_
