"""Checks of the integer simulation the engine is compared against.

    /usr/bin/python3 -m unittest training/test_quantize.py
"""
import os
import sys
import tempfile
import unittest

import numpy as np
import onnx

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import quantize as q  # noqa: E402

F32 = np.float32


def reference(qnet, img):
    """One pixel at a time, straight from the rules in quantize.py's docstring."""
    x = img.astype(F32)
    a = np.clip(np.rint(x / qnet["s_in"]) + qnet["zp_in"], 0, 255).astype(np.int64)[None]
    zp = qnet["zp_in"]
    h, w = img.shape
    for layer in qnet["layers"]:
        o_n, c_n = layer["wq"].shape[:2]
        v = np.zeros((o_n, h, w), F32)
        for o in range(o_n):
            for y in range(h):
                for xx in range(w):
                    acc = int(layer["bq"][o])
                    for c in range(c_n):
                        for ky in range(3):
                            for kx in range(3):
                                yy, xk = y + ky - 1, xx + kx - 1
                                if 0 <= yy < h and 0 <= xk < w:
                                    acc += int(layer["wq"][o, c, ky, kx]) * (int(a[c, yy, xk]) - zp)
                    t = F32(acc) * layer["S"][o]
                    if "slope" in layer and t < 0:
                        t = F32(t * layer["slope"][o])
                    v[o, y, xx] = t
        if "slope" not in layer:
            break
        a = np.clip(np.rint(v / layer["s_out"]) + layer["zp_out"], 0, 255).astype(np.int64)
        zp = layer["zp_out"]
    out = np.zeros((2 * h, 2 * w), F32)
    for c in range(4):
        out[c // 2::2, c % 2::2] = v[c] + x
    return out


class IntegerSimulation(unittest.TestCase):
    def setUp(self):
        rng = np.random.default_rng(3)
        shapes = [(3, 1), (3, 3), (4, 3)]
        self.layers = [(rng.normal(0, 0.3, (o, i, 3, 3)).astype(F32) / (255 if k == 0 else 1),
                        rng.normal(0, 0.5, o).astype(F32), rng.uniform(0, 0.3, o).astype(F32) if o != 4 else None)
                       for k, (o, i) in enumerate(shapes)]
        self.img = rng.integers(0, 256, (5, 7)).astype(np.uint8)
        # Calibrated on other data, so that some activations saturate.
        self.qnet = q.calibrate(self.layers, rng.integers(60, 200, (2, 6, 6)), "minmax")

    def test_matches_pixel_reference_bit_for_bit(self):
        got = q.run_int(self.qnet, self.img[None].astype(F32))[0]
        self.assertTrue(np.array_equal(got.view(np.uint32), reference(self.qnet, self.img).view(np.uint32)))
        # Ties go to even, both in the input's and in the hidden layers' quantisation.
        ties = q.requant(np.array([0.5, 1.5, 2.5, -0.5, -1.5], F32), F32(1), 2)
        self.assertEqual(ties.tolist(), [2, 4, 4, 2, 0])

    def test_file_round_trip_and_closeness_to_float(self):
        float_model = onnx.helper.make_model(onnx.helper.make_graph(
            [], "g", [onnx.helper.make_tensor_value_info(q.INPUT, onnx.TensorProto.FLOAT, [1, 1, "H", "W"])],
            [onnx.helper.make_tensor_value_info(q.OUTPUT, onnx.TensorProto.FLOAT, [1, 1, "H2", "W2"])]))
        with tempfile.TemporaryDirectory() as d:
            path = os.path.join(d, "n.onnx")
            q.write_qdq(self.qnet, float_model, path)
            got = q.simulate(path, self.img)
            self.assertTrue(np.array_equal(got, q.run_int(self.qnet, self.img[None].astype(F32))[0]))
            m = onnx.load(path)
            scale = next(t for t in m.graph.initializer if t.name == "conv1.bias_scale")
            scale.CopyFrom(onnx.numpy_helper.from_array(onnx.numpy_helper.to_array(scale) * F32(1.001),
                                                        scale.name))
            with self.assertRaises(ValueError):
                q.read_qdq(m)
        want = q.float_forward(self.layers, self.img[None])[0]
        self.assertLess(np.abs(got - want).max(), 3.0)


if __name__ == "__main__":
    unittest.main()
