"""Finds where a text is not JSON, at the byte at which the C++ host finds it."""

import re

DEEPEST_NESTING = 64
MOST_VALUES = 200_000

_SPACE = re.compile(rb"[ \t\n\r]*")
_CHARACTERS = re.compile(
    rb"(?:[\x20\x21\x23-\x5b\x5d-\x7f]+"
    rb"|\\[\"\\/bfnrt]"
    rb"|\\u(?![dD][89a-fA-F])[0-9a-fA-F]{4}"
    rb"|\\u[dD][89abAB][0-9a-fA-F]{2}\\u[dD][c-fC-F][0-9a-fA-F]{2}"
    rb"|[\xc2-\xdf][\x80-\xbf]|\xe0[\xa0-\xbf][\x80-\xbf]|[\xe1-\xec\xee\xef][\x80-\xbf]{2}"
    rb"|\xed[\x80-\x9f][\x80-\xbf]"
    rb"|\xf0[\x90-\xbf][\x80-\xbf]{2}|[\xf1-\xf3][\x80-\xbf]{3}|\xf4[\x80-\x8f][\x80-\xbf]{2})*"
)
_BLOCK = 2**16
_DIGITS = re.compile(rb"[0-9]*")
_HEXADECIMAL = re.compile(rb"[0-9a-fA-F]{0,4}")
_WORDS = {b"t": b"true", b"f": b"false", b"n": b"null"}

#: What may follow in each state: the first byte of a token ("v" for a value that is not a list or an object),
#: and the state after it. "[" and "{" keep the state for the end of the list or object.
_NEXT: dict[str, dict[bytes, str]] = {
    "value": {b"v": "end", b"[": "first element", b"{": "first name"},
    "first element": {b"v": "after element", b"[": "first element", b"{": "first name", b"]": "close"},
    "element": {b"v": "after element", b"[": "first element", b"{": "first name"},
    "after element": {b",": "element", b"]": "close"},
    "first name": {b'"': "after name", b"}": "close"},
    "name": {b'"': "after name"},
    "after name": {b":": "member"},
    "member": {b"v": "after member", b"[": "first element", b"{": "first name"},
    "after member": {b",": "name", b"}": "close"},
    "end": {},
}

#: The state after a list or an object that began in a state.
_AFTER = {
    "value": "end",
    "first element": "after element",
    "element": "after element",
    "member": "after member",
}


class _Fault(Exception):
    """The text is not JSON at a byte."""

    def __init__(self, position: int) -> None:
        super().__init__()
        self.position = position


class TooDeep(Exception):
    """A text nests objects and lists more than DEEPEST_NESTING levels deep."""


class TooManyValues(Exception):
    """A text has more than MOST_VALUES values."""


def find_fault(text: bytes) -> int | None:
    """The position at which a text is not JSON; its length if it ends too early; None if it is JSON.

    Raises TooDeep or TooManyValues if the text exceeds a limit before that.
    """
    position = 3 if text.startswith(b"\xef\xbb\xbf") else 0
    state = "value"
    open_states: list[str] = []
    values = 0
    try:
        while True:
            position = _end(_SPACE, text, position)
            if state == "end" and position == len(text):
                return None
            token = text[position : position + 1]
            position = _pass_token(text, position)
            kind = token if token in _NEXT[state] or token in b"[]{},:" else b"v"
            if kind not in _NEXT[state]:
                return position - 1
            if kind in (b"v", b"[", b"{"):
                values += 1
                _check_limits(len(open_states), values)
            if kind in (b"[", b"{"):
                open_states.append(state)
            state = _NEXT[state][kind]
            if state == "close":
                state = _AFTER[open_states.pop()]
    except _Fault as fault:
        return min(fault.position, len(text))


def _check_limits(depth: int, values: int) -> None:
    if depth > DEEPEST_NESTING:
        raise TooDeep
    if values > MOST_VALUES:
        raise TooManyValues


def _end(pattern: re.Pattern[bytes], text: bytes, position: int) -> int:
    """The end of what matches a pattern, which can be empty."""
    found = pattern.match(text, position)
    return found.end() if found else position


def _pass_token(text: bytes, position: int) -> int:
    """The end of the token at a position."""
    first = text[position : position + 1]
    if first == b'"':
        return _pass_string(text, position + 1)
    if first in _WORDS:
        return _pass_word(text, position, _WORDS[first])
    if first == b"-" or first.isdigit():
        return _pass_number(text, position + (first == b"-"))
    if first and first in b"[]{},:":
        return position + 1
    raise _Fault(position)


def _pass_word(text: bytes, position: int, word: bytes) -> int:
    for letter in word:
        if text[position : position + 1] != bytes([letter]):
            raise _Fault(position)
        position += 1
    return position


def _pass_number(text: bytes, position: int) -> int:
    """The end of the number whose digits begin at a position."""
    position = position + 1 if text[position : position + 1] == b"0" else _pass_digits(text, position)
    if text[position : position + 1] == b".":
        position = _pass_digits(text, position + 1)
    if text[position : position + 1] in (b"e", b"E"):
        has_sign = text[position + 1 : position + 2] in (b"+", b"-")
        position = _pass_digits(text, position + 1 + has_sign)
    return position


def _pass_digits(text: bytes, position: int) -> int:
    end = _end(_DIGITS, text, position)
    if end == position:
        raise _Fault(position)
    return end


def _pass_string(text: bytes, position: int) -> int:
    """The end of the string whose characters begin at a position."""
    end = position
    # In blocks, because the search needs memory.
    while (found := _CHARACTERS.match(text, end, end + _BLOCK)) and found.end() > end:
        end = found.end()
    stop = text[end : end + 1]
    if stop == b'"':
        return end + 1
    if stop == b"\\":
        raise _Fault(_escape_fault(text, end + 1))
    if stop >= b"\x80":
        raise _Fault(_character_fault(text, end))
    raise _Fault(end)


def _escape_fault(text: bytes, position: int) -> int:
    """Where an escape is wrong whose letter is at a position."""
    if text[position : position + 1] != b"u":
        return position
    digits = _end(_HEXADECIMAL, text, position + 1)
    if digits < position + 5:
        return digits
    if text[position + 2 : position + 3] not in b"89abAB":
        return digits - 1
    # The first half of a pair.
    for sign in b"\\u":
        if text[digits : digits + 1] != bytes([sign]):
            return digits
        digits += 1
    end = _end(_HEXADECIMAL, text, digits)
    return end if end < digits + 4 else end - 1


def _character_fault(text: bytes, position: int) -> int:
    """Where a character of several bytes is wrong."""
    try:
        text[position : position + 4].decode()
    except UnicodeDecodeError as fault:
        return position + (fault.start if fault.reason == "invalid start byte" else fault.end)
    return position
