#!/usr/bin/env python3
"""Enlarge a video two times with vorlith, reading and writing it with PyAV.

    python3 examples/enlarge_video.py samples/city.mp4 city_2x.mp4 --compare compare.png

Frames go through the network as NV12 (luma by the network, chroma by the
library's bilinear 2x); --compare writes one frame's luma as a picture:
bicubic on the left, the network on the right.
PyAV: `apt install python3-av` (Debian) or `pip install av`.
"""
import argparse
import struct
import sys
import time
import zlib

import av
import numpy as np

import vorlith


def nv12_planes(frame):
    """The Y and interleaved Cb/Cr planes of a PyAV frame, as arrays."""
    packed = frame.to_ndarray(format="nv12")  # (h + h/2, w)
    h = frame.height
    return packed[:h], packed[h:]


def write_png(path, grey):
    """A greyscale picture, without an imaging library."""
    h, w = grey.shape
    rows = b"".join(b"\0" + grey[r].tobytes() for r in range(h))
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 0, 0, 0, 0))
                + chunk(b"IDAT", zlib.compress(rows, 6)) + chunk(b"IEND", b""))


def progress(done, total, started):
    width = 30
    filled = width * done // max(total, 1)
    rate = done / max(time.perf_counter() - started, 1e-9)
    sys.stderr.write(f"\r[{'#' * filled}{'.' * (width - filled)}] {done}/{total} frames, {rate:.1f} frames/s")
    sys.stderr.flush()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("input")
    parser.add_argument("output")
    parser.add_argument("--network", default="auto", choices=["full", "light", "auto"])
    parser.add_argument("--compare", metavar="PNG", help="write bicubic | network for the first frame")
    args = parser.parse_args()

    up = vorlith.Upscaler(network=args.network)
    with av.open(args.input) as source, av.open(args.output, "w") as sink:
        video = source.streams.video[0]
        total = video.frames or 0
        out = sink.add_stream("libx264", rate=video.average_rate or 25)
        out.width, out.height, out.pix_fmt = 2 * video.width, 2 * video.height, "yuv420p"
        started, done = time.perf_counter(), 0
        for frame in source.decode(video):
            y, uv = nv12_planes(frame)
            y2, uv2 = up.enlarge_nv12(y, uv)
            if args.compare and done == 0:
                bicubic = frame.reformat(width=2 * frame.width, height=2 * frame.height, format="gray",
                                         interpolation="BICUBIC").to_ndarray()
                write_png(args.compare, np.hstack([bicubic, y2]))
            enlarged = av.VideoFrame.from_ndarray(np.vstack([y2, uv2]), format="nv12")
            enlarged.pts, enlarged.time_base = frame.pts, frame.time_base
            for packet in out.encode(enlarged.reformat(format="yuv420p")):
                sink.mux(packet)
            done += 1
            progress(done, total, started)
        for packet in out.encode():
            sink.mux(packet)
    sys.stderr.write(f"\n{args.output}: {done} frames, network {up.network}\n")


if __name__ == "__main__":
    main()
