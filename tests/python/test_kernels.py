"""vorlith.kernels: every family reachable on arrays, with what a user sees
(shape, dtype, a flat plane staying flat); the arithmetic is proved against
the raw kernels and their oracles in the C++ suites. Bad arrays refused."""
import numpy as np
import pytest

from vorlith import kernels as k


def flat(shape, value=77, dtype=np.uint8):
    return np.full(shape, value, dtype)


F, I16, I32 = np.float32, np.int16, np.int32
CALLS = [  # function, its arguments, the first output's shape and dtype, whether a flat input stays flat
    ("lanczos_2x", [flat((20, 30))], (40, 60), np.uint8, True),
    ("lanczos_2x", [flat((20, 30, 3))], (40, 60, 3), np.uint8, True),
    ("lanczos_1p5x", [flat((20, 30))], (30, 45), np.uint8, True),
    ("cubic_1p5x", [flat((20, 30))], (30, 45), np.uint8, True),
    ("lanczos_4d3x", [flat((21, 30))], (28, 40), np.uint8, True),
    ("cubic_2x", [flat((20, 30))], (40, 60), np.uint8, True),
    ("linear_2x", [flat((20, 30))], (40, 60), np.uint8, True),
    ("linear_3x", [flat((20, 30))], (60, 90), np.uint8, True),
    ("linear_4x", [flat((20, 30))], (80, 120), np.uint8, True),
    ("linear_1p5x", [flat((20, 30))], (30, 45), np.uint8, True),
    ("linear_4d3x", [flat((21, 30))], (28, 40), np.uint8, True),
    ("linear_2x_nv", [flat((10, 15, 2))], (20, 30, 2), np.uint8, True),
    ("linear_float_3x", [flat((5, 7), 2.5, F)], (15, 21), F, True),
    ("linear_float_4x", [flat((5, 7), 2.5, F)], (20, 28), F, True),
    ("f32_to_u8_nhwc_3x3", [flat((4, 24, 3), 9, F)], (12, 24), np.uint8, True),
    ("f32_to_u8_nhwc_2x2", [flat((4, 16, 2), 9, F)], (8, 16), np.uint8, True),
    ("u8_to_f32", [flat((9, 17, 3))], (9, 17, 3), F, True),
    ("f32_to_u8", [flat((9, 17), 77, F)], (9, 17), np.uint8, True),
    ("guided_box_filter", [flat((16, 32)), flat((16, 32), 0, I16), 0.5, 0.25], (16, 32), np.uint8, False),
    ("laplacian", [flat((16, 32))], (16, 32), I16, False),
    ("bilateral_filter", [flat((16, 32))], (16, 32), np.uint8, True),
    ("box_detail", [flat((16, 32))], (16, 32), F, False),
    ("sharpen", [flat((16, 32), 0, F), flat((16, 32), 1, F), flat((16, 32))], (16, 32), np.uint8, True),
    ("rgba_to_i420a", [flat((8, 10, 4))], (8, 10), np.uint8, True),
    ("i420a_to_rgba", [flat((8, 10)), flat((4, 5)), flat((4, 5)), flat((8, 10))], (8, 10, 4), np.uint8, False),
    ("luma_ratio_split", [flat((6, 8, 4))], (6, 8), F, True),
    ("luma_ratio_merge", [flat((6, 8), 1, F)] + [flat((6, 8), 0, I32)] * 3 + [flat((6, 8))], (6, 8, 4), np.uint8, False),
    ("nv12_to_vuya", [flat((6, 8)), flat((3, 4, 2))], (6, 8, 4), np.uint8, False),
    ("i420_to_vuya", [flat((6, 8)), flat((3, 4)), flat((3, 4))], (6, 8, 4), np.uint8, False),
    ("bgra_crop", [flat((10, 12, 4)), 3, 2, 5, 4], (4, 5, 4), np.uint8, True),
    ("nv12_to_rgb", [flat((6, 8), 126), flat((3, 4, 2), 128)], (6, 8, 3), np.uint8, True),
    ("i420_to_rgb", [flat((6, 8), 126), flat((3, 4), 128), flat((3, 4), 128)], (6, 8, 3), np.uint8, True),
    ("rgb_to_rgba", [flat((3, 20, 3))], (3, 20, 4), np.uint8, False),
]


@pytest.mark.parametrize("name, args, shape, dtype, stays_flat", CALLS, ids=[c[0] for c in CALLS])
def test_every_kernel_on_arrays(name, args, shape, dtype, stays_flat):
    out = getattr(k, name)(*args)
    first = out[0] if isinstance(out, tuple) else out
    assert first.shape == shape and first.dtype == dtype
    if stays_flat:
        assert np.ptp(first) == 0


def test_strided_arrays_are_read_as_they_are():
    wide = np.random.default_rng(5).integers(0, 256, (20, 60), dtype=np.uint8)
    assert np.array_equal(k.lanczos_2x(wide[::-1, ::2]), k.lanczos_2x(np.ascontiguousarray(wide[::-1, ::2])))
    image = np.random.default_rng(6).integers(0, 256, (10, 12, 4), dtype=np.uint8)
    assert np.array_equal(k.bgra_crop(image, 3, 2, 5, 4), image[2:6, 3:8])


@pytest.mark.parametrize("call, error, words", [
    (lambda: k.lanczos_2x(np.zeros((4, 4), np.float32)), TypeError, "src must have dtype uint8"),
    (lambda: k.lanczos_2x(np.zeros((4, 4, 2), np.uint8)), ValueError, "src.channels must be 1 or 3"),
    (lambda: k.linear_float_3x(np.zeros((4, 4), np.uint8)), TypeError, "dtype float32"),
    (lambda: k.linear_2x_nv(np.zeros((4, 4), np.uint8)), ValueError, "must have 2 channel"),
    (lambda: k.linear_1p5x(np.zeros((1, 4), np.uint8)), ValueError, "too small"),
    (lambda: k.rgba_to_i420a(np.zeros((3, 4, 4), np.uint8)), ValueError, "even"),
    (lambda: k.guided_box_filter(np.zeros((8, 9), np.uint8), np.zeros((8, 9), np.int16), 1, 1), ValueError, "even"),
    (lambda: k.sharpen(np.zeros((4, 4), np.float32), np.zeros((4, 5), np.float32), np.zeros((4, 4), np.uint8)),
     ValueError, "gain"),
    (lambda: k.bgra_crop(np.zeros((4, 4, 4), np.uint8), 2, 2, 3, 3), ValueError, r"x must be 0 \.\. src.width"),
    (lambda: k.u8_to_f32(np.zeros((2, 3, 4, 5), np.uint8)), ValueError, "2-D"),
    (lambda: k.laplacian("not an array"), TypeError, "numpy array"),
])
def test_refuses_bad_arrays(call, error, words):
    with pytest.raises(error, match=words):
        call()
