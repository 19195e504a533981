"""Quantises a shipped float network to 8 bits and writes it as QDQ ONNX.

    python3 training/quantize.py --float models/RTC.onnx --out models/RTC_int8.onnx \
        [--qat-iters 2000] [--calib-patches 256] [--threads 1]
    python3 training/quantize.py --simulate FILE.onnx --input raw.bin --h H --w W --output out.bin

Integer semantics, which the library's engine implements bit for bit and
`simulate` reproduces (float32 arithmetic, each operation rounded once, rne =
round half to even):
- input: x_q = clip(rne(x / s_in) + zp_in, 0, 255); s_in = 1, zp_in = 0.
- weights int8, symmetric per output channel: s_w = max|w| / 127.
- conv: S = s_a * s_w (float32), bias_q = rne(b / S) as int32,
  acc = bias_q + sum w_q * (a_q - zp_a) in exact integers (the one-pixel
  border is zp_a, i.e. contributes nothing), v = float32(acc) * S.
- hidden layers: v = v * slope where v < 0, then
  q = clip(rne(v / s_out) + zp_out, 0, 255) with per-tensor uint8 parameters
  from calibration on training patches.
- last layer: out = float32(acc) * S + x, then depth-to-space.

Without --qat-iters the activation ranges come from calibration alone
(post-training quantisation). With it, the float weights are fine-tuned
through a fake-quantised copy of the network (straight-through rounding,
learnable ranges) on training patches, as train.py trains; every reported
quantised figure comes from the integer simulation, not from fake-quant.
"""
import argparse
import json
import math
import os
import sys
import time

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import data  # noqa: E402

INPUT, OUTPUT = "RTC_input", "161"
F32 = np.float32


# ---------------------------------------------------------------- float file

def read_float(path):
    """[(weight [O,I,3,3], bias [O], slope [O] or None)] of a float network file."""
    m = onnx.load(path)
    inits = {t.name: numpy_helper.to_array(t) for t in m.graph.initializer}
    layers, ops = [], []
    for node in m.graph.node:
        ops.append(node.op_type)
        a = {at.name: helper.get_attribute_value(at) for at in node.attribute}
        if node.op_type == "Conv":
            if list(a.get("kernel_shape", [3, 3])) != [3, 3] or list(a.get("pads", [])) != [1, 1, 1, 1]:
                raise ValueError(f"{path}: conv {node.name} is not 3x3 with padding 1")
            layers.append([inits[node.input[1]].astype(F32), inits[node.input[2]].astype(F32), None])
        elif node.op_type == "PRelu":
            layers[-1][2] = inits[node.input[1]].reshape(-1).astype(F32)
        elif node.op_type == "DepthToSpace":
            if a["blocksize"] != 2:
                raise ValueError(f"{path}: depth-to-space block size {a['blocksize']}")
        elif node.op_type != "Add":
            raise ValueError(f"{path}: unexpected operator {node.op_type}")
    want = ["Conv", "PRelu"] * (len(layers) - 1) + ["Conv", "Add", "DepthToSpace"]
    if ops != want or layers[-1][0].shape[0] != 4:
        raise ValueError(f"{path}: not a Conv/PRelu stack with a 4-channel last conv: {ops}")
    return [tuple(layer) for layer in layers], m


# ------------------------------------------------------- integer simulation

def quantise_weights(w):
    """Per output channel symmetric int8: (w_q int8, s_w float32)."""
    m = np.abs(w).reshape(w.shape[0], -1).max(axis=1).astype(F32)
    s = np.where(m > 0, m / F32(127), F32(1)).astype(F32)
    q = np.clip(np.rint(w / s[:, None, None, None]), -127, 127).astype(np.int8)
    return q, s


def act_params(lo, hi):
    """uint8 (scale float32, zero point) of a range; the range always holds 0."""
    lo, hi = min(float(lo), 0.0), max(float(hi), 0.0)
    s = F32(max(hi - lo, 1e-6) / 255.0)
    zp = int(np.clip(np.rint(-lo / float(s)), 0, 255))
    return s, zp


def quantise_layer(w, b, s_a):
    """Integer conv parameters for an input of activation scale s_a."""
    wq, sw = quantise_weights(w)
    S = (F32(s_a) * sw).astype(F32)
    bq = np.rint(b.astype(np.float64) / S.astype(np.float64))
    if np.abs(bq).max() >= 2 ** 31:
        raise ValueError("bias does not fit int32")
    # The engine accumulates in int32: no sum may overflow it.
    worst = np.abs(wq.astype(np.int64)).reshape(len(wq), -1).sum(axis=1) * 255 + np.abs(bq)
    if worst.max() >= 2 ** 31:
        raise ValueError("accumulator could overflow int32")
    return {"wq": wq, "sw": sw, "bq": bq.astype(np.int32), "S": S}


def conv_acc(aq, zp, wq, bq):
    """Exact int64 accumulators [N,O,H,W] of a 3x3 conv, padding one pixel of zp.

    The products are summed by a float64 matrix product: every term and partial
    sum is an integer far below 2**53, so the result is exact in any order."""
    n, c, h, w = aq.shape
    d = np.zeros((c, n, h + 2, w + 2), np.float64)
    d[:, :, 1:-1, 1:-1] = aq.transpose(1, 0, 2, 3).astype(np.float64) - zp
    cols = np.empty((c, 3, 3, n, h, w), np.float64)
    for ky in range(3):
        for kx in range(3):
            cols[:, ky, kx] = d[:, :, ky:ky + h, kx:kx + w]
    acc = wq.reshape(len(wq), -1).astype(np.float64) @ cols.reshape(c * 9, -1)
    acc = acc.astype(np.int64).reshape(len(wq), n, h, w).transpose(1, 0, 2, 3)
    return acc + bq.astype(np.int64)[None, :, None, None]


def requant(v, s, zp):
    t = np.clip(np.rint(v / F32(s)), -1024, 1024).astype(np.int32) + zp
    return np.clip(t, 0, 255).astype(np.uint8)


def conv_out(aq, zp, layer):
    acc = conv_acc(aq, zp, layer["wq"], layer["bq"])
    return acc.astype(np.int32).astype(F32) * layer["S"][None, :, None, None]


def prelu(v, slope):
    return np.where(v < 0, v * slope[None, :, None, None], v).astype(F32)


def depth_to_space(t):
    n, _, h, w = t.shape
    # DCR with one output channel: sub-pixel (dy, dx) is channel 2 * dy + dx.
    return t.reshape(n, 2, 2, h, w).transpose(0, 3, 1, 4, 2).reshape(n, 2 * h, 2 * w)


def run_int(qnet, x):
    """Integer network on float byte images x [N,H,W] -> float32 [N,2H,2W]."""
    x = np.asarray(x, F32)[:, None]
    aq, zp = requant(x, qnet["s_in"], qnet["zp_in"]), qnet["zp_in"]
    for layer in qnet["layers"][:-1]:
        v = prelu(conv_out(aq, zp, layer), layer["slope"])
        aq, zp = requant(v, layer["s_out"], layer["zp_out"]), layer["zp_out"]
    return depth_to_space((conv_out(aq, zp, qnet["layers"][-1]) + x).astype(F32))


# ------------------------------------------------------------ QDQ ONNX file

def write_qdq(qnet, float_model, path):
    nodes, inits = [], []

    def init(arr, name):
        inits.append(numpy_helper.from_array(np.asarray(arr), name))
        return name

    def qdq(x, s, zp, name):
        init(np.array(s, F32), f"{name}_scale")
        init(np.array(zp, np.uint8), f"{name}_zp")
        nodes.append(helper.make_node("QuantizeLinear", [x, f"{name}_scale", f"{name}_zp"], [f"{name}_q"],
                                      name=f"{name}_quantize"))
        nodes.append(helper.make_node("DequantizeLinear", [f"{name}_q", f"{name}_scale", f"{name}_zp"],
                                      [f"{name}_dq"], name=f"{name}_dequantize"))
        return f"{name}_dq"

    x = qdq(INPUT, qnet["s_in"], qnet["zp_in"], "input")
    n = len(qnet["layers"])
    for i, layer in enumerate(qnet["layers"]):
        p = f"conv{i}"
        o = len(layer["wq"])
        nodes.append(helper.make_node(
            "DequantizeLinear", [init(layer["wq"], f"{p}.weight_q"), init(layer["sw"], f"{p}.weight_scale"),
                                 init(np.zeros(o, np.int8), f"{p}.weight_zp")], [f"{p}.weight"], axis=0))
        nodes.append(helper.make_node(
            "DequantizeLinear", [init(layer["bq"], f"{p}.bias_q"), init(layer["S"], f"{p}.bias_scale"),
                                 init(np.zeros(o, np.int32), f"{p}.bias_zp")], [f"{p}.bias"], axis=0))
        nodes.append(helper.make_node("Conv", [x, f"{p}.weight", f"{p}.bias"], [p], name=p,
                                      kernel_shape=[3, 3], pads=[1, 1, 1, 1]))
        if i < n - 1:
            slope = init(layer["slope"].reshape(-1, 1, 1).astype(F32), f"prelu{i}.slope")
            nodes.append(helper.make_node("PRelu", [p, slope], [f"prelu{i}"], name=f"prelu{i}"))
            x = qdq(f"prelu{i}", layer["s_out"], layer["zp_out"], f"act{i}")
        else:
            nodes.append(helper.make_node("Add", [p, INPUT], ["residual"], name="residual"))
    nodes.append(helper.make_node("DepthToSpace", ["residual"], [OUTPUT], name="depth_to_space",
                                  blocksize=2, mode="DCR"))
    g = float_model.graph
    graph = helper.make_graph(nodes, "vorlith_sr2x_int8", list(g.input), list(g.output), inits)
    m = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)],
                          producer_name="vorlith-training")
    m.ir_version = 8
    onnx.checker.check_model(m)
    onnx.save(m, path)


def read_qdq(path):
    """The integer network a QDQ file describes, checked against the semantics."""
    m = onnx.load(path) if isinstance(path, str) else path
    inits = {t.name: numpy_helper.to_array(t) for t in m.graph.initializer}
    producer = {o: nd for nd in m.graph.node for o in nd.output}

    def dq_const(name):
        nd = producer[name]
        if nd.op_type != "DequantizeLinear" or any(n not in inits for n in nd.input):
            raise ValueError(f"{name} is not a dequantised constant")
        q, s, zp = (inits[n] for n in nd.input)
        if np.any(zp != 0):
            raise ValueError(f"{name}: zero point not 0")
        return q, s.astype(F32)

    qnet = {"layers": []}
    act = {}  # dequantised activation name -> (scale, zp)
    for nd in m.graph.node:
        a = {at.name: helper.get_attribute_value(at) for at in nd.attribute}
        if nd.op_type == "DequantizeLinear" and nd.input[0] not in inits:
            q = producer[nd.input[0]]
            if q.op_type != "QuantizeLinear" or q.input[1:] != nd.input[1:]:
                raise ValueError(f"{nd.name}: dequantise does not match its quantise")
            s, zp = F32(inits[nd.input[1]]), int(inits[nd.input[2]])
            if inits[nd.input[2]].dtype != np.uint8 or not s > 0:
                raise ValueError(f"{nd.name}: activation not uint8 with a positive scale")
            if q.input[0] == INPUT:
                qnet["s_in"], qnet["zp_in"] = s, zp
            elif producer[q.input[0]].op_type == "PRelu":
                qnet["layers"][-1]["s_out"], qnet["layers"][-1]["zp_out"] = s, zp
            else:
                raise ValueError(f"{nd.name}: quantises neither the input nor a PRelu")
            act[nd.output[0]] = (s, zp)
        elif nd.op_type == "Conv":
            if list(a.get("kernel_shape", [3, 3])) != [3, 3] or list(a.get("pads", [])) != [1, 1, 1, 1] \
                    or a.get("group", 1) != 1 or any(v != 1 for v in a.get("strides", [1, 1]) + a.get("dilations", [1, 1])):
                raise ValueError(f"{nd.name}: not a plain 3x3 conv with padding 1")
            s_a, _ = act[nd.input[0]]
            wq, sw = dq_const(nd.input[1])
            bq, S = dq_const(nd.input[2])
            if wq.dtype != np.int8 or bq.dtype != np.int32 or np.any(wq == -128):
                raise ValueError(f"{nd.name}: weights not int8 in -127..127 or bias not int32")
            if not np.array_equal((s_a * sw).astype(F32).view(np.uint32), S.view(np.uint32)):
                raise ValueError(f"{nd.name}: bias scale is not input scale * weight scale in float32")
            qnet["layers"].append({"wq": wq, "sw": sw, "bq": bq, "S": S})
        elif nd.op_type == "PRelu":
            qnet["layers"][-1]["slope"] = inits[nd.input[1]].reshape(-1).astype(F32)
        elif nd.op_type == "Add":
            if INPUT not in nd.input:
                raise ValueError("the residual does not add the network input")
        elif nd.op_type == "DepthToSpace":
            # With one output channel DCR and CRD order the channels alike.
            if a["blocksize"] != 2:
                raise ValueError("depth-to-space block size is not 2")
        elif nd.op_type not in ("QuantizeLinear", "DequantizeLinear"):
            raise ValueError(f"unexpected operator {nd.op_type}")
    layers = qnet["layers"]
    if not layers or len(layers[-1]["wq"]) != 4 or "slope" in layers[-1] \
            or any("slope" not in l or "s_out" not in l for l in layers[:-1]):
        raise ValueError("not a quantised Conv/PRelu stack ending in a 4-channel conv")
    return qnet


def simulate(path, image):
    """Exact integer output [2H, 2W] float32 of a QDQ file for a uint8 image [H, W]."""
    return run_int(read_qdq(path), np.asarray(image, np.uint8)[None].astype(F32))[0]


# ------------------------------------------------------------- calibration

def to_bytes(out):
    """The plug-in's conversion: saturate, then truncate."""
    return np.clip(out, 0, 255).astype(np.uint8)


def calibrate(layers, x, rule):
    """Quantised network whose activation ranges come from patches x [N,H,W],
    layer after layer on the already quantised layers' outputs.

    rule: "minmax", or a percentile such as 99.99 applied to both tails."""
    qnet = {"s_in": F32(1.0), "zp_in": 0, "layers": []}
    x = np.asarray(x, F32)[:, None]
    aq, zp, s_a = requant(x, F32(1.0), 0), 0, F32(1.0)
    for w, b, slope in layers:
        layer = quantise_layer(w, b, s_a)
        qnet["layers"].append(layer)
        if slope is None:
            break
        layer["slope"] = slope
        v = prelu(conv_out(aq, zp, layer), slope)
        if rule == "minmax":
            lo, hi = v.min(), v.max()
        else:
            lo, hi = np.percentile(v, [100.0 - float(rule), float(rule)])
        layer["s_out"], layer["zp_out"] = act_params(lo, hi)
        aq, zp, s_a = requant(v, layer["s_out"], layer["zp_out"]), layer["zp_out"], layer["s_out"]
    return qnet


def float_forward(layers, x):
    """Float network on byte images [N,H,W] (torch, float32) -> [N,2H,2W]."""
    import torch
    import torch.nn.functional as F
    with torch.no_grad():
        t = torch.from_numpy(np.asarray(x, F32)[:, None])
        y = t
        for w, b, slope in layers:
            y = F.conv2d(y, torch.from_numpy(w), torch.from_numpy(b), padding=1)
            if slope is not None:
                y = F.prelu(y, torch.from_numpy(slope))
        return F.pixel_shuffle(y + t, 2)[:, 0].numpy()


def evaluate(fn, pairs):
    return float(np.mean([data.psnr_y(to_bytes(fn(lr)), hr) for lr, hr in pairs]))


# --------------------------------------------------- quantisation-aware tuning

def qat(layers, qnet, sampler, args, log):
    """Fine-tunes the float weights through fake quantisation; returns the
    tuned float layers and the learned activation ranges."""
    import torch
    import torch.nn.functional as F

    def ste(t):
        return t + (torch.round(t) - t).detach()

    n = len(layers)
    dev = torch.device(args.device)
    # Parameters in train.py's 0..1 scale, so Adam's steps match the training
    # run's: the first conv takes bytes / 255, the last gives (out - 0.5) / 255.
    ws = [torch.tensor(w * (255.0 if i == 0 else 1.0) / (255.0 if i == n - 1 else 1.0), device=dev)
          for i, (w, _, _) in enumerate(layers)]
    bs = [torch.tensor(b if i < n - 1 else (b - 0.5) / 255.0, device=dev) for i, (_, b, _) in enumerate(layers)]
    slopes = [torch.tensor(s, device=dev) for _, _, s in layers[:-1]]
    los, his = [], []
    for layer in qnet["layers"][:-1]:
        s, zp = float(layer["s_out"]), layer["zp_out"]
        los.append(torch.tensor(-zp * s, device=dev))
        his.append(torch.tensor((255 - zp) * s, device=dev))
    params = ws + bs + slopes
    for p in params + los + his:
        p.requires_grad_(True)
    opt = torch.optim.Adam([{"params": params}, {"params": los + his, "lr": args.lr * 10}], lr=args.lr)

    def byte_params(i):
        w, b = ws[i], bs[i]
        if i == 0:
            w = w / 255.0
        if i == n - 1:
            w, b = w * 255.0, b * 255.0 + 0.5
        return w, b

    def forward(x):
        a, s_a = x, torch.tensor(1.0, device=dev)  # byte input: s_in = 1, zp_in = 0 is exact
        for i in range(n):
            w, b = byte_params(i)
            sw = (w.detach().abs().amax(dim=(1, 2, 3)) / 127.0).clamp_min(1e-12)
            wf = ste(w / sw[:, None, None, None]).clamp(-127, 127) * sw[:, None, None, None]
            S = (s_a * sw).detach()
            v = F.conv2d(a, wf, ste(b / S) * S, padding=1)
            if i == n - 1:
                return F.pixel_shuffle(v + x, 2)
            v = F.prelu(v, slopes[i])
            s = (his[i] - los[i]).clamp_min(1e-6) / 255.0
            zp = torch.clamp(torch.round(-los[i] / s), 0, 255).detach()
            a = (torch.clamp(ste(v / s) + zp, 0, 255) - zp) * s
            s_a = s

    def snapshot():
        tuned = []
        with torch.no_grad():
            for i in range(n):
                w, b = byte_params(i)
                tuned.append((w.cpu().numpy().astype(F32), b.cpu().numpy().astype(F32),
                              slopes[i].cpu().numpy().astype(F32) if i < n - 1 else None))
            ranges = [(float(lo), float(hi)) for lo, hi in zip(los, his)]
        return tuned, ranges

    # The fake-quantised forward must start where the integer network is.
    probe = np.rint(sampler.batch(4, args.edge_zero)[0][:, 0] * 255.0).astype(F32)
    with torch.no_grad():
        fake = forward(torch.from_numpy(probe[:, None]).to(dev))[:, 0].cpu().numpy()
    print(f"qat: start, max |fake-quant - integer| = {np.abs(fake - run_int(qnet, probe)).max():.3g}", flush=True)
    # The run's length is --qat-iters steps or --qat-seconds of stepping (a
    # GPU's speed is not known beforehand); the rate follows a cosine over it.
    t0 = time.time()

    def progress(it):
        return min(1.0, (time.time() - t0) / args.qat_seconds if args.qat_seconds else it / args.qat_iters)
    sched = torch.optim.lr_scheduler.LambdaLR(opt, lambda i: 0.01 + 0.99 * 0.5 * (1 + math.cos(math.pi * progress(i))))
    running, it, since = 0.0, 0, 0
    while progress(it) < 1.0:
        it += 1
        since += 1
        lr_patch, hr_patch, mask = sampler.batch(args.batch, args.edge_zero)
        x = torch.from_numpy(np.rint(lr_patch * 255.0)).to(dev)
        if args.target == "float":
            # The float network's own output: the quantisation error alone,
            # without the network's error against the truth, drives the steps.
            y = torch.from_numpy(float_forward(layers, x.cpu().numpy()[:, 0])[:, None]).to(dev) / 255.0
        else:
            # The file's output carries half a level for the plug-in's
            # truncation; the target does not.
            y = torch.from_numpy(hr_patch).to(dev) + 0.5 / 255.0
        m = torch.from_numpy(mask).to(dev)
        loss = ((forward(x) / 255.0 - y).abs() * m).sum() / m.sum()
        opt.zero_grad(set_to_none=True)
        loss.backward()
        opt.step()
        sched.step()
        running += loss.detach()
        if it % args.eval_every == 0 or progress(it) >= 1.0:
            running = float(running) / since
            tuned, ranges = snapshot()
            qn = from_ranges(tuned, ranges)
            psnr = evaluate(lambda lr: run_int(qn, lr[None].astype(F32))[0], args.set5)
            print(f"qat {it:5d}  loss {running:.5f}  set5 (integer) {psnr:.3f} dB  "
                  f"{(time.time() - t0) / 60:.1f} min", flush=True)
            log.append({"iter": it, "loss": running, "set5_int": psnr, "minutes": (time.time() - t0) / 60})
            running, since = 0.0, 0
            torch.save({"layers": tuned, "ranges": ranges, "iter": it}, os.path.join(args.run_dir, "qat.pt"))
    return snapshot()


def from_ranges(layers, ranges):
    qnet = {"s_in": F32(1.0), "zp_in": 0, "layers": []}
    s_a = F32(1.0)
    for i, (w, b, slope) in enumerate(layers):
        layer = quantise_layer(w, b, s_a)
        if slope is not None:
            layer["slope"] = slope
            layer["s_out"], layer["zp_out"] = act_params(*ranges[i])
            s_a = layer["s_out"]
        qnet["layers"].append(layer)
    return qnet


# ---------------------------------------------------------------------- main

def write_reference(path, models):
    """int32 H, W, the H x W input bytes (kept from the file), then simulate()
    of RTC.onnx and of RTC_degrade.onnx on them, float32."""
    with open(path, "rb") as f:
        h, w = (int(v) for v in np.frombuffer(f.read(8), "<i4"))
        img = np.frombuffer(f.read(h * w), np.uint8).reshape(h, w)
    outs = [simulate(os.path.join(models, name), img).astype("<f4") for name in ("RTC.onnx", "RTC_degrade.onnx")]
    with open(path, "wb") as f:
        f.write(np.array([h, w], "<i4").tobytes() + img.tobytes() + b"".join(o.tobytes() for o in outs))


def check_onnxruntime(path, img, want):
    """Runs the file by onnxruntime where it is installed; a peer, not a reference."""
    try:
        import onnxruntime as ort
    except ImportError:
        return None
    sess = ort.InferenceSession(path, providers=["CPUExecutionProvider"])
    got = sess.run([OUTPUT], {INPUT: img.astype(F32)[None, None]})[0][0, 0]
    return float(np.abs(got - want).max())


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--float", dest="float_path", help="float network file")
    ap.add_argument("--out", help="QDQ file to write")
    ap.add_argument("--data", default=os.path.join(here, "..", "..", "shared", "data", "sr"))
    ap.add_argument("--calib-patches", type=int, default=256)
    ap.add_argument("--range", default="auto",
                    help="activation range rule: minmax, a percentile (99.99), or auto (best on calibration patches)")
    ap.add_argument("--qat-iters", type=int, default=0)
    ap.add_argument("--qat-seconds", type=float, help="length of the fine-tune in seconds instead of --qat-iters")
    ap.add_argument("--device", default="cpu", help="where the fine-tune runs: cpu, cuda or cuda:N")
    ap.add_argument("--lr", type=float, default=1e-4)
    ap.add_argument("--target", choices=("hr", "float"), default="hr",
                    help="fine-tune towards the HR patches or towards the float network's output")
    ap.add_argument("--batch", type=int, default=16)
    ap.add_argument("--patch", type=int, default=48)
    ap.add_argument("--edge-zero", type=float, default=0.5)
    ap.add_argument("--eval-every", type=int, default=500)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--threads", type=int, default=0)
    ap.add_argument("--run-dir", help="checkpoints and results (default training/runs/quant-<name>)")
    ap.add_argument("--simulate", help="QDQ file to run on --input")
    ap.add_argument("--input", help="raw uint8 image, H x W")
    ap.add_argument("--h", type=int)
    ap.add_argument("--w", type=int)
    ap.add_argument("--output", help="raw float32 output, 2H x 2W")
    ap.add_argument("--reference", help="rewrite the shipped networks' test fixture (tests/fixtures/"
                    "shipped_int8.ref) for models/, keeping its input")
    args = ap.parse_args()

    if args.reference:
        write_reference(args.reference, os.path.join(here, "..", "models"))
        return
    if args.simulate:
        img = np.fromfile(args.input, np.uint8).reshape(args.h, args.w)
        simulate(args.simulate, img).astype("<f4").tofile(args.output)
        return
    if not (args.float_path and args.out):
        ap.error("--float and --out are required")
    import torch
    if args.threads:
        torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    name = os.path.splitext(os.path.basename(args.float_path))[0]
    args.run_dir = args.run_dir or os.path.join(here, "runs", f"quant-{name}")
    os.makedirs(args.run_dir, exist_ok=True)

    t0 = time.time()
    layers, float_model = read_float(args.float_path)
    sampler = data.PatchSampler(data.training_pairs_cached(args.data, os.path.join(here, "runs", "train-pairs.pkl")),
                                args.patch, args.seed)
    args.set5 = data.validation_set(args.data, "set5")
    set14 = data.validation_set(args.data, "set14")
    print(f"data: {time.time() - t0:.1f} s", flush=True)

    # Calibration patches: as the fine-tune saw them, half with a zeroed edge.
    calib = np.rint(sampler.batch(args.calib_patches, args.edge_zero)[0][:, 0] * 255.0)
    held = np.rint(sampler.batch(64, args.edge_zero)[0][:, 0] * 255.0)
    want = float_forward(layers, held)
    rules = ["minmax", "99.999", "99.99", "99.9"] if args.range == "auto" else [args.range]
    t0 = time.time()
    best = None
    for rule in rules:
        qn = calibrate(layers, calib, rule)
        err = float(np.mean((run_int(qn, held) - want) ** 2))
        print(f"calibration {rule}: output MSE on held-out patches {err:.4f}", flush=True)
        if best is None or err < best[0]:
            best = (err, rule, qn)
    _, rule, qnet = best
    print(f"calibration: {rule}, {time.time() - t0:.1f} s", flush=True)

    def int_eval(qn):
        return lambda lr: run_int(qn, lr[None].astype(F32))[0]

    t0 = time.time()
    table = {"float": {"set5": evaluate(lambda lr: float_forward(layers, lr[None])[0], args.set5),
                       "set14": evaluate(lambda lr: float_forward(layers, lr[None])[0], set14)},
             "ptq": {"set5": evaluate(int_eval(qnet), args.set5), "set14": evaluate(int_eval(qnet), set14)}}
    print(f"evaluation: {time.time() - t0:.1f} s", flush=True)
    result = {"float": args.float_path, "range_rule": rule, "table": table}
    ptq_path = os.path.join(args.run_dir, f"{name}_ptq_int8.onnx")
    write_qdq(qnet, float_model, ptq_path)
    final = ptq_path

    if args.qat_iters or args.qat_seconds:
        t0 = time.time()
        log = []
        tuned, ranges = qat(layers, qnet, sampler, args, log)
        qat_path = os.path.join(args.run_dir, f"{name}_qat_int8.onnx")
        write_qdq(from_ranges(tuned, ranges), float_model, qat_path)
        qn = read_qdq(qat_path)
        table["qat"] = {"set5": evaluate(int_eval(qn), args.set5), "set14": evaluate(int_eval(qn), set14)}
        result["qat_minutes"] = (time.time() - t0) / 60
        result["qat_log"] = log
        final = qat_path

    # The written file, read back, must be the network just evaluated.
    with open(final, "rb") as f:
        blob = f.read()
    with open(args.out, "wb") as f:
        f.write(blob)
    img = args.set5[0][0]
    sim = simulate(args.out, img)
    ort_err = check_onnxruntime(args.out, img, sim)
    result["written"] = args.out
    result["onnxruntime_max_abs_diff"] = ort_err
    print(f"{'':8s} {'set5':>8s} {'set14':>8s}")
    for k, row in table.items():
        print(f"{k:8s} {row['set5']:8.3f} {row['set14']:8.3f}   "
              f"({row['set5'] - table['float']['set5']:+.3f} / {row['set14'] - table['float']['set14']:+.3f})")
    print(f"wrote {args.out} ({'QAT' if final != ptq_path else 'PTQ'}), {len(blob)} bytes; onnxruntime "
          + ("not installed" if ort_err is None else f"max |ort - simulation| = {ort_err:.3g}"))
    with open(os.path.join(args.run_dir, "result.json"), "w") as f:
        json.dump(result, f, indent=1)


if __name__ == "__main__":
    main()
