"""Prints the table of times in Docs/library.md: the library beside its peers, in one run. scripts/library calls it.

The times are the processor's, of all threads together, which other work on the machine disturbs least."""
import os
import platform
import time

import cv2
import numpy
import skimage.restoration

import bilateral_blur

WIDTH, HEIGHT, RADIUS, THRESHOLD, REPETITIONS = 1280, 720, 8, 0.1, 5
DIAMETER, SIGMA = 2 * RADIUS + 1, RADIUS / 2

rows, columns = numpy.mgrid[:HEIGHT, :WIDTH]
shades = numpy.stack([columns / WIDTH, rows / HEIGHT, (columns // 160 + rows // 90) % 2 * 0.4 + 0.3], axis=2)
floats = (shades + numpy.random.default_rng(1).normal(0, 0.04, shades.shape)).clip(0, 1).astype(numpy.float32)
bytes8 = (floats * 255).round().astype(numpy.uint8)
words = (floats * 65535).round().astype(numpy.uint16)


def smooth(image):
    return lambda: bilateral_blur.bilateral_smooth(image, RADIUS, THRESHOLD)


def opencv(image, full_scale):
    return lambda: cv2.bilateralFilter(image, DIAMETER, THRESHOLD * full_scale, SIGMA)


def scikit_image(image):
    return lambda: skimage.restoration.denoise_bilateral(image, win_size=DIAMETER, sigma_color=THRESHOLD,
                                                         sigma_spatial=SIGMA, mode="edge", channel_axis=2)


CALLS = {
    ("8 bits", "bilateral_smooth"): smooth(bytes8),
    ("8 bits", "cv2"): opencv(bytes8, 255),
    ("8 bits", "skimage"): scikit_image(bytes8),
    ("16 bits", "bilateral_smooth"): smooth(words),
    ("16 bits", "skimage"): scikit_image(words),
    ("float", "bilateral_smooth"): smooth(floats),
    ("float", "cv2"): opencv(floats, 1),
    ("float", "skimage"): scikit_image(floats),
}
times = {call: [] for call in CALLS}
for repetition in range(REPETITIONS):
    for call, function in CALLS.items():
        if call[1] != "skimage" or repetition == 0:  # minutes, otherwise
            start = time.process_time()
            function()
            times[call].append(time.process_time() - start)

with open("/proc/cpuinfo", encoding="utf-8") as information:
    model = next(line.split(": ")[1].strip() for line in information if line.startswith("model name"))
print(f"{model}, {len(os.sched_getaffinity(0))} cores, Python {platform.python_version()}, OpenCV {cv2.__version__}, "
      f"scikit-image {skimage.__version__}\n")
PEERS = "bilateral_smooth", "cv2", "skimage"
print("| Samples | `bilateral_smooth` | `cv2.bilateralFilter` | `denoise_bilateral` |\n|---|---|---|---|")
for depth in "8 bits", "16 bits", "float":
    best = [min(times.get((depth, peer), [numpy.nan])) * 1000 for peer in PEERS]
    print(f"| {depth} | " + " | ".join("-" if numpy.isnan(ms) else f"{ms:.0f} ms" for ms in best) + " |")
