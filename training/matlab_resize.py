"""Bicubic resizing with MATLAB imresize semantics (antialiased when shrinking).

The super-resolution literature makes its low-resolution inputs this way, so
training pairs and reported PSNR must use the same kernel: a Keys cubic
(a = -0.5) widened by 1/scale when shrinking, symmetric edge padding, weights
normalised per output sample. Computed in float64; callers round.
"""
import math

import numpy as np


def cubic(x):
    """Keys cubic kernel, a = -0.5."""
    ax = np.abs(x)
    ax2, ax3 = ax * ax, ax * ax * ax
    return ((1.5 * ax3 - 2.5 * ax2 + 1.0) * (ax <= 1)
            + (-0.5 * ax3 + 2.5 * ax2 - 4.0 * ax + 2.0) * ((ax > 1) & (ax <= 2)))


def weight_matrix(in_len, out_len, scale):
    """Dense [out_len, in_len] matrix that resizes one axis."""
    width = 4.0
    if scale < 1:
        width /= scale
    x = np.arange(1, out_len + 1, dtype=np.float64)
    u = x / scale + 0.5 * (1 - 1 / scale)
    left = np.floor(u - width / 2)
    taps = int(math.ceil(width)) + 2
    idx = left[:, None] + np.arange(taps)[None, :]
    dist = u[:, None] - idx
    w = scale * cubic(scale * dist) if scale < 1 else cubic(dist)
    w /= w.sum(axis=1, keepdims=True)
    # Symmetric padding: index -1 reads 0, index n reads n-1 (0-based).
    mirror = np.concatenate([np.arange(in_len), np.arange(in_len - 1, -1, -1)])
    src = mirror[np.mod(idx.astype(np.int64) - 1, 2 * in_len)]
    m = np.zeros((out_len, in_len))
    np.add.at(m, (np.repeat(np.arange(out_len), taps), src.ravel()), w.ravel())
    return m


def imresize(img, scale=None, size=None):
    """Resizes a 2-D array; returns float64 (not rounded).

    Give either scale (applied to both axes) or size = (rows, cols)."""
    h, w = img.shape
    if size is None:
        size = (int(math.ceil(h * scale)), int(math.ceil(w * scale)))
        sy = sx = scale
    else:
        sy, sx = size[0] / h, size[1] / w
    out = weight_matrix(h, size[0], sy) @ img.astype(np.float64)
    return out @ weight_matrix(w, size[1], sx).T


def to_uint8(a):
    return np.clip(np.round(a), 0, 255).astype(np.uint8)
