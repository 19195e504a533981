"""Collapses a trained network into plain convolutions and writes it as ONNX.

    python3 training/export.py CHECKPOINT OUT.onnx

Graph: "RTC_input" [1, 1, H, W] (luma 0..255) -> Conv/PRelu stack -> Conv to
4 channels, plus the input on each channel -> DepthToSpace(2) -> "161"
[1, 1, 2H, 2W]. The 1/255 input scale is folded into the first convolution and
the 255 output scale into the last, so the file works on byte values directly;
the last bias also carries OUTPUT_BIAS (see below).
After writing, the file is read back, run by a small interpreter of its own
nodes and compared with the training network on a random input.
"""
import os
import sys

import onnx
import torch
import torch.nn.functional as F
from onnx import TensorProto, helper, numpy_helper

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import model  # noqa: E402

INPUT, OUTPUT = "RTC_input", "161"
# The plug-in turns output floats into bytes by truncation, not rounding; half
# a level added to the last bias makes that truncation round.
OUTPUT_BIAS = 0.5


def collapsed_layers(net):
    """[(kernel, bias, prelu slope or None)] in byte scale."""
    layers = []
    blocks = net.blocks()
    for i, block in enumerate(blocks):
        k, b = block.collapse()
        if i == 0:
            k = k / 255.0
        if i == len(blocks) - 1:
            k, b = k * 255.0, b * 255.0 + OUTPUT_BIAS
        slope = net.acts[i].weight.detach().clone() if i < len(blocks) - 1 else None
        layers.append((k.float(), b.float(), slope))
    return layers


def _initializers(m):
    return {t.name: torch.from_numpy(numpy_helper.to_array(t).copy()) for t in m.graph.initializer}


def read_layers(path):
    """collapsed_layers of a written file, back in the training scale (the
    inverse of the 1/255 and 255 folds and of OUTPUT_BIAS)."""
    m = onnx.load(path)
    consts = _initializers(m)
    convs = [n for n in m.graph.node if n.op_type == "Conv"]
    slopes = {n.input[0]: consts[n.input[1]] for n in m.graph.node if n.op_type == "PRelu"}
    if not convs or any(n.op_type in ("QuantizeLinear", "DequantizeLinear") for n in m.graph.node):
        raise ValueError(f"{path}: not a float network written by this script")
    layers = []
    for i, node in enumerate(convs):
        k, b = consts[node.input[1]].double(), consts[node.input[2]].double()
        if i == 0:
            k = k * 255.0
        if i == len(convs) - 1:
            k, b = k / 255.0, (b - OUTPUT_BIAS) / 255.0
        slope = slopes.get(node.output[0])
        layers.append((k.float(), b.float(), None if slope is None else slope.reshape(-1)))
    return layers


def build_graph(layers):
    nodes, inits = [], []
    x = INPUT
    for i, (k, b, slope) in enumerate(layers):
        wn, bn, out = f"conv{i}.weight", f"conv{i}.bias", f"conv{i}"
        inits += [numpy_helper.from_array(k.numpy(), wn), numpy_helper.from_array(b.numpy(), bn)]
        nodes.append(helper.make_node("Conv", [x, wn, bn], [out], name=out, kernel_shape=[3, 3],
                                      pads=[1, 1, 1, 1]))
        x = out
        if slope is not None:
            sn, out = f"prelu{i}.slope", f"prelu{i}"
            inits.append(numpy_helper.from_array(slope.numpy().reshape(-1, 1, 1), sn))
            nodes.append(helper.make_node("PRelu", [x, sn], [out], name=out))
            x = out
    nodes.append(helper.make_node("Add", [x, INPUT], ["residual"], name="residual"))
    nodes.append(helper.make_node("DepthToSpace", ["residual"], [OUTPUT], name="depth_to_space",
                                  blocksize=2, mode="CRD"))
    graph = helper.make_graph(
        nodes, "vorlith_sr2x",
        [helper.make_tensor_value_info(INPUT, TensorProto.FLOAT, [1, 1, "H", "W"])],
        [helper.make_tensor_value_info(OUTPUT, TensorProto.FLOAT, [1, 1, "H2", "W2"])], inits)
    m = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)],
                          producer_name="vorlith-training")
    m.ir_version = 8
    onnx.checker.check_model(m)
    return m


def run_onnx(path, x):
    """Runs the file's nodes with torch ops: an independent reading of what
    was written, not of the network object."""
    m = onnx.load(path)
    consts = _initializers(m)
    vals = {INPUT: x}
    for node in m.graph.node:
        a = {at.name: helper.get_attribute_value(at) for at in node.attribute}
        ins = [vals.get(n, consts.get(n)) for n in node.input]
        if node.op_type == "Conv":
            p = a["pads"]
            y = F.conv2d(F.pad(ins[0], (p[1], p[3], p[0], p[2])), ins[1], ins[2])
        elif node.op_type == "PRelu":
            y = torch.where(ins[0] >= 0, ins[0], ins[0] * ins[1])
        elif node.op_type == "DepthToSpace":
            y = F.pixel_shuffle(ins[0], a["blocksize"])
        elif node.op_type == "Add":
            y = ins[0] + ins[1]
        else:
            raise ValueError(f"unexpected node {node.op_type}")
        vals[node.output[0]] = y
    return vals[OUTPUT]


@torch.no_grad()
def export(net, path):
    net.eval()
    m = build_graph(collapsed_layers(net))
    onnx.save(m, path)
    gen = torch.Generator().manual_seed(0)
    x = torch.rand(1, 1, 37, 52, generator=gen) * 255.0
    want = net(x / 255.0, branches=True) * 255.0 + OUTPUT_BIAS
    got = run_onnx(path, x)
    err = (got - want).abs().max().item()
    print(f"export: {path}, {os.path.getsize(path)} bytes, max |onnx - torch| = {err:.2e} on 0..255")
    if got.shape != (1, 1, 74, 104) or not err < 1e-2:
        raise SystemExit("export check failed: the written network does not match the trained one")
    return err


def main():
    if len(sys.argv) != 3:
        raise SystemExit(__doc__)
    state = torch.load(sys.argv[1], map_location="cpu")
    a = state["args"]
    net = model.build(a["net"], a.get("channels"), a.get("body"))
    net.load_state_dict(state["net"])
    export(net, sys.argv[2])


if __name__ == "__main__":
    main()
