"""Which arrays are taken, and how they become what the library reads."""

from typing import Any, List

import numpy as np
from numpy.typing import NDArray

from ._errors import InvalidArgument, Status

_LARGEST_EXACT = 2**24  # whole numbers up to this one are float32 values


def _fail(text: str) -> InvalidArgument:
    return InvalidArgument(text, Status.INVALID_ARGUMENT)


def as_image(image: Any, name: str) -> NDArray[np.float32]:
    """A 2-D float32 array with dense rows: the given one where it is so, else a copy.

    Examples
    --------
    >>> frame = np.zeros((3, 4), np.float32)
    >>> as_image(frame, "frame") is frame
    True
    >>> as_image(frame.astype(bool), "frame")
    Traceback (most recent call last):
    TypeError: frame: bool values are no temperatures or counts; give float or integer values
    """
    array: NDArray[Any] = np.asanyarray(image) if isinstance(image, np.ma.MaskedArray) else np.asarray(image)
    if array.ndim != 2:
        raise _fail(f"{name}: expected an image of rows x columns, got shape {array.shape}")
    if array.dtype.kind not in "fiu":
        raise TypeError(f"{name}: {array.dtype} values are no temperatures or counts; give float or integer values")
    if array.dtype.kind in "iu" and array.dtype.itemsize > 2 and array.size > 0:
        if int(array.max()) > _LARGEST_EXACT or int(array.min()) < -_LARGEST_EXACT:
            raise _fail(f"{name}: integers beyond 2**24 cannot be held by float32; scale them first")
    if isinstance(array, np.ma.MaskedArray):
        array = np.ma.filled(array.astype(np.float32), np.nan)  # type: ignore[no-untyped-call]
    if array.dtype != np.float32 or not array.dtype.isnative or not array.flags.aligned or not _has_dense_rows(array):
        with np.errstate(over="ignore"):  # what is too large becomes infinite, which is a bad pixel
            array = np.ascontiguousarray(array, dtype=np.float32)
    return array


def _has_dense_rows(array: NDArray[Any]) -> bool:
    row, element = array.strides
    return element == array.itemsize and row >= array.shape[1] * element and row % element == 0


def as_frames(stack: Any) -> List[NDArray[np.float32]]:
    """The frames of a stack: a 3-D array, or a sequence of 2-D arrays of one shape."""
    if isinstance(stack, np.ndarray) and stack.ndim != 3:
        raise _fail(f"stack: expected frames x rows x columns, got shape {stack.shape}")
    frames = [as_image(frame, f"frame {i}") for i, frame in enumerate(stack)]
    if not frames:
        raise InvalidArgument("stack: there are no frames in it", Status.NO_FRAMES)
    for i, frame in enumerate(frames):
        if frame.shape != frames[0].shape:
            raise _fail(f"frame {i}: is {_size(frame)}, but frame 0 is {_size(frames[0])}")
    return frames


def _size(frame: NDArray[Any]) -> str:
    return f"{frame.shape[0]} rows x {frame.shape[1]} columns"


def as_map(bad_pixels: Any, height: int, width: int) -> NDArray[np.uint8]:
    """The map of bad pixels as bytes."""
    array = np.asarray(bad_pixels)
    if array.dtype.kind not in "biu":
        raise TypeError(f"bad_pixels: expected a map of bool or integers, got {array.dtype}")
    if array.shape != (height, width):
        raise _fail(f"bad_pixels: expected shape {(height, width)}, got {array.shape}")
    return np.ascontiguousarray(array != 0).view(np.uint8)
