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
// reciprocal is normal, 2^-126 <= |x| < 2^125, the range the kernels use.
// With a the operand's 1 + 8 top significand bits and e its biased exponent,
// FRECPE gives (-1)^s 2^(126 - e) r / 256 where r = floor((floor(2^19 / m) +
// 1) / 2), m = 2a + 1 odd in 513..1023: that is r = 2^18 / m rounded to
// nearest, since 2^19 / m is never within 1/1023 of an integer (so 2^18 / m
// is never within 1/2046 of a half). A float quotient good to 2^-21 (511
// times that is below 1/2046) rounds to r; the tests check all 256 values of
// a per target. m and the quotient are formed in float lanes, which keeps
// the chain of dependent steps short: in the kernels it follows a long sum.
template <class DF>
HWY_INLINE hn::Vec<DF> RecipEstimate(DF df, hn::Vec<DF> x) {
#if HWY_TARGET == HWY_NEON || HWY_TARGET == HWY_SVE || HWY_TARGET == HWY_SVE2 || \
    HWY_TARGET == HWY_SVE_256 || HWY_TARGET == HWY_SVE2_128
  (void)df;
  return hn::ApproximateReciprocal(x);
#else
  const hn::RebindToUnsigned<DF> du;
  const auto bits = hn::BitCast(du, x);
  // m = 512 (1 + f / 256) + 1 for the top 8 fraction bits f: exact.
  const auto fraction = hn::And(bits, hn::Set(du, 0x007F8000u));
  const auto one_f = hn::BitCast(df, hn::Or(fraction, hn::Set(du, 0x3F800000u)));
  const auto m = hn::MulAdd(one_f, hn::Set(df, 512.0f), hn::Set(df, 1.0f));
  // 2^18 / m by the target's reciprocal estimate and one Newton step.
  const auto inv = hn::ApproximateReciprocal(m);
  const auto q =
      hn::Mul(hn::Mul(hn::Set(df, 262144.0f), inv), hn::NegMulAdd(m, inv, hn::Set(df, 2.0f)));
  const auto sign = hn::And(bits, hn::Set(du, 0x80000000u));
  const auto biased = hn::And(bits, hn::Set(du, 0x7F800000u));  // e << 23
#if HWY_TARGET == HWY_AVX2
  // (253 - e) << 23 | (r - 256) << 15 is (252 - e) << 23 plus r << 15. In
  // integer lanes: the 256-bit bilateral loop is bound by its gathers, and
  // this form measured faster there than the float one below.
  const auto exp = hn::Sub(hn::Set(du, 0x7E000000u), biased);
  const auto r = hn::BitCast(du, hn::NearestInt(q));
  return hn::BitCast(df, hn::Or(hn::Add(exp, hn::ShiftLeft<15>(r)), sign));
#else
  // r / 256 times +-2^(126 - e), which has 253 - e in its exponent field.
  const auto scale = hn::Or(hn::Sub(hn::Set(du, 0x7E800000u), biased), sign);
  return hn::Mul(hn::Mul(hn::Round(q), hn::Set(df, 1.0f / 256.0f)), hn::BitCast(df, scale));
#endif
#endif
}

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#endif  // include guard
