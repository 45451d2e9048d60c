"""Makes an operator, accounts and credentials of a user for a NATS server, for the end-to-end tests."""

import base64
import binascii
import hashlib
import json
import os
import time

from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric.ed25519 import Ed25519PrivateKey

# First bytes of keys, which make their first letters.
OPERATOR, ACCOUNT, USER, SEED = 14 << 3, 0, 20 << 3, 18 << 3

NO_LIMITS = {"subs": -1, "data": -1, "payload": -1}


def encoded(data):
    """A key as text, with its checksum."""
    data += binascii.crc_hqx(data, 0).to_bytes(2, "little")
    return base64.b32encode(data).decode().rstrip("=")


def url_text(data):
    """Bytes as a part of a token."""
    return base64.urlsafe_b64encode(data).decode().rstrip("=")


class Identity:
    """A pair of keys."""

    def __init__(self, kind):
        self.kind = kind
        self.key = Ed25519PrivateKey.generate()
        public = self.key.public_key().public_bytes(serialization.Encoding.Raw, serialization.PublicFormat.Raw)
        self.name = encoded(bytes([kind]) + public)

    def seed(self):
        """The private key as text."""
        private = self.key.private_bytes(serialization.Encoding.Raw, serialization.PrivateFormat.Raw,
                                         serialization.NoEncryption())
        return encoded(bytes([SEED | self.kind >> 5, (self.kind & 31) << 3]) + private)

    def token(self, subject, kind, **claims):
        """What this identity says about another one, signed."""
        content = {"iat": int(time.time()), "iss": self.name, "sub": subject.name, "name": kind,
                   "nats": {"type": kind, "version": 2, **claims}}
        content["jti"] = encoded(hashlib.sha256(json.dumps(content).encode()).digest())
        parts = [{"typ": "JWT", "alg": "ed25519-nkey"}, content]
        text = ".".join(url_text(json.dumps(part).encode()) for part in parts)
        return f"{text}.{url_text(self.key.sign(text.encode()))}"


class Accounts:
    """Files for a server and a user, in a directory."""

    def __init__(self, directory):
        self.directory = directory
        self.operator, self.system, self.account = Identity(OPERATOR), Identity(ACCOUNT), Identity(ACCOUNT)
        limits = {**NO_LIMITS, "imports": -1, "exports": -1, "wildcards": True, "conn": -1, "leaf": -1}
        stored = {"mem_storage": -1, "disk_storage": -1, "streams": -1, "consumer": -1}
        tokens = {self.system.name: self.operator.token(self.system, "account", limits=limits),
                  self.account.name: self.operator.token(self.account, "account", limits={**limits, **stored})}
        preload = "\n".join(f"  {name}: {token}" for name, token in tokens.items())
        self.server_file = self._write("accounts.conf", (
            f"operator: {self.operator.token(self.operator, 'operator')}\n"
            f"system_account: {self.system.name}\nresolver: MEMORY\nresolver_preload: {{\n{preload}\n}}\n"))

    def credentials(self, name, publish, subscribe):
        """The credentials file of a new user who may publish and subscribe to these subjects."""
        user = Identity(USER)
        token = self.account.token(user, "user", pub={"allow": publish}, sub={"allow": subscribe}, **NO_LIMITS)
        return self._write(name, (
            f"-----BEGIN NATS USER JWT-----\n{token}\n------END NATS USER JWT------\n\n"
            f"-----BEGIN USER NKEY SEED-----\n{user.seed()}\n------END USER NKEY SEED------\n"))

    def _write(self, name, content):
        path = os.path.join(self.directory, name)
        with open(path, "w", encoding="ascii") as file:
            file.write(content)
        return path
