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
#include <utility>
#include <vector>

#include "tests/support/plugin_fixture.h"
#include "tools/common/host_support.h"
#include "tools/gst/vorlith_sr.h"
#include "vorlith/plugin.h"

namespace {

using vorlith::test::ResourceDirectory;

using Planes = std::pair<std::vector<uint8_t>, std::vector<uint8_t>>;  // packed Y, CbCr

// The planes of a pixel buffer (rows padded to 64 bytes) as the memory of a
// GstBuffer, described by a video meta; the buffer keeps a reference.
GstBuffer* ToBuffer(VLPixelBufferRef pb) {
  GstBuffer* buf = gst_buffer_new();
  gsize offsets[4] = {};
  gint strides[4] = {};
  for (size_t p = 0; p < 2; ++p) {
    strides[p] = int(VLPixelBufferGetBytesPerRowOfPlane(pb, p));
    const size_t size = strides[p] * VLPixelBufferGetHeightOfPlane(pb, p);
    offsets[1] = p == 0 ? size : offsets[1];
    gst_buffer_append_memory(buf, gst_memory_new_wrapped(GST_MEMORY_FLAG_READONLY, VLPixelBufferGetBaseAddressOfPlane(pb, p), size, 0, size,
                                                         VLPixelBufferRetain(pb), [](gpointer b) {
                                                           VLPixelBufferRelease(static_cast<VLPixelBufferRef>(b));
                                                         }));
  }
  gst_buffer_add_video_meta_full(buf, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12,
                                 guint(VLPixelBufferGetWidth(pb)), guint(VLPixelBufferGetHeight(pb)), 2, offsets,
                                 strides);
  return buf;
}

Planes FromBuffer(GstBuffer* buf, int w, int h) {
  GstVideoInfo info;
  gst_video_info_set_format(&info, GST_VIDEO_FORMAT_NV12, w, h);
  GstVideoFrame frame;
  EXPECT_TRUE(gst_video_frame_map(&frame, &info, buf, GST_MAP_READ));
  Planes f{std::vector<uint8_t>(size_t(w) * h), std::vector<uint8_t>(size_t(w) * h / 2)};
  for (int r = 0; r < h; ++r) {
    for (int p = 0; p < 2 && (p == 0 || r < h / 2); ++p) {
      const auto* row = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, p)) +
                        r * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p);
      std::memcpy(&(p == 0 ? f.first : f.second)[size_t(r) * w], row, w);
    }
  }
  gst_video_frame_unmap(&frame);
  return f;
}

// What a direct ProcessData of the frame gives, on a plug-in of its own.
Planes Direct(VLPixelBufferRef pb, NetType net) {
  std::unique_ptr<SuperResolutionInterface> sr(SuperResolutionInterface::Create());
  sr->SelectNetType(net);
  sr->Init("");
  _tagVideoData out{}, in = vorlith::test::Record(pb, int(VLPixelBufferGetWidth(pb)),
                                                  int(VLPixelBufferGetHeight(pb)));
  EXPECT_EQ(sr->ProcessData(&in, &out), net == NET_TYPE_FULL ? SR_OK : SR_OK_LIGHT);
  Planes r{vorlith::test::PackedPlane(out.pixelBuffer, 0), vorlith::test::PackedPlane(out.pixelBuffer, 1)};
  VLPixelBufferRelease(out.pixelBuffer);
  return r;
}

class Element : public testing::Test {
 protected:
  // A harness around the element for w x h input with the `network`
  // property `net`, the plug-in loading `file` as both networks (empty: none).
  void Start(int w, int h, const std::string& file, bool downstream_meta, const char* net = "full") {
    TearDown();
    resources_ = std::make_unique<ResourceDirectory>(file, file);
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
    VLPixelBufferRelease(frame_);
    frame_ = nullptr;
  }
  static std::string Caps(int w, int h) {
    return "video/x-raw,format=NV12,width=" + std::to_string(w) + ",height=" + std::to_string(h) +
           ",framerate=30000/1001,pixel-aspect-ratio=4/3";
  }
  VLPixelBufferRef Frame(int w, int h) {
    VLPixelBufferRelease(frame_);
    return frame_ = vorlith::test::RandomFrame(w, h, rng_);
  }
  // Pushes the frame and returns the element's 2x output.
  Planes Push() {
    EXPECT_EQ(gst_harness_push(h_, ToBuffer(frame_)), GST_FLOW_OK);
    GstBuffer* out = gst_harness_pull(h_);
    if (out == nullptr) return {};
    // The zero-copy output is the plug-in's two planes, wrapped one by one.
    last_wrapped_ = gst_buffer_n_memory(out) == 2;
    Planes r = FromBuffer(out, 2 * int(VLPixelBufferGetWidth(frame_)), 2 * int(VLPixelBufferGetHeight(frame_)));
    gst_buffer_unref(out);
    return r;
  }
  std::string Network() {
    gchar* v = nullptr;
    g_object_get(h_->element, "current-network", &v, nullptr);
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
  VLPixelBufferRef frame_ = nullptr;
  bool last_wrapped_ = false;
  std::mt19937 rng_{7};
};

TEST_F(Element, NegotiatesTwiceTheSize) {
  Start(37, 21, "tiny_sr.onnx", true);
  Frame(37, 21);
  Push();
  GstCaps* caps = gst_pad_get_current_caps(h_->sinkpad);
  GstCaps* want = gst_caps_from_string(Caps(74, 42).c_str());
  EXPECT_TRUE(caps != nullptr && gst_caps_is_equal(caps, want)) << (caps ? gst_caps_to_string(caps) : "none");
  gst_caps_unref(want);
  if (caps != nullptr) gst_caps_unref(caps);

  // Upstream is offered half of what downstream takes (an odd bound rounds
  // inwards); an odd or too large downstream size leaves nothing to offer.
  for (auto [downstream, upstream] : {std::pair<const char*, const char*>{"width=74,height=[11,41]", "width=37,height=[6,20]"},
                                      {"width=75,height=42", nullptr}, {"width=2562,height=42", nullptr}}) {
    GstHarness* h = gst_harness_new("vorlithsr");
    gst_harness_set_sink_caps_str(h, (std::string("video/x-raw,format=NV12,") + downstream).c_str());
    GstPad* sink = gst_element_get_static_pad(h->element, "sink");
    GstCaps* offered = gst_pad_query_caps(sink, nullptr);
    GstCaps* expected = gst_caps_from_string(
        upstream ? (std::string("video/x-raw,format=NV12,framerate=[0/1,2147483647/1],") + upstream).c_str() : "EMPTY");
    EXPECT_TRUE(gst_caps_is_equal(offered, expected)) << downstream << ": " << gst_caps_to_string(offered);
    for (GstCaps* c : {offered, expected}) gst_caps_unref(c);
    gst_object_unref(sink);
    gst_harness_teardown(h);
  }
  // Downstream is offered twice what upstream gives: even sizes only.
  GstElement* e = gst_element_factory_make("vorlithsr", nullptr);
  GstCaps* up = gst_caps_from_string("video/x-raw,width=[10,20],height=21");
  GstCaps* down = GST_BASE_TRANSFORM_GET_CLASS(e)->transform_caps(GST_BASE_TRANSFORM(e), GST_PAD_SINK, up, nullptr);
  gchar* doubled = gst_caps_to_string(down);  // a range's step takes no part in caps equality
  EXPECT_STREQ(doubled, "video/x-raw, width=(int)[ 20, 40, 2 ], height=(int)42");
  g_free(doubled);
  for (GstCaps* c : {up, down}) gst_caps_unref(c);
  gst_object_unref(e);
}

TEST_F(Element, FramesMatchADirectProcessDataZeroCopyOrCopied) {
  for (bool meta : {true, false}) {
    for (auto [w, h] : {std::pair{64, 36}, {37, 21}, {1, 1}}) {
      SCOPED_TRACE(testing::Message() << w << "x" << h << (meta ? " zero-copy" : " copied"));
      Start(w, h, "tiny_sr.onnx", meta, "light");
      Frame(w, h);
      EXPECT_EQ(Push(), Direct(frame_, NET_TYPE_LIGHT));
      EXPECT_EQ(last_wrapped_, meta);
      EXPECT_EQ(Network(), "light");
      EXPECT_EQ(Count("frames-light"), 1u);
    }
  }
}

TEST_F(Element, GovernorFallbackFlushAndRefusal) {
  vorlith::test::FakeClock clock;
  Start(16, 16, "tiny_sr.onnx", true);
  VLPixelBufferRef frame = Frame(16, 16);
  clock.step = 31000;  // 31 ms a frame: over the full network's budget
  for (int i = 0; i < 32; ++i) Push();
  EXPECT_EQ(Network(), "light");
  // A flush (as on a seek) puts the plug-in back on the full network.
  gst_harness_push_event(h_, gst_event_new_flush_start());
  gst_harness_push_event(h_, gst_event_new_flush_stop(TRUE));
  gst_harness_set_src_caps_str(h_, Caps(16, 16).c_str());
  Push();
  EXPECT_EQ(Network(), "full");
  EXPECT_EQ(Count("frames-full"), 32u);

  // Over the light budget too: the size is refused; the frames go on,
  // enlarged bilinearly, and one element message says so.
  clock.step = 51000;
  Planes refused;
  for (int i = 0; i < 100 && Network() != "bilinear"; ++i) refused = Push();
  ASSERT_EQ(Network(), "bilinear");
  EXPECT_EQ(Count("frames-bilinear"), 1u);
  Push();
  _StLanczos1p5x ctx{};
  InitLanczos1p5x(&ctx);
  Planes want{std::vector<uint8_t>(32 * 32), std::vector<uint8_t>(32 * 16)};
  auto plane = [&](int p) { return static_cast<const uint8_t*>(VLPixelBufferGetBaseAddressOfPlane(frame, p)); };
  vorlith::host::BilinearEnlargeNv12(&ctx, plane(0), VLPixelBufferGetBytesPerRowOfPlane(frame, 0), plane(1),
                                     VLPixelBufferGetBytesPerRowOfPlane(frame, 1), 16, 16, want.first.data(), 32,
                                     want.second.data(), 32);
  UInitLanczos1p5x(&ctx);
  EXPECT_EQ(refused, want);
  int refusals = 0;
  while (GstMessage* m = gst_bus_pop_filtered(bus_, GST_MESSAGE_ELEMENT)) {
    int w = 0;
    refusals += gst_structure_has_name(gst_message_get_structure(m), "vorlith-size-refused") &&
                gst_structure_get_int(gst_message_get_structure(m), "width", &w) && w == 16;
    gst_message_unref(m);
  }
  EXPECT_EQ(refusals, 1);
}

TEST_F(Element, MissingNetworksStopTheStreamWithAnError) {
  Start(16, 16, "", true);
  EXPECT_EQ(gst_harness_push(h_, ToBuffer(Frame(16, 16))), GST_FLOW_ERROR);
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
