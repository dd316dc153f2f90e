"""Prints a table of signal-to-noise ratios: quality.py DIRECTORY PROGRAM. scripts/quality makes the directory."""
import subprocess
import sys

import cv2
import numpy

directory, program = sys.argv[1:]
clean = cv2.imread(f"{directory}/0.png")


def ratio(image):
    """The peak signal-to-noise ratio against the image without noise, in dB."""
    return 10 * numpy.log10(255**2 / numpy.mean((image.astype(float) - clean) ** 2))


def filtered(sigma, *options):
    output = f"{directory}/filtered.png"
    subprocess.run([program, "--quiet", f"{directory}/{sigma}.png", output, *options], check=True)
    return cv2.imread(output)


print("| Noise, sigma in levels | unfiltered | Bilateral Blur, scale 10 | Bilateral Smooth | OpenCV, same sigmas |")
print("|---|---|---|---|---|")
for sigma, radius, threshold in ((5, 3, 0.06), (10, 5, 0.1), (20, 5, 0.2)):
    noisy = cv2.imread(f"{directory}/{sigma}.png")
    smooth = filtered(sigma, "--effect", "bilateral-smooth", f"--radius={radius}", f"--threshold={threshold}")
    peer = cv2.bilateralFilter(noisy, 2 * radius + 1, 255 * threshold, radius / 2)
    blur = filtered(sigma, "--blur-scale=10")
    print(f"| {sigma} | {ratio(noisy):.1f} | {ratio(blur):.1f} "
          f"| {ratio(smooth):.1f} (radius {radius}, threshold {threshold}) | {ratio(peer):.1f} |")
