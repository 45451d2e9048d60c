"""Tests of the addresses of servers."""

import pytest

import vantor
from vantor._address import SerialAddress, SimulatorAddress, TcpAddress, UnixAddress, parse_address


@pytest.mark.parametrize("text, address", [
    ("tcp:radar.local:5000", TcpAddress("radar.local", 5000)),
    ("tcp:[::1]:65535", TcpAddress("::1", 65535)),
    ("unix:/tmp/a:b", UnixAddress("/tmp/a:b")),
    ("serial:/dev/ttyACM0@921600", SerialAddress("/dev/ttyACM0", 921600)),
    ("serial:/dev/pts/3", SerialAddress("/dev/pts/3", 115200)),
    ("sim:", SimulatorAddress(())),
    ('sim:--scene "my scene.json" --seed 3', SimulatorAddress(("--scene", "my scene.json", "--seed", "3"))),
    ("sim:--scene='my scene.json'", SimulatorAddress(("--scene=my scene.json",))),
    (r"sim:--scene=my\ scene.json", SimulatorAddress(("--scene=my scene.json",))),
    (r"""sim: '' "a\"b\\" 'c\d"e' f''g """, SimulatorAddress(("", 'a"b\\', 'c\\d"e', "fg"))),
])
def test_reads_addresses(text, address):
    assert parse_address(text) == address


@pytest.mark.parametrize("text", [
    "", "tcp", "tcp:", "tcp:host", "tcp::5000", "tcp:host:0", "tcp:host:65536", "tcp:host:12x", "tcp:host:٣", "unix",
    "unix:", "serial:", "serial:@9600", "serial:/dev/x@", "serial:/dev/x@fast", "usb:1", "127.0.0.1:5000", "sim",
    "unix:a\0b", "serial:/dev/\0", "sim:\0", "tcp:a\0:1", "sim:\ud800", 'sim:--scene "my scene.json', "sim:--scene 'my scene.json", "sim:a\\"])
def test_refuses_everything_else(text):
    with pytest.raises(vantor.AddressError) as failure:
        vantor.connect(text)
    assert failure.value.code == "address" and "write" in str(failure.value) or "must be" in str(failure.value)
