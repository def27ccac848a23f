# Shared set-up of the Python tests: a registry database of their own (set
# before the module is imported, so no test touches the user's registry) and
# a host program path inside a temporary folder, so that the INI files the
# window placement helpers make land there.
import os
import sys
import tempfile

import pytest

_REGISTRY_DIR = tempfile.mkdtemp(prefix="tarvo2-pytest-")
os.environ["TARVO2_REGISTRY"] = os.path.join(_REGISTRY_DIR, "registry.db")

try:
    import tarvo2  # noqa: E402
except ImportError as e:  # the suite is only run when the module was built
    sys.exit(f"cannot import the tarvo2 module (is PYTHONPATH the build's python/ folder?): {e}")


class Form:
    """A host form: the properties the window placement helpers use."""

    def __init__(self, name="frmMain", top=100, left=200, width=3000, height=2000, state=0):
        self.Name, self.Top, self.Left = name, top, left
        self.Width, self.Height, self.WindowState = width, height, state


@pytest.fixture
def host(tmp_path):
    """The host program's path, in a fresh temporary folder."""
    path = tmp_path / "Ledger.exe"
    tarvo2.set_host_module_path(str(path))
    yield path
    tarvo2.set_host_module_path("")


@pytest.fixture
def ss():
    return tarvo2.CreateObject("Tarvo2.KivStorageString")


def expect_error(fn, number, description, source):
    """Runs fn, which must raise tarvo2.Error with exactly these fields."""
    with pytest.raises(tarvo2.Error) as info:
        fn()
    e = info.value
    assert (e.number, e.description, e.source) == (number, description, source), str(e)
    return e
