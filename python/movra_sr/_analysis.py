"""Bursts whose answer is known, and how near an image comes to it."""

import dataclasses
from typing import Any, Optional, Tuple

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._arrays import as_image
from ._burst import register
from ._errors import Error, InvalidArgument, Status


@dataclasses.dataclass(frozen=True)
class SimulatedBurst:
    """A burst whose answer is known.

    Attributes
    ----------
    frames : ndarray, frames x rows x columns
        float32, degrees Celsius.
    truth : ndarray, 2 rows x 2 columns
        The scene on the grid that the image has.
    shifts : ndarray, frames x 2
        (x, y) of each frame, in the form of `Result.shifts`.
    reference : int
        Number of the frame without motion.
    """

    frames: NDArray[np.float32]
    truth: NDArray[np.float32]
    shifts: NDArray[np.float64]
    reference: int


def _whole(name: str, value: int, low: int, high: int) -> int:
    if not low <= value <= high:
        raise InvalidArgument(f"{name}: expected {low} to {high}, got {value}", Status.INVALID_ARGUMENT)
    return int(value)


def _number(name: str, value: float, low: float, high: float) -> float:
    if not low <= value <= high:  # NaN too
        raise InvalidArgument(f"{name}: expected {low:g} to {high:g}, got {value}", Status.INVALID_ARGUMENT)
    return float(value)


def simulate(
    *,
    width: int = 320,
    height: int = 240,
    frames: int = 5,
    seed: int = 5,
    psf_sigma: float = 0.683,
    max_shift: float = 2.0,
    roll: float = 0.0,
    zoom: float = 0.0,
    parallax: float = 0.0,
    shutter: float = 0.0,
    noise: float = 0.05,
    drift: float = 0.0,
    pattern: float = 0.0,
    stuck: int = 0,
) -> SimulatedBurst:
    """Make a burst as ``movra-sr simulate`` does: the same numbers for the same arguments.

    Parameters
    ----------
    width, height : int
        Size of a frame, 16 to 2048.
    frames : int
        How many, 1 to 1000.
    seed : int
        Decides scene, motion and noise.
    psf_sigma : float
        Standard deviation of the total blur, high-resolution pixels, 0.578 to 10.
    max_shift : float
        Largest displacement per axis, low-resolution pixels, up to 50.
    roll, zoom : float
        Degrees; percent.
    parallax, shutter : float
        Low-resolution pixels.
    noise, drift, pattern : float
        Degrees: noise per pixel, change of level over the burst, offset per pixel.
    stuck : int
        Pixels that hold one value.

    Examples
    --------
    >>> from movra_sr import simulate
    >>> burst = simulate(width=32, height=24, frames=3)
    >>> burst.frames.shape, burst.truth.shape, burst.shifts[burst.reference].tolist()
    ((3, 24, 32), (48, 64), [0.0, 0.0])
    """
    width, height = _whole("width", width, 16, 2048), _whole("height", height, 16, 2048)
    stack, truth, shifts, reference = _core.simulate(
        width=width,
        height=height,
        frames=_whole("frames", frames, 1, 1000),
        seed=_whole("seed", seed, 0, 2**64 - 1),
        psf_sigma=_number("psf_sigma", psf_sigma, 0.578, 10),
        max_shift=_number("max_shift", max_shift, 0, 50),
        roll=_number("roll", roll, 0, 45),
        zoom=_number("zoom", zoom, 0, 20),
        parallax=_number("parallax", parallax, 0, 50),
        shutter=_number("shutter", shutter, 0, 50),
        noise=_number("noise", noise, 0, 1e6),
        drift=_number("drift", drift, -1e6, 1e6),
        pattern=_number("pattern", pattern, 0, 1e6),
        stuck=_whole("stuck", stuck, 0, width * height // 4),
    )
    return SimulatedBurst(stack, truth, shifts, reference)


@dataclasses.dataclass(frozen=True)
class Comparison:
    """How near an image comes to a truth.

    Attributes
    ----------
    psnr : float
        Peak signal-to-noise ratio in dB, the peak being the range of the truth.
    ssim : float
        Mean structural similarity, 1 for equal images.
    enlarged : bool
        Whether the image had half the truth's size and was enlarged bicubically (a = -0.75) first.
    """

    psnr: float
    ssim: float
    enlarged: bool


def compare(image: Any, truth: Any, *, border: int = 8) -> Comparison:
    """Compare an image with a truth of its size, or a frame with one of twice its size.

    Parameters
    ----------
    image, truth : array_like, rows x columns
    border : int
        Pixels left out on each side, where not all frames have seen the scene.

    Examples
    --------
    >>> from movra_sr import compare, simulate
    >>> truth = simulate(width=32, height=32).truth
    >>> compare(truth, truth)
    Comparison(psnr=inf, ssim=1.0, enlarged=False)
    """
    a, b = as_image(image, "image"), as_image(truth, "truth")
    enlarged = 2 * a.shape[0] == b.shape[0] and 2 * a.shape[1] == b.shape[1]
    if enlarged:
        a = _core.enlarge(np.ascontiguousarray(a))
    if a.shape != b.shape:
        raise InvalidArgument(f"image: expected shape {b.shape} or half of it, got {a.shape}", Status.INVALID_ARGUMENT)
    if border < 0 or min(b.shape) < 2 * border + 11:
        raise InvalidArgument(f"border: {border} leaves less than 11 x 11 pixels of {b.shape}", Status.INVALID_ARGUMENT)
    inner = slice(border, -border or None)
    a, b = np.ascontiguousarray(a[inner, inner]), np.ascontiguousarray(b[inner, inner])
    if not (np.isfinite(a).all() and np.isfinite(b).all()):
        raise InvalidArgument("image and truth: have pixels that are not finite", Status.INVALID_ARGUMENT)
    if b.min() == b.max():
        raise InvalidArgument("truth: has one value throughout", Status.INVALID_ARGUMENT)
    psnr, ssim = _core.compare(a, b)
    return Comparison(psnr, ssim, enlarged)


@dataclasses.dataclass(frozen=True)
class EdgePsf:
    """Blur of a camera, measured from an edge.

    Attributes
    ----------
    x, y : (float, float) or None
        Total blur along the axis as a standard deviation in high-resolution pixels, which is ``psf_sigma``, and its
        standard error. None where there is no such edge.
    interpolated : str
        Whether the camera made up rows or columns, in words; nothing can be gained along that axis.
    """

    x: Optional[Tuple[float, float]]
    y: Optional[Tuple[float, float]]
    interpolated: str


def measure_psf(image: Any) -> EdgePsf:
    """Measure the point-spread function from one frame with a straight, slightly slanted edge.

    Parameters
    ----------
    image : array_like, rows x columns
        Such as a hot plate before a cold wall.

    Raises
    ------
    Error
        If the frame has no edge that can be measured, with the reason.

    Examples
    --------
    >>> import numpy as np
    >>> from movra_sr import measure_psf
    >>> y, x = np.mgrid[0:96, 0:128]
    >>> edge = 20 + 10 / (1 + np.exp(-(x - 64 - 0.1 * (y - 48)) / 0.35))
    >>> measure_psf(edge).x is not None
    True
    """
    text, measured, x, y, interpolated = _core.measure_psf(np.ascontiguousarray(as_image(image, "image")))
    if not measured:
        raise Error(text)
    return EdgePsf(x, y, interpolated)


def find_bad_pixels(stack: Any, **options: Any) -> NDArray[np.bool_]:
    """Find the pixels that a moving burst shows to be stuck, offset or flickering, as `reconstruct` does.

    Without motion, or in 8-bit frames, none is found. One burst may be wrong: a pixel that two showed is certain.

    Parameters
    ----------
    stack : array_like, frames x rows x columns
    **options
        Those of `Burst` that concern the motion.

    Returns
    -------
    ndarray of bool, rows x columns
        As ``bad_pixels`` of `Burst` takes it.

    Examples
    --------
    >>> from movra_sr import find_bad_pixels, simulate
    >>> frames = simulate(width=64, height=48).frames
    >>> frames[:, 20, 30] = 90.0
    >>> bool(find_bad_pixels(frames)[20, 30])
    True
    """
    return register(stack, **options).bad_pixels
