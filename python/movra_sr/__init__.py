"""Super-resolution of thermal images: a burst of frames in, one image of twice the size out.

    >>> import movra_sr
    >>> burst = movra_sr.simulate(width=64, height=48, seed=1)
    >>> result = movra_sr.reconstruct(burst.frames)
    >>> result.image.shape, result.status.name
    ((96, 128), 'SUCCESS')

Images are arrays of rows x columns, stacks of frames x rows x columns. Values stay what they are: degrees, kelvin, or
counts. Bad pixels may be NaN, masked (`numpy.ma`), out of ``valid_range`` or listed as ``bad_pixels``.

float32 arrays whose rows are dense are read where they lie. Integers and other floats are converted to float32, once per
frame; integers beyond 2**24, which float32 cannot hold, are refused, and so is everything else (bool, complex, objects).

Any thread may call any function. The interpreter is free while the library computes; two threads that use one `Burst`
wait for each other.
"""

from ._analysis import (
    Comparison,
    EdgePsf,
    SimulatedBurst,
    compare,
    find_bad_pixels,
    measure_psf,
    simulate,
)
from ._burst import Burst, Registration, Result, ShiftField, reconstruct, register
from ._core import version as _version
from ._errors import BadFrame, Cancelled, Error, InvalidArgument, NotRegistered, Status

__version__: str = _version()

__all__ = [
    "BadFrame",
    "Burst",
    "Cancelled",
    "Comparison",
    "EdgePsf",
    "Error",
    "InvalidArgument",
    "NotRegistered",
    "Registration",
    "Result",
    "ShiftField",
    "SimulatedBurst",
    "Status",
    "compare",
    "find_bad_pixels",
    "measure_psf",
    "reconstruct",
    "register",
    "simulate",
]
