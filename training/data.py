"""Training pairs and validation sets, read from the shared data folder.

Training images are video-range luma PNGs; each is also used shrunk to 0.9,
0.8, 0.7 and 0.6 of its size (more scale variety from few images). LR images
are MATLAB-style bicubic halvings of the HR, rounded to bytes as a decoder
would hand them over.
"""
import glob
import multiprocessing
import os
import pickle

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


def _image_pairs(img):
    return [make_pair(img if s == 1.0 else to_uint8(imresize(img, s))) for s in SCALES]


def read_images(root, sets, rgb_luma):
    """{name: luma bytes} of the PNGs under root/<set>, or of the entries of
    a luma archive (pack_data.py) when root is an .npz file."""
    if root.endswith(".npz"):
        with np.load(root) as z:
            return {k: z[k] for k in sorted(z.files) if k.rsplit("/", 1)[0] in sets}
    files = [p for sub in sets for p in sorted(glob.glob(os.path.join(root, sub, "*.png")))]
    return {os.path.relpath(p, root)[:-4]: (luma_bt601(p) if rgb_luma else load_gray(p)) for p in files}


def training_pairs(root):
    images = read_images(root, TRAIN_SETS, rgb_luma=False)
    if not images:
        raise SystemExit(f"no training images under {root}/{{{','.join(TRAIN_SETS)}}}")
    # Resizing is a minute's work on one core; the images are independent.
    with multiprocessing.Pool() as pool:
        per_image = pool.map(_image_pairs, list(images.values()), chunksize=4)
    return [p for pairs in per_image for p in pairs]


def training_pairs_cached(root, cache):
    """training_pairs, kept in a scratch file for the next run."""
    key = os.path.abspath(root)
    if os.path.exists(cache):
        with open(cache, "rb") as f:
            stored = pickle.load(f)
        if stored["root"] == key:
            return stored["pairs"]
    pairs = training_pairs(root)
    os.makedirs(os.path.dirname(os.path.abspath(cache)), exist_ok=True)
    with open(cache + ".tmp", "wb") as f:
        pickle.dump({"root": key, "pairs": pairs}, f, protocol=pickle.HIGHEST_PROTOCOL)
    os.replace(cache + ".tmp", cache)
    return pairs


def validation_set(root, name):
    images = read_images(root, (f"val/{name}",), rgb_luma=True)
    if not images:
        raise SystemExit(f"no validation images under {root}/val/{name}")
    return [make_pair(y) for y in images.values()]


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


class DevicePatchSampler:
    """PatchSampler's patches, cut on the training device: every pair lives
    there as one flat byte buffer and a batch is one gather, so a fast GPU
    never waits for the host. Same distribution, its own random stream."""

    def __init__(self, pairs, patch, seed, device):
        import torch
        self.torch = torch
        pairs = [p for p in pairs if min(p[0].shape) >= patch]
        for lr, hr in pairs:
            assert hr.shape == (2 * lr.shape[0], 2 * lr.shape[1])
        self.device = torch.device(device)

        def flat(images):
            sizes = np.array([im.size for im in images], np.int64)
            offsets = np.concatenate([[0], np.cumsum(sizes)[:-1]])
            buf = torch.from_numpy(np.concatenate([im.reshape(-1) for im in images])).to(self.device)
            return buf, torch.from_numpy(offsets).to(self.device)

        self.lr, self.lr_off = flat([p[0] for p in pairs])
        self.hr, self.hr_off = flat([p[1] for p in pairs])
        self.h = torch.tensor([p[0].shape[0] for p in pairs], device=self.device)
        self.w = torch.tensor([p[0].shape[1] for p in pairs], device=self.device)
        self.prob = (self.h * self.w).double()
        self.patch = patch
        self.gen = torch.Generator(device=self.device)
        self.gen.manual_seed(seed)
        self.count = len(pairs)

    def _rand(self, n):
        return self.torch.rand(n, generator=self.gen, device=self.device)

    def _grid(self, q, t):
        """Source coordinates [n, q, q] of each output pixel under one of the 8
        flips and rotations (bit 0 transposes, bits 1 and 2 mirror)."""
        torch = self.torch
        i = torch.arange(q, device=self.device).view(1, q, 1).expand(len(t), q, q)
        j = i.transpose(1, 2)
        i = torch.where((t & 2).view(-1, 1, 1) > 0, q - 1 - i, i)
        j = torch.where((t & 4).view(-1, 1, 1) > 0, q - 1 - j, j)
        swap = (t & 1).view(-1, 1, 1) > 0
        return torch.where(swap, j, i), torch.where(swap, i, j)

    def batch(self, n, edge_zero=0.0):
        """As PatchSampler.batch, as float32 tensors on the device."""
        torch, ps = self.torch, self.patch
        k = torch.multinomial(self.prob, n, replacement=True, generator=self.gen)
        h, w = self.h[k], self.w[k]
        y = (self._rand(n) * (h - ps + 1)).long().clamp_max(h - ps)
        x = (self._rand(n) * (w - ps + 1)).long().clamp_max(w - ps)
        t = torch.randint(8, (n,), generator=self.gen, device=self.device)
        si, sj = self._grid(ps, t)
        lr = self.lr[self.lr_off[k].view(-1, 1, 1) + (y.view(-1, 1, 1) + si) * w.view(-1, 1, 1)
                     + x.view(-1, 1, 1) + sj]
        si, sj = self._grid(2 * ps, t)
        hr = self.hr[self.hr_off[k].view(-1, 1, 1) + (2 * y.view(-1, 1, 1) + si) * (2 * w.view(-1, 1, 1))
                     + 2 * x.view(-1, 1, 1) + sj]
        lr = lr[:, None].float() / 255.0
        hr = hr[:, None].float() / 255.0
        mask = torch.ones_like(hr)
        if edge_zero > 0:
            zero = self._rand(n) < edge_zero
            side = torch.randint(1, 4, (n,), generator=self.gen, device=self.device)
            cut = torch.randint(ps // 2, ps, (n,), generator=self.gen, device=self.device).view(-1, 1, 1, 1)
            col = torch.arange(2 * ps, device=self.device)
            right = (zero & (side & 1 > 0)).view(-1, 1, 1, 1)
            below = (zero & (side & 2 > 0)).view(-1, 1, 1, 1)
            lr_off = (right & (col[:ps].view(1, 1, 1, -1) >= cut)) | (below & (col[:ps].view(1, 1, -1, 1) >= cut))
            hr_off = (right & (col.view(1, 1, 1, -1) >= 2 * cut)) | (below & (col.view(1, 1, -1, 1) >= 2 * cut))
            lr = lr.masked_fill(lr_off, 0.0)
            mask = mask.masked_fill(hr_off, 0.0)
        return lr, hr, mask


def psnr_y(sr, hr, shave=2):
    """PSNR of two byte images with `shave` pixels trimmed from each border."""
    d = sr.astype(np.float64)[shave:-shave, shave:-shave] - hr.astype(np.float64)[shave:-shave, shave:-shave]
    mse = np.mean(d * d)
    return float("inf") if mse == 0 else 10.0 * np.log10(255.0 * 255.0 / mse)
