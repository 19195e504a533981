"""vorlith.Upscaler from NumPy: frames of every kind, refusals, threads."""
import threading
import time

import numpy as np
import pytest

import vorlith


@pytest.fixture(scope="module")
def light():
    return vorlith.Upscaler(network="light")


def frame(h, w, seed=0, channels=None):
    shape = (h, w) if channels is None else (h, w, channels)
    return np.random.default_rng(seed).integers(0, 256, shape, dtype=np.uint8)


def test_enlarges_planes_nv12_and_rgb(light):
    y = frame(37, 53)
    y2 = light.enlarge(y)
    assert y2.shape == (74, 106) and y2.dtype == np.uint8
    # NV12 chroma as pairs or as interleaved rows; the luma as enlarge() gives it.
    uv = frame(19, 27, 2, channels=2)
    y2a, uv2a = light.enlarge_nv12(y, uv)
    y2b, uv2b = light.enlarge_nv12(y, uv.reshape(19, 54))
    assert np.array_equal(y2a, y2) and np.array_equal(y2b, y2)
    assert uv2a.shape == (37, 53, 2) and uv2b.shape == (37, 106)
    assert np.array_equal(uv2a.reshape(37, 106), uv2b)
    rgb = frame(9, 11, 3, channels=3)
    out = light.enlarge_rgb(rgb)
    assert out.shape == (18, 22, 3)
    assert vorlith.Upscaler(network="full").network == "full" and light.network == "light"


@pytest.mark.parametrize("call, error, words", [
    (lambda up: up.enlarge(np.zeros((4, 4), np.float32)), TypeError, "y must have dtype uint8, got float32"),
    (lambda up: up.enlarge(np.zeros((4, 4, 3), np.uint8)), ValueError, "y must be 2-D"),
    (lambda up: up.enlarge_nv12(np.zeros((4, 4), np.uint8), np.zeros((2, 3, 2), np.uint8)), ValueError,
     "uv must be 2x2, got 3x2"),
    (lambda up: up.enlarge_nv12(np.zeros((4, 4), np.uint8), np.zeros((2, 3), np.uint8)), ValueError,
     "even width"),
])
def test_refuses_bad_arrays(light, call, error, words):
    with pytest.raises(error, match=words.replace("(", r"\(").replace(")", r"\)")):
        call(light)


def test_refuses_bad_options(tmp_path):
    with pytest.raises(ValueError, match="network must be 'full', 'light' or 'auto'"):
        vorlith.Upscaler(network="huge")
    with pytest.raises(RuntimeError, match="cannot load"):
        vorlith.Upscaler(network="full", models=str(tmp_path))


def test_works_with_the_gil_released():
    # While the threads are inside enlarge(), a pure-Python loop on another
    # thread keeps running (with the GIL held through a call, none of its
    # ticks could fall in the middle half of one: at its edges the
    # interpreter may hand the GIL over for a switch interval), and two
    # Upscalers on two threads give what each gives alone.
    ups = [vorlith.Upscaler(network="full", threads=1) for _ in range(2)]
    frames = [frame(720, 1280, 10 + i) for i in range(2)]
    alone = [up.enlarge(f) for up, f in zip(ups, frames)]
    done = threading.Event()
    ticks = []

    def count():
        while not done.is_set():
            ticks.append(time.perf_counter())

    results, windows = [None, None], [None, None]

    def run(i):
        start = time.perf_counter()
        results[i] = ups[i].enlarge(frames[i])
        windows[i] = (start, time.perf_counter())

    counter = threading.Thread(target=count)
    counter.start()
    workers = [threading.Thread(target=run, args=(i,)) for i in range(2)]
    for t in workers:
        t.start()
    for t in workers:
        t.join()
    done.set()
    counter.join()
    assert all(np.array_equal(r, a) for r, a in zip(results, alone))
    for start, end in windows:
        quarter = (end - start) / 4
        assert sum(start + quarter < t < end - quarter for t in ticks) > 100
