// Vector counterparts of arm_numerics.h, for every Highway target. x86 and the
// portable targets have no single instruction with the Arm result, so the
// saturation and NaN rules are applied with masks; on NEON they fold away.
#if defined(VORLITH_SRC_KERNELS_ARM_NUMERICS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef VORLITH_SRC_KERNELS_ARM_NUMERICS_INL_H_
#undef VORLITH_SRC_KERNELS_ARM_NUMERICS_INL_H_
#else
#define VORLITH_SRC_KERNELS_ARM_NUMERICS_INL_H_
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace vorlith {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// FCVTZS on int32 lanes: truncate toward zero, saturate, NaN gives 0.
template <class DI, class VF>
HWY_INLINE hn::Vec<DI> TruncToI32Sat(DI di, VF x) {
  const hn::Rebind<float, DI> df;
  const auto too_big = hn::Ge(x, hn::Set(df, 2147483648.0f));
  // Clear NaN first: x86 min/max return their second operand for NaN. Eq,
  // not Ne: Highway 1.0.3's 256- and 512-bit Ne is an ordered compare, false
  // for NaN.
  VF safe = hn::IfThenElseZero(hn::Eq(x, x), x);
  // 2147483520 is the largest float below 2^31, so the conversion below never
  // leaves the int32 range on any target.
  safe = hn::Min(hn::Max(safe, hn::Set(df, -2147483648.0f)), hn::Set(df, 2147483520.0f));
  return hn::IfThenElse(hn::RebindMask(di, too_big), hn::Set(di, 2147483647),
                        hn::ConvertTo(di, safe));
}

// XTN to int16 then SQXTUN to uint8, on int32 lanes: keep the low 16 bits,
// read them as signed, clamp to 0..255. The result is still in int32 lanes.
template <class DI>
HWY_INLINE hn::Vec<DI> Low16SignedToU8Range(DI di, hn::Vec<DI> v) {
  const auto low = hn::And(v, hn::Set(di, 0xFFFF));
  const auto clamped = hn::Min(low, hn::Set(di, 255));
  return hn::IfThenZeroElse(hn::Gt(low, hn::Set(di, 32767)), clamped);
}


// FRECPE on float lanes. NEON and SVE have the instruction; elsewhere this is
// its definition (see RecipEstimate in arm_numerics.h) for normal inputs whose
// reciprocal is normal, 2^-126 <= |x| < 2^125, the range the kernels use. The
// integer division of RecipEstimate, floor(2^19 / (2a + 1)) for odd 2a + 1 in
// 513..1023, is never within 1/1023 of an integer, so a float quotient good
// to 2^-21 truncates to it; the tests check all 256 values of a per target.
template <class DF>
HWY_INLINE hn::Vec<DF> RecipEstimate(DF df, hn::Vec<DF> x) {
#if HWY_TARGET == HWY_NEON || HWY_TARGET == HWY_SVE || HWY_TARGET == HWY_SVE2 || \
    HWY_TARGET == HWY_SVE_256 || HWY_TARGET == HWY_SVE2_128
  (void)df;
  return hn::ApproximateReciprocal(x);
#else
  const hn::RebindToUnsigned<DF> du;
  const hn::RebindToSigned<DF> di;
  const auto bits = hn::BitCast(du, x);
  const auto exp = hn::And(hn::ShiftRight<23>(bits), hn::Set(du, 0xFFu));
  const auto a = hn::Or(hn::And(hn::ShiftRight<15>(bits), hn::Set(du, 0xFFu)), hn::Set(du, 256u));
  const auto odd = hn::Add(hn::Add(a, a), hn::Set(du, 1u));
  // 2^19 / odd by the target's reciprocal estimate and one Newton step: its
  // error (below 2^-21 relative) stays under the distance to the next integer.
  const auto m = hn::ConvertTo(df, hn::BitCast(di, odd));
  auto inv = hn::ApproximateReciprocal(m);
  inv = hn::Mul(inv, hn::Sub(hn::Set(df, 2.0f), hn::Mul(m, inv)));
  const auto q = hn::Mul(hn::Set(df, 524288.0f), inv);
  const auto b = hn::BitCast(du, hn::ConvertTo(di, q));
  const auto r = hn::ShiftRight<1>(hn::Add(b, hn::Set(du, 1u)));
  const auto result = hn::Or(hn::And(bits, hn::Set(du, 0x80000000u)),
                             hn::Or(hn::ShiftLeft<23>(hn::Sub(hn::Set(du, 253u), exp)),
                                    hn::ShiftLeft<15>(hn::And(r, hn::Set(du, 0xFFu)))));
  return hn::BitCast(df, result);
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#endif  // include guard
