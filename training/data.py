"""Training pairs and validation sets, read from the shared data folder.

Training images are video-range luma PNGs; each is also used shrunk to 0.9,
0.8, 0.7 and 0.6 of its size (more scale variety from few images). LR images
are MATLAB-style bicubic halvings of the HR, rounded to bytes as a decoder
would hand them over.
"""
import glob
import os

import numpy as np
from PIL import Image

from matlab_resize import imresize, to_uint8

TRAIN_SETS = ("train/t91", "train/bsd200")
SCALES = (1.0, 0.9, 0.8, 0.7, 0.6)


def load_gray(path):
    return np.asarray(Image.open(path).convert("L"))


def luma_bt601(path):
    """Y of BT.601 video range from an RGB (or grey) PNG, as bytes."""
    img = Image.open(path)
    rgb = np.asarray(img.convert("RGB")).astype(np.float64) / 255.0
    y = 16.0 + 65.481 * rgb[..., 0] + 128.553 * rgb[..., 1] + 24.966 * rgb[..., 2]
    return to_uint8(y)


def make_pair(hr):
    h, w = hr.shape
    hr = hr[: h - h % 2, : w - w % 2]
    lr = to_uint8(imresize(hr, 0.5))
    return lr, hr


def training_pairs(root):
    pairs = []
    files = []
    for sub in TRAIN_SETS:
        files += sorted(glob.glob(os.path.join(root, sub, "*.png")))
    if not files:
        raise SystemExit(f"no training images under {root}/{{{','.join(TRAIN_SETS)}}}")
    for path in files:
        img = load_gray(path)
        for s in SCALES:
            hr = img if s == 1.0 else to_uint8(imresize(img, s))
            pairs.append(make_pair(hr))
    return pairs


def validation_set(root, name):
    files = sorted(glob.glob(os.path.join(root, "val", name, "*.png")))
    if not files:
        raise SystemExit(f"no validation images under {root}/val/{name}")
    return [make_pair(luma_bt601(p)) for p in files]


class PatchSampler:
    """Random aligned LR/HR patches with the 8 flips and rotations."""

    def __init__(self, pairs, patch, seed):
        self.pairs = [p for p in pairs if min(p[0].shape) >= patch]
        area = np.array([p[0].size for p in self.pairs], dtype=np.float64)
        self.prob = area / area.sum()
        self.patch = patch
        self.rng = np.random.default_rng(seed)

    def batch(self, n, edge_zero=0.0):
        """LR and HR patches scaled to 0..1, and an HR loss mask.

        With probability edge_zero a patch has its LR columns and/or rows from
        a random point on set to zero, outside the loss mask: the plug-in runs
        the network on a fixed-size tensor whose area right of and below the
        frame holds zeros, and the frame's last pixels must still come out
        right next to them."""
        ps = self.patch
        lrs = np.empty((n, 1, ps, ps), np.float32)
        hrs = np.empty((n, 1, 2 * ps, 2 * ps), np.float32)
        masks = np.ones((n, 1, 2 * ps, 2 * ps), np.float32)
        for i, k in enumerate(self.rng.choice(len(self.pairs), size=n, p=self.prob)):
            lr, hr = self.pairs[k]
            y = self.rng.integers(0, lr.shape[0] - ps + 1)
            x = self.rng.integers(0, lr.shape[1] - ps + 1)
            a = lr[y:y + ps, x:x + ps]
            b = hr[2 * y:2 * y + 2 * ps, 2 * x:2 * x + 2 * ps]
            t = self.rng.integers(8)
            if t & 4:
                a, b = a.T, b.T
            a, b = np.rot90(a, t & 3), np.rot90(b, t & 3)
            lrs[i, 0] = a
            hrs[i, 0] = b
            if self.rng.random() < edge_zero:
                side = self.rng.integers(1, 4)  # 1: right, 2: bottom, 3: both
                cut = self.rng.integers(ps // 2, ps)
                if side & 1:
                    lrs[i, 0, :, cut:] = 0
                    masks[i, 0, :, 2 * cut:] = 0
                if side & 2:
                    lrs[i, 0, cut:, :] = 0
                    masks[i, 0, 2 * cut:, :] = 0
        return lrs / 255.0, hrs / 255.0, masks


def psnr_y(sr, hr, shave=2):
    """PSNR of two byte images with `shave` pixels trimmed from each border."""
    d = sr.astype(np.float64)[shave:-shave, shave:-shave] - hr.astype(np.float64)[shave:-shave, shave:-shave]
    mse = np.mean(d * d)
    return float("inf") if mse == 0 else 10.0 * np.log10(255.0 * 255.0 / mse)
