"""A fleet behind a broker: many boards at the same time, and faults at random moments. Nothing is lost uncounted."""

import contextlib
import csv
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

from broker_process import SITE, Bridge, Broker, Cluster as BrokerCluster, lost_frames, sessions
from namespaces import Cable, Namespace, SmallDisk
from vantor_process import TIME_OUT, VANTOR, Server, campaign, vantor, wait_until

# Frames of 540 bytes with their header, 20 in a second.
SMALL = {"update_rate": 20.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 100}}]]}
# Slow enough that a busy machine leaves no frame out.
QUICK = {"update_rate": 10.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 100}}]]}
# Fills a spool of 8 MB in some seconds.
LARGE = {"update_rate": 20.0, "groups": [[{"sensor_id": number, "config": {"sweeps_per_frame": 31, "num_points": 512}}
                                          for number in (1, 2, 3)]]}
# These need separate networks and mounts.
ISOLATED = ("fill_disk_of_broker", "fill_disk_of_consumer", "cut_network", "lose_packets")
FAULTS = ("suspend_consumer", "kill_broker", "kill_bridge", "suspend_broker", "fill_spool", *ISOLATED)


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


def recorded_ticks(directory):
    """The ticks of the frames in a recording."""
    table, = glob.glob(os.path.join(directory, "*.csv"))
    with open(table, encoding="utf-8") as file:
        return [int(row["tick"]) for row in csv.DictReader(file)]


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
        with broker.client() as client:
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


class FaultyRun:
    """A board, a broker, a bridge and a recorder while something fails. Those of `stack` end with it."""

    def __init__(self, stack, fault, broker=None):
        """`broker` runs already."""
        self.stack, self.fault = stack, fault
        self.directory = stack.enter_context(tempfile.TemporaryDirectory())
        self.networks = None
        host = "127.0.0.1"
        if fault in ISOLATED:
            one = stack.enter_context(Namespace())
            self.networks = one, stack.enter_context(Namespace(beside=one))
            self.cable = Cable(*self.networks)
            host = self.cable.addresses[0]
        self.broker = broker or stack.enter_context(Broker(namespace=self.network(0), host=host, starts=False))
        if fault == "fill_disk_of_broker":
            self.disk = SmallDisk(self.network(0), self.broker.store, 64)
        if not broker:
            self.broker.start()
        self.server = stack.enter_context(Server("--unix", self.path("server")))
        with open(self.path("config.json"), "w", encoding="utf-8") as file:
            json.dump(LARGE if fault == "fill_spool" else QUICK, file)
        self.start_bridge()
        wait_until(lambda: self.broker.batches("door"), "a batch")
        os.mkdir(self.path("recordings"))
        if fault == "fill_disk_of_consumer":
            self.disk = SmallDisk(self.network(1), self.path("recordings"), 4)
        self.start_recorder("first")
        wait_until(lambda: self.recorded_frames() > 0, "a recording")

    def path(self, name):
        """A path in the directory of the run."""
        return os.path.join(self.directory, name)

    def network(self, which):
        """One of the two namespaces; none if there are none."""
        return self.networks[which] if self.networks else None

    def start_bridge(self):
        """Starts a bridge."""
        self.bridge = self.stack.enter_context(
            Bridge(self.broker.address, self.path("config.json"), f"--connect=door={self.server.address}",
                   "--spool-size=8", f"--replicas={3 if self.fault == 'kill_leader' else 1}", spool=self.path("spool"), namespace=self.network(1)))

    def start_recorder(self, name):
        """Starts to record everything that the broker has."""
        inside = self.network(1).inside if self.networks else []
        self.output = self.path(f"recordings/{name}")
        self.recorder = subprocess.Popen(
            [*inside, VANTOR, "record", "--connect", f"{self.broker.address}/{SITE}/door@2026-01-01T00:00:00Z", "--output",
             self.output, "--reconnect", "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.stack.callback(self.end_recorder, self.recorder)

    def end_recorder(self, recorder):
        """Ends a recorder that a failed test has left."""
        if recorder.poll() is None:
            recorder.kill()
        recorder.communicate()

    def recorded_frames(self):
        """Number of frames in the recording so far, by a recorder that runs."""
        assert self.recorder.poll() is None, self.recorder.communicate()
        shown = f"/proc/{self.recorder.pid}/root{self.output}"
        return recorded_frames(shown)


class Faults(unittest.TestCase):
    """What fails at a random moment while a consumer records."""

    def run_with(self, fault, values):
        """Records a board behind a broker while something fails; expects that nothing is missing uncounted."""
        with contextlib.ExitStack() as stack:
            run = FaultyRun(stack, fault)
            time.sleep(values.uniform(0.0, 1.0))
            getattr(self, fault)(values, run)
            self.expect_complete(run)

    def expect_complete(self, run):
        """Stops bridge and recorder after some more frames; expects that the broker has each batch once, that the
        recorder got all frames, and that it counted those that the busy server has left out and those that a full spool
        dropped, and no others."""
        wanted = frames_of(run.broker) + 20
        wait_until(lambda: frames_of(run.broker) >= wanted, "frames after the fault")
        dropped = int(re.search(r"dropped: (\d+)", run.bridge.stop())[1])
        self.assertEqual(dropped > 0, run.fault == "fill_spool")
        frames = frames_of(run.broker)
        wait_until(lambda: run.recorded_frames() >= frames, "all frames in the recording")
        run.recorder.send_signal(signal.SIGINT)
        text, errors = run.recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(run.recorder.returncode, 130, errors)
        parts = sessions(run.broker.batches("door"))
        self.assertEqual(sum(lost_frames(part) for part in parts), dropped)
        report = json.loads(text)
        left_out = sum(part[-1].header["missing"] for part in parts)
        self.assertEqual((report["frames"], report["frames_missing"]), (frames, left_out + dropped))

    def suspend_consumer(self, values, run):
        """The consumer does nothing for some time."""
        run.recorder.send_signal(signal.SIGSTOP)
        time.sleep(values.uniform(0.0, campaign(30.0, 2.0)))
        run.recorder.send_signal(signal.SIGCONT)

    def kill_broker(self, values, run):
        """The broker is killed, and comes back."""
        run.broker.kill()
        time.sleep(values.uniform(0.0, 2.0))
        run.broker.start()

    def kill_bridge(self, values, run):
        """The bridge is killed; another one follows."""
        run.bridge.kill()
        time.sleep(values.uniform(0.0, 1.0))
        run.start_bridge()

    def suspend_broker(self, values, run):
        """The broker hangs for some time."""
        run.broker.process.send_signal(signal.SIGSTOP)
        time.sleep(values.uniform(0.0, campaign(7.0, 3.0)))
        run.broker.process.send_signal(signal.SIGCONT)

    def fill_spool(self, values, run):
        """The broker is away until the spool is full, and for some time longer."""
        run.broker.kill()
        run.bridge.wait_for("the spool is full")
        time.sleep(values.uniform(0.0, 1.0))
        run.broker.start()

    def fill_disk_of_broker(self, values, run):
        """The disk of the broker becomes full. Some brokers hang then, and must be started again."""
        run.disk.fill()
        wait_until(lambda: re.search("broker: (the server|Cannot)", run.bridge.messages()), "the bridge to notice it")
        time.sleep(values.uniform(0.0, 2.0))
        run.disk.free()
        run.broker.kill()
        run.broker.start()

    def fill_disk_of_consumer(self, values, run):
        """The disk of the consumer becomes full: it says so and ends. Another one follows when there is room."""
        run.disk.fill()
        _, errors = run.recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(run.recorder.returncode, 7, errors)
        self.assertIn("No space left on device", errors)
        time.sleep(values.uniform(0.0, 1.0))
        run.disk.free()
        run.start_recorder("second")

    def cut_network(self, values, run):
        """The cable between broker and bridge is cut for some time."""
        end = values.randrange(2)
        run.cable.cut(end)
        time.sleep(values.uniform(0.0, campaign(15.0, 3.0)))
        run.cable.join(end)

    def lose_packets(self, values, run):
        """Most packets of broker or bridge are lost for some time."""
        end = values.randrange(2)
        run.cable.lose(end)
        time.sleep(values.uniform(0.0, campaign(15.0, 3.0)))
        run.cable.heal(end)

    def test_lose_nothing(self):
        for seed in range(campaign(90, len(FAULTS))):
            values = random.Random(seed)
            fault = FAULTS[seed % len(FAULTS)]
            with self.subTest(seed=seed, fault=fault):
                self.run_with(fault, values)


class Cluster(unittest.TestCase):
    """Three servers that keep a stream together."""

    def leader(self, cluster):
        """The server that leads the stream of the frames."""
        found = None
        while found is None:
            found = cluster.leader(f"vantor-{SITE}-frames")
        return found

    def expect_complete(self, run, cluster):
        """Expects that each server still has each batch once, and that the recorder got each frame once."""
        dropped = int(re.search(r"dropped: (\d+)", run.bridge.stop())[1])
        parts = sessions(run.broker.batches("door"))
        self.assertEqual(len(parts), 1)
        batches = parts[0]
        self.assertEqual((dropped, lost_frames(batches)), (0, 0))
        self.assertEqual([batch.header["number"] for batch in batches], list(range(len(batches))))
        for server in cluster.servers:
            self.assertEqual([batch.header for batch in server.batches("door")], [batch.header for batch in batches])
        frames = sum(batch.header["frames"] for batch in batches)
        wait_until(lambda: run.recorded_frames() >= frames, "all frames in the recording")
        run.recorder.send_signal(signal.SIGINT)
        text, errors = run.recorder.communicate(timeout=TIME_OUT)
        self.assertEqual(run.recorder.returncode, 130, errors)
        report = json.loads(text)
        self.assertEqual((report["frames"], report["frames_missing"]), (frames, batches[-1].header["missing"]))
        ticks = [header["result_info"][0][0]["tick"] for batch in batches for header, _ in batch.frames]
        self.assertEqual(recorded_ticks(run.output), ticks)

    @unittest.skipUnless(campaign(True, False), "takes half a minute: see scripts/soak fleet")
    def test_loses_and_doubles_nothing_when_servers_are_killed(self):
        values = random.Random(1)
        with contextlib.ExitStack() as stack:
            cluster = stack.enter_context(BrokerCluster())
            run = FaultyRun(stack, "kill_leader", cluster.servers[0])
            for number in range(10):
                # First the one that bridge and recorder were given: they must find another one.
                killed = self.leader(cluster) if number % 2 else run.broker
                other = next(server for server in cluster.servers if server is not killed)
                killed.kill()
                time.sleep(values.uniform(0.0, 5.0))
                wanted = frames_of(other) + 20
                wait_until(lambda: frames_of(other) >= wanted, "frames at the other servers")
                wait_until(lambda: run.recorded_frames() >= wanted, "frames at the recorder")
                killed.start()
            self.expect_complete(run, cluster)


class Boards(unittest.TestCase):
    """The list of boards."""

    def expect_left_out(self, broker):
        """Expects that a state at the subject of another board is left out, with a warning."""
        state = json.dumps(broker.state("door")).encode()
        with broker.client() as client:
            client.publish(b"vantor.hall.gate.state", state)
            client.publish(b"vantor.hall.window.state", state.replace(b'"door"', b'"window"'))
        wait_until(lambda: broker.state("window"), "the states")
        listed = vantor("fleet", broker.address, "--json")
        self.assertEqual([board["board"] for board in json.loads(listed.stdout)["boards"]], ["door", "window"])
        self.assertIn("States that cannot be read: 1", listed.stderr)

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
                self.assertRegex(board["bridge"], "^[A-Za-z0-9_-]+$")
                self.assertRegex(text.stdout, rf"online +\d+ s .* {board['bridge']} +tcp:")
                self.expect_left_out(broker)
                bridge.stop()
            board = json.loads(vantor("fleet", broker.address, "--site", SITE, "--json").stdout)["boards"][0]
            self.assertEqual(board["state"], "offline")
            missing = vantor("fleet", broker.address, "--site", "nowhere")
            self.assertEqual(missing.returncode, 4)
            self.assertIn("no site", missing.stderr)


if __name__ == "__main__":
    unittest.main()
