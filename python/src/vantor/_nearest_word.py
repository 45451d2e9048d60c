"""Finds the word that was probably meant."""

from __future__ import annotations

import math
import re
from collections.abc import Sequence

_NUMBER = re.compile(rb"-?(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][+-]?[0-9]+)?")


def nearest_word(text: str, words: Sequence[str]) -> str | None:
    """The word with the closest number, the only one that begins like the text, or the one with the closest
    spelling; None if none is close."""
    given = text.encode()
    known = [word.encode() for word in words]
    word = _closest_quantity(given, known)
    word = _completed_word(given, known) if word is None else word
    word = _closest_spelling(given, known) if word is None else word
    return None if word is None else word.decode()


def _closest_quantity(text: bytes, words: Sequence[bytes]) -> bytes | None:
    """The word with the closest number; None if the text or one of the words has none."""
    wanted = _leading_number(text)
    numbers = [_leading_number(word) for word in words]
    if wanted is None or None in numbers:
        return None
    distances = [abs(number - wanted) for number in numbers if number is not None]
    return words[distances.index(min(distances))]


def _leading_number(word: bytes) -> float | None:
    """The number at the beginning of a word such as "19_5_MHz"; None if it has none."""
    found = _NUMBER.match(word.replace(b"_", b"."))
    number = float(found[0]) if found else math.inf
    return number if math.isfinite(number) else None


def _completed_word(text: bytes, words: Sequence[bytes]) -> bytes | None:
    """The only word that begins with a text."""
    found = [word for word in words if word.startswith(text)]
    return found[0] if len(found) == 1 else None


def _closest_spelling(text: bytes, words: Sequence[bytes]) -> bytes | None:
    """The word that needs the fewest changes of a letter, if these are few."""
    best = None
    best_distance = len(text) // 2 + 2
    for word in words:
        # A much longer text can be very long.
        if len(text) < len(word) + best_distance and (distance := _edit_distance(text, word)) < best_distance:
            best, best_distance = word, distance
    return best


def _edit_distance(left: bytes, right: bytes) -> int:
    """Number of single-letter changes between two texts (Levenshtein distance)."""
    row = list(range(len(right) + 1))
    for i, letter in enumerate(left):
        diagonal, row[0] = row[0], i + 1
        for j, other in enumerate(right):
            replaced = diagonal + (letter != other)
            diagonal = row[j + 1]
            row[j + 1] = min(replaced, row[j] + 1, row[j + 1] + 1)
    return row[-1]
