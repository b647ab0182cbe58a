"""The errors of the library: a class for each kind, with its C++ name."""

from __future__ import annotations

__all__ = [
    "ArchiveError",
    "BadFeatures",
    "BadIndex",
    "BadLabel",
    "BadMethod",
    "BadParams",
    "BadPointer",
    "ClastoolError",
    "Conflict",
    "Corrupt",
    "Failure",
    "FileError",
    "InsufficientTrainData",
    "NotImplemented",
    "NotTrained",
    "OutOfRange",
    "StreamFailed",
    "TooDeep",
    "UnknownVersion",
]


class ClastoolError(Exception):
    """Base of all errors of the library. ``str(error)`` is the text, and ``number`` the number of the class."""

    number: int = 0

    def __init__(self, text: str = "", number: int | None = None) -> None:
        super().__init__(text)
        if number is not None:
            self.number = number

    def __reduce__(self) -> tuple[type[ClastoolError], tuple[str, int]]:
        return type(self), (str(self), self.number)


class BadParams(ClastoolError, ValueError):
    """An argument is out of range or inconsistent."""

    number = 0x10004200


class BadIndex(ClastoolError, IndexError):
    """An index is out of range."""

    number = 0x10004202


class BadLabel(ClastoolError, ValueError):
    """A category label is negative, duplicated or unknown."""

    number = 0x10004203


class BadMethod(ClastoolError, RuntimeError):
    """A technique or an option is not supported."""

    number = 0x10004204


class NotTrained(ClastoolError, RuntimeError):
    """A classifier or a rule table was used before it was trained."""

    number = 0x10004201


class NotImplemented(ClastoolError, NotImplementedError):  # noqa: A001
    """A technique does not offer the operation."""

    number = 0x10004205


class BadFeatures(ClastoolError, ValueError):
    """A pattern, or a vector of measurements, is of the wrong size or content."""

    number = 0x10004206


class InsufficientTrainData(ClastoolError, ValueError):
    """The training data cannot support training."""

    number = 0x10004207


class BadPointer(ClastoolError, RuntimeError):
    """An object from a damaged archive lacks a part. The text is empty."""

    number = 0x10004007


class Failure(ClastoolError, RuntimeError):
    """A failure code without a class of its own."""

    number = 0x10004008


class ArchiveError(ClastoolError):
    """Base of all failures of archives."""


class UnknownVersion(ArchiveError, ValueError):
    """The version of an object, or of the whole archive, is unknown."""

    number = 0x10004001


class Corrupt(ArchiveError, ValueError):
    """No archive stores such bytes, or the class of an object is unknown to archives."""

    number = 0x10004002


class OutOfRange(ArchiveError, ValueError):
    """A number to be stored does not fit 32 bits."""

    number = 0x10004003


class TooDeep(ArchiveError, RuntimeError):
    """Objects are nested more than 1000 levels deep."""

    number = 0x10004004


class Conflict(ArchiveError, RuntimeError):
    """An object is to be stored in two ways at once."""

    number = 0x10004005


class StreamFailed(ArchiveError, RuntimeError):
    """The stream did not take bytes, or it ended too early."""

    number = 0x10004006


class FileError(ClastoolError, RuntimeError):
    """A file cannot be read or written, or has the wrong content. The text names the file and the reason."""

    number = 0x10004400


def _make(text: str, number: int) -> ClastoolError:
    """The error that the extension raises."""
    return _by_number.get(number, ClastoolError)(text, number)


_by_number: dict[int, type[ClastoolError]] = {
    kind.number: kind
    for kind in map(globals().get, __all__)
    if isinstance(kind, type) and issubclass(kind, ClastoolError) and kind.number
}
