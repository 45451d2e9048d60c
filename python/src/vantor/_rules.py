"""Checks a document against the rules between its members, which are in docs/k330.json."""

from __future__ import annotations

import json
import re
from collections import Counter
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

from . import _sensor
from ._fault import Fault, pointer
from ._json_text import dump
from ._schema_check import round_half_away
from ._sensor_files import sensor_knowledge

_Members = dict[str, Any]


def find_rule_faults(document: _Members) -> Iterator[Fault]:
    """The rules that a document breaks; each of its members must be valid."""
    for group_index, group in enumerate(document.get("groups", [])):
        yield from _check_group(group, pointer("groups", group_index))
        for index, item in enumerate(group):
            place = pointer("groups", group_index, index, "config")
            yield from _check_config(document, item["config"], place)


def _check_group(group: list[_Members], place: str) -> Iterator[Fault]:
    """Checks the items of a group beside each other."""
    earlier: Counter[float] = Counter()
    for index, item in enumerate(group):
        context = {"earlier_items": earlier[item["sensor_id"]]}
        earlier[item["sensor_id"]] += 1
        for rule in _rules("item"):
            yield from _check(_PlacedRule(rule, item, context), f"{place}/{index}")


def _check_config(document: _Members, config: _Members, place: str) -> Iterator[Fault]:
    """Checks the configuration of one item."""
    for rule in _rules("config", "subsweep"):
        if rule["scope"] == "config" or "subsweeps" not in config:
            yield from _check(_PlacedRule(rule, config, document), place)
        else:
            for index, subsweep in enumerate(config["subsweeps"]):
                yield from _check(_PlacedRule(rule, subsweep, {}), f"{place}/subsweeps/{index}")


def _rules(*scopes: str) -> Iterator[_Members]:
    return (rule for rule in sensor_knowledge()["rules"] if rule["scope"] in scopes)


def _check(rule: _PlacedRule, place: str) -> Iterator[Fault]:
    """Applies a rule to one object."""
    if not rule.is_kept():
        yield rule.fault(place)


@dataclass(frozen=True, slots=True)
class _PlacedRule:
    """A rule, applied to one object of a document."""

    rule: _Members
    members: _Members
    """The object that the rule checks."""
    parent: _Members
    """Used for members that the object does not have."""

    def is_kept(self) -> bool:
        """Whether the object follows the rule, or the rule does not apply."""
        return self._is_satisfied() or not all(map(self._is_set, self.rule.get("when", [])))

    def fault(self, place: str) -> Fault:
        """The fault if the object at a place breaks the rule."""
        rule = self.rule
        where = f"{place}/{rule['at']}" if "at" in rule else place
        got = dump(self._member(rule["at"])) if "at" in rule else self._fill(rule["got"])
        nearest = self._lowered() if "lower" in rule else json.loads(self._fill(rule["nearest"]))
        return Fault(where, got, self._fill(rule["allowed"]), nearest)

    def _member(self, name: str) -> Any:
        """A member, or its default; None if it has neither."""
        return _sensor.member_or_default(self.members if name in self.members else self.parent, name)

    def _is_set(self, name: str) -> bool:
        """Whether a member is present, and neither false nor 0."""
        return self._member(name) not in (None, False, 0)

    def _number(self, name: str) -> float:
        """A member as a number: for a word its index in the schema, for a list its length."""
        value = self._member(name)
        if isinstance(value, str):
            return float(_sensor.member_schema(name)["enum"].index(value))
        return float(len(value) if isinstance(value, list) else value)

    def _sum(self, name: str) -> float:
        """The sum of a member over all sub-sweeps."""
        subsweeps = self.members.get("subsweeps", [self.members])
        return sum(_PlacedRule(self.rule, subsweep, {})._number(name) for subsweep in subsweeps)

    def _evaluate(self, expression: Any) -> float:
        """The value of an expression: a number, a member, or an operation with its operands."""
        if isinstance(expression, str):
            return self._number(expression)
        if not isinstance(expression, list):
            return float(expression)
        operation, *operands = expression
        if operation == "sum":
            return self._sum(operands[0])
        if operation == "figure":
            return _sensor.figure(operands[0], *map(self._member, operands[1:]))
        left, right = map(self._evaluate, operands)
        return left + right if operation == "+" else left - right if operation == "-" else left * right

    def _is_satisfied(self) -> bool:
        """Whether value and bound are in the relation that the rule requires."""
        relation = self.rule["relation"]
        if relation == "absent":
            return self._member(self.rule["value"]) is None
        value, bound = self._evaluate(self.rule["value"]), self._evaluate(self.rule["bound"])
        if relation == "equal":
            return abs(value - bound) <= float(self.rule["tolerance"]) * bound
        return {"at most": value <= bound, "at least": value >= bound, "above": value > bound}[relation]

    def _fill(self, text: str) -> str:
        """A text of the rule, in which values replace names in braces."""

        def value_of(found: re.Match[str]) -> str:
            name = found[1]
            if name in self.rule:
                return f"{self._evaluate(self.rule[name]):.10g}"
            return dump(self._member(name))

        return re.sub(r"{(.*?)}", value_of, text)

    def _lowered(self) -> _Members | None:
        """The members to lower, one after the other, with the largest values that follow the rule."""
        changed = dict(self.members)
        lowered: _Members = {}
        for name in self.rule["lower"]:
            is_enough = self._lower(changed, name)
            lowered[name] = changed[name]
            if is_enough:
                return lowered
        return None

    def _lower(self, changed: _Members, name: str) -> bool:
        """Lowers a member of an object as little as possible; returns whether it can follow the rule."""
        changed_rule = _PlacedRule(self.rule, changed, self.parent)
        good = int(_sensor.member_schema(name)["minimum"])
        too_high = round_half_away(changed_rule._number(name))
        changed[name] = good
        if not changed_rule._is_satisfied():
            return False
        while too_high - good > 1:
            changed[name] = middle = good + (too_high - good) // 2
            good, too_high = (middle, too_high) if changed_rule._is_satisfied() else (good, middle)
        changed[name] = good
        return True
