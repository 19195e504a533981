// Checked kernel wrappers: refusals and equality with the raw kernels.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/context.h"
#include "vorlith/checked_kernels.hpp"
#include "vorlith/kernels.h"

namespace vorlith::checked {
namespace {

// A random plane with `pad` spare values after each row; the padding is
// kept aside so a test can prove a wrapper never wrote it.
template <class T>
struct Img {
  std::vector<T> buf, before;
  PlaneView<T> v;
  Img(int w, int h, int ch = 1, int pad = 5, int mod = 256, uint32_t seed = 1) {
    std::mt19937 rng(seed + static_cast<uint32_t>(w * 131 + h));
    const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(w) * ch + pad;
    buf.resize(static_cast<size_t>(stride * h));
    for (T& x : buf) x = static_cast<T>(static_cast<int>(rng() % mod) - (mod > 256 ? mod / 2 : 0));
    before = buf;
    v = PlaneView<T>(buf.data(), w, h, stride, ch);
  }
  // The rows packed, as the raw kernels take them.
  std::vector<T> Packed() const {
    std::vector<T> out;
    for (int r = 0; r < v.height; ++r) out.insert(out.end(), v.row(r), v.row(r) + v.row_values());
    return out;
  }
  // Every row equals `packed` and every gap is as it was.
  void Expect(const std::vector<T>& packed, const char* what) const {
    EXPECT_EQ(Packed(), packed) << what;
    for (int r = 0; r < v.height; ++r) {
      const size_t at = static_cast<size_t>(r * v.stride + v.row_values());
      for (size_t i = at; i < static_cast<size_t>((r + 1) * v.stride); ++i) {
        ASSERT_EQ(buf[i], before[i]) << what << ": gap written, row " << r;
      }
    }
  }
};
using Bytes = Img<uint8_t>;
using Floats = Img<float>;

using RawResize = void (*)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int);
template <_StLanczos1p5x* (*K)(_StLanczos1p5x*, unsigned char*, unsigned char*, int, int)>
void Void(_StLanczos1p5x* c, unsigned char* s, unsigned char* d, int h, int w) {
  K(c, s, d, h, w);
}

TEST(CheckedResize, MatchesRawKernels) {
  struct Case {
    const char* name;
    void (*wrapper)(ConstPlane, Plane);
    RawResize raw;
    int w, h, ow, oh;
  };
  const Case cases[] = {
      {"Lanczos2x", Lanczos2x, Lanczos2x_SingleChannel, 37, 11, 74, 22},
      {"Lanczos1p5x", Lanczos1p5x, Lanczos_1p5x, 37, 11, 55, 16},  // last row unwritten
      {"Lanczos4d3x", Lanczos4d3x, Lanczos_4d3x, 37, 11, 49, 14},
      {"Cubic1p5x", Cubic1p5x, Cubic1p5x_NEON, 36, 9, 54, 13},
      {"Cubic2x", Cubic2x, Cubic2x_NEON, 21, 7, 42, 14},
      {"Linear2x", Linear2x, Void<Linear_2x>, 21, 7, 42, 14},
      {"Linear3x", Linear3x, Void<Linear_3x>, 21, 7, 63, 21},
      {"Linear4x", Linear4x, Void<Linear_4x>, 21, 7, 84, 28},
      {"Linear1p5x", Linear1p5x, Void<Linear_1p5x>, 21, 7, 31, 9},
      {"Linear4d3x", Linear4d3x, Void<Linear_4div3x>, 22, 8, 29, 8},
  };
  for (const Case& c : cases) {
    Bytes src(c.w, c.h), dst(c.ow, c.oh, 1, 3);
    std::vector<uint8_t> in = src.Packed(), want = dst.Packed();
    test::Context ctx;
    ctx.get()->workBuf = new unsigned char[64 * static_cast<size_t>(c.ow)];
    c.raw(ctx.get(), in.data(), want.data(), c.h, c.w);
    c.wrapper(src.v, dst.v);
    dst.Expect(want, c.name);
  }
  Bytes rgb(19, 6, 3), rgb2(38, 12, 3);
  std::vector<uint8_t> in = rgb.Packed(), want(rgb2.Packed().size());
  std::vector<int> ring(48 * 19);
  ResizeLanczos2x_NEON(in.data(), ring.data(), want.data(), 6, 19);
  Lanczos2x(rgb.v, rgb2.v);
  rgb2.Expect(want, "Lanczos2x, three channels");

  // The raw chroma kernel takes strides itself: same strides, same bytes.
  Bytes uv(13, 5, 2), uv2(26, 10, 2), raw(26, 10, 2);
  test::Context ctx;
  Linear_2x_nv(ctx.get(), uv.v.data, raw.v.data, 5, 13, static_cast<int>(uv.v.stride),
               static_cast<int>(raw.v.stride));
  Linear2xNv(uv.v, uv2.v);
  uv2.Expect(raw.Packed(), "Linear2xNv");
}

TEST(CheckedFloat, MatchesRawKernels) {
  Floats src(11, 5, 1, 3, 1000);
  for (int r : {3, 4}) {
    Floats dst(11 * r, 5 * r);
    std::vector<float> in = src.Packed(), want(dst.Packed().size());
    test::Context ctx;
    ctx.get()->floatLineBuf = new unsigned char[8 * 11 * r * sizeof(float)];
    (r == 3 ? Linear_float_3x : Linear_float_4x)(ctx.get(), in.data(), want.data(), 5, 11);
    (r == 3 ? LinearFloat3x : LinearFloat4x)(src.v, dst.v);
    dst.Expect(want, r == 3 ? "LinearFloat3x" : "LinearFloat4x");
  }
  for (int r : {3, 2}) {
    const int w = r == 3 ? 16 : 8;  // whole blocks
    Floats t(r * w, 3, r, 2, 300);
    Bytes dst(r * w, 3 * r);
    std::vector<float> in = t.Packed();
    std::vector<uint8_t> want(dst.Packed().size());
    (r == 3 ? CvtF32ToU8_NHWC_3x3_NEON : CvtF32ToU8_NHWC_2x2_NEON)(in.data(), want.data(), 3, w);
    (r == 3 ? F32ToU8Nhwc3x3 : F32ToU8Nhwc2x2)(t.v, dst.v);
    dst.Expect(want, "F32ToU8Nhwc");
  }
  Bytes b(9, 4, 3), b2(9, 4, 3, 7);
  Floats f(9, 4, 3, 2), f2(9, 4, 3, 2, 600);
  U8ToF32(b.v, f.v);
  F32ToU8(f2.v, b2.v);
  for (int r = 0; r < 4; ++r) {
    for (int x = 0; x < 27; ++x) {
      ASSERT_EQ(f.v.row(r)[x], static_cast<float>(b.v.row(r)[x]));
    }
  }
  std::vector<uint8_t> want(27 * 4);
  CvtF32ToU8_STRIDE(f2.Packed().data(), want.data(), 4, 27, 27, 27);
  b2.Expect(want, "F32ToU8");
  f.Expect(f.Packed(), "U8ToF32 gaps");
}

TEST(CheckedFilter, MatchesRawKernels) {
  Bytes src(22, 7), dst(22, 7), bl(22, 7), shp(22, 7);
  Img<int16_t> guide(22, 7, 1, 4, 4000), lap(22, 7);
  Floats detail(22, 7), gain(22, 7, 1, 2, 3);
  std::vector<uint8_t> in = src.Packed(), want = dst.Packed(), want_bl = bl.Packed();
  std::vector<int16_t> g = guide.Packed(), want_lap(lap.Packed().size());
  std::vector<float> want_detail = detail.Packed();
  test::Context ctx;
  ctx.get()->workBuf = new unsigned char[10 * 22];
  BilateralAllocRows(ctx.get(), 22);
  Boxfilter_AB_NEON(ctx.get(), 0.7f, 0.01f, in.data(), g.data(), want.data(), 7, 22);
  Laplace_NEON(ctx.get(), in.data(), want_lap.data(), 7, 22);
  BL_NEON(ctx.get(), in.data(), want_bl.data(), 7, 22);
  Boxfilter_2even_A_NEON(ctx.get(), in.data(), want_detail.data(), 7, 22);
  GuidedBoxFilter(src.v, guide.v, dst.v, 0.7f, 0.01f);
  Laplacian(src.v, lap.v);
  BilateralFilter(src.v, bl.v);
  BoxDetail(src.v, detail.v);
  dst.Expect(want, "GuidedBoxFilter");  // rows 4..6 untouched on both sides
  lap.Expect(want_lap, "Laplacian");
  bl.Expect(want_bl, "BilateralFilter");
  detail.Expect(want_detail, "BoxDetail");

  std::vector<float> d = detail.Packed(), gn = gain.Packed();
  std::vector<uint8_t> want_shp(22 * 7);
  SharpenProduce_Stride_NEON(d.data(), gn.data(), in.data(), want_shp.data(), 22, 7, 22);
  Sharpen(detail.v, gain.v, src.v, shp.v);
  shp.Expect(want_shp, "Sharpen");
}

TEST(CheckedConvert, MatchesRawKernels) {
  test::Context ctx;
  Bytes rgba(18, 6, 4), y(18, 6), u(9, 3), v(9, 3), a(18, 6), back(18, 6, 4);
  std::vector<uint8_t> in = rgba.Packed(), block(18 * 6 * 5 / 2), want_back(18 * 6 * 4);
  RGBA2I420A_NEON(ctx.get(), in.data(), block.data(), 6, 18);
  RgbaToI420A(rgba.v, y.v, u.v, v.v, a.v);
  y.Expect({block.begin(), block.begin() + 108}, "RgbaToI420A y");
  u.Expect({block.begin() + 108, block.begin() + 135}, "RgbaToI420A u");
  v.Expect({block.begin() + 135, block.begin() + 162}, "RgbaToI420A v");
  a.Expect({block.begin() + 162, block.end()}, "RgbaToI420A a");
  I420A2RGBA_NEON(ctx.get(), block.data(), block.data() + 108, block.data() + 135,
                  block.data() + 162, want_back.data(), 6, 18);
  I420AToRgba(y.v, u.v, v.v, a.v, back.v);
  back.Expect(want_back, "I420AToRgba");

  Floats luma(18, 6);
  Img<int32_t> dr(36, 12), dg(36, 12), db(36, 12);
  Bytes alpha(36, 12), merged(36, 12, 4);
  std::vector<float> want_luma(18 * 6);
  std::vector<int32_t> diff(3 * 36 * 12);
  std::vector<uint8_t> want_alpha(36 * 12), want_merged(36 * 12 * 4);
  RGBA2RGBA_Y_RGBR_NEON(ctx.get(), in.data(), want_luma.data(), diff.data(), want_alpha.data(), 6,
                        18);
  LumaRatioSplit(rgba.v, luma.v, dr.v, dg.v, db.v, alpha.v);
  luma.Expect(want_luma, "LumaRatioSplit luma");
  dr.Expect({diff.begin(), diff.begin() + 432}, "LumaRatioSplit dr");
  dg.Expect({diff.begin() + 432, diff.begin() + 864}, "LumaRatioSplit dg");
  db.Expect({diff.begin() + 864, diff.end()}, "LumaRatioSplit db");
  alpha.Expect(want_alpha, "LumaRatioSplit alpha");
  Floats big(36, 12, 1, 3, 1 << 24);
  std::vector<float> l = big.Packed();
  RGBA2RGBA_F_NEON(want_merged.data(), l.data(), diff.data(), want_alpha.data(), 12, 36);
  LumaRatioMerge(big.v, dr.v, dg.v, db.v, alpha.v, merged.v);
  merged.Expect(want_merged, "LumaRatioMerge");

  // 4:2:0 to VUYA, odd height, with a bottom edge through the wrapper's own copy.
  Bytes ly(10, 5), nv(5, 3, 2), vuya(12, 8, 4), vuya_i(12, 8, 4), cu(5, 3), cv(5, 3);
  std::vector<uint8_t> want_vuya = vuya.Packed(), want_i = want_vuya, planar = cu.Packed();
  const std::vector<uint8_t> pv = cv.Packed();
  planar.insert(planar.end(), pv.begin(), pv.end());
  yuvcpy(ly.Packed().data(), 10, 5, 10, nv.Packed().data(), 5, 3, 10, want_vuya.data(), 12, 8, 48,
         true);
  yuvcpy(ly.Packed().data(), 10, 5, 10, planar.data(), 5, 3, 5, want_i.data(), 12, 8, 48, false);
  Nv12ToVuya(ly.v, nv.v, vuya.v);
  I420ToVuya(ly.v, cu.v, cv.v, vuya_i.v);
  vuya.Expect(want_vuya, "Nv12ToVuya");
  vuya_i.Expect(want_i, "I420ToVuya");

  Bytes crop(7, 3, 4), rgb(10, 5, 3), rgb_i(10, 4, 3), rgb4(10, 5, 4);
  std::vector<uint8_t> want_crop(7 * 3 * 4), want_rgb(10 * 6 * 3), want_rgb_i(10 * 4 * 3);
  std::vector<uint8_t> want_rgb4 = rgb4.Packed(), luma6 = ly.Packed(), i420(20);
  luma6.insert(luma6.end(), luma6.end() - 10, luma6.end());  // the odd height's extra row
  std::memcpy(i420.data(), planar.data(), 10);  // U then V of the top 4 rows, packed
  std::memcpy(i420.data() + 10, pv.data(), 10);
  BGRACrop(rgba.v.row(2) + 4 * 5, want_crop.data(), 0, 0, static_cast<int>(rgba.v.stride), 7, 3,
           28);
  CvtColorNV12ToRGBInterleaved(luma6.data(), 10, nv.Packed().data(), 10, want_rgb.data(), 10, 5);
  CvtColorI420ToRGBInterleaved(luma6.data(), 10, i420.data(), 5, want_rgb_i.data(), 10, 4);
  BgraCrop(rgba.v, 5, 2, crop.v);
  Nv12ToRgb(ly.v, nv.v, rgb.v);
  I420ToRgb({ly.v.data, 10, 4, ly.v.stride}, {cu.v.data, 5, 2, cu.v.stride},
            {cv.v.data, 5, 2, cv.v.stride}, rgb_i.v);
  want_rgb.resize(10 * 5 * 3);
  crop.Expect(want_crop, "BgraCrop");
  rgb.Expect(want_rgb, "Nv12ToRgb");
  rgb_i.Expect(want_rgb_i, "I420ToRgb");
  CvtRGBtoRGBA_lanczos(rgb.Packed().data(), want_rgb4.data(), 10, 5, 40);
  RgbToRgba(rgb.v, rgb4.v);
  rgb4.Expect(want_rgb4, "RgbToRgba");
}

TEST(CheckedRefusals, NameTheArgumentAndTheRule) {
  Bytes b(16, 8), b2(32, 16), uv(8, 4, 2), uv2(16, 8, 2), rgb(16, 8, 3), rgba(16, 8, 4);
  Floats f(16, 8), f3(48, 8, 3);
  Img<int16_t> s(16, 8);
  std::vector<uint8_t> wide(10241), wider(2 * 20482);
  auto with = [](auto v, auto edit) { edit(v); return v; };
  const std::vector<std::pair<std::function<void()>, std::string>> cases = {
      {[&] { Lanczos2x(b.v, with(b2.v, [](auto& p) { p.width = 31; })); },
       "Lanczos2x: dst.width must be 2 * src.width (32), got 31"},
      {[&] { Linear2xNv(b.v, uv2.v); }, "Linear2xNv: src.channels must be 2 (Cb/Cr pairs), got 1"},
      {[&] { Linear2xNv(uv.v, with(uv2.v, [](auto& p) { p.stride = 20482; })); },
       "dst.stride must be at most 20480"},
      {[&] { Cubic2x(with(b.v, [](auto& p) { p.data = nullptr; }), b2.v); },
       "Cubic2x: src.data must not be null"},
      {[&] { Linear3x(with(b.v, [](auto& p) { p.stride = 15; }), b2.v); },
       "Linear3x: src.stride must be at least width * channels (16), got 15"},
      {[&] { Linear4x(with(b.v, [](auto& p) { p.height = 0; }), b2.v); },
       "Linear4x: src.height must be at least 1"},
      {[&] {
         Linear2x(ConstPlane(wide.data(), 10241, 1, 10241), Plane(wider.data(), 20482, 2, 20482));
       },
       "Linear2x: dst.width must be at most 20480"},
      {[&] { Linear1p5x(with(b.v, [](auto& p) { p.width = 1; }), b2.v); },
       "Linear1p5x: src.width must be at least 2"},
      {[&] { Lanczos1p5x(b.v, b.v); }, "Lanczos1p5x: dst.width must be floor(1.5 * src.width)"},
      {[&] { Lanczos2x(rgba.v, b2.v); }, "Lanczos2x: src.channels must be 1 or 3, got 4"},
      {[&] { Lanczos2x(b.v, with(b2.v, [&](auto& p) { p.data = b.v.data + 8; })); },
       "Lanczos2x: src and dst must not overlap"},
      {[&] { LinearFloat3x(f.v, f.v); }, "LinearFloat3x: dst.width must be 3 * src.width"},
      {[&] { F32ToU8Nhwc3x3(with(f3.v, [](auto& p) { p.width = 36; }), b.v); },
       "F32ToU8Nhwc3x3: src.width must be a multiple of 24"},
      {[&] { U8ToF32(rgb.v, f.v); }, "U8ToF32: dst.channels must be 3 (src.channels), got 1"},
      {[&] { GuidedBoxFilter(b.v, s.v, b2.v, 1, 1); },
       "GuidedBoxFilter: dst.width must be src.width"},
      {[&] {
         Bytes d(16, 8);
         GuidedBoxFilter(b.v, s.v, d.v, 1e38f, 1);
       },
       "GuidedBoxFilter: a must be finite with |a| * 2295 finite"},
      {[&] { BoxDetail(with(b.v, [](auto& p) { p.width = 15; }), f.v); },
       "BoxDetail: src.width must be even"},
      {[&] { BilateralFilter(with(b.v, [](auto& p) { p.height = 3; }), b2.v); },
       "BilateralFilter: src.height must be at least 4, got 3"},
      {[&] { Laplacian(b.v, with(s.v, [](auto& p) { p.channels = 2; })); },
       "Laplacian: dst.channels must be 1, got 2"},
      {[&] { Sharpen(f.v, f.v, b.v, b.v); }, "Sharpen: src and dst must not overlap"},
      {[&] { RgbaToI420A(with(rgba.v, [](auto& p) { p.width = 15; }), b.v, uv.v, uv.v, b.v); },
       "RgbaToI420A: rgba.width must be even"},
      {[&] { I420ToRgb(b.v, b.v, b.v, rgb.v); },
       "I420ToRgb: u.width must be y.width / 2 (8), got 16"},
      {[&] { Nv12ToVuya(with(b.v, [](auto& p) { p.width = 15; }), uv.v, rgba.v); },
       "Nv12ToVuya: y.width must be even"},
      {[&] { BgraCrop(rgba.v, 1, 0, rgba.v); },
       "BgraCrop: x must be 0 .. src.width - dst.width (0), got 1"},
      {[&] { RgbToRgba(rgb.v, with(rgba.v, [](auto& p) { p.stride = INT32_MAX + 1LL; })); },
       "RgbToRgba: dst.stride must be at most INT_MAX"},
      {[&] { LumaRatioMerge(f.v, {}, {}, {}, b.v, rgba.v); },
       "LumaRatioMerge: dr.data must not be null"},
  };
  for (const auto& [call, message] : cases) {
    try {
      call();
      ADD_FAILURE() << "no refusal, expected: " << message;
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(message), std::string::npos)
          << "got: " << e.what() << "\nexpected: " << message;
    }
  }
}

}  // namespace
}  // namespace vorlith::checked
