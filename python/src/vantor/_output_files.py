"""Writes the files of users."""

import errno
import os
import secrets
import stat
from contextlib import suppress
from pathlib import Path

from .errors import FileError

#: What can be kept of the mode of a file: not the bits that make it run as its owner.
_PERMISSIONS = stat.S_IRWXU | stat.S_IRWXG | stat.S_IRWXO


def write_file(file: Path, text: str) -> None:
    """Writes a regular file; an existing one is replaced when the new one is complete, and keeps its mode.

    A symbolic link stays: the file that it names is written. Raises FileError.
    """
    try:
        target = Path(os.path.realpath(file))
        _replace(target, text, _status(target))
    except OSError as failure:
        raise FileError(failure.errno or errno.EIO, failure.strerror or str(failure), str(file)) from None
    except ValueError:
        raise FileError(errno.EINVAL, "the name cannot be used", str(file)) from None


def _status(target: Path) -> os.stat_result | None:
    """The status of a file that is replaced; None if there is none. Refuses what is not a regular file."""
    try:
        found = target.stat()
    except FileNotFoundError:
        return None
    if stat.S_ISDIR(found.st_mode):
        raise OSError(errno.EISDIR, "it is a directory; use a file")
    if not stat.S_ISREG(found.st_mode):
        raise OSError(errno.EINVAL, "it is not a regular file")
    return found


def _replace(target: Path, text: str, former: os.stat_result | None) -> None:
    """Writes a file under another name first, which nobody can have prepared as a link to a file."""
    written = target.with_name(f".{secrets.token_hex(8)}.new")
    try:
        with written.open("x", encoding="utf-8") as stream:
            if former is not None:
                _take_over(stream.fileno(), former)
            stream.write(text)
        written.replace(target)
    finally:
        with suppress(OSError):
            written.unlink()


def _take_over(descriptor: int, former: os.stat_result) -> None:
    """Gives a new file the owner, as far as it is allowed, and the mode of the former one."""
    with suppress(PermissionError):
        os.fchown(descriptor, former.st_uid, former.st_gid)
    os.fchmod(descriptor, former.st_mode & _PERMISSIONS)
