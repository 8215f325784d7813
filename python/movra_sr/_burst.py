"""Reconstruction."""

import dataclasses
import os
from typing import Any, Callable, Dict, List, Optional, Tuple, Union

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._arrays import as_frames, as_image, as_map
from ._errors import InvalidArgument, Status, check

_MOTIONS = {"local": 0, "global": 1}
_PRESETS = {"standard": 0, "fast": 1, "best": 2}
_REGISTRATIONS = {"corners": 0, "phase": 1}


@dataclasses.dataclass(frozen=True)
class ShiftField:
    """Shifts of all frames on a grid of places of the reference.

    Attributes
    ----------
    shifts : ndarray, frames x rows x columns x 2
        (x, y) at each place, low-resolution pixels. A single place stands for all.
    left, top : float
        Position of the first place in the reference.
    step_x, step_y : float
        Distance of the places.
    """

    shifts: NDArray[np.float32]
    left: float
    top: float
    step_x: float
    step_y: float


@dataclasses.dataclass(frozen=True)
class Result:
    """What a reconstruction gives.

    Attributes
    ----------
    image : ndarray, 2 rows x 2 columns
        float32, in the frames' unit. Pixels (2 y, 2 x) to (2 y + 1, 2 x + 1) cover pixel (y, x) of the reference.
    status : Status
        0, or above 0 for an image with a reservation; ``status.text`` says it in words.
    sr_factor : float
        How well the frames cover the image: 2 five of them everywhere, 1 one, 0.75 none.
    shifts : ndarray, frames x 2
        (x, y) of each frame at the middle of the reference: its position less the reference's, low-resolution pixels,
        x to the right, y downward. NaN for a frame that took no part.
    field : ShiftField
        The same on a grid of places.
    coverage : ndarray, rows x columns
        Number of frames that back each pixel of the reference.
    noise : float
        Standard deviation of a frame's noise, in the frames' unit; NaN where it is not measured.
    remarks : list of str
        Per frame "used", or why it was left out.
    reference : int
        Number of the frame whose place the image has.
    used_frames : int
        Frames that took part, the reference included.
    iterations, weight_tv, psf_sigma : float
        What the solver used.
    timings : dict
        Seconds per stage, and in all as ``"total"``.
    bad_pixels : ndarray of bool, rows x columns
        Pixels of the sensor that the burst showed to be bad, without those that were listed.
    doubtful_pixels : int
        Others that were left out because they differ from their neighbours in most frames.
    pattern, pattern_frames : ndarray, rows x columns
        Fixed pattern of the sensor that was taken out, and the number of frames that told it, 0 where nothing is known.
    """

    image: NDArray[np.float32]
    status: Status
    sr_factor: float
    shifts: NDArray[np.float64]
    field: ShiftField
    coverage: NDArray[np.uint16]
    noise: float
    remarks: List[str]
    reference: int
    used_frames: int
    iterations: float
    weight_tv: float
    psf_sigma: float
    timings: Dict[str, float]
    bad_pixels: NDArray[np.bool_]
    doubtful_pixels: int
    pattern: NDArray[np.float32]
    pattern_frames: NDArray[np.float32]


@dataclasses.dataclass(frozen=True)
class Registration:
    """Where the frames lie; see `Result` for the fields."""

    status: Status
    shifts: NDArray[np.float64]
    field: ShiftField
    coverage: NDArray[np.uint16]
    reference: int
    remarks: List[str]
    bad_pixels: NDArray[np.bool_]
    pattern: NDArray[np.float32]
    pattern_frames: NDArray[np.float32]


class Burst:
    """A stream of frames of one size, and reconstructions from those held.

    Parameters
    ----------
    width, height : int
        Size of a frame, 8 to 16384 pixels each.
    capacity : int, optional
        Most frames held; the oldest leaves for a newer one. By default all stay.
    frames : int or "all", optional
        Most frames that take part in local motion. Of more held, those that complement each other best are chosen;
        `Result.remarks` says why each other one was left out. By default 12, or 20 of noisy ones.
    motion : {"local", "global"}
        How frames move: each part of the image by itself, or each frame as a whole.
    preset : {"fast", "standard", "best"}
        Trade between time and picture. "fast" with global motion is what the classic C interface does, bit for bit.
    registration : {"corners", "phase"}
        How the shifts of the global motion are found.
    reference : int, optional
        Number of the frame whose place the image has, from 0; by default one that suits.
    valid_range : (float, float)
        Values outside are bad pixels.
    psf_sigma : float
        Standard deviation of the point-spread function, high-resolution pixels, 0.3 to 2 (global motion: from 0.01).
    weight_tv : float, optional
        Inverse strength of the smoothing, 1 to 10000.
    iterations : int, optional
        Most iterations of the solver, 1 to 1000.
    relative_residue : float, optional
        At which the solver stops, 1e-5 to 1.
    threads : int, optional
        Most threads of the local motion; by default one per processor that this process may use. The image has the same
        bits for any number.
    bad_pixels : array_like, rows x columns, optional
        Other than 0 where a pixel of the sensor is known to be bad.
    pattern : array_like, rows x columns, optional
        Fixed pattern of the sensor that is known from other bursts: `Result.pattern`, averaged over bursts.
    correct_offset, search_bad_pixels, correct_pattern : bool
        Whether local motion takes out differences of level, pixels and a pattern that the burst shows to be faulty.

    Raises
    ------
    InvalidArgument
        For an option out of its range, with its name.

    Examples
    --------
    >>> from movra_sr import Burst, simulate
    >>> stream = Burst(width=64, height=48, capacity=5)
    >>> for frame in simulate(width=64, height=48, frames=7, seed=1).frames:
    ...     stream.add_frame(frame)
    >>> len(stream), stream.reconstruct().used_frames
    (5, 5)
    """

    def __init__(
        self,
        *,
        width: int,
        height: int,
        capacity: Optional[int] = None,
        frames: Union[int, str, None] = None,
        motion: str = "local",
        preset: str = "standard",
        registration: str = "corners",
        reference: Optional[int] = None,
        valid_range: Tuple[float, float] = (-274.0, 5000.0),
        psf_sigma: float = 0.683,
        weight_tv: Optional[float] = None,
        iterations: Optional[int] = None,
        relative_residue: Optional[float] = None,
        threads: Optional[int] = None,
        bad_pixels: Any = None,
        pattern: Any = None,
        correct_offset: bool = True,
        search_bad_pixels: bool = True,
        correct_pattern: bool = True,
    ) -> None:
        if reference is not None and reference < 0:
            raise InvalidArgument(f"reference: frame numbers count from 0, got {reference}", Status.INVALID_ARGUMENT)
        if isinstance(frames, str) and frames != "all":
            raise InvalidArgument(f"frames: expected a number or \"all\", got {frames!r}", Status.INVALID_ARGUMENT)
        most: Optional[int] = -1 if isinstance(frames, str) else frames
        options = {
            "motion": _choice("motion", motion, _MOTIONS),
            "preset": _choice("preset", preset, _PRESETS),
            "registration": _choice("registration", registration, _REGISTRATIONS),
            "reference": -1 if reference is None else reference,
            "lowest_valid": float(valid_range[0]),
            "highest_valid": float(valid_range[1]),
            "psf_sigma": psf_sigma,
            "keep_offset": int(not correct_offset),
            "keep_bad_pixels": int(not search_bad_pixels),
            "keep_pattern": int(not correct_pattern),
            "threads": len(os.sched_getaffinity(0)) if threads is None else threads,
        }
        if options["threads"] < 1:
            raise InvalidArgument(f"threads: expected 1 or more, got {threads}", Status.INVALID_ARGUMENT)
        optional = {
            "capacity": capacity,
            "frames": most,
            "weight_tv": weight_tv,
            "iterations": iterations,
            "relative_residue": relative_residue,
        }
        for name, value in optional.items():
            if value is not None:
                if value == 0:
                    raise InvalidArgument(f"{name}: 0 is out of its range", Status.INVALID_ARGUMENT)
                options[name] = value
        try:
            self._handle = _core.BurstHandle(width, height, options)
        except ValueError as fault:
            raise InvalidArgument(str(fault), Status.INVALID_ARGUMENT) from None
        self._shape = (height, width)
        if bad_pixels is not None:
            self.set_bad_pixels(bad_pixels)
        if pattern is not None:
            self.set_pattern(pattern)

    def __len__(self) -> int:
        """Number of frames held."""
        return self._handle.frame_count()

    def add_frame(self, frame: Any) -> None:
        """Copy a frame (rows x columns) to the end of the burst.

        Raises
        ------
        BadFrame
            If no pixel is good, or too many cannot be repaired. Nothing is changed then.
        InvalidArgument
            For another shape than the burst's.
        TypeError
            For values that are no real numbers.
        """
        image = as_image(frame, "frame")
        if image.shape != self._shape:
            raise InvalidArgument(f"frame: expected shape {self._shape}, got {image.shape}", Status.INVALID_ARGUMENT)
        check(self._handle.add_frame(image), self._handle.error_text())

    def set_bad_pixels(self, bad_pixels: Any) -> None:
        """Say which pixels of the sensor are bad: a map (rows x columns), or None for no pixel."""
        bytes_or_none = None if bad_pixels is None else as_map(bad_pixels, *self._shape)
        check(self._handle.set_bad_pixels(bytes_or_none), self._handle.error_text())

    def set_pattern(self, pattern: Any) -> None:
        """Set the fixed pattern (rows x columns) that is taken out of every frame first, or None for none."""
        image = None if pattern is None else as_image(pattern, "pattern")
        if image is not None and image.shape != self._shape:
            raise InvalidArgument(f"pattern: expected shape {self._shape}, got {image.shape}", Status.INVALID_ARGUMENT)
        check(self._handle.set_pattern(image), self._handle.error_text())

    def clear(self) -> None:
        """Forget all frames."""
        self._handle.clear()

    def reconstruct(self, progress: Optional[Callable[[float], object]] = None) -> Result:
        """Make the image from all frames held, which stay.

        Parameters
        ----------
        progress : callable, optional
            Called with the share done, 0 to 1; False ends the reconstruction. It cannot use this burst.

        Raises
        ------
        NotRegistered, BadFrame, InvalidArgument, Cancelled, Error
        """
        code, image, particulars = self._handle.reconstruct(progress)
        status = check(code, self._handle.error_text())
        assert image is not None
        particulars.pop("frames")
        pattern, pattern_frames = self._handle.found_pattern()
        return Result(
            image=image,
            status=status,
            shifts=self._handle.shifts(),
            field=self._field(),
            coverage=self._handle.coverage(),
            remarks=self._handle.frame_texts(),
            bad_pixels=self._handle.found_bad_pixels().astype(bool),
            pattern=pattern,
            pattern_frames=pattern_frames,
            **particulars,
        )

    def register(self, progress: Optional[Callable[[float], object]] = None) -> Registration:
        """Measure where the frames lie, without the image; see `reconstruct`."""
        code, _, particulars = self._handle.register(progress)
        status = check(code, self._handle.error_text())
        pattern, pattern_frames = self._handle.found_pattern()
        return Registration(
            status=status,
            shifts=self._handle.shifts(),
            field=self._field(),
            coverage=self._handle.coverage(),
            reference=particulars["reference"],
            remarks=self._handle.frame_texts(),
            bad_pixels=self._handle.found_bad_pixels().astype(bool),
            pattern=pattern,
            pattern_frames=pattern_frames,
        )

    def _field(self) -> ShiftField:
        (left, top, step_x, step_y), shifts = self._handle.shift_field()
        return ShiftField(shifts, left, top, step_x, step_y)


def _choice(name: str, value: str, choices: Dict[str, int]) -> int:
    if value not in choices:
        raise InvalidArgument(f"{name}: expected one of {sorted(choices)}, got {value!r}", Status.INVALID_ARGUMENT)
    return choices[value]


def reconstruct(stack: Any, *, progress: Optional[Callable[[float], object]] = None, **options: Any) -> Result:
    """Make one image of twice the size from a burst.

    Parameters
    ----------
    stack : array_like, frames x rows x columns
        The frames in order; also a sequence of images.
    progress : callable, optional
        See `Burst.reconstruct`.
    **options
        Those of `Burst`, such as ``preset="best"``.

    Returns
    -------
    Result

    Raises
    ------
    InvalidArgument
        For an option out of its range, an empty stack, frames of different sizes.
    BadFrame
        If a frame has no good pixel, or too many bad ones.
    NotRegistered
        If the frames could not be aligned.
    TypeError
        For values that are no real numbers, and unknown options.

    Examples
    --------
    >>> from movra_sr import compare, reconstruct, simulate
    >>> burst = simulate(width=64, height=48, seed=1)
    >>> result = reconstruct(burst.frames, reference=burst.reference)
    >>> compare(result.image, burst.truth).psnr > compare(burst.frames[burst.reference], burst.truth).psnr + 2
    True
    """
    return _burst_of(stack, options).reconstruct(progress)


def _burst_of(stack: Any, options: Dict[str, Any]) -> Burst:
    frames = as_frames(stack)
    height, width = frames[0].shape
    burst = Burst(width=width, height=height, **options)
    for frame in frames:
        burst.add_frame(frame)
    return burst


def register(stack: Any, **options: Any) -> Registration:
    """Measure where the frames of a burst lie, without the image.

    Parameters
    ----------
    stack : array_like, frames x rows x columns
    **options
        Those of `Burst` that concern the motion.

    Examples
    --------
    >>> from movra_sr import register, simulate
    >>> import numpy as np
    >>> burst = simulate(width=96, height=72, seed=1)
    >>> measured = register(burst.frames, reference=burst.reference).shifts
    >>> bool(np.abs(measured - burst.shifts).max() < 0.15)
    True
    """
    return _burst_of(stack, options).register()
