// Per-target pieces shared by the Lanczos and bicubic resamplers: the
// vertical pass (one or two output rows from one ring state) and the row ring
// that feeds it.
#if defined(VORLITH_SRC_KERNELS_RESIZE_RESAMPLE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VORLITH_SRC_KERNELS_RESIZE_RESAMPLE_INL_H_
#undef VORLITH_SRC_KERNELS_RESIZE_RESAMPLE_INL_H_
#else
#define VORLITH_SRC_KERNELS_RESIZE_RESAMPLE_INL_H_
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "src/kernels/resize/resample_common.h"

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Vector part of the block rule: values [i, body) in whole vectors of `d`.
// With two tap sets the ring rows are loaded once for both output rows.
template <size_t kTaps, bool kTwo, class D>
HWY_INLINE size_t VerticalBlocks(D d, const int32_t* const* rows, const int16_t* taps0,
                                 uint8_t* dst0, const int16_t* taps1, uint8_t* dst1, size_t i,
                                 size_t body) {
  const hn::Rebind<float, D> df;
  const hn::Rebind<uint8_t, D> d8;
  const size_t n = hn::Lanes(d);
  const auto scale = hn::Set(df, resample::kQ22InvF);
  const auto half = hn::Set(df, 0.5f);
  for (; i + n <= body; i += n) {
    auto x = hn::LoadU(d, rows[0] + i);
    auto acc0 = hn::Mul(x, hn::Set(d, int32_t{taps0[0]}));
    auto acc1 = acc0;
    if constexpr (kTwo) acc1 = hn::Mul(x, hn::Set(d, int32_t{taps1[0]}));
    for (size_t k = 1; k < kTaps; ++k) {
      x = hn::LoadU(d, rows[k] + i);
      acc0 = hn::Add(acc0, hn::Mul(x, hn::Set(d, int32_t{taps0[k]})));
      if constexpr (kTwo) acc1 = hn::Add(acc1, hn::Mul(x, hn::Set(d, int32_t{taps1[k]})));
    }
    // |acc| * 2^-22 <= 512, so the truncating conversion is exact on every
    // target and the saturating demotion is the byte clamp.
    const auto y0 = hn::ConvertTo(d, hn::Add(hn::Mul(hn::ConvertTo(df, acc0), scale), half));
    hn::StoreU(hn::DemoteTo(d8, y0), d8, dst0 + i);
    if constexpr (kTwo) {
      const auto y1 = hn::ConvertTo(d, hn::Add(hn::Mul(hn::ConvertTo(df, acc1), scale), half));
      hn::StoreU(hn::DemoteTo(d8, y1), d8, dst1 + i);
    }
  }
  return i;
}

template <size_t kTaps, bool kTwo>
HWY_INLINE void VerticalRowsImpl(const int32_t* const* rows, const int16_t* taps0, uint8_t* dst0,
                                 const int16_t* taps1, uint8_t* dst1, size_t body,
                                 size_t count) {
  size_t i = VerticalBlocks<kTaps, kTwo>(hn::ScalableTag<int32_t>(), rows, taps0, dst0, taps1,
                                         dst1, 0, body);
  i = VerticalBlocks<kTaps, kTwo>(hn::CappedTag<int32_t, 8>(), rows, taps0, dst0, taps1, dst1, i,
                                  body);
  // Vector lengths that do not divide 8 (scalable vectors) leave a few block
  // values; they take the same single-precision rule one at a time.
  for (; i < body; ++i) {
    dst0[i] = resample::RoundBlock(resample::VerticalAcc(rows, taps0, kTaps, i));
    if constexpr (kTwo) dst1[i] = resample::RoundBlock(resample::VerticalAcc(rows, taps1, kTaps, i));
  }
  for (; i < count; ++i) {
    dst0[i] = resample::RoundRemainder(resample::VerticalAcc(rows, taps0, kTaps, i));
    if constexpr (kTwo) {
      dst1[i] = resample::RoundRemainder(resample::VerticalAcc(rows, taps1, kTaps, i));
    }
  }
}

// Output values [0, body) by the block rule (single precision), [body, count)
// by the remainder rule (double precision). dst1 may be null.
template <size_t kTaps>
HWY_NOINLINE void VerticalRows(const int32_t* const* rows, const int16_t* taps0, uint8_t* dst0,
                               const int16_t* taps1, uint8_t* dst1, size_t body, size_t count) {
  if (body > count) body = count;
  if (dst1 != nullptr) {
    VerticalRowsImpl<kTaps, true>(rows, taps0, dst0, taps1, dst1, body, count);
  } else {
    VerticalRowsImpl<kTaps, false>(rows, taps0, dst0, nullptr, nullptr, body, count);
  }
}

// The exported vertical passes: counts as the callers pass them, negative
// counts meaning none.
template <size_t kTaps>
HWY_INLINE void VerticalPass(const int32_t* const* ring, const int32_t* index,
                             const int16_t* taps, uint8_t* dst, int blocks8, int rest) {
  const int32_t* rows[kTaps];
  for (size_t k = 0; k < kTaps; ++k) rows[k] = ring[index[k]];
  const size_t body = blocks8 > 0 ? 8 * static_cast<size_t>(blocks8) : 0;
  const size_t count = body + (rest > 0 ? static_cast<size_t>(rest) : 0);
  VerticalRows<kTaps>(rows, taps, dst, nullptr, nullptr, body, count);
}

// One output row that a ring state completes: its index and vertical taps.
struct PlannedRow {
  ptrdiff_t row;
  const int16_t* taps;
};

// Where the output rows of one ring state go and how they are rounded.
struct OutputRows {
  uint8_t* dst;
  size_t stride;       // bytes between output rows
  ptrdiff_t rows;      // output rows to write
  size_t body;         // values per row taking the block rule
  size_t count;        // values per row
};

// Writes the planned rows (at most two, in ascending order) that fall inside
// the output; returns the index of the row after the last one planned.
template <size_t kTaps>
HWY_INLINE ptrdiff_t WritePlanned(const int32_t* const* rows, const OutputRows& out,
                                  PlannedRow a, PlannedRow b) {
  const bool has_a = a.taps != nullptr && a.row >= 0 && a.row < out.rows;
  const bool has_b = b.taps != nullptr && b.row >= 0 && b.row < out.rows;
  auto at = [&](ptrdiff_t row) { return out.dst + static_cast<size_t>(row) * out.stride; };
  if (has_a && has_b) {
    VerticalRows<kTaps>(rows, a.taps, at(a.row), b.taps, at(b.row), out.body, out.count);
  } else if (has_a || has_b) {
    const PlannedRow r = has_a ? a : b;
    VerticalRows<kTaps>(rows, r.taps, at(r.row), nullptr, nullptr, out.body, out.count);
  }
  return (b.taps != nullptr ? b.row : a.row) + 1;
}

// Drives a ring of kSlots intermediate rows over `rows_in` source rows.
// Virtual source row v stands for row clamp(v); the ring first spans virtual
// rows -kSlots/2 .. kSlots/2-1 (row 0 filtered into kSlots/2+1 buffers).
// Each next virtual row below rows_in is filtered into the buffer named by
// index[0] and the indices rotate left; past the last row the indices shift
// left keeping the last, which replicates the bottom row without filtering.
// After each step kernel.Emit(v, rows) writes the output rows that the ring,
// now spanning v-kSlots+1 .. v, completes and returns the next row to come;
// the loop ends once every output row is written.
//
// Kernel: void Filter(ptrdiff_t source_row, int32_t* dst) const;
//         ptrdiff_t Emit(ptrdiff_t v, const int32_t* const* rows) const.
template <size_t kSlots, class Kernel>
HWY_INLINE void RunRing(int32_t* index, int32_t* buffers, size_t row_values, ptrdiff_t rows_in,
                        ptrdiff_t rows_out, const Kernel& kernel) {
  constexpr ptrdiff_t kHalf = static_cast<ptrdiff_t>(kSlots / 2);
  for (size_t k = 0; k < kSlots; ++k) index[k] = static_cast<int32_t>(k);
  for (size_t k = 0; k < kSlots; ++k) {
    kernel.Filter(resample::Clamp(static_cast<ptrdiff_t>(k) - kHalf, rows_in),
                  buffers + k * row_values);
  }
  const int32_t* rows[kSlots];
  ptrdiff_t next = 0;
  for (ptrdiff_t v = kHalf - 1; next < rows_out; ++v) {
    if (v >= kHalf) {
      const int32_t oldest = index[0];
      for (size_t k = 0; k + 1 < kSlots; ++k) index[k] = index[k + 1];
      if (v < rows_in) {
        kernel.Filter(v, buffers + static_cast<size_t>(oldest) * row_values);
        index[kSlots - 1] = oldest;
      }
    }
    for (size_t k = 0; k < kSlots; ++k) rows[k] = buffers + static_cast<size_t>(index[k]) * row_values;
    next = kernel.Emit(v, rows);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#endif  // include guard
