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

}  // namespace HWY_NAMESPACE
}  // namespace vorlith
HWY_AFTER_NAMESPACE();

#endif  // include guard
