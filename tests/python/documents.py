"""Generates configuration documents: valid ones, ones with a few faults, and nonsense."""

import copy
import random
from typing import Any

SCHEMA_FAULTS: list[Any] = [
    None, True, "", "1", -1, 0, 0.5, 1e300, -1e300, 2**63, 1e15, 1234567890123456.0, 3.5e38, [], {}, [1, "a"],
    "ä" * 40, {"a/b~c": 1},
]  # fmt: skip

WORDS = [
    "redy", "sleep", "deep", "READY", "15", "16_MHz", "8.7", "1e3_MHz", ".5", "-3", "x" * 200, "19_5_MHz ",
]  # fmt: skip

LIMITS: dict[str, tuple[int, int]] = {
    "sweeps_per_frame": (1, 4095),
    "start_point": (-1000, 20000),
    "num_points": (1, 4095),
    "step_length": (1, 1000),
    "profile": (1, 5),
    "hwaas": (1, 511),
    "receiver_gain": (0, 23),
}

STATES = ["deep_sleep", "sleep", "ready"]
PULSES = ["19_5_MHz", "15_6_MHz", "13_0_MHz", "8_7_MHz", "6_5_MHz", "5_2_MHz"]
SWITCHES = ["enable_tx", "enable_loopback", "phase_enhancement", "iq_imbalance_compensation"]


class DocumentMaker:
    """Generates documents; the same ones for the same seed."""

    def __init__(self, seed: int) -> None:
        self._random = random.Random(seed)

    def document(self) -> Any:
        """The next document."""
        document = self._session()
        for _ in range(self._random.choice([0, 0, 0, 1, 1, 2, 5])):
            self._damage(document)
        return document

    def _happens(self, times: int) -> bool:
        """Whether something happens that happens once in so many times."""
        return self._random.randrange(times) == 0

    def _session(self) -> dict[str, Any]:
        groups = [
            [self._item(index + 1) for index in range(self._random.randint(1, 3))]
            for _ in range(self._random.choice([0, 1, 1, 1, 2, 3]))
        ]
        document: dict[str, Any] = {"groups": groups}
        if self._happens(3):
            rate = self._random.choice([0, -1, 10, 0.5, 37.25, 1234.5])
            document[self._random.choice(["update_rate", "max_update_rate"])] = rate
        if self._happens(6):
            document["calibration_info"] = [{"sensor_id": 1, "data": "0a" * 240}]
        if self._happens(6):
            document["enable_log"] = self._random.choice(["INFO", "info", "WARN"])
        return document

    def _item(self, sensor: int) -> dict[str, Any]:
        item: dict[str, Any] = {"sensor_id": 1 if self._happens(8) else sensor, "config": self._config()}
        for name, value in {"cca_enable": True, "cca_debug": True, "cca_threshold": 0.25}.items():
            if self._happens(4):
                item[name] = value
        if self._happens(10):
            item["cpd_overrides"] = {"rx_duration": self._random.choice([3, -(2**31), 2**31])}
        return item

    def _config(self) -> dict[str, Any]:
        config: dict[str, Any] = {}
        if self._happens(3):
            config["sweeps_per_frame"] = self._random.choice([1, 2, 16, 100, 3.0])
        if self._happens(4):
            config["sweep_rate"] = self._random.choice([0, 100, 1000, 2999.5, 20000, 0.3])
        if self._happens(3):
            config["frame_rate"] = self._random.choice([0, 1, 10.5, 100, 3000, 5000, 0.02])
        if self._happens(8):
            config["continuous_sweep_mode"] = True
        for name in ("inter_frame_idle_state", "inter_sweep_idle_state"):
            if self._happens(4):
                config[name] = self._random.choice(STATES)
        if self._happens(3):
            config["subsweeps"] = [self._subsweep() for _ in range(self._random.randint(1, 4))]
        else:
            config.update(self._subsweep())
        return config

    def _subsweep(self) -> dict[str, Any]:
        subsweep: dict[str, Any] = {}
        for name, (lowest, highest) in LIMITS.items():
            if name != "sweeps_per_frame" and self._happens(3):
                most = highest if self._happens(3) else min(highest, lowest + 150)
                subsweep[name] = self._random.randint(lowest, most)
        if self._happens(3):
            subsweep["prf"] = self._random.choice(PULSES)
        for name in SWITCHES:
            if self._happens(5):
                subsweep[name] = self._happens(2)
        return subsweep

    def _damage(self, document: dict[str, Any]) -> None:
        """Change, remove or add a member anywhere."""
        place: Any = document
        while True:
            keys = list(place) if isinstance(place, dict) else list(range(len(place)))
            inner = [key for key in keys if isinstance(place[key], (dict, list)) and place[key]]
            if not inner or self._happens(4):
                break
            place = place[self._random.choice(inner)]
        if not keys or (isinstance(place, dict) and self._happens(3)):
            self._add_member(place)
        elif isinstance(place, dict) and self._happens(4):
            del place[self._random.choice(keys)]
        else:
            place[self._random.choice(keys)] = copy.deepcopy(self._fault(place))

    def _add_member(self, place: Any) -> None:
        if isinstance(place, dict):
            names = ["num_point", "groups", "subsweeps", "prf", "zzz", "~/ä", "x" * 60, "sensor"]
            name = self._random.choice(names)
            place[name] = copy.deepcopy(self._fault(place))
        else:
            place.append(copy.deepcopy(self._fault(place)))

    def _fault(self, place: Any) -> Any:
        """A value that is probably wrong."""
        kind = self._random.randrange(4)
        if kind == 0:
            return self._random.choice(WORDS)
        if kind == 1:
            lowest, highest = self._random.choice(list(LIMITS.values()))
            return self._random.choice([lowest - 1, highest + 1, highest + 0.5, (lowest + highest) // 2])
        if kind == 2 and isinstance(place, list) and place:
            return place[0]
        return self._random.choice(SCHEMA_FAULTS)
