"""Exceptions travel between processes."""

import pickle

import pytest
import vantor


@pytest.mark.parametrize(
    "error",
    [
        vantor.ServerError("wrong_state", "Not now."),
        vantor.BadMessage(7, "no JSON"),
        vantor.ConfigurationError("bad", vantor.validate({"groups": 1})),
        vantor.ServerTimeout("late"),
        vantor.FileError(13, "Permission denied", "calibration.json"),
    ],
)
def test_errors_are_pickled(error: vantor.Error) -> None:
    copy = pickle.loads(pickle.dumps(error))
    assert type(copy) is type(error)
    assert (str(copy), vars(copy)) == (str(error), vars(error))
