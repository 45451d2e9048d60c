"""Starts mosquitto, and reads what arrives there, for the end-to-end tests."""

import os
import signal
import subprocess
import tempfile
import threading

import paho.mqtt.client as mqtt
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

from broker_process import Batch, free_port
from vantor_process import wait_until


class MqttBroker:
    """A mosquitto that saves its sessions and messages when they change. It ends with the context."""

    def __init__(self, *lines, starts=True, anonymous=True):
        self.directory = tempfile.TemporaryDirectory()
        self.port = free_port()
        self.address = f"mqtt:127.0.0.1:{self.port}"
        self.process = None
        self.log_path = os.path.join(self.directory.name, "log")
        self.configuration = os.path.join(self.directory.name, "mosquitto.conf")
        with open(self.configuration, "w", encoding="utf-8") as file:
            file.write("\n".join([f"listener {self.port} 127.0.0.1", "user root",
                                  f"allow_anonymous {str(anonymous).lower()}",
                                  "persistence true", f"persistence_location {self.directory.name}/",
                                  "autosave_on_changes true", "autosave_interval 1",
                                  f"log_dest file {self.log_path}", "connection_messages true", *lines, ""]))
        if starts:
            self.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        self.directory.cleanup()

    def start(self):
        """Starts it, and waits until it answers."""
        seen = self.log().count(" running")
        self.process = subprocess.Popen(["mosquitto", "-c", self.configuration], stderr=subprocess.DEVNULL)
        wait_until(lambda: self.log().count(" running") > seen, "the broker")

    def log(self):
        """What it has written to its log so far."""
        if not os.path.exists(self.log_path):
            return ""
        with open(self.log_path, encoding="utf-8") as file:
            return file.read()

    def kill(self):
        """Kills it, without notice."""
        if self.process is not None and self.process.poll() is None:
            self.process.kill()
            self.process.wait()

    def suspend(self):
        """Has it do nothing any more, but keep its connections."""
        self.process.send_signal(signal.SIGSTOP)


class Consumer:
    """A program that reads topics, with a session that the broker keeps. It ends with the context."""

    def __init__(self, broker, *topics, name="consumer"):
        self.received = {}  # messages by topic
        self.topics = topics
        self.lock = threading.Lock()
        self.subscriptions = 0
        self.client = mqtt.Client(name, protocol=mqtt.MQTTv5)
        self.client.reconnect_delay_set(1, 1)
        self.client.on_connect = lambda client, *_: client.subscribe([(topic, 1) for topic in topics])
        self.client.on_subscribe = self._note_subscription
        self.client.on_message = self._add
        self.port = broker.port
        self.connect()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.disconnect()

    def connect(self):
        """Connects, with the session of an earlier connection if there is one."""
        seen = self.subscriptions
        properties = Properties(PacketTypes.CONNECT)
        properties.SessionExpiryInterval = 3600
        self.client.connect("127.0.0.1", self.port, clean_start=False, properties=properties)
        self.client.loop_start()
        wait_until(lambda: self.subscriptions > seen, "the subscription")

    def disconnect(self):
        """Disconnects. The session stays."""
        self.client.disconnect()
        self.client.loop_stop()

    def messages(self, topic):
        """The messages of a topic so far."""
        with self.lock:
            return list(self.received.get(topic, []))

    def batches(self, board):
        """The batches of a board so far, without those that came twice."""
        last = {}
        kept = []
        for batch in map(Batch, self.messages(f"vantor/hall/{board}/frames")):
            session, number = batch.header["session"], batch.header["number"]
            if number > last.get(session, -1):
                last[session] = number
                kept.append(batch)
        return kept

    def frames(self, board):
        """Number of frames of a board so far."""
        return sum(batch.header["frames"] for batch in self.batches(board))

    def wait_for_frames(self, board, count):
        """Waits until this number of additional frames has arrived."""
        wanted = self.frames(board) + count
        wait_until(lambda: self.frames(board) >= wanted, f"{wanted} frames of {board}")

    def _note_subscription(self, *_):
        self.subscriptions += 1

    def _add(self, _, __, message):
        with self.lock:
            self.received.setdefault(message.topic, []).append(message.payload)
