"""Vorlith: enlarge video frames two times, and exactly defined SIMD image kernels.

    import numpy as np, vorlith
    up = vorlith.Upscaler(network="full")
    y2 = up.enlarge(y)                  # (h, w) uint8 -> (2h, 2w)
    y2, uv2 = up.enlarge_nv12(y, uv)    # NV12 planes
    rgb2 = up.enlarge_rgb(rgb)          # (h, w, 3) uint8

Every function checks its arrays and raises TypeError (wrong type or dtype)
or ValueError (wrong shape, size or parameter) instead of touching memory
it was not given; the library works with the GIL released.
"""
from ._vorlith import Upscaler, __version__
from . import kernels

__all__ = ["Upscaler", "kernels", "__version__"]
