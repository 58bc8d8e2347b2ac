"""Folders of a test's own."""
import pathlib
import shutil
import tempfile

import pytest


@pytest.fixture
def place():
    """A folder that every user may pass through, removed afterwards."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="fennox-test-"))
    path.chmod(0o755)
    yield path
    shutil.rmtree(path, ignore_errors=True)
