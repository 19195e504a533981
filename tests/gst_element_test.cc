// The `vorlithsr` GStreamer element through GstHarness: negotiation, frames
// byte for byte against a direct ProcessData, zero-copy and copied output,
// the governor's refusal, flushes, and a plug-in without networks.
#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "src/platform/platform.h"
#include "tests/support/plugin_fixture.h"
#include "tools/common/host_support.h"
#include "tools/gst/vorlith_sr.h"
#include "vorlith/plugin.h"

namespace {

using vorlith::test::ResourceDirectory;

struct Nv12 {
  int w, h;
  std::vector<uint8_t> y, uv;  // packed
};

Nv12 RandomNv12(int w, int h, std::mt19937& rng) {
  Nv12 f{w, h, std::vector<uint8_t>(size_t(w) * h), std::vector<uint8_t>(size_t((w + 1) / 2 * 2) * ((h + 1) / 2))};
  for (auto& b : f.y) b = static_cast<uint8_t>(rng());
  for (auto& b : f.uv) b = static_cast<uint8_t>(rng());
  return f;
}

// The frame in a GstBuffer whose rows are `pad` bytes longer than needed,
// described by a video meta.
GstBuffer* ToBuffer(const Nv12& f, int pad) {
  const size_t cw = size_t(f.w + 1) / 2 * 2, ch = size_t(f.h + 1) / 2;
  gint strides[4] = {f.w + pad, int(cw) + pad};
  gsize offsets[4] = {0, size_t(strides[0]) * f.h};
  GstBuffer* buf = gst_buffer_new_allocate(nullptr, offsets[1] + size_t(strides[1]) * ch, nullptr);
  GstMapInfo map;
  gst_buffer_map(buf, &map, GST_MAP_WRITE);
  std::memset(map.data, 0xEE, map.size);
  for (int r = 0; r < f.h; ++r) std::memcpy(map.data + r * strides[0], &f.y[size_t(r) * f.w], f.w);
  for (size_t r = 0; r < ch; ++r) std::memcpy(map.data + offsets[1] + r * strides[1], &f.uv[r * cw], cw);
  gst_buffer_unmap(buf, &map);
  gst_buffer_add_video_meta_full(buf, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12, f.w, f.h, 2, offsets,
                                 strides);
  return buf;
}

Nv12 FromBuffer(GstBuffer* buf, int w, int h) {
  GstVideoInfo info;
  gst_video_info_set_format(&info, GST_VIDEO_FORMAT_NV12, w, h);
  GstVideoFrame frame;
  EXPECT_TRUE(gst_video_frame_map(&frame, &info, buf, GST_MAP_READ));
  Nv12 f{w, h, std::vector<uint8_t>(size_t(w) * h), std::vector<uint8_t>(size_t(w) * h / 2)};
  for (int p = 0; p < 2; ++p) {
    std::vector<uint8_t>& dst = p == 0 ? f.y : f.uv;
    const int rows = p == 0 ? h : h / 2;
    for (int r = 0; r < rows; ++r) {
      std::memcpy(&dst[size_t(r) * w],
                  static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, p)) +
                      r * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p),
                  w);
    }
  }
  gst_video_frame_unmap(&frame);
  return f;
}

// What a direct ProcessData of the frame gives, on a plug-in of its own.
Nv12 Direct(const Nv12& f, NetType net) {
  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  sr->SelectNetType(net);
  sr->Init("");
  void* planes[2] = {const_cast<uint8_t*>(f.y.data()), const_cast<uint8_t*>(f.uv.data())};
  const size_t strides[2] = {size_t(f.w), size_t(f.w + 1) / 2 * 2};
  VLPixelBufferRef in_pb = nullptr;
  EXPECT_EQ(VLPixelBufferCreateWithPlanarBytes(f.w, f.h, kVLPixelFormatType_420YpCbCr8BiPlanarVideoRange, planes,
                                               strides, nullptr, nullptr, &in_pb),
            kVLReturnSuccess);
  _tagVideoData in{}, out{};
  in.width = f.w;
  in.height = f.h;
  in.pixelBuffer = in_pb;
  in.format = 1;
  EXPECT_EQ(sr->ProcessData(&in, &out), net == NET_TYPE_FULL ? SR_OK : SR_OK_LIGHT);
  VLPixelBufferRelease(in_pb);
  Nv12 r{2 * f.w, 2 * f.h, vorlith::test::PackedPlane(out.pixelBuffer, 0),
         vorlith::test::PackedPlane(out.pixelBuffer, 1)};
  VLPixelBufferRelease(out.pixelBuffer);
  return r;
}

class Element : public testing::Test {
 protected:
  // A harness around the element for w x h input, the plug-in loading
  // `network` as both networks (empty: none).
  void Start(int w, int h, const std::string& network, bool downstream_meta, const char* net = "full") {
    TearDown();
    resources_ = std::make_unique<ResourceDirectory>(network, network);
    GstElement* element = gst_element_factory_make("vorlithsr", nullptr);
    gst_util_set_object_arg(G_OBJECT(element), "network", net);
    h_ = gst_harness_new_with_element(element, "sink", "src");
    gst_object_unref(element);
    bus_ = gst_bus_new();
    gst_element_set_bus(h_->element, bus_);
    if (downstream_meta) gst_harness_add_propose_allocation_meta(h_, GST_VIDEO_META_API_TYPE, nullptr);
    gst_harness_set_src_caps_str(h_, Caps(w, h).c_str());
  }
  void TearDown() override {
    if (h_ != nullptr) gst_harness_teardown(h_);
    if (bus_ != nullptr) gst_object_unref(bus_);
    h_ = nullptr;
    bus_ = nullptr;
    resources_.reset();
  }
  static std::string Caps(int w, int h) {
    return "video/x-raw,format=NV12,width=" + std::to_string(w) + ",height=" + std::to_string(h) +
           ",framerate=30000/1001,pixel-aspect-ratio=4/3";
  }
  // Pushes one frame and returns the element's output, checked to be 2x.
  Nv12 Push(const Nv12& f, int pad = 0) {
    EXPECT_EQ(gst_harness_push(h_, ToBuffer(f, pad)), GST_FLOW_OK);
    GstBuffer* out = gst_harness_pull(h_);
    EXPECT_NE(out, nullptr);
    if (out == nullptr) return {};
    // The zero-copy output is the plug-in's two planes, wrapped one by one.
    last_wrapped_ = gst_buffer_n_memory(out) == 2;
    Nv12 r = FromBuffer(out, 2 * f.w, 2 * f.h);
    gst_buffer_unref(out);
    return r;
  }
  std::string StringProperty(const char* name) {
    gchar* v = nullptr;
    g_object_get(h_->element, name, &v, nullptr);
    std::string s = v ? v : "";
    g_free(v);
    return s;
  }
  guint64 Count(const char* name) {
    guint64 v = 0;
    g_object_get(h_->element, name, &v, nullptr);
    return v;
  }

  std::unique_ptr<ResourceDirectory> resources_;
  GstHarness* h_ = nullptr;
  GstBus* bus_ = nullptr;
  bool last_wrapped_ = false;
  std::mt19937 rng_{7};
};

TEST_F(Element, NegotiatesTwiceTheSize) {
  Start(37, 21, "tiny_sr.onnx", true);
  Push(RandomNv12(37, 21, rng_));
  GstCaps* caps = gst_pad_get_current_caps(h_->sinkpad);
  ASSERT_NE(caps, nullptr);
  GstCaps* want = gst_caps_from_string(Caps(74, 42).c_str());
  EXPECT_TRUE(gst_caps_is_equal(caps, want)) << gst_caps_to_string(caps);
  gst_caps_unref(want);
  gst_caps_unref(caps);

  // Upstream is offered half of what downstream takes; an odd or too large
  // downstream size leaves nothing to offer.
  for (auto [downstream, upstream] :
       {std::pair<const char*, const char*>{"width=74,height=[10,41]", "width=37,height=[5,20],framerate=[0/1,2147483647/1]"},
        {"width=75,height=42", nullptr}, {"width=2562,height=42", nullptr}}) {
    GstHarness* h = gst_harness_new("vorlithsr");
    gst_harness_set_sink_caps_str(h, (std::string("video/x-raw,format=NV12,") + downstream).c_str());
    GstPad* sink = gst_element_get_static_pad(h->element, "sink");
    GstCaps* offered = gst_pad_query_caps(sink, nullptr);
    if (upstream == nullptr) {
      EXPECT_TRUE(gst_caps_is_empty(offered)) << downstream << ": " << gst_caps_to_string(offered);
    } else {
      GstCaps* expected = gst_caps_from_string((std::string("video/x-raw,format=NV12,") + upstream).c_str());
      EXPECT_TRUE(gst_caps_is_subset(offered, expected)) << gst_caps_to_string(offered);
      EXPECT_TRUE(gst_caps_is_subset(expected, offered)) << gst_caps_to_string(offered);
      gst_caps_unref(expected);
    }
    gst_caps_unref(offered);
    gst_object_unref(sink);
    gst_harness_teardown(h);
  }
}

TEST_F(Element, FramesMatchADirectProcessDataZeroCopyOrCopied) {
  for (bool meta : {true, false}) {
    for (auto [w, h, pad] : {std::tuple{64, 36, 0}, {37, 21, 13}, {1, 1, 5}}) {
      SCOPED_TRACE(testing::Message() << w << "x" << h << " pad " << pad << (meta ? " meta" : " copied"));
      Start(w, h, "tiny_sr.onnx", meta, "light");
      const Nv12 f = RandomNv12(w, h, rng_);
      const Nv12 got = Push(f, pad), want = Direct(f, NET_TYPE_LIGHT);
      EXPECT_EQ(last_wrapped_, meta);
      EXPECT_EQ(got.y, want.y);
      EXPECT_EQ(got.uv, want.uv);
      EXPECT_EQ(StringProperty("current-network"), "light");
      EXPECT_EQ(Count("frames-light"), 1u);
    }
  }
}

// A clock that moves by `step` microseconds per reading: ProcessData reads
// it at the start and the end of a frame, so each frame takes `step`.
struct FakeClock {
  FakeClock() {
    vorlith::platform::SetClockForTest([this] { return now += step; });
  }
  ~FakeClock() { vorlith::platform::SetClockForTest(nullptr); }
  int64_t now = 0, step = 500;
};

TEST_F(Element, GovernorFallbackFlushAndRefusal) {
  FakeClock clock;
  Start(16, 16, "tiny_sr.onnx", true);
  const Nv12 f = RandomNv12(16, 16, rng_);
  clock.step = 31000;  // 31 ms a frame: over the full network's budget
  for (int i = 0; i < 32; ++i) Push(f);
  EXPECT_EQ(StringProperty("current-network"), "light");
  // A flush (as on a seek) puts the plug-in back on the full network.
  gst_harness_push_event(h_, gst_event_new_flush_start());
  gst_harness_push_event(h_, gst_event_new_flush_stop(TRUE));
  gst_harness_set_src_caps_str(h_, Caps(16, 16).c_str());
  Push(f);
  EXPECT_EQ(StringProperty("current-network"), "full");
  EXPECT_EQ(Count("frames-full"), 32u);

  // Over the light budget too: the size is refused; the frames go on,
  // enlarged bilinearly, and one element message says so.
  clock.step = 51000;
  Nv12 refused;
  for (int i = 0; i < 100 && StringProperty("current-network") != "bilinear"; ++i) refused = Push(f);
  ASSERT_EQ(StringProperty("current-network"), "bilinear");
  EXPECT_EQ(Count("frames-bilinear"), 1u);
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  Nv12 want{32, 32, std::vector<uint8_t>(32 * 32), std::vector<uint8_t>(32 * 16)};
  vorlith::host::BilinearEnlargeNv12(&ctx, f.y.data(), 16, f.uv.data(), 16, 16, 16, want.y.data(), 32,
                                     want.uv.data(), 32);
  UInitLanczos1p5x(&ctx);
  EXPECT_EQ(refused.y, want.y);
  EXPECT_EQ(refused.uv, want.uv);
  Push(f);
  int refusals = 0;
  while (GstMessage* m = gst_bus_pop_filtered(bus_, GST_MESSAGE_ELEMENT)) {
    const GstStructure* s = gst_message_get_structure(m);
    int w = 0;
    refusals += gst_structure_has_name(s, "vorlith-size-refused") && gst_structure_get_int(s, "width", &w) && w == 16;
    gst_message_unref(m);
  }
  EXPECT_EQ(refusals, 1);
}

TEST_F(Element, MissingNetworksStopTheStreamWithAnError) {
  Start(16, 16, "", true);
  const Nv12 f = RandomNv12(16, 16, rng_);
  EXPECT_EQ(gst_harness_push(h_, ToBuffer(f, 0)), GST_FLOW_ERROR);
  GstMessage* m = gst_bus_pop_filtered(bus_, GST_MESSAGE_ERROR);
  ASSERT_NE(m, nullptr);
  GError* error = nullptr;
  gst_message_parse_error(m, &error, nullptr);
  EXPECT_TRUE(g_error_matches(error, GST_LIBRARY_ERROR, GST_LIBRARY_ERROR_INIT));
  EXPECT_NE(std::string(error->message).find("cannot enlarge frames"), std::string::npos) << error->message;
  EXPECT_NE(std::string(error->message).find("RTC.onnx"), std::string::npos) << error->message;
  g_error_free(error);
  gst_message_unref(m);
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  gst_vorlith_sr_register(nullptr);
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  gst_deinit();
  return result;
}
