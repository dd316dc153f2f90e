"""The effects "Bilateral Blur" and "Bilateral Smooth" for NumPy arrays.

An image is an array of height x width pixels: grey (H, W), or with channels (H, W, C): 1 grey, 2 grey and alpha, 3 red,
green, blue, 4 red, green, blue, alpha. Alpha is straight. Samples are uint8, uint16 or float32 of full scale 255, 65535
or 1, in any byte order and with any strides. A result is a new array of the same shape and kind, in C order.

Any thread may call. The interpreter runs on meanwhile: a call doesn't hold its lock.
"""
import ctypes
import operator

import numpy

__all__ = ["bilateral_blur", "bilateral_smooth"]

_LIBRARY = "libbilateralblur.so.0"
_DEPTHS = {"uint8": 8, "uint16": 16, "float32": 32}
_FAULTS = {11: TypeError, 12: MemoryError, 13: RuntimeError, 14: RuntimeError, 15: RuntimeError}  # else ValueError


class _Image(ctypes.Structure):
    _fields_ = [
        ("width", ctypes.c_size_t),
        ("height", ctypes.c_size_t),
        ("channels", ctypes.c_int),
        ("depth", ctypes.c_int),
        ("input", ctypes.c_void_p),
        ("input_stride", ctypes.c_ssize_t),
        ("output", ctypes.c_void_p),
        ("output_stride", ctypes.c_ssize_t),
    ]


def _load():
    try:
        library = ctypes.CDLL(_LIBRARY)
    except OSError as error:
        raise ImportError(f"{error}. Install the package libbilateralblur0, or set LD_LIBRARY_PATH to the directory "
                          f"with {_LIBRARY} before Python starts.") from error
    library.bilateral_blur_blur.argtypes = [ctypes.POINTER(_Image), ctypes.c_int]
    library.bilateral_blur_smooth.argtypes = [ctypes.POINTER(_Image), ctypes.c_int, ctypes.c_double]
    library.bilateral_blur_text.restype = ctypes.c_char_p
    return library


_library = _load()


def _filter(function, image, *values):
    if not isinstance(image, numpy.ndarray):
        raise TypeError(f"The image is of type {type(image).__name__}. Give a NumPy array: numpy.asarray(image).")
    depth = _DEPTHS.get(image.dtype.name)
    if depth is None:
        raise TypeError(f"The image's samples are {image.dtype.name}. Convert them to uint8, uint16 or float32.")
    if image.ndim not in (2, 3) or image.ndim == 3 and not 1 <= image.shape[2] <= 4:
        raise ValueError(f"The image's shape is {image.shape}. It must be (height, width), or (height, width, channels) "
                         "with 1 to 4 channels.")
    if image.size == 0:
        raise ValueError(f"The image's shape is {image.shape}, without a pixel. Leave empty images out.")
    height, width = image.shape[:2]
    source = numpy.require(image, image.dtype.newbyteorder("="), ["C", "A"])
    result = numpy.empty_like(source)
    stride = source.nbytes // height
    code = function(_Image(width, height, source.size // (width * height), depth, source.ctypes.data, stride,
                           result.ctypes.data, stride), *values)
    if code:
        raise _FAULTS.get(code, ValueError)(_library.bilateral_blur_text(code).decode())
    return result.astype(image.dtype, copy=False)


def _integer(name, value):
    """Within what C's int holds: what is far out of range stays out of range."""
    try:
        return max(-1, min(operator.index(value), 1000))
    except TypeError:
        raise TypeError(f"{name} is {value!r}. Give an integer.") from None


def bilateral_blur(image, blur_scale=20):
    """Smooths red and green, or grey, and keeps edges and blue.

    :param image: a uint8 array.
    :param blur_scale: how far the blur reaches, an integer from 0 to 60; an even one gives the result of the odd one
        below it.
    :returns: a new array.
    :raises TypeError: for what isn't a uint8 array, or isn't an integer.
    :raises ValueError: for a shape that isn't an image's, or a blur_scale that is out of range.
    :raises MemoryError: where there is no memory for the image.
    :raises RuntimeError: in a fork of a process that has filtered, and while Python ends.
    """
    return _filter(_library.bilateral_blur_blur, image, _integer("blur_scale", blur_scale))


def bilateral_smooth(image, radius=8, threshold=0.05):
    """Smooths all colours and keeps edges and alpha. Floats aren't limited to 0 to 1.

    :param image: a uint8, uint16 or float32 array.
    :param radius: how far the smoothing reaches, in pixels, an integer from 0 to 60.
    :param threshold: differences above it stay, as a part of full scale, from 0.001 to 1, in thousandths.
    :returns: a new array.
    :raises TypeError: for what isn't such an array, or isn't a number.
    :raises ValueError: for a shape that isn't an image's, or a number that is out of range.
    :raises MemoryError: where there is no memory for the image.
    :raises RuntimeError: in a fork of a process that has filtered, and while Python ends.
    """
    return _filter(_library.bilateral_blur_smooth, image, _integer("radius", radius), float(threshold))
