"""Shared inputs of the Python suite: generated rows and the command line."""
import os
import sys

import pytest

sys.path.insert(0, os.path.dirname(__file__))
import rows as generated  # noqa: E402


@pytest.fixture(scope="session")
def rows():
    return generated.generate(2000)


@pytest.fixture(scope="session")
def txscan():
    path = os.environ.get("TXSCAN_CLI", "")
    if not os.access(path, os.X_OK):
        pytest.fail("TXSCAN_CLI must name the txscan command line (ctest sets it)")
    return path
