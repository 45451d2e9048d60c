"""A fleet behind a broker: many boards at the same time, and faults at random moments. Nothing is lost uncounted."""

import glob
import json
import os
import random
import re
import resource
import signal
import subprocess
import tempfile
import time
import unittest

from broker_process import SITE, Bridge, Broker, BrokerClient, lost_frames, sessions
from vantor_process import TIME_OUT, VANTOR, Server, campaign, vantor, wait_until

# Frames of 540 bytes with their header, 20 in a second.
SMALL = {"update_rate": 20.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 100}}]]}
# Slow enough that a busy machine leaves no frame out.
QUICK = {"update_rate": 10.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 100}}]]}


def processor_time(process):
    """Seconds of processor time that a process has used."""
    with open(f"/proc/{process}/stat", encoding="ascii") as file:
        words = file.read().rpartition(")")[2].split()
    return (int(words[11]) + int(words[12])) / os.sysconf("SC_CLK_TCK")


def memory(process):
    """Megabytes of memory that a process has in use."""
    with open(f"/proc/{process}/status", encoding="ascii") as file:
        return int(re.search(r"VmRSS:\s*(\d+)", file.read())[1]) / 1024


def frames_of(broker):
    """Number of frames of a board that a broker has."""
    return sum(batch.header["frames"] for batch in broker.batches("door"))


def recorded_frames(directory):
    """Number of frames in a recording so far."""
    tables = glob.glob(os.path.join(directory, "*.csv"))
    if not tables:
        return 0
    with open(tables[0], encoding="utf-8") as table:
        return sum(1 for _ in table) - 1


class ManyBoards(unittest.TestCase):
    """Boards that all measure at the same time."""

    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, 4096), hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))

    def path(self, name):
        """A path in the directory of the test."""
        return os.path.join(self.directory, name)

    def expect_nothing_lost(self, boards, seconds):
        """Bridges boards for some seconds; returns processor time and memory of the bridge."""
        with open(self.path("config.json"), "w", encoding="utf-8") as file:
            json.dump(SMALL, file)
        servers = [self.enterContext(Server("--unix", self.path(f"{boards}-{number}"))) for number in range(boards)]
        with open(self.path("boards.txt"), "w", encoding="utf-8") as file:
            file.writelines(f"board-{number}={server.address}\n" for number, server in enumerate(servers))
        with Broker() as broker, Bridge(broker.address, self.path("config.json"), "--boards", self.path("boards.txt"),
                                        spool=self.path(f"spool-{boards}")) as bridge:
            wait_until(lambda: bridge.messages().count(": measuring") == boards, "all boards")
            before = processor_time(bridge.process.pid)
            time.sleep(seconds)
            used, peak = processor_time(bridge.process.pid) - before, memory(bridge.process.pid)
            output = bridge.stop()
            numbers = re.search(r"frames: (\d+), lost: (\d+), dropped: (\d+), batches stored: (\d+)", output)
            frames, lost, dropped, stored = map(int, numbers.groups())
            self.assertEqual(dropped, 0)
            self.expect_stored(broker, boards, frames, stored)
        print(f"\n{boards} boards for {seconds} s: {frames} frames in {stored} batches, {lost} left out by the busy boards, "
              f"0 lost behind them; bridge: {100 * used / seconds:.1f} % of a processor, {peak:.1f} MB")

    def expect_stored(self, broker, boards, frames, stored):
        """Expects that the broker has all frames and batches, without reading each of them."""
        with BrokerClient(broker.port) as client:
            self.assertEqual(client.ask(f"$JS.API.STREAM.INFO.vantor-{SITE}-frames")["state"]["messages"], stored)
            total = 0
            for number in range(boards):
                last = client.last(f"vantor-{SITE}-frames", f"vantor.{SITE}.board-{number}.frames")
                header = json.loads(last.partition(b"\n")[0])
                total += header["first"] + header["frames"]
        self.assertEqual(total, frames)

    def test_lose_nothing(self):
        for boards in (campaign(50, 4), campaign(500, 12)):
            with self.subTest(boards):
                self.expect_nothing_lost(boards, campaign(300, 2))


class Faults(unittest.TestCase):
    """What fails at a random moment while a consumer records."""

    def run_with(self, fault, values):
        """Records a board behind a broker while something fails; expects that nothing is missing uncounted."""
        with tempfile.TemporaryDirectory() as directory, Broker() as broker, Server("--tcp", "0") as server:
            config, output = os.path.join(directory, "config.json"), os.path.join(directory, "out")
            with open(config, "w", encoding="utf-8") as file:
                json.dump(QUICK, file)

            def start():
                return Bridge(broker.address, config, f"--connect=door={server.address}",
                              spool=os.path.join(directory, "spool"))

            with start() as bridge:
                wait_until(lambda: broker.batches("door"), "a batch")
                recorder = subprocess.Popen(
                    [VANTOR, "record", "--connect", f"{broker.address}/{SITE}/door@2026-01-01T00:00:00Z", "--output", output,
                     "--reconnect", "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
                time.sleep(values.uniform(0.0, 1.0))
                getattr(self, fault)(values, broker, bridge, recorder)
                if bridge.process.poll() is None:
                    self.expect_complete(recorder, output, broker, bridge)
                else:
                    with start() as following:
                        self.expect_complete(recorder, output, broker, following)

    def expect_complete(self, recorder, output, broker, bridge):
        """Stops bridge and recorder after some more frames; expects that the broker has each batch once, that the
        recorder got all frames, and that it counted those that the busy server has left out, and no others."""
        wanted = frames_of(broker) + 20
        wait_until(lambda: frames_of(broker) >= wanted, "frames after the fault")
        bridge.stop()
        frames = frames_of(broker)
        wait_until(lambda: recorded_frames(output) >= frames, "all frames in the recording")
        recorder.send_signal(signal.SIGINT)
        text, errors = recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(recorder.returncode, 130, errors)
        parts = sessions(broker.batches("door"))
        self.assertEqual([lost_frames(part) for part in parts], [0] * len(parts))
        report = json.loads(text)
        left_out = sum(part[-1].header["missing"] for part in parts)
        self.assertEqual((report["frames"], report["frames_missing"]), (frames, left_out))

    def suspend_consumer(self, values, _broker, _bridge, recorder):
        """The consumer does nothing for some time."""
        recorder.send_signal(signal.SIGSTOP)
        time.sleep(values.uniform(0.0, campaign(30.0, 2.0)))
        recorder.send_signal(signal.SIGCONT)

    def kill_broker(self, values, broker, _bridge, _recorder):
        """The broker is killed, and comes back."""
        broker.kill()
        time.sleep(values.uniform(0.0, 2.0))
        broker.start()

    def kill_bridge(self, values, _broker, bridge, _recorder):
        """The bridge is killed; another one follows."""
        bridge.kill()
        time.sleep(values.uniform(0.0, 1.0))

    def suspend_broker(self, values, broker, _bridge, _recorder):
        """The broker hangs for some time."""
        broker.process.send_signal(signal.SIGSTOP)
        time.sleep(values.uniform(0.0, 7.0))
        broker.process.send_signal(signal.SIGCONT)

    def test_lose_nothing(self):
        for seed in range(campaign(100, 4)):
            values = random.Random(seed)
            fault = ("suspend_consumer", "kill_broker", "kill_bridge", "suspend_broker")[seed % 4]
            with self.subTest(seed=seed, fault=fault):
                self.run_with(fault, values)

    def test_list_of_boards(self):
        with tempfile.TemporaryDirectory() as directory, Broker() as broker, Server("--tcp", "0") as server:
            self.assertIn("no boards", vantor("fleet", broker.address).stdout)
            config = os.path.join(directory, "config.json")
            with open(config, "w", encoding="utf-8") as file:
                json.dump(SMALL, file)
            with Bridge(broker.address, config, f"--connect=door={server.address}",
                        spool=os.path.join(directory, "spool")) as bridge:
                wait_until(lambda: (broker.state("door") or {}).get("frames"), "a state with frames")
                text = vantor("fleet", broker.address)
                self.assertEqual(text.returncode, 0, text.stderr)
                self.assertRegex(text.stdout, r"hall +door +online")
                board = json.loads(vantor("fleet", broker.address, "--json").stdout)["boards"][0]
                self.assertEqual((board["site"], board["board"], board["state"], board["lost"]), ("hall", "door", "online", 0))
                self.assertGreater(board["frames"], 0)
                bridge.stop()
            board = json.loads(vantor("fleet", broker.address, "--site", SITE, "--json").stdout)["boards"][0]
            self.assertEqual(board["state"], "offline")
            missing = vantor("fleet", broker.address, "--site", "nowhere")
            self.assertEqual(missing.returncode, 4)
            self.assertIn("no site", missing.stderr)


if __name__ == "__main__":
    unittest.main()
