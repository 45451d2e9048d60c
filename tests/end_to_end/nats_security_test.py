"""`vantor bridge` and `vantor record` with a NATS server that wants to know who they are."""

import json
import os
import socket
import tempfile
import unittest

from broker_process import Bridge, Broker
from certificates import Certificates
from nats_accounts import Accounts
from vantor_process import Server, vantor

SMALL = {"update_rate": 50.0, "groups": [[{"sensor_id": 1, "config": {"num_points": 50}}]]}

# What docs/fleet.md says that a bridge and readers need.
PUBLISHED = ["vantor.hall.>", "$JS.API.>"]
SUBSCRIBED = ["_INBOX.>"]


class SecureBroker(Broker):
    """A NATS server that does not talk to everybody."""

    def _is_ready(self):
        try:
            with socket.create_connection(("127.0.0.1", self.port)):
                return True
        except OSError:
            return False


class NatsSecurity(unittest.TestCase):
    """A directory with keys."""

    def setUp(self):
        self.directory = self.enterContext(tempfile.TemporaryDirectory())
        self.certificates = Certificates(self.directory)

    def bridge(self, broker, *arguments):
        """Starts a bridge."""
        path = os.path.join(self.directory, "config.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(SMALL, file)
        server = self.enterContext(Server("--tcp", "0"))
        return self.enterContext(Bridge(broker.address, path, f"--connect=door={server.address}", *arguments,
                                        spool=os.path.join(self.directory, "spool")))

    def expect_frames(self, broker, environment):
        """Expects that frames can be read with these variables."""
        everything = {**os.environ, **environment}
        result = vantor("record", "--connect", f"{broker.address}/hall/door", "--frames", "20", "--output",
                        os.path.join(self.directory, "recording"), env=everything)
        self.assertEqual(result.returncode, 0, result.stderr)

    def tls_broker(self):
        """A server that wants a certificate."""
        certificate, key = self.certificates.broker
        return self.enterContext(SecureBroker("--tls", "--tlscert", certificate, "--tlskey", key, "--tlscacert",
                                              self.certificates.authority, "--tlsverify"))

    def test_certificates_of_both_sides(self):
        broker = self.tls_broker()
        certificate, key = self.certificates.program
        options = ("--tls-ca", self.certificates.authority, "--tls-cert", certificate, "--tls-key", key)
        bridge = self.bridge(broker, *options)
        bridge.wait_for("broker: connected")
        self.expect_frames(broker, {"NATS_CA": self.certificates.authority, "NATS_CERT": certificate, "NATS_KEY": key})
        self.assertNotIn("wait in the spool", bridge.stop())
        listed = vantor("fleet", broker.address, *options)
        self.assertEqual(listed.returncode, 0, listed.stderr)
        self.assertIn("door", listed.stdout)

    def test_a_bridge_without_a_certificate_is_refused(self):
        bridge = self.bridge(self.tls_broker(), "--tls-ca", self.certificates.authority)
        bridge.wait_for("Cannot connect to nats:")
        self.assertNotIn("broker: connected", bridge.messages())

    def test_a_server_that_nobody_vouches_for_is_refused(self):
        other = os.path.join(self.directory, "other")
        os.mkdir(other)
        certificate, key = self.certificates.program
        bridge = self.bridge(self.tls_broker(), "--tls-ca", Certificates(other).authority, "--tls-cert", certificate,
                             "--tls-key", key)
        bridge.wait_for("unable to get local issuer certificate")
        self.assertNotIn("broker: connected", bridge.messages())

    def test_credentials(self):
        accounts = Accounts(self.directory)
        broker = self.enterContext(SecureBroker("-c", accounts.server_file))
        credentials = accounts.credentials("user.creds", PUBLISHED, SUBSCRIBED)
        bridge = self.bridge(broker, "--credentials", credentials)
        bridge.wait_for("broker: connected")
        self.expect_frames(broker, {"NATS_CREDS": credentials})
        self.assertNotIn("wait in the spool", bridge.stop())

    def test_credentials_that_another_operator_has_signed_are_refused(self):
        broker = self.enterContext(SecureBroker("-c", Accounts(self.directory).server_file))
        other = os.path.join(self.directory, "other")
        os.mkdir(other)
        credentials = Accounts(other).credentials("user.creds", PUBLISHED, SUBSCRIBED)
        bridge = self.bridge(broker, "--credentials", credentials)
        bridge.wait_for("Authorization Violation")
        self.assertNotIn("broker: connected", bridge.messages())


if __name__ == "__main__":
    unittest.main()
