"""Fixtures of the package's tests.

run_pytest.sh (tests/integration/python) installs the package, makes the
image builder's volumes and sets the environment these fixtures read:
TOLVAR_TEST_WORK (the volumes, as SCENARIO.img and SCENARIO.manifest.json),
TOLVAR_TEST_LIBRARY and TOLVAR_TEST_COMMAND (the built library and command),
TOLVAR_TEST_VERSION (the project's version), TOLVAR_TEST_ROOT (the source tree).
"""

import json
import os
import subprocess
from typing import Dict, List

import pytest


def setting(name: str) -> str:
    value = os.environ.get(name)
    if not value:
        pytest.skip("%s is not set: run the tests through run_pytest.sh" % name)
    return value


class Volume:
    """One of the image builder's volumes and what its manifest says."""

    def __init__(self, work: str, scenario: str) -> None:
        self.prefix = os.path.join(work, scenario)
        self.path = self.prefix + ".img"
        self.manifest_path = self.prefix + ".manifest.json"
        with open(self.manifest_path) as handle:
            self.manifest = json.load(handle)
        self.snapshots: List[Dict] = self.manifest["snapshots"]
        self.ids = [snapshot["shadow_copy_id"] for snapshot in self.snapshots]

    def snapshot_image(self, index: int) -> str:
        return os.path.join(os.path.dirname(self.prefix), self.snapshots[index]["image"])

    def store_byte_ranges(self) -> List[List[int]]:
        """The byte ranges of the store's own files (catalog and stores)."""
        ranges = list(self.manifest["catalog"]["byte_ranges"])
        for snapshot in self.snapshots:
            ranges.extend(snapshot["store_file"]["byte_ranges"])
        return ranges


@pytest.fixture(scope="session")
def work() -> str:
    return setting("TOLVAR_TEST_WORK")


@pytest.fixture(scope="session")
def default_volume(work: str) -> Volume:
    return Volume(work, "default")


@pytest.fixture(scope="session")
def files_volume(work: str) -> Volume:
    return Volume(work, "file_services")


@pytest.fixture(scope="session")
def command() -> str:
    return setting("TOLVAR_TEST_COMMAND")


@pytest.fixture(scope="session")
def library() -> str:
    return setting("TOLVAR_TEST_LIBRARY")


@pytest.fixture(scope="session")
def root() -> str:
    return setting("TOLVAR_TEST_ROOT")


def unsanitized_environment() -> Dict[str, str]:
    """The environment for programs of other projects: without the sanitizer
    runtimes that the sanitized build preloads for the tests (some hang at
    exit under them)."""
    return {key: value for key, value in os.environ.items() if key != "LD_PRELOAD"}


def run(arguments: List[str], **options) -> subprocess.CompletedProcess:
    """Runs a program, capturing its output as text."""
    return subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True,
                          **options)
