"""Video check: panning sequences enlarged frame by frame, through the library.

    PYTHONPATH=build/rel/python python3 training/video_check.py [--plot models/video_check.png]

Each sequence is a 256x192 window moving over one validation image by a
sub-pixel step per frame (0.63 px across, 0.29 px down, on the HR image;
the window is resampled by a 4-tap cubic, Keys a = -0.5), and each frame is
shrunk by the MATLAB-style bicubic halving the networks trained on. The LR
frames are enlarged one by one by the library's bicubic and Lanczos 2x and by
the full and light networks (vorlith.Upscaler, the plug-in's path), and
compared with the HR frames:
- PSNR per frame (luma, 2 pixels trimmed);
- temporal error: RMS over pixels of (out[t] - out[t-1]) - (hr[t] - hr[t-1]),
  in levels: flicker or crawling that the sequence itself does not have.
"""
import argparse
import os
import sys

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import data  # noqa: E402
from matlab_resize import cubic, imresize, to_uint8  # noqa: E402

W, H = 256, 192
STEP = (0.29, 0.63)  # rows, columns per frame


def window(img, y, x):
    """H x W window of img with its top-left corner at the real point (y, x)."""
    iy, ix = int(np.floor(y)), int(np.floor(x))
    # Weights of taps -1, 0, 1, 2 for the fractional offsets.
    wy, wx = (cubic(np.array([1 + f, f, 1 - f, 2 - f])) for f in (y - iy, x - ix))
    src = img.astype(np.float64)[iy - 1:iy + H + 3, ix - 1:ix + W + 3]
    rows = sum(wy[t] * src[t:t + H] for t in range(4))
    return to_uint8(sum(wx[t] * rows[:, t:t + W] for t in range(4)))


def sequence(img, frames):
    out = []
    for t in range(frames):
        hr = window(img, 2 + STEP[0] * t, 2 + STEP[1] * t)
        out.append((to_uint8(imresize(hr, 0.5)), hr))
    return out


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--data", default=os.path.join(here, "..", "..", "shared", "data", "sr"))
    ap.add_argument("--frames", type=int, default=24)
    ap.add_argument("--images", type=int, default=3, help="sequences, from the largest Set14 images")
    ap.add_argument("--plot", help="PNG of the PSNR per frame")
    args = ap.parse_args()
    import vorlith

    need = (H + 8 + int(STEP[0] * args.frames), W + 8 + int(STEP[1] * args.frames))
    pairs = data.validation_set(args.data, "set14")
    hrs = sorted((hr for _, hr in pairs if hr.shape[0] >= need[0] and hr.shape[1] >= need[1]),
                 key=lambda a: -a.size)[:args.images]
    methods = {
        "bicubic": vorlith.kernels.cubic_2x,
        "Lanczos": vorlith.kernels.lanczos_2x,
        "full network": vorlith.Upscaler("full").enlarge,
        "light network": vorlith.Upscaler("light").enlarge,
    }
    psnr = {m: [] for m in methods}
    temporal = {m: [] for m in methods}
    for img in hrs:
        seq = sequence(img, args.frames)
        for name, fn in methods.items():
            prev = None
            for lr, hr in seq:
                out = np.asarray(fn(lr))
                psnr[name].append(data.psnr_y(out, hr))
                if prev is not None:
                    d = (out.astype(np.float64) - prev[0]) - (hr.astype(np.float64) - prev[1])
                    temporal[name].append(float(np.sqrt(np.mean(d[2:-2, 2:-2] ** 2))))
                prev = (out.astype(np.float64), hr.astype(np.float64))
    print(f"{len(hrs)} sequences x {args.frames} frames of {W}x{H}, step {STEP[1]} x {STEP[0]} px per frame")
    print("| method | PSNR mean (dB) | PSNR min | PSNR max | temporal error (RMS levels) |")
    print("|---|---|---|---|---|")
    for name in methods:
        p = np.array(psnr[name])
        print(f"| {name} | {p.mean():.2f} | {p.min():.2f} | {p.max():.2f} | {np.mean(temporal[name]):.3f} |")
    for name in ("full network", "light network"):
        d = np.array(psnr[name]) - np.array(psnr["Lanczos"])
        print(f"{name} over Lanczos, frame by frame: {d.mean():.2f} dB on average, {d.min():.2f} at least")
    if args.plot:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
        fig, ax = plt.subplots(figsize=(8, 3.6))
        for name in methods:
            ax.plot(psnr[name], label=name, lw=1.2)
        for k in range(1, len(hrs)):
            ax.axvline(k * args.frames - 0.5, color="grey", lw=0.5)
        ax.set_xlabel(f"frame ({len(hrs)} panning sequences of {args.frames})")
        ax.set_ylabel("PSNR, luma (dB)")
        ax.legend(fontsize=8, ncol=4)
        fig.tight_layout()
        fig.savefig(args.plot, dpi=110)


if __name__ == "__main__":
    main()
