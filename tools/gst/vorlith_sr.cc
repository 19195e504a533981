#include "tools/gst/vorlith_sr.h"

#include <gst/base/gstbasetransform.h>
#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

#include "tools/common/host_support.h"
#include "vorlith/kernel_context.h"
#include "vorlith/plugin.h"

GST_DEBUG_CATEGORY_STATIC(vorlith_sr_debug);
#define GST_CAT_DEFAULT vorlith_sr_debug

namespace {

constexpr int kMaxSide = 1280;  // the plug-in refuses larger frames

enum Path { kPathNone = -1, kPathFull, kPathLight, kPathBilinear };
const char* const kPathNames[] = {"full", "light", "bilinear"};

enum { PROP_0, PROP_NETWORK, PROP_CURRENT_NETWORK, PROP_FRAMES_FULL, PROP_FRAMES_LIGHT, PROP_FRAMES_BILINEAR };

}  // namespace

struct GstVorlithSr {
  GstVideoFilter parent;
  // Guards everything below: properties are read and set from other threads
  // than the streaming one, and the plug-in object serves one at a time.
  std::mutex* lock;
  NetType network;
  SuperResolutionInterface* sr;
  _StLanczos1p5x* ctx;  // for the bilinear fallback
  gboolean downstream_meta;
  gboolean refusal_posted;
  int path;
  guint64 frames[3];
};

struct GstVorlithSrClass {
  GstVideoFilterClass parent_class;
};

G_DEFINE_TYPE(GstVorlithSr, gst_vorlith_sr, GST_TYPE_VIDEO_FILTER)

#define VORLITH_SR(obj) (reinterpret_cast<GstVorlithSr*>(obj))

namespace {

GType NetworkEnumType() {
  static GType type = 0;
  if (g_once_init_enter(&type)) {
    static const GEnumValue values[] = {
        {NET_TYPE_FULL, "The full network; the governor falls back to the light one when frames take too long",
         "full"},
        {NET_TYPE_LIGHT, "The light network", "light"},
        {0, nullptr, nullptr}};
    g_once_init_leave(&type, g_enum_register_static("GstVorlithSrNetwork", values));
  }
  return type;
}

// Doubles (to the source side) or halves (to the sink side) one width or
// height value: an int, a range or a list of them. False when nothing of it
// can be matched on the other side.
gboolean ScaleDimension(const GValue* in, GValue* out, bool doubling) {
  if (G_VALUE_HOLDS_INT(in)) {
    const int v = g_value_get_int(in);
    if (!doubling && (v % 2 != 0 || v < 2)) return FALSE;
    g_value_init(out, G_TYPE_INT);
    g_value_set_int(out, doubling ? 2 * v : v / 2);
    return TRUE;
  }
  if (GST_VALUE_HOLDS_INT_RANGE(in)) {
    const int lo = gst_value_get_int_range_min(in), hi = gst_value_get_int_range_max(in);
    int a = doubling ? 2 * std::min(lo, G_MAXINT / 2) : (lo + 1) / 2;
    int b = doubling ? 2 * std::min(hi, G_MAXINT / 2) : hi / 2;
    a = std::max(a, doubling ? 2 : 1);
    if (a > b) return FALSE;
    if (a == b) {
      g_value_init(out, G_TYPE_INT);
      g_value_set_int(out, a);
    } else {
      g_value_init(out, GST_TYPE_INT_RANGE);
      if (doubling) {
        gst_value_set_int_range_step(out, a, b, 2);
      } else {
        gst_value_set_int_range(out, a, b);
      }
    }
    return TRUE;
  }
  if (GST_VALUE_HOLDS_LIST(in)) {
    g_value_init(out, GST_TYPE_LIST);
    for (guint i = 0; i < gst_value_list_get_size(in); ++i) {
      GValue v = G_VALUE_INIT;
      if (ScaleDimension(gst_value_list_get_value(in, i), &v, doubling)) gst_value_list_append_and_take_value(out, &v);
    }
    if (gst_value_list_get_size(out) > 0) return TRUE;
    g_value_unset(out);
  }
  return FALSE;
}

GstCaps* TransformCaps(GstBaseTransform* trans, GstPadDirection direction, GstCaps* caps, GstCaps* filter) {
  const bool doubling = direction == GST_PAD_SINK;
  GstCaps* result = gst_caps_new_empty();
  for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
    GstStructure* s = gst_structure_copy(gst_caps_get_structure(caps, i));
    bool ok = true;
    for (const char* field : {"width", "height"}) {
      const GValue* v = gst_structure_get_value(s, field);
      if (v == nullptr) continue;
      GValue scaled = G_VALUE_INIT;
      if (!ScaleDimension(v, &scaled, doubling)) {
        ok = false;
        break;
      }
      gst_structure_take_value(s, field, &scaled);
    }
    if (!ok) {
      gst_structure_free(s);
      continue;
    }
    gst_caps_append_structure_full(result, s, gst_caps_features_copy(gst_caps_get_features(caps, i)));
  }
  if (filter != nullptr) {
    GstCaps* both = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(result);
    result = both;
  }
  GST_DEBUG_OBJECT(trans, "%s %" GST_PTR_FORMAT " -> %" GST_PTR_FORMAT, doubling ? "doubled" : "halved", caps,
                   result);
  return result;
}

// The other side's size follows from this side's; the rest (rate, aspect,
// colorimetry) fixates as usual.
GstCaps* FixateCaps(GstBaseTransform*, GstPadDirection direction, GstCaps* caps, GstCaps* othercaps) {
  othercaps = gst_caps_truncate(gst_caps_make_writable(othercaps));
  const GstStructure* in = gst_caps_get_structure(caps, 0);
  GstStructure* out = gst_caps_get_structure(othercaps, 0);
  int w = 0, h = 0;
  if (gst_structure_get_int(in, "width", &w) && gst_structure_get_int(in, "height", &h)) {
    const bool doubling = direction == GST_PAD_SINK;
    gst_structure_fixate_field_nearest_int(out, "width", doubling ? 2 * w : w / 2);
    gst_structure_fixate_field_nearest_int(out, "height", doubling ? 2 * h : h / 2);
  }
  return gst_caps_fixate(othercaps);
}

gboolean SetInfo(GstVideoFilter* filter, GstCaps*, GstVideoInfo* in, GstCaps*, GstVideoInfo* out) {
  if (GST_VIDEO_INFO_WIDTH(out) != 2 * GST_VIDEO_INFO_WIDTH(in) ||
      GST_VIDEO_INFO_HEIGHT(out) != 2 * GST_VIDEO_INFO_HEIGHT(in)) {
    GST_ERROR_OBJECT(filter, "output %dx%d is not twice the input %dx%d", GST_VIDEO_INFO_WIDTH(out),
                     GST_VIDEO_INFO_HEIGHT(out), GST_VIDEO_INFO_WIDTH(in), GST_VIDEO_INFO_HEIGHT(in));
    return FALSE;
  }
  return TRUE;
}

gboolean Start(GstBaseTransform* trans) {
  GstVorlithSr* self = VORLITH_SR(trans);
  std::lock_guard<std::mutex> guard(*self->lock);
  self->sr = SuperResolutionInterface::Create();
  self->sr->SelectNetType(self->network);
  self->sr->Init("");  // missing networks surface on the first frame
  self->ctx = new _StLanczos1p5x{};
  InitLanczos1p5x(self->ctx);
  self->refusal_posted = FALSE;
  self->path = kPathNone;
  std::memset(self->frames, 0, sizeof(self->frames));
  return TRUE;
}

gboolean Stop(GstBaseTransform* trans) {
  GstVorlithSr* self = VORLITH_SR(trans);
  std::lock_guard<std::mutex> guard(*self->lock);
  delete self->sr;
  self->sr = nullptr;
  if (self->ctx != nullptr) UInitLanczos1p5x(self->ctx);
  delete self->ctx;
  self->ctx = nullptr;
  return TRUE;
}

gboolean SinkEvent(GstBaseTransform* trans, GstEvent* event) {
  GstVorlithSr* self = VORLITH_SR(trans);
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) {
    // A flush or seek starts a new stretch of video: undo any fallback.
    std::lock_guard<std::mutex> guard(*self->lock);
    if (self->sr != nullptr) self->sr->SetFrameStatus();
  }
  return GST_BASE_TRANSFORM_CLASS(gst_vorlith_sr_parent_class)->sink_event(trans, event);
}

gboolean DecideAllocation(GstBaseTransform* trans, GstQuery* query) {
  GstVorlithSr* self = VORLITH_SR(trans);
  self->downstream_meta = gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
  GST_DEBUG_OBJECT(trans, "downstream %s video meta", self->downstream_meta ? "takes" : "does not take");
  return GST_BASE_TRANSFORM_CLASS(gst_vorlith_sr_parent_class)->decide_allocation(trans, query);
}

void ReleasePixelBuffer(gpointer buffer) { VLPixelBufferRelease(static_cast<VLPixelBufferRef>(buffer)); }

// The pixel buffer's planes as the memory of a new GstBuffer, with a video
// meta for their strides; each memory holds a reference to the buffer.
GstBuffer* WrapPixelBuffer(VLPixelBufferRef pb, const GstVideoInfo* info) {
  GstBuffer* out = gst_buffer_new();
  gsize offsets[GST_VIDEO_MAX_PLANES] = {};
  gint strides[GST_VIDEO_MAX_PLANES] = {};
  gsize at = 0;
  for (size_t p = 0; p < 2; ++p) {
    const size_t stride = VLPixelBufferGetBytesPerRowOfPlane(pb, p);
    const size_t size = stride * VLPixelBufferGetHeightOfPlane(pb, p);
    gst_buffer_append_memory(out, gst_memory_new_wrapped(GstMemoryFlags(0), VLPixelBufferGetBaseAddressOfPlane(pb, p),
                                                         size, 0, size, VLPixelBufferRetain(pb),
                                                         ReleasePixelBuffer));
    offsets[p] = at;
    strides[p] = static_cast<gint>(stride);
    at += size;
  }
  gst_buffer_add_video_meta_full(out, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12,
                                 GST_VIDEO_INFO_WIDTH(info), GST_VIDEO_INFO_HEIGHT(info), 2, offsets, strides);
  return out;
}

// Copies the pixel buffer's planes into a frame laid out as negotiated, for
// peers that cannot take other strides.
void CopyPixelBuffer(VLPixelBufferRef pb, GstVideoFrame* frame) {
  for (int p = 0; p < 2; ++p) {
    const auto* src = static_cast<const uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(pb, p));
    const size_t src_stride = VLPixelBufferGetBytesPerRowOfPlane(pb, p);
    auto* dst = static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(frame, p));
    const size_t dst_stride = GST_VIDEO_FRAME_PLANE_STRIDE(frame, p);
    const size_t bytes = VLPixelBufferGetWidthOfPlane(pb, p) * (p == 0 ? 1 : 2);
    for (size_t y = 0; y < VLPixelBufferGetHeightOfPlane(pb, p); ++y) {
      std::memcpy(dst + y * dst_stride, src + y * src_stride, bytes);
    }
  }
}

// Runs the plug-in on one mapped frame. Returns the 2x pixel buffer (one
// reference, the caller's), or null after posting an error.
VLPixelBufferRef Enlarge(GstVorlithSr* self, GstVideoFrame* frame) {
  const int w = GST_VIDEO_FRAME_WIDTH(frame), h = GST_VIDEO_FRAME_HEIGHT(frame);
  void* planes[2] = {GST_VIDEO_FRAME_PLANE_DATA(frame, 0), GST_VIDEO_FRAME_PLANE_DATA(frame, 1)};
  const size_t strides[2] = {size_t(GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0)),
                             size_t(GST_VIDEO_FRAME_PLANE_STRIDE(frame, 1))};
  VLPixelBufferRef in_pb = nullptr;
  if (VLPixelBufferCreateWithPlanarBytes(w, h, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, planes, strides,
                                         nullptr, nullptr, &in_pb) != kVLReturnSuccess) {
    GST_ELEMENT_ERROR(self, STREAM, FORMAT, ("Cannot wrap a %dx%d NV12 frame", w, h), (nullptr));
    return nullptr;
  }
  _tagVideoData in{}, out{};
  in.width = static_cast<uint32_t>(w);
  in.height = static_cast<uint32_t>(h);
  in.pixelBuffer = in_pb;
  in.format = 1;

  std::unique_lock<std::mutex> guard(*self->lock);
  const int status = self->sr->ProcessData(&in, &out);
  VLPixelBufferRelease(in_pb);
  VLPixelBufferRef result = nullptr;
  switch (status) {
    case SR_OK:
    case SR_OK_LIGHT:
    case SR_ERR_TOO_SLOW:
      if (status == SR_ERR_TOO_SLOW && !self->refusal_posted) {
        // Said once; the frames go on, enlarged bilinearly while refused.
        self->refusal_posted = TRUE;
        guard.unlock();
        GST_ELEMENT_WARNING(self, STREAM, FAILED,
                            ("Frames of %dx%d take too long on the networks; they are enlarged bilinearly", w, h),
                            (nullptr));
        gst_element_post_message(
            GST_ELEMENT(self),
            gst_message_new_element(GST_OBJECT(self), gst_structure_new("vorlith-size-refused", "width", G_TYPE_INT,
                                                                        w, "height", G_TYPE_INT, h, nullptr)));
        guard.lock();
      }
      if (out.pixelBuffer != nullptr) {
        // The refusing frame itself still comes from the network that ran it.
        result = out.pixelBuffer;
        self->path = status == SR_OK ? kPathFull : kPathLight;
      } else {
        if (VLPixelBufferCreate(2 * w, 2 * h, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, &result) !=
            kVLReturnSuccess) {
          break;
        }
        vorlith::host::BilinearEnlargeNv12(
            self->ctx, static_cast<const uint8_t*>(planes[0]), ptrdiff_t(strides[0]),
            static_cast<const uint8_t*>(planes[1]), ptrdiff_t(strides[1]), w, h,
            static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(result, 0)),
            ptrdiff_t(VLPixelBufferGetBytesPerRowOfPlane(result, 0)),
            static_cast<uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(result, 1)),
            ptrdiff_t(VLPixelBufferGetBytesPerRowOfPlane(result, 1)));
        self->path = kPathBilinear;
      }
      ++self->frames[self->path];
      break;
    case SR_ERR_TOO_LARGE:
      guard.unlock();
      GST_ELEMENT_ERROR(self, STREAM, FORMAT,
                        ("A %dx%d frame is larger than the plug-in takes (at most %d pixels wide and tall)", w, h,
                         kMaxSide),
                        ("ProcessData returned %d", status));
      return nullptr;
    default: {
      guard.unlock();
      const std::string why = vorlith::host::NetworkTrouble();
      GST_ELEMENT_ERROR(self, LIBRARY, INIT, ("The plug-in cannot enlarge frames: %s", why.c_str()),
                        ("ProcessData returned %d", status));
      return nullptr;
    }
  }
  if (result == nullptr) {
    guard.unlock();
    GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("Cannot allocate a %dx%d frame", 2 * w, 2 * h), (nullptr));
  }
  return result;
}

// The plug-in makes its own output buffer, so the enlargement happens here,
// where the output buffer is decided; transform has nothing left to do.
GstFlowReturn PrepareOutputBuffer(GstBaseTransform* trans, GstBuffer* input, GstBuffer** outbuf) {
  GstVorlithSr* self = VORLITH_SR(trans);
  GstVideoFilter* filter = GST_VIDEO_FILTER(trans);
  GstVideoFrame frame;
  if (!gst_video_frame_map(&frame, &filter->in_info, input, GST_MAP_READ)) {
    GST_ELEMENT_ERROR(self, STREAM, FAILED, ("Cannot map the input frame"), (nullptr));
    return GST_FLOW_ERROR;
  }
  VLPixelBufferRef pb = Enlarge(self, &frame);
  gst_video_frame_unmap(&frame);
  if (pb == nullptr) return GST_FLOW_ERROR;

  GstFlowReturn ret = GST_FLOW_OK;
  if (self->downstream_meta) {
    *outbuf = WrapPixelBuffer(pb, &filter->out_info);
    GST_BASE_TRANSFORM_GET_CLASS(trans)->copy_metadata(trans, input, *outbuf);
  } else {
    ret = GST_BASE_TRANSFORM_CLASS(gst_vorlith_sr_parent_class)->prepare_output_buffer(trans, input, outbuf);
    GstVideoFrame out;
    if (ret == GST_FLOW_OK && gst_video_frame_map(&out, &filter->out_info, *outbuf, GST_MAP_WRITE)) {
      CopyPixelBuffer(pb, &out);
      gst_video_frame_unmap(&out);
    } else if (ret == GST_FLOW_OK) {
      GST_ELEMENT_ERROR(self, STREAM, FAILED, ("Cannot map the output frame"), (nullptr));
      ret = GST_FLOW_ERROR;
    }
  }
  VLPixelBufferRelease(pb);
  return ret;
}

GstFlowReturn Transform(GstBaseTransform*, GstBuffer*, GstBuffer*) { return GST_FLOW_OK; }
// Never called (Transform replaces the class's frame mapping); without one
// the base class would run the element in place on its input.
GstFlowReturn TransformFrame(GstVideoFilter*, GstVideoFrame*, GstVideoFrame*) { return GST_FLOW_OK; }

// The input's layout and size metas describe the input, not the 2x output.
gboolean TransformMeta(GstBaseTransform* trans, GstBuffer* outbuf, GstMeta* meta, GstBuffer* inbuf) {
  if (meta->info->api == GST_VIDEO_META_API_TYPE) return FALSE;
  return GST_BASE_TRANSFORM_CLASS(gst_vorlith_sr_parent_class)->transform_meta(trans, outbuf, meta, inbuf);
}

void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
  GstVorlithSr* self = VORLITH_SR(object);
  if (id != PROP_NETWORK) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    return;
  }
  std::lock_guard<std::mutex> guard(*self->lock);
  self->network = static_cast<NetType>(g_value_get_enum(value));
  if (self->sr != nullptr) {
    // Takes effect from the next frame, as after a seek.
    self->sr->SelectNetType(self->network);
    self->sr->SetFrameStatus();
  }
}

void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
  GstVorlithSr* self = VORLITH_SR(object);
  std::lock_guard<std::mutex> guard(*self->lock);
  switch (id) {
    case PROP_NETWORK: g_value_set_enum(value, self->network); break;
    case PROP_CURRENT_NETWORK: g_value_set_string(value, self->path == kPathNone ? "none" : kPathNames[self->path]); break;
    case PROP_FRAMES_FULL: g_value_set_uint64(value, self->frames[kPathFull]); break;
    case PROP_FRAMES_LIGHT: g_value_set_uint64(value, self->frames[kPathLight]); break;
    case PROP_FRAMES_BILINEAR: g_value_set_uint64(value, self->frames[kPathBilinear]); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
  }
}

void Finalize(GObject* object) {
  GstVorlithSr* self = VORLITH_SR(object);
  delete self->sr;  // stop normally did this
  if (self->ctx != nullptr) UInitLanczos1p5x(self->ctx);
  delete self->ctx;
  delete self->lock;
  G_OBJECT_CLASS(gst_vorlith_sr_parent_class)->finalize(object);
}

}  // namespace

static void gst_vorlith_sr_class_init(GstVorlithSrClass* klass) {
  GObjectClass* object = G_OBJECT_CLASS(klass);
  GstElementClass* element = GST_ELEMENT_CLASS(klass);
  GstBaseTransformClass* trans = GST_BASE_TRANSFORM_CLASS(klass);
  GST_VIDEO_FILTER_CLASS(klass)->set_info = SetInfo;
  GST_VIDEO_FILTER_CLASS(klass)->transform_frame = TransformFrame;
  object->set_property = SetProperty;
  object->get_property = GetProperty;
  object->finalize = Finalize;

  const auto readable = GParamFlags(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property(
      object, PROP_NETWORK,
      g_param_spec_enum("network", "Network", "The network the plug-in starts on", NetworkEnumType(), NET_TYPE_FULL,
                        GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING)));
  g_object_class_install_property(
      object, PROP_CURRENT_NETWORK,
      g_param_spec_string("current-network", "Current network",
                          "What enlarged the last frame: full, light, bilinear (size refused), or none yet", "none",
                          readable));
  g_object_class_install_property(object, PROP_FRAMES_FULL,
                                  g_param_spec_uint64("frames-full", "Frames on the full network", "Since start",
                                                      0, G_MAXUINT64, 0, readable));
  g_object_class_install_property(object, PROP_FRAMES_LIGHT,
                                  g_param_spec_uint64("frames-light", "Frames on the light network", "Since start",
                                                      0, G_MAXUINT64, 0, readable));
  g_object_class_install_property(
      object, PROP_FRAMES_BILINEAR,
      g_param_spec_uint64("frames-bilinear", "Frames enlarged bilinearly",
                          "Since start; frames of a size the time governor refused", 0, G_MAXUINT64, 0, readable));

  const std::string sink = "video/x-raw, format=(string)NV12, width=(int)[1, " + std::to_string(kMaxSide) +
                           "], height=(int)[1, " + std::to_string(kMaxSide) + "], framerate=(fraction)[0/1, MAX]";
  const std::string src = "video/x-raw, format=(string)NV12, width=(int)[2, " + std::to_string(2 * kMaxSide) +
                          "], height=(int)[2, " + std::to_string(2 * kMaxSide) + "], framerate=(fraction)[0/1, MAX]";
  gst_element_class_add_pad_template(
      element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, gst_caps_from_string(sink.c_str())));
  gst_element_class_add_pad_template(
      element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, gst_caps_from_string(src.c_str())));
  gst_element_class_set_static_metadata(element, "Vorlith super-resolution", "Filter/Effect/Video/Scaler",
                                        "Enlarges NV12 video two times with a small neural network", "Vorlith");

  trans->transform_caps = TransformCaps;
  trans->fixate_caps = FixateCaps;
  trans->start = Start;
  trans->stop = Stop;
  trans->sink_event = SinkEvent;
  trans->decide_allocation = DecideAllocation;
  trans->prepare_output_buffer = PrepareOutputBuffer;
  trans->transform = Transform;
  trans->transform_meta = TransformMeta;
  trans->passthrough_on_same_caps = FALSE;
  GST_DEBUG_CATEGORY_INIT(vorlith_sr_debug, "vorlithsr", 0, "Vorlith super-resolution");
}

static void gst_vorlith_sr_init(GstVorlithSr* self) {
  self->lock = new std::mutex;
  self->network = NET_TYPE_FULL;
  self->sr = nullptr;
  self->ctx = nullptr;
  self->downstream_meta = FALSE;
  self->refusal_posted = FALSE;
  self->path = kPathNone;
  std::memset(self->frames, 0, sizeof(self->frames));
}

gboolean gst_vorlith_sr_register(GstPlugin* plugin) {
  return gst_element_register(plugin, "vorlithsr", GST_RANK_NONE, GST_TYPE_VORLITH_SR);
}
