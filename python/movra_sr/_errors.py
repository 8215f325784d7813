"""What can go wrong, and what can be said about a result."""

import enum
from typing import Dict, Type

from . import _core


class Status(enum.IntEnum):
    """Outcome of a reconstruction: 0 or more with an image, above 0 with a reservation, below 0 without.

    Examples
    --------
    >>> Status.SINGLE_FRAME.text
    'one frame was given; the image is an enlargement of it'
    """

    SUCCESS = 0
    TOO_MANY_MASKED_PIXELS = 1
    DISPLACEMENT_TOO_LARGE = 2
    SINGLE_FRAME = 3
    REFERENCE_ALONE = 4
    STRUCTURELESS = 5
    INVALID_ARGUMENT = -1
    NO_FRAMES = -2
    BAD_FRAME = -3
    NOT_REGISTERED = -4
    NO_RESULT = -5
    CANCELLED = -6
    OUT_OF_MEMORY = -7
    INTERNAL_ERROR = -8

    @property
    def text(self) -> str:
        """The status in words."""
        return _core.status_text(int(self))


class Error(Exception):
    """What the library could not do. `status` tells the kind."""

    def __init__(self, text: str, status: Status = Status.INTERNAL_ERROR) -> None:
        super().__init__(text, status)
        self.status = status

    def __str__(self) -> str:
        return str(self.args[0])


class InvalidArgument(Error, ValueError):
    """An option, a shape or a value cannot be used."""


class BadFrame(Error, ValueError):
    """A frame has no good pixel, or too many bad ones."""


class NotRegistered(Error, RuntimeError):
    """The frames could not be aligned."""


class Cancelled(Error):
    """The progress function returned False."""


_KINDS: Dict[Status, Type[Error]] = {
    Status.INVALID_ARGUMENT: InvalidArgument,
    Status.NO_FRAMES: InvalidArgument,
    Status.BAD_FRAME: BadFrame,
    Status.NOT_REGISTERED: NotRegistered,
    Status.CANCELLED: Cancelled,
}


def check(code: int, text: str) -> Status:
    """The status, unless it is a failure, which is raised."""
    status = Status(code)
    if status == Status.OUT_OF_MEMORY:
        raise MemoryError(text)
    if status < 0:
        raise _KINDS.get(status, Error)(text, status)
    return status
