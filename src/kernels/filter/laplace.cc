// 4-neighbour Laplacian of a byte plane into int16, edges replicated. Each
// row's horizontal pair sums go to one scratch row, then one vertical pass
// adds the rows above and below; all of it exact in 16 bits.

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "src/kernels/filter/laplace.cc"
#include <hwy/foreach_target.h>  // IWYU pragma: keep
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "vorlith/filter.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// hsum(x) = s(x-1) + s(x+1) over a row of n >= 1 samples.
void HPairs(const uint8_t* HWY_RESTRICT s, int16_t* HWY_RESTRICT h, size_t n) {
  if (n == 1) {
    h[0] = static_cast<int16_t>(2 * s[0]);
    return;
  }
  h[0] = static_cast<int16_t>(s[0] + s[1]);
  size_t x = 1;
#if HWY_TARGET != HWY_SCALAR
  const hn::ScalableTag<uint16_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  for (const size_t step = hn::Lanes(d); x + step + 1 <= n; x += step) {
    const auto sum = hn::Add(hn::PromoteTo(d, hn::LoadU(d8, s + x - 1)),
                             hn::PromoteTo(d, hn::LoadU(d8, s + x + 1)));
    hn::StoreU(hn::BitCast(hn::RebindToSigned<decltype(d)>(), sum),
               hn::RebindToSigned<decltype(d)>(), h + x);
  }
#endif
  for (; x + 1 < n; ++x) h[x] = static_cast<int16_t>(s[x - 1] + s[x + 1]);
  h[n - 1] = static_cast<int16_t>(s[n - 2] + s[n - 1]);
}

// dst = hsum + up + down - 4 centre.
void VCombine(const uint8_t* up, const uint8_t* centre, const uint8_t* down, const int16_t* hsum,
              int16_t* dst, size_t n) {
  size_t x = 0;
  const hn::ScalableTag<int16_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const hn::RebindToUnsigned<decltype(d)> du;
  auto load = [&](const uint8_t* p) { return hn::BitCast(d, hn::PromoteTo(du, hn::LoadU(d8, p))); };
  for (const size_t step = hn::Lanes(d); x + step <= n; x += step) {
    const auto ud = hn::Add(load(up + x), load(down + x));
    const auto c4 = hn::ShiftLeft<2>(load(centre + x));
    hn::StoreU(hn::Sub(hn::Add(hn::LoadU(d, hsum + x), ud), c4), d, dst + x);
  }
  for (; x < n; ++x) dst[x] = static_cast<int16_t>(hsum[x] + up[x] + down[x] - 4 * centre[x]);
}

void LaplacePlane(int16_t* hsum, const uint8_t* src, int16_t* dst, int height, int width) {
  if (height < 1 || width < 1) return;
  const size_t w = static_cast<size_t>(width);
  for (int y = 0; y < height; ++y) {
    const uint8_t* row = src + y * w;
    HPairs(row, hsum, w);
    VCombine(y > 0 ? row - w : row, row, y + 1 < height ? row + w : row, hsum, dst + y * w, w);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vorlith {
HWY_EXPORT(HPairs);
HWY_EXPORT(VCombine);
HWY_EXPORT(LaplacePlane);
}  // namespace vorlith

void Laplace_NEON(_StLanczos1p5x* ctx, unsigned char* src, short* dst, int height, int width) {
  HWY_DYNAMIC_DISPATCH(vorlith::LaplacePlane)(reinterpret_cast<int16_t*>(ctx->workBuf), src, dst,
                                              height, width);
}

void HLaplace_NEON(unsigned char* src, short* hsum, int nvec, int ntail) {
  HWY_DYNAMIC_DISPATCH(vorlith::HPairs)(src, hsum, static_cast<size_t>(2 + 8 * nvec + ntail));
}

void VLaplace_NEON(unsigned char* up, unsigned char* centre, unsigned char* down, short* hsum,
                   short* dst, int nvec, int ntail) {
  HWY_DYNAMIC_DISPATCH(vorlith::VCombine)(up, centre, down, hsum, dst,
                                          static_cast<size_t>(16 * nvec + ntail));
}
#endif  // HWY_ONCE
