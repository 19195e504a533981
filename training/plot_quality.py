"""Draws quality against cost: the shipped networks beside the first
generation and published anchors.

    build/release/tools/vorlith-eval | python3 training/plot_quality.py models/quality.png

Reads the Markdown table that vorlith-eval prints (Set5 PSNR in its second
column) and places each shipped network at the parameter count of its file
in models/.
"""
import os
import sys

import matplotlib
import numpy as np
import onnx

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

# Published x2 Set5 PSNR (Y) and parameter counts.
ANCHORS = [("FSRCNN", 12000, 37.00), ("published 8.9K collapsible network", 8900, 37.21)]
BICUBIC_SET5 = 33.66
ROWS = {"RTC (full)": "RTC.onnx", "RTC_degrade (light)": "RTC_degrade.onnx"}
# The first generation through the plug-in (16x4 full, 8x3 light), as its
# model card recorded them.
FIRST_GENERATION = [("full, 1st gen.", 10100, 36.58), ("light, 1st gen.", 2156, 36.21)]
MODELS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "models")


def parameters(file_name):
    graph = onnx.load(os.path.join(MODELS, file_name)).graph
    return sum(int(np.prod(t.dims)) for t in graph.initializer)


def main():
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    ours = []
    for line in sys.stdin:
        cells = [c.strip() for c in line.strip().strip("|").split("|")]
        for prefix, name in ROWS.items():
            if cells and cells[0].startswith(prefix):
                ours.append((prefix, parameters(name), float(cells[1])))
    if len(ours) != 2:
        raise SystemExit("expected the two network rows of vorlith-eval's table on stdin")
    fig, ax = plt.subplots(figsize=(6, 4), dpi=120)
    ax.axhline(BICUBIC_SET5, color="grey", linestyle="--", label="bicubic")
    for name, params, psnr in ANCHORS:
        ax.scatter(params, psnr, marker="s", color="tab:blue")
        ax.annotate(name, (params, psnr), textcoords="offset points", xytext=(-10, 6), fontsize=8,
                    ha="right")
    shipped = {params for _, params, _ in ours}
    for name, params, psnr in FIRST_GENERATION:
        if params in shipped:  # that network still ships
            continue
        ax.scatter(params, psnr, marker="o", facecolors="none", edgecolors="tab:red")
        ax.annotate(name, (params, psnr), textcoords="offset points", xytext=(6, -12), fontsize=8,
                    color="grey")
    for name, params, psnr in ours:
        ax.scatter(params, psnr, marker="o", color="tab:red")
        ax.annotate(f"{name}\n{psnr:.2f} dB", (params, psnr), textcoords="offset points", xytext=(6, 6),
                    fontsize=8)
    ax.set_xlabel("parameters")
    ax.set_ylabel("Set5 x2 PSNR, Y (dB)")
    ax.set_xlim(0, 18000)
    ax.set_ylim(33.4, 37.6)
    ax.set_title("Vorlith networks (red; open: first generation) beside published ones (blue)",
                 fontsize=9)
    ax.legend(loc="lower right", fontsize=8)
    ax.grid(alpha=0.3)
    fig.tight_layout()
    fig.savefig(sys.argv[1])


if __name__ == "__main__":
    main()
