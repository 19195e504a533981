"""Packs the training and validation images as one luma-only archive.

    python3 training/pack_data.py [--data ../shared/data/sr] [--out training/data/sr-luma.npz]

Training images are stored as they are (luma already), validation images as
their BT.601 luma bytes, so train.py and quantize.py read the same pixels
from the archive as from the folder (--data ARCHIVE). A GPU machine gets the
archive instead of the folder: about 30 MB instead of the PNGs and the RGB
validation images.
"""
import argparse
import os
import sys

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import data  # noqa: E402


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--data", default=os.path.join(here, "..", "..", "shared", "data", "sr"))
    ap.add_argument("--out", default=os.path.join(here, "data", "sr-luma.npz"))
    args = ap.parse_args()
    images = data.read_images(args.data, data.TRAIN_SETS, rgb_luma=False)
    for name in ("set5", "set14"):
        images.update(data.read_images(args.data, (f"val/{name}",), rgb_luma=True))
    os.makedirs(os.path.dirname(os.path.abspath(args.out)), exist_ok=True)
    np.savez_compressed(args.out, **images)
    print(f"{args.out}: {len(images)} images, {os.path.getsize(args.out) / 1e6:.1f} MB")


if __name__ == "__main__":
    main()
