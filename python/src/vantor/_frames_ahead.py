"""Places for the next frames of a session, into which a link receives several at once without a copy."""

from collections import deque
from typing import Any

import numpy as np
import numpy.typing as npt

from ._header_form import HeaderForm
from ._item_reading import ItemReading

#: Most frames that are received at once, and most bytes of their payloads.
_MOST_FRAMES = 8
_MOST_BYTES = 2**19


class _Place:
    """Where a frame is received."""

    def __init__(self, header_size: int, payload_size: int) -> None:
        self.header = bytearray(header_size)
        self.payload: npt.NDArray[np.uint8] = np.empty(payload_size, np.uint8)
        self.views = (memoryview(self.header), self.payload.data)


class FramesAhead:
    """The places of the frames that come next, if their headers have the form and size of an earlier one.

    Bytes that turn out to be something else are given back in the order in which they arrived.

    Attributes:
        form: the form of the headers; None if frames are not expected, or are too large.
        header_size: number of bytes of each header with its line feed.
        filled: number of bytes that arrived and were not taken.
    """

    def __init__(self) -> None:
        """Expects nothing."""
        self.form: HeaderForm | None = None
        self.header_size = 0
        self.filled = 0
        self._count = 0
        self._places: deque[_Place] = deque()

    def expect(self, form: HeaderForm, header_size: int) -> None:
        """Expects frames whose headers have a form and a size. All bytes were taken."""
        if form is self.form and header_size == self.header_size:
            return
        self._count = min(_MOST_FRAMES, _MOST_BYTES // form.payload_size)
        self.form = form if self._count else None
        self.header_size = header_size
        self._places.clear()

    def buffers(self) -> list[memoryview]:
        """Where the next bytes go, in this order. All bytes were taken; valid until the next call."""
        assert self.form is not None
        while len(self._places) < self._count:
            self._places.append(_Place(self.header_size, self.form.payload_size))
        return self._views()

    def take(
        self, form: HeaderForm | None
    ) -> tuple[dict[str, Any], list[ItemReading], npt.NDArray[np.uint8], int] | None:
        """The next frame: its header without the items, what that reports about these, its payload, and how
        many bytes of the payload arrived.

        None if the next bytes are not a complete header of the form and size that are expected.
        """
        size = self.header_size
        if form is None or form is not self.form or self.filled < size:
            return None
        known = form.read(self._places[0].header, 0, size)
        if known is None or known[2] != size:
            return None
        payload = self._places.popleft().payload
        arrived = min(self.filled - size, len(payload))
        self.filled -= size + arrived
        return known[0], known[1], payload, arrived

    def give_back(self) -> bytearray:
        """Takes the bytes that arrived."""
        data = bytearray()
        for view in self._views():
            data += view[: self.filled - len(data)]
        self.filled = 0
        return data

    def _views(self) -> list[memoryview]:
        return [view for place in self._places for view in place.views]
