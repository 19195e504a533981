# Signatures of vorlith.kernels (the docstrings say what each does).
from typing import Tuple

import numpy as np
import numpy.typing as npt

U8 = npt.NDArray[np.uint8]
F32 = npt.NDArray[np.float32]
I16 = npt.NDArray[np.int16]
I32 = npt.NDArray[np.int32]

def bgra_crop(src: U8, x: int, y: int, width: int, height: int) -> U8:
    """The width x height rectangle at (x, y) of a (h, w, 4) image."""
def bilateral_filter(src: U8) -> U8:
    """Bilateral filter of a (h, w) uint8 plane; an odd height's last row stays 0."""
def box_detail(src: U8) -> F32:
    """Detail layer of the even box filter, float32; rows past 4*(h//4) stay 0."""
def cubic_1p5x(src: U8) -> U8:
    """Bicubic 1.5x of a (h, w) uint8 plane."""
def cubic_2x(src: U8) -> U8:
    """Bicubic 2x of a (h, w) uint8 plane."""
def f32_to_u8(src: F32) -> U8:
    """float32 to uint8 as the library converts (truncation, saturation, the tail's wrap)."""
def f32_to_u8_nhwc_2x2(src: F32) -> U8:
    """Pixel shuffle of (h, r*w, r) float32 values to (r*h, r*w) uint8."""
def f32_to_u8_nhwc_3x3(src: F32) -> U8:
    """Pixel shuffle of (h, r*w, r) float32 values to (r*h, r*w) uint8."""
def guided_box_filter(src: U8, guide: I16, a: float, b: float) -> U8:
    """Guided box filter of a (h, w) uint8 plane with an int16 guide; rows past 4*(h//4) stay 0."""
def i420_to_rgb(y: U8, u: U8, v: U8) -> U8:
    """I420 to (h, w, 3) RGB."""
def i420_to_vuya(y: U8, u: U8, v: U8) -> U8:
    """I420 to (h, w, 4) V, U, Y, 255 pixels."""
def i420a_to_rgba(y: U8, u: U8, v: U8, a: U8) -> U8:
    """I420 planes with alpha to (h, w, 4) RGBA."""
def lanczos_1p5x(src: U8) -> U8:
    """Lanczos 1.5x of a (h, w) uint8 plane."""
def lanczos_2x(src: U8) -> U8:
    """Lanczos 2x of a (h, w) or (h, w, 3) uint8 image."""
def lanczos_4d3x(src: U8) -> U8:
    """Lanczos 4/3x of a (h, w) uint8 plane."""
def laplacian(src: U8) -> I16:
    """Laplacian of a (h, w) uint8 plane, int16."""
def linear_1p5x(src: U8) -> U8:
    """Bilinear 1.5x of a (h, w) uint8 plane, w and h at least 2."""
def linear_2x(src: U8) -> U8:
    """Bilinear 2x of a (h, w) uint8 plane."""
def linear_2x_nv(uv: U8) -> U8:
    """NV12 chroma 2x: (h, w, 2) Cb/Cr pairs to (2h, 2w, 2)."""
def linear_3x(src: U8) -> U8:
    """Bilinear 3x of a (h, w) uint8 plane."""
def linear_4d3x(src: U8) -> U8:
    """Bilinear 4/3x of a (h, w) uint8 plane, w and h at least 3."""
def linear_4x(src: U8) -> U8:
    """Bilinear 4x of a (h, w) uint8 plane."""
def linear_float_3x(src: F32) -> F32:
    """Bilinear 3x of a (h, w) float32 plane."""
def linear_float_4x(src: F32) -> F32:
    """Bilinear 4x of a (h, w) float32 plane."""
def luma_ratio_merge(luma: F32, dr: I32, dg: I32, db: I32, alpha: U8) -> U8:
    """Luma and per-channel ratios back to (h, w, 4) RGBA."""
def luma_ratio_split(rgba: U8) -> Tuple[F32, I32, I32, I32, U8]:
    """(h, w, 4) RGBA to (luma, dr, dg, db, alpha), the last four at twice the size."""
def nv12_to_rgb(y: U8, uv: U8) -> U8:
    """NV12 to (h, w, 3) RGB."""
def nv12_to_vuya(y: U8, uv: U8) -> U8:
    """NV12 to (h, w, 4) V, U, Y, 255 pixels."""
def rgb_to_rgba(src: U8) -> U8:
    """(h, w, 3) to (h, w, 4) with alpha 255 (the first 16*(w//16) pixels of a row swap R and B)."""
def rgba_to_i420a(rgba: U8) -> Tuple[U8, U8, U8, U8]:
    """(h, w, 4) RGBA, even sizes, to the planes (y, u, v, a)."""
def sharpen(detail: F32, gain: F32, src: U8) -> U8:
    """detail * gain + src, as uint8."""
def u8_to_f32(src: U8) -> F32:
    """uint8 to float32, value for value."""
