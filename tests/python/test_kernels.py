"""vorlith.kernels: every family reachable on arrays, with its plumbing
checked by what a user can see (the arithmetic is proved against oracles in
the C++ suites), and bad arrays refused."""
import numpy as np
import pytest

from vorlith import kernels as k

RNG = np.random.default_rng(5)


def u8(*shape):
    return RNG.integers(0, 256, shape, dtype=np.uint8)


def uniform(shape, value, dtype=np.uint8):
    return np.full(shape, value, dtype)


# Resamplers: output size, and a uniform plane stays uniform.
@pytest.mark.parametrize("name, shape, out_shape", [
    ("lanczos_2x", (20, 30), (40, 60)), ("lanczos_2x", (20, 30, 3), (40, 60, 3)),
    ("lanczos_1p5x", (20, 30), (30, 45)), ("cubic_1p5x", (20, 30), (30, 45)),
    ("lanczos_4d3x", (21, 30), (28, 40)), ("cubic_2x", (20, 30), (40, 60)),
    ("linear_2x", (20, 30), (40, 60)), ("linear_3x", (20, 30), (60, 90)), ("linear_4x", (20, 30), (80, 120)),
    ("linear_1p5x", (20, 30), (30, 45)), ("linear_4d3x", (21, 30), (28, 40)),
    ("linear_2x_nv", (10, 15, 2), (20, 30, 2)),
])
def test_resamplers(name, shape, out_shape):
    out = getattr(k, name)(uniform(shape, 77))
    assert out.shape == out_shape and out.dtype == np.uint8
    assert np.all(out == 77)
    assert getattr(k, name)(u8(*shape)).shape == out_shape


def test_float_planes_and_shuffles():
    plane = u8(9, 17)
    floats = k.u8_to_f32(plane)
    assert floats.dtype == np.float32 and np.array_equal(floats, plane.astype(np.float32))
    assert np.array_equal(k.f32_to_u8(floats), plane)
    assert np.all(k.linear_float_3x(uniform((5, 7), 2.5, np.float32)) == 2.5)
    assert k.linear_float_4x(floats).shape == (36, 68)
    # Pixel shuffles: every value lands somewhere in the r-times taller plane.
    out = k.f32_to_u8_nhwc_3x3(uniform((4, 24, 3), 9.0, np.float32))
    assert out.shape == (12, 24) and np.all(out == 9)
    assert k.f32_to_u8_nhwc_2x2(RNG.integers(0, 256, (4, 16, 2)).astype(np.float32)).shape == (8, 16)


def test_filters():
    flat = uniform((16, 32), 90)
    assert np.all(k.bilateral_filter(flat) == 90)
    assert np.all(k.laplacian(flat) == 0) and k.laplacian(flat).dtype == np.int16
    assert k.guided_box_filter(u8(16, 32), np.zeros((16, 32), np.int16), 0.5, 0.25).shape == (16, 32)
    detail = k.box_detail(flat)
    assert detail.dtype == np.float32 and np.allclose(detail, 0)
    gain = np.ones((16, 32), np.float32)
    assert np.array_equal(k.sharpen(np.zeros((16, 32), np.float32), gain, flat), flat)


def test_colour_and_layout():
    white = uniform((8, 10, 4), 255)
    y, u, v, a = k.rgba_to_i420a(white)
    assert np.all(y == 235) and np.all(u == 128) and np.all(v == 128) and np.all(a == 255)
    assert k.i420a_to_rgba(y, u, v, a).shape == (8, 10, 4)
    luma, dr, dg, db, alpha = k.luma_ratio_split(u8(6, 8, 4))
    assert luma.shape == (6, 8) and dr.shape == (12, 16) and dr.dtype == np.int32 and alpha.shape == (12, 16)
    assert k.luma_ratio_merge(luma, dr[:6, :8], dg[:6, :8], db[:6, :8], alpha[:6, :8]).shape == (6, 8, 4)
    grey_y, neutral = uniform((6, 8), 126), uniform((3, 4, 2), 128)
    assert np.all(k.nv12_to_vuya(grey_y, neutral)[..., 2] == 126)
    assert k.i420_to_vuya(grey_y, neutral[..., 0].copy(), neutral[..., 1].copy()).shape == (6, 8, 4)
    assert np.ptp(k.nv12_to_rgb(grey_y, neutral)) == 0
    assert np.ptp(k.i420_to_rgb(grey_y, neutral[..., 0].copy(), neutral[..., 1].copy())) == 0
    image = u8(10, 12, 4)
    assert np.array_equal(k.bgra_crop(image, 3, 2, 5, 4), image[2:6, 3:8])
    rgba = k.rgb_to_rgba(u8(3, 20, 3))
    assert rgba.shape == (3, 20, 4) and np.all(rgba[..., 3] == 255)


@pytest.mark.parametrize("call, error, words", [
    (lambda: k.lanczos_2x(np.zeros((4, 4), np.float32)), TypeError, "src must have dtype uint8"),
    (lambda: k.lanczos_2x(np.zeros((4, 4, 2), np.uint8)), ValueError, "src.channels must be 1 or 3"),
    (lambda: k.linear_float_3x(np.zeros((4, 4), np.uint8)), TypeError, "dtype float32"),
    (lambda: k.linear_2x_nv(np.zeros((4, 4), np.uint8)), ValueError, "must have 2 channel"),
    (lambda: k.linear_1p5x(np.zeros((1, 4), np.uint8)), ValueError, "too small"),
    (lambda: k.rgba_to_i420a(np.zeros((3, 4, 4), np.uint8)), ValueError, "even"),
    (lambda: k.bilateral_filter(np.zeros((2, 8), np.uint8)), ValueError, "height"),
    (lambda: k.guided_box_filter(np.zeros((8, 9), np.uint8), np.zeros((8, 9), np.int16), 1, 1), ValueError, "even"),
    (lambda: k.sharpen(np.zeros((4, 4), np.float32), np.zeros((4, 5), np.float32), np.zeros((4, 4), np.uint8)),
     ValueError, "gain"),
    (lambda: k.bgra_crop(np.zeros((4, 4, 4), np.uint8), 2, 2, 3, 3), ValueError, "x must be 0 .. src.width - dst.width"),
    (lambda: k.u8_to_f32(np.zeros((2, 3, 4, 5), np.uint8)), ValueError, "2-D"),
    (lambda: k.laplacian("not an array"), TypeError, "numpy array"),
])
def test_refuses_bad_arrays(call, error, words):
    with pytest.raises(error, match=words):
        call()
