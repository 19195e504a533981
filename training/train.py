"""Trains the full or the light network and exports it to ONNX.

    python3 training/train.py --net full --device cuda --seconds 1800 --out training/runs/full

Runs on the CPU (Debian's python3-torch) or on a GPU (--device cuda) with the
same code. The run's length is a number of iterations (--iters) or of
training seconds (--seconds); the learning rate follows a cosine over it, so
a run cut into short pieces (--stop-after, then --resume) is the same run.
Logs the Set5 PSNR (Y, 2 pixels trimmed) as it trains, then Set5/Set14 at the
end, and writes checkpoint.pt, result.json and <name>.onnx into --out.
"""
import argparse
import json
import math
import os
import sys
import time

import numpy as np
import torch

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


def captured_step(train_step, example):
    """train_step as a replayed CUDA graph: the small network's step is a few
    hundred short kernels, which cost more to launch one by one than to run.
    The batch is copied into the graph's own input tensors before each replay;
    a few eager steps on a side stream first, as capture requires."""
    inputs = [t.clone() for t in example]
    inputs[0] = inputs[0].contiguous(memory_format=torch.channels_last)
    side = torch.cuda.Stream()
    side.wait_stream(torch.cuda.current_stream())
    with torch.cuda.stream(side):
        for _ in range(3):
            train_step(*inputs)
    torch.cuda.current_stream().wait_stream(side)
    graph = torch.cuda.CUDAGraph()
    with torch.cuda.graph(graph):
        loss = train_step(*inputs)

    def step(*batch):
        for dst, src in zip(inputs, batch):
            dst.copy_(src)
        graph.replay()
        return loss.clone()
    return step


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--net", choices=sorted(model.CONFIGS), required=True)
    ap.add_argument("--channels", type=int, help="feature channels instead of the configuration's")
    ap.add_argument("--body", type=int, help="body blocks instead of the configuration's")
    ap.add_argument("--data", default=os.path.join(here, "..", "..", "shared", "data", "sr"),
                    help="image folder, or the archive pack_data.py writes")
    ap.add_argument("--pairs-cache", default=os.path.join(here, "runs", "train-pairs.pkl"),
                    help="scratch file for the training pairs (making them takes a minute)")
    ap.add_argument("--device", default="cpu", help="cpu, cuda or cuda:N")
    ap.add_argument("--threads", type=int, default=0, help="CPU threads (0: torch default)")
    ap.add_argument("--iters", type=int, default=20000)
    ap.add_argument("--seconds", type=float, help="length of the run in training seconds instead of --iters")
    ap.add_argument("--stop-after", type=float,
                    help="stop this piece so many seconds after the start (resume later)")
    ap.add_argument("--batch", type=int, default=16)
    ap.add_argument("--patch", type=int, default=48, help="LR patch side")
    ap.add_argument("--lr", type=float, default=1e-3)
    ap.add_argument("--eval-every", type=int, default=1000)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--resume", help="checkpoint to continue from")
    ap.add_argument("--init", help="checkpoint whose weights start a new run (fine-tuning)")
    ap.add_argument("--init-onnx", help="float network file (export.py's) whose layers start a new run")
    ap.add_argument("--graph", action="store_true",
                    help="run each training step as one captured CUDA graph (GPU only)")
    ap.add_argument("--edge-zero", type=float, default=0.0,
                    help="share of patches with zeros right of / below a random cut (see data.py)")
    ap.add_argument("--edge-from", type=float, default=0.0,
                    help="share of the run after which --edge-zero applies (the plug-in fine-tune)")
    ap.add_argument("--out", required=True)
    args = ap.parse_args()

    if args.threads:
        torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    torch.backends.cudnn.benchmark = True
    device = torch.device(args.device)
    os.makedirs(args.out, exist_ok=True)

    t0 = time.time()
    pairs = data.training_pairs_cached(args.data, args.pairs_cache)
    set5 = data.validation_set(args.data, "set5")
    set14 = data.validation_set(args.data, "set14")
    state = torch.load(args.resume, map_location=device, weights_only=False) if args.resume else None
    done_iters, done_seconds = (state["iter"], state["seconds"]) if state else (0, 0.0)
    sampler = data.DevicePatchSampler(pairs, args.patch, args.seed + done_iters, device)
    print(f"data: {sampler.count} training images (with rescales), {time.time() - t0:.1f} s", flush=True)

    # Channels-last convolutions: about twice the iterations a second on a
    # CPU (measured with Debian's torch 1.13 and PyPI's 2.x alike); the same
    # arithmetic.
    net = model.build(args.net, args.channels, args.body).to(device, memory_format=torch.channels_last)
    if args.init:
        net.load_state_dict(torch.load(args.init, map_location=device, weights_only=False)["net"])
    if args.init_onnx and not state:
        net.start_from([tuple(None if t is None else t.to(device) for t in layer)
                        for layer in export.read_layers(args.init_onnx)])
        print(f"start: {args.init_onnx}, set5 {evaluate(net, set5, device):.3f} dB", flush=True)
    if state:
        net.load_state_dict(state["net"])
    graph = args.graph and device.type == "cuda"
    # A captured step reads its learning rate from the device, so it is a
    # tensor there (Adam's capturable form).
    opt = (torch.optim.Adam(net.parameters(), lr=torch.tensor(args.lr, device=device), capturable=True)
           if graph else torch.optim.Adam(net.parameters(), lr=args.lr))
    if state:
        opt.load_state_dict(state["opt"])

    def progress(it, seconds):
        return min(1.0, seconds / args.seconds if args.seconds else it / args.iters)

    def save(it, seconds):
        torch.save({"net": net.state_dict(), "opt": opt.state_dict(), "iter": it, "seconds": seconds,
                    "log": log, "args": vars(args)}, os.path.join(args.out, "checkpoint.pt"))

    log = state.get("log", []) if state else []
    it, seconds = done_iters, done_seconds
    start = time.time()
    eval_time = 0.0  # evaluation is not training time
    running = torch.zeros((), device=device)
    since_eval = 0

    def train_step(x, y, m):
        loss = ((net(x) - y).abs() * m).sum() / m.sum()
        opt.zero_grad(set_to_none=True)
        loss.backward()
        opt.step()
        return loss.detach()

    step = None
    if graph:
        try:
            step = captured_step(train_step, sampler.batch(args.batch))
            print("training steps run as one CUDA graph each", flush=True)
        except RuntimeError as e:  # the eager steps train the same network
            torch.cuda.synchronize()
            print(f"no CUDA graph ({e}); eager steps", flush=True)
    while progress(it, seconds) < 1.0:
        p = progress(it, seconds)
        # Cosine decay to 1% of the start rate over the run.
        rate = args.lr * (0.01 + 0.99 * 0.5 * (1 + math.cos(math.pi * p)))
        for group in opt.param_groups:
            if torch.is_tensor(group["lr"]):
                group["lr"].fill_(rate)
            else:
                group["lr"] = rate
        x, y, m = sampler.batch(args.batch, args.edge_zero if p >= args.edge_from else 0.0)
        x = x.contiguous(memory_format=torch.channels_last)
        running += step(x, y, m) if step else train_step(x, y, m)
        it += 1
        since_eval += 1
        seconds = done_seconds + time.time() - start - eval_time
        last = progress(it, seconds) >= 1.0 or (args.stop_after and time.time() - t0 >= args.stop_after)
        if it % args.eval_every == 0 or last:
            t_eval = time.time()
            psnr = evaluate(net, set5, device)
            print(f"iter {it:7d}  loss {running.item() / since_eval:.5f}  set5 {psnr:.3f} dB  "
                  f"lr {float(opt.param_groups[0]['lr']):.2e}  {seconds / 60:.1f} min", flush=True)
            log.append({"iter": it, "loss": running.item() / since_eval, "set5": psnr, "minutes": seconds / 60})
            running.zero_()
            since_eval = 0
            save(it, seconds)
            eval_time += time.time() - t_eval
        if last:
            break
    if progress(it, seconds) < 1.0:
        print(f"stopped at iteration {it}, {seconds / 60:.1f} of the run's minutes; --resume continues", flush=True)
        return

    result = {"net": args.net, "shape": model.shape(args.net, args.channels, args.body), "iters": it,
              "train_minutes": seconds / 60, "device": str(device),
              "device_name": torch.cuda.get_device_name(device) if device.type == "cuda" else "cpu",
              "set5": evaluate(net, set5, device), "set14": evaluate(net, set14, device), "log": log,
              "args": vars(args)}
    print(f"final: set5 {result['set5']:.3f} dB, set14 {result['set14']:.3f} dB, {it} iterations, "
          f"{seconds / 60:.1f} min", flush=True)
    onnx_path = os.path.join(args.out, ONNX_NAMES[args.net])
    export.export(net.cpu(), onnx_path)
    with open(os.path.join(args.out, "result.json"), "w") as f:
        json.dump(result, f, indent=1)


if __name__ == "__main__":
    main()
