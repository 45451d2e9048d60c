"""Makes certificates for TLS, for the end-to-end tests."""

import os
import subprocess

from vantor_process import TIME_OUT


class Certificates:
    """Keys and certificates of a broker and a program, of an authority, in a directory."""

    def __init__(self, directory):
        self.directory = directory
        self.authority = self._path("ca.pem")
        self._run("req", "-x509", *self._new_key("ca"), "-out", self.authority, "-subj", "/CN=authority", "-days", "2")
        self.broker = self._issue("broker", "subjectAltName=IP:127.0.0.1")
        self.program = self._issue("program", "extendedKeyUsage=clientAuth")

    def _path(self, name):
        return os.path.join(self.directory, name)

    def _new_key(self, name):
        return ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", self._path(f"{name}.key"))

    def _issue(self, name, extension):
        """Makes a certificate; returns its path and that of its key."""
        request, extensions = self._path(f"{name}.csr"), self._path(f"{name}.ext")
        certificate, key = self._path(f"{name}.pem"), self._path(f"{name}.key")
        with open(extensions, "w", encoding="ascii") as file:
            file.write(extension)
        self._run("req", *self._new_key(name), "-out", request, "-subj", f"/CN={name}")
        self._run("x509", "-req", "-in", request, "-CA", self.authority, "-CAkey", self._path("ca.key"),
                  "-CAcreateserial", "-out", certificate, "-extfile", extensions, "-days", "2")
        return certificate, key

    @staticmethod
    def _run(*arguments):
        subprocess.run(["openssl", *arguments], check=True, capture_output=True, timeout=TIME_OUT)
