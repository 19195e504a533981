"""Draws quality against cost: the shipped networks beside the earlier
generations and published anchors.

    build/release/tools/vorlith-eval | python3 training/plot_quality.py models/quality.png

Reads the Markdown table that vorlith-eval prints (Set5 PSNR in its second
column) and places each shipped network at the parameter count of its shape
in model.py.
"""
import os
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

# Published x2 Set5 PSNR (Y) and parameter counts.
ANCHORS = [("FSRCNN", 12000, 37.00), ("published 8.9K collapsible network", 8900, 37.21)]
BICUBIC_SET5 = 33.66
ROWS = {"RTC (full)": "full", "RTC_degrade (light)": "light"}
# Earlier networks through the plug-in, as the model card recorded them:
# first (16x4 full, 8x3 light, float), second (20x4 full, 12x4 light,
# integer), and the first training of the shipped shapes (integer).
EARLIER = [("full, 1st gen.", 10100, 36.58), ("light, 1st gen.", 2156, 36.21),
           ("full, 2nd gen.", 15504, 36.66), ("light, 2nd gen.", 5848, 36.56),
           ("full, first training", 15504, 37.02), ("light, first training", 4528, 36.66)]
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import model  # noqa: E402


def main():
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    ours = []
    for line in sys.stdin:
        cells = [c.strip() for c in line.strip().strip("|").split("|")]
        for prefix, name in ROWS.items():
            if cells and cells[0].startswith(prefix):
                ours.append((prefix, model.parameters_exported(name), float(cells[1])))
    if len(ours) != 2:
        raise SystemExit("expected the two network rows of vorlith-eval's table on stdin")
    fig, ax = plt.subplots(figsize=(6, 4), dpi=120)
    ax.axhline(BICUBIC_SET5, color="grey", linestyle="--", label="bicubic")
    for name, params, psnr in ANCHORS:
        ax.scatter(params, psnr, marker="s", color="tab:blue")
        ax.annotate(name, (params, psnr), textcoords="offset points", xytext=(-10, 6), fontsize=8,
                    ha="right")
    for name, params, psnr in EARLIER:
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
    ax.set_title("Vorlith networks (red; open: earlier generations) beside published ones (blue)",
                 fontsize=9)
    ax.legend(loc="lower right", fontsize=8)
    ax.grid(alpha=0.3)
    fig.tight_layout()
    fig.savefig(sys.argv[1])


if __name__ == "__main__":
    main()
