#!/usr/bin/env python3
"""Times the networks in two peer runtimes, ONNX Runtime and OpenVINO, on CPU.

Each runtime gets the same ONNX files, the same frame sizes and the same
thread count as our engine's BM_Network, so that a table can set them
side by side. Prints one TSV line per (runtime, file, size), then a readable
table; with --ours (google-benchmark JSON from vorlith_bench_plugin) the
table also has our engine's column and our speed-up over the faster peer.

A runtime that is missing, or refuses a file, gets the reason in its cell
rather than stopping the rest.

Usage: peers.py [--threads N] [--sizes 640x360,1280x720] [--seconds S]
                [--ours bench.json] FILE.onnx...
"""
import argparse
import json
import os
import re
import statistics
import sys
import time

import numpy as np

INPUT = "RTC_input"
OUTPUT = "161"


def first_line(error):
    # OpenVINO leads with "Exception from <source>:<line>:" lines; skip them.
    text = [l.strip() for l in str(error).splitlines()]
    text = [l for l in text if l and not re.fullmatch(r"Exception from \S+:\d+:", l)]
    line = text[0] if text else type(error).__name__
    return line if len(line) <= 160 else line[:157] + "..."


def time_runs(run, seconds):
    """Median milliseconds of run() over about `seconds` of runs, after warming up."""
    warm_end = time.perf_counter() + min(0.3, seconds / 4)
    run()
    while time.perf_counter() < warm_end:
        run()
    times = []
    end = time.perf_counter() + seconds
    while time.perf_counter() < end or len(times) < 5:
        t0 = time.perf_counter()
        run()
        times.append(time.perf_counter() - t0)
    return 1e3 * statistics.median(times), len(times)


class OnnxRuntime:
    name = "ort"
    title = "ORT"

    def __init__(self, threads):
        import onnxruntime as ort

        self.ort = ort
        self.version = ort.__version__
        self.threads = threads

    def prepare(self, path, h, w):
        ort = self.ort
        options = ort.SessionOptions()
        options.intra_op_num_threads = self.threads
        options.inter_op_num_threads = 1
        options.execution_mode = ort.ExecutionMode.ORT_SEQUENTIAL
        session = ort.InferenceSession(path, options, providers=["CPUExecutionProvider"])
        return lambda x: session.run([OUTPUT], {INPUT: x})[0]


class OpenVino:
    name = "openvino"
    title = "OpenVINO"

    def __init__(self, threads):
        import openvino as ov

        self.ov = ov
        self.version = (ov.__version__ if hasattr(ov, "__version__") else ov.get_version()).split("-")[0]
        self.core = ov.Core()
        self.threads = threads

    def prepare(self, path, h, w):
        ov = self.ov
        model = self.core.read_model(path)
        model.reshape({INPUT: ov.PartialShape([1, 1, h, w])})
        # f32 pinned: on CPUs with bf16 instructions the default precision is
        # bf16, which would time a less exact network than the others run.
        config = {
            "INFERENCE_NUM_THREADS": self.threads,
            "PERFORMANCE_HINT": "LATENCY",
            "INFERENCE_PRECISION_HINT": "f32",
        }
        compiled = self.core.compile_model(model, "CPU", config)
        request = compiled.create_infer_request()
        output = compiled.output(OUTPUT)

        def run(x):
            request.infer({INPUT: x})
            return request.get_tensor(output).data

        return run


RUNTIMES = {"ort": OnnxRuntime, "openvino": OpenVino}


def parse_size(text):
    m = re.fullmatch(r"(\d+)x(\d+)", text)
    if not m:
        raise argparse.ArgumentTypeError(f"size {text!r} is not WxH")
    return int(m.group(1)), int(m.group(2))


def read_ours(path, threads):
    """Our engine's milliseconds from vorlith_bench_plugin's JSON, keyed by
    (real path of the network file, WxH)."""
    models = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "models")
    files = ["RTC.onnx", "RTC_degrade.onnx", "float/RTC.onnx", "float/RTC_degrade.onnx"]  # BM_Network's order
    frames = {"0": "640x360", "1": "1280x720"}
    with open(path) as f:
        data = json.load(f)
    ours = {}
    for b in data.get("benchmarks", []):
        m = re.match(r"BM_Network/frame:(\d+)/file:(\d+)/threads:(\d+)", b.get("name", ""))
        if not m or m.group(3) != str(threads) or b.get("run_type", "iteration") != "iteration":
            continue
        if "error_message" in b or b.get("error_occurred"):
            continue
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b.get("time_unit", "ns")]
        key = (os.path.realpath(os.path.join(models, files[int(m.group(2))])), frames[m.group(1)])
        ours[key] = b["real_time"] * scale
    return ours


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="+", help="ONNX files")
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--sizes", type=lambda t: [parse_size(s) for s in t.split(",")],
                        default=[(640, 360), (1280, 720)], help="frame sizes as WxH,WxH (default 640x360,1280x720)")
    parser.add_argument("--seconds", type=float, default=1.5, help="timed seconds per case (default 1.5)")
    parser.add_argument("--runtimes", default="ort,openvino", help="comma-separated: ort,openvino")
    parser.add_argument("--ours", help="vorlith_bench_plugin --benchmark_out JSON for our engine's column")
    args = parser.parse_args()

    rng = np.random.default_rng(1)
    inputs = {(w, h): rng.integers(0, 256, size=(1, 1, h, w)).astype(np.float32) for w, h in args.sizes}

    runtimes = []
    for key in args.runtimes.split(","):
        try:
            runtimes.append((key, RUNTIMES[key].title, RUNTIMES[key](args.threads), None))
        except Exception as e:  # a missing package or a bad key: report it in every cell
            runtimes.append((key, key, None, f"unavailable: {first_line(e)}"))

    print("# runtime\tversion\tfile\tsize\tthreads\tmedian_ms\truns\tnote")
    results = {}  # (runtime key, file, WxH) -> ms or reason
    for path in args.files:
        outputs = {}  # WxH -> first peer's output, to check that the peers agree
        for key, title, rt, reason in runtimes:
            for w, h in args.sizes:
                size = f"{w}x{h}"
                ms, runs, note = float("nan"), 0, ""
                if rt is None:
                    note = reason
                else:
                    try:
                        run = rt.prepare(path, h, w)
                        x = inputs[(w, h)]
                        y = np.asarray(run(x))
                        if list(y.shape) != [1, 1, 2 * h, 2 * w]:
                            raise RuntimeError(f"output shape {list(y.shape)}, want [1, 1, {2 * h}, {2 * w}]")
                        if size in outputs:
                            note = f"max |diff| vs {outputs[size][0]}: {np.max(np.abs(y - outputs[size][1])):.3g}"
                        else:
                            outputs[size] = (title, y.copy())
                        ms, runs = time_runs(lambda: run(x), args.seconds)
                        del run
                    except Exception as e:
                        note = f"failed: {first_line(e)}"
                version = rt.version if rt else "-"
                print(f"{key}\t{version}\t{path}\t{size}\t{args.threads}\t{ms:.3f}\t{runs}\t{note}", flush=True)
                results[(key, path, size)] = ms if runs else note

    ours = read_ours(args.ours, args.threads) if args.ours else None
    print()
    print(f"Median milliseconds per frame, {args.threads} threads"
          + ("; ours is google-benchmark's mean" if ours is not None else ""))
    header = ["network file", "size"]
    if ours is not None:
        header.append("ours ms")
    header += [f"{title} ms" for _, title, _, _ in runtimes]
    if ours is not None:
        header.append("speed-up")
    rows, notes = [], []

    def cell(value):
        if isinstance(value, float):
            return f"{value:.2f}"
        notes.append(value)
        return f"[{len(notes)}]"

    for path in args.files:
        for w, h in args.sizes:
            size = f"{w}x{h}"
            row = [path, size]
            mine = None
            if ours is not None:
                mine = ours.get((os.path.realpath(path), size))
                row.append(f"{mine:.2f}" if mine is not None else "-")
            peer_ms = []
            for key, _, _, _ in runtimes:
                value = results[(key, path, size)]
                row.append(cell(value))
                if isinstance(value, float):
                    peer_ms.append(value)
            if ours is not None:
                row.append(f"{min(peer_ms) / mine:.2f}x" if mine and peer_ms else "-")
            rows.append(row)
    widths = [max(len(r[i]) for r in rows + [header]) for i in range(len(header))]
    line = lambda r: "  ".join(c.ljust(widths[i]) if i < 2 else c.rjust(widths[i]) for i, c in enumerate(r))
    print(line(header))
    print("  ".join("-" * n for n in widths))
    for r in rows:
        print(line(r))
    for i, note in enumerate(notes, 1):
        print(f"[{i}] {note}")
    if ours is not None and any(r[2] == "-" for r in rows):
        print("ours: '-' where the file is not one of models/{,float/}RTC{,_degrade}.onnx, "
              "the networks vorlith_bench_plugin times")
    versions = ", ".join(f"{title} {rt.version}" for _, title, rt, _ in runtimes if rt)
    if versions:
        print(versions)
    return 0


if __name__ == "__main__":
    sys.exit(main())
