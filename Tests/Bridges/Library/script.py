"""Filters arrays through the installed module: script.py WIDTH HEIGHT INPUT16 SMOOTHED16. The files are raw RGBA of 16
bits: an image, and what the program bilateral-blur makes of it at radius 8 and threshold 0.05."""
import sys
import threading
import time

import numpy as np

from bilateral_blur import bilateral_blur, bilateral_smooth

width, height = map(int, sys.argv[1:3])
image, expected = (np.fromfile(name, np.uint16).reshape(height, width, 4) for name in sys.argv[3:])
bytes8 = (image >> 8).astype(np.uint8)
floats = image.astype(np.float32) / 65535


def require_equal(what, result, wanted):
    assert result.dtype == wanted.dtype and result.shape == wanted.shape, (what, result.dtype, result.shape)
    assert np.array_equal(result, wanted), (what, np.argwhere(result != wanted)[0])


require_equal("16 bits", bilateral_smooth(image), expected)
require_equal("16 bits, big end first", bilateral_smooth(image.astype(">u2")), expected.astype(">u2"))
assert np.abs(bilateral_smooth(floats) * 65535 - expected).max() < 0.52, "floats"
require_equal("beyond full scale", bilateral_smooth(floats * 3 - 1, 0), floats * 3 - 1)
require_equal("RGB", bilateral_smooth(bytes8[:, :, :3]),
              bilateral_smooth(np.dstack([bytes8[:, :, :3], np.full((height, width), 255, np.uint8)]))[:, :, :3])
for filtered in bilateral_blur, bilateral_smooth:
    kept = bytes8.copy()
    for cut in np.s_[::-2, ::3], np.s_[:, :, 1], np.s_[:, :, ::-1], np.s_[5:6, :, :2]:
        require_equal(cut, filtered(bytes8[cut]), filtered(bytes8[cut].copy()))
    require_equal("columns first", filtered(np.asfortranarray(bytes8)), filtered(bytes8))
    grey = bytes8[:, :, 1]
    require_equal("grey", filtered(grey), filtered(np.dstack([grey, grey, grey]))[:, :, 1])
    require_equal("the input", bytes8, kept)

for kind, said, call in (
        (ValueError, "blur scale must be an integer from 0 to 60", lambda: bilateral_blur(bytes8, 2**40)),
        (ValueError, "threshold must be a number from 0.001 to 1", lambda: bilateral_smooth(bytes8, 8, float("nan"))),
        (ValueError, f"(0, {width}), without a pixel", lambda: bilateral_blur(bytes8[:0, :, 0])),
        (ValueError, "with 1 to 4 channels", lambda: bilateral_blur(bytes8[None])),
        (TypeError, "takes 8 bits a channel only", lambda: bilateral_blur(image)),
        (TypeError, "float64. Convert them to uint8", lambda: bilateral_smooth(floats.astype(float))),
        (TypeError, "numpy.asarray", lambda: bilateral_smooth([[1]])),
        (TypeError, "radius is 1.5. Give an integer", lambda: bilateral_smooth(bytes8, 1.5))):
    try:
        call()
        raise AssertionError(f"no {kind.__name__}: {said}")
    except kind as error:
        assert said in str(error), error

counted = 0
worker = threading.Thread(target=bilateral_smooth, args=(np.tile(bytes8, (4, 4, 1)), 40))
worker.start()
while worker.is_alive():
    counted += 1
    time.sleep(0.001)
assert counted > 3, "the interpreter's lock is held meanwhile"
