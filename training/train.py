"""Trains the full or the light network and exports it to ONNX.

    python3 training/train.py --net full --device cpu --iters 20000 --out training/runs/full

Runs on the CPU (Debian's python3-torch) or on a GPU (--device cuda) with the
same code. Logs the Set5 PSNR (Y, 2 pixels trimmed) as it trains, then
Set5/Set14 at the end, and writes checkpoint.pt and <name>.onnx into --out.
"""
import argparse
import json
import math
import os
import random
import sys
import time

import numpy as np
import torch
import torch.nn.functional as F

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import data  # noqa: E402
import export  # noqa: E402
import model  # noqa: E402

ONNX_NAMES = {"full": "RTC.onnx", "light": "RTC_degrade.onnx"}


def evaluate(net, pairs, device):
    net.eval()
    scores = []
    with torch.no_grad():
        for lr, hr in pairs:
            x = torch.from_numpy(lr.astype(np.float32) / 255.0)[None, None].to(device)
            y = net(x)[0, 0].cpu().numpy() * 255.0
            scores.append(data.psnr_y(np.clip(np.round(y), 0, 255), hr))
    net.train()
    return float(np.mean(scores))


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--net", choices=sorted(model.CONFIGS), required=True)
    ap.add_argument("--data", default=os.path.join(here, "..", "..", "shared", "data", "sr"))
    ap.add_argument("--device", default="cpu", help="cpu, cuda or cuda:N")
    ap.add_argument("--threads", type=int, default=0, help="CPU threads (0: torch default)")
    ap.add_argument("--iters", type=int, default=20000)
    ap.add_argument("--batch", type=int, default=16)
    ap.add_argument("--patch", type=int, default=48, help="LR patch side")
    ap.add_argument("--lr", type=float, default=1e-3)
    ap.add_argument("--eval-every", type=int, default=1000)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--resume", help="checkpoint to continue from")
    ap.add_argument("--init", help="checkpoint whose weights start a new run (fine-tuning)")
    ap.add_argument("--edge-zero", type=float, default=0.0,
                    help="share of patches with zeros right of / below a random cut (see data.py)")
    ap.add_argument("--out", required=True)
    args = ap.parse_args()

    if args.threads:
        torch.set_num_threads(args.threads)
    random.seed(args.seed)
    np.random.seed(args.seed)
    torch.manual_seed(args.seed)
    device = torch.device(args.device)
    os.makedirs(args.out, exist_ok=True)

    t0 = time.time()
    sampler = data.PatchSampler(data.training_pairs(args.data), args.patch, args.seed)
    set5 = data.validation_set(args.data, "set5")
    set14 = data.validation_set(args.data, "set14")
    print(f"data: {len(sampler.pairs)} training images (with rescales), {time.time() - t0:.1f} s", flush=True)

    net = model.build(args.net).to(device)
    opt = torch.optim.Adam(net.parameters(), lr=args.lr)
    # Cosine decay to 1% of the start rate over the run.
    sched = torch.optim.lr_scheduler.LambdaLR(
        opt, lambda i: 0.01 + 0.99 * 0.5 * (1 + math.cos(math.pi * min(i, args.iters) / args.iters)))
    start = 0
    if args.init:
        net.load_state_dict(torch.load(args.init, map_location=device)["net"])
    if args.resume:
        state = torch.load(args.resume, map_location=device)
        net.load_state_dict(state["net"])
        opt.load_state_dict(state["opt"])
        sched.load_state_dict(state["sched"])
        sampler.rng = np.random.default_rng(args.seed + state["iter"])
        start = state["iter"]

    log = []
    t0 = time.time()
    running = 0.0
    for it in range(start + 1, args.iters + 1):
        lr_patch, hr_patch, mask = sampler.batch(args.batch, args.edge_zero)
        x = torch.from_numpy(lr_patch).to(device)
        y = torch.from_numpy(hr_patch).to(device)
        m = torch.from_numpy(mask).to(device)
        loss = ((net(x) - y).abs() * m).sum() / m.sum()
        opt.zero_grad(set_to_none=True)
        loss.backward()
        opt.step()
        sched.step()
        running += loss.item()
        if it % args.eval_every == 0 or it == args.iters:
            psnr = evaluate(net, set5, device)
            elapsed = time.time() - t0
            n = args.eval_every if it % args.eval_every == 0 else it % args.eval_every
            print(f"iter {it:6d}  loss {running / n:.5f}  set5 {psnr:.3f} dB  "
                  f"lr {sched.get_last_lr()[0]:.2e}  {elapsed / 60:.1f} min", flush=True)
            log.append({"iter": it, "loss": running / n, "set5": psnr, "minutes": elapsed / 60})
            running = 0.0
            torch.save({"net": net.state_dict(), "opt": opt.state_dict(), "sched": sched.state_dict(),
                        "iter": it, "args": vars(args)}, os.path.join(args.out, "checkpoint.pt"))

    minutes = (time.time() - t0) / 60
    result = {"net": args.net, "iters": args.iters, "train_minutes": minutes, "device": str(device),
              "set5": evaluate(net, set5, device), "set14": evaluate(net, set14, device), "log": log,
              "args": vars(args)}
    print(f"final: set5 {result['set5']:.3f} dB, set14 {result['set14']:.3f} dB, {minutes:.1f} min", flush=True)
    onnx_path = os.path.join(args.out, ONNX_NAMES[args.net])
    export.export(net.cpu(), onnx_path)
    with open(os.path.join(args.out, "result.json"), "w") as f:
        json.dump(result, f, indent=1)


if __name__ == "__main__":
    main()
