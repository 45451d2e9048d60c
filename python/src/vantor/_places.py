"""Finds items by their place in the configuration: group and index in the group, both from 0."""

from collections.abc import Mapping
from operator import index

Places = Mapping[tuple[int, int], int]
"""Where each item is in the list of all items, by group and index."""


def find_place(places: Places, place: object, owner: str) -> int:
    """Where an item is in the list of all items.

    Args:
        places: of all items.
        place: group and index of the item.
        owner: what has the items, for messages: "frame".

    Raises:
        IndexError: there is no such item.
        TypeError: the place is not a pair of whole numbers.
    """
    pair = _pair(place)
    if pair is None:
        raise TypeError(f"A {owner} has items by group and index, such as {owner}[0, 1], not by {place!r}.")
    if pair not in places:
        known = ", ".join(f"[{group}, {index}]" for group, index in places)
        raise IndexError(f"The {owner} has no item [{pair[0]}, {pair[1]}]; it has {known or 'none'}.")
    return places[pair]


def has_place(places: Places, place: object) -> bool:
    """Whether there is an item at a group and index."""
    return _pair(place) in places


def _pair(place: object) -> tuple[int, int] | None:
    """A pair of whole numbers; None for anything else."""
    try:
        group, position = place if isinstance(place, tuple) else ()
        return index(group), index(position)
    except (TypeError, ValueError):
        return None
