"""
Installs the package with the command of README.md into a fresh virtual environment, in a network namespace without
routes, as on a machine without network. Usage: install.py SOURCES ENVIRONMENT
"""

import pathlib
import re
import shutil
import subprocess
import sys


def main():
    sources, environment = map(pathlib.Path, sys.argv[1:])
    readme = (sources / "README.md").read_text("utf-8")
    command = re.search(r"^    (python3 -m venv .*pip install .* \./python)$", readme, re.MULTILINE)[1]
    shutil.rmtree(environment, ignore_errors=True)
    command = command.replace("python3", sys.executable, 1).replace(" V ", f" '{environment}' ")
    command = command.replace("V/bin/pip", f"'{environment}/bin/pip'")
    print(command)
    subprocess.run(["unshare", "--user", "--map-root-user", "--net", "sh", "-c", command], cwd=sources, check=True)
    wheel, = environment.glob("lib/python3*/site-packages/vantor-*.dist-info/WHEEL")
    assert "Tag: py3-none-any" in wheel.read_text("ascii"), wheel.read_text("ascii")


main()
