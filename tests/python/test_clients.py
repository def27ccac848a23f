# Python objects as client objects: bound to a storage string, used as forms
# by the window placement helpers, raising errors the library passes on.
import gc
import tracemalloc

import pytest

import tarvo2
from conftest import Form, expect_error


class TextBox:
    """A control whose Text is its default property."""

    __tarvo2_default__ = "Text"

    def __init__(self, text=""):
        self.Text = text
        self.Tag = ""


def test_python_object_bound_to_a_storage_string(ss):
    box = TextBox("<\\Colour={Red};/>")
    ss.BoundObject = box
    assert ss.BoundObject is box and ss.BindMode == 2 and ss.MultiPage is False
    assert ss.GetValue("Colour") == "Red"  # pulled from box.Text
    box.Text = "<\\Colour={Blue};/>"
    assert ss.GetValue("Colour") == "Blue"
    ss.SetValue("Size", 3)  # pushed back
    assert box.Text == "<\\Colour={Blue};/><\\Size={3};/>"
    ss.BindMode = 1  # the property "Tag", found in any letter case
    ss.SetValue("x", 1)
    assert box.Tag.endswith("<\\x={1};/>")
    ss.BoundObject = None
    assert ss.BindMode == 0 and ss.BoundObject is None


# Python objects as forms (the three stores behind the helpers are tested in C++).
def test_forms_saved_and_restored(host):
    lib = tarvo2.library()
    store = lib.KivSetFormSaveParams(0, "PyVendor")
    assert store.Section == "WindowParams"  # by name the store answers with its own members
    form = Form(top=120, left=240.5, width=3000, height=2000, state=2)
    lib.KivSaveFormParams(form, ["extra", "x"])
    assert form.WindowState == 2  # put back after normalising
    saved = store.GetValue("frmMain")
    assert list(saved) == [120, 240, 3000, 2000, 2, 0, 0]

    restored = Form(top=0, left=0, width=1, height=1, state=0)
    lib.KivRestoreFormParams(restored)
    assert (restored.Top, restored.Left, restored.Width, restored.Height, restored.WindowState) == (
        120, 240, 3000, 2000, 2)
    assert "frmMain=120\t240\t3000\t2000\t2\t0\t0" in (host.parent / "Ledger.ini").read_text()

    tarvo2.set_screen_size(1000, 900)
    centred = Form(width=400, height=300)
    lib.KivCenterForm(centred)
    assert (centred.Top, centred.Left) == (900 * 0.85 / 2 - 150, 300)


def test_errors_of_client_objects_come_back_as_the_original_exception(ss):
    class Broken:
        @property
        def Value(self):
            raise KeyError("no value today")

    with pytest.raises(KeyError) as info:
        ss.BoundObject = Broken()
    assert info.value.args == ("no value today",)
    assert info.value.__notes__ == [
        "Tarvo2 source: Broken <- KivStorageString.UpdateFromBoundObject <- KivStorageString.BoundTagObject (Set)"]

    # A tarvo2.Error raised by client code keeps its number and gains the chain.
    class Refusing:
        Name = "frmRefusing"
        WindowState = 0

        @property
        def Top(self):
            raise tarvo2.Error(1234, "no top", ["Host"])

    lib = tarvo2.library()
    lib.KivSetFormSaveParams(2, "PyVendor")
    with pytest.raises(tarvo2.Error) as info:
        lib.KivSaveFormParams(Refusing())
    assert (info.value.number, info.value.description, info.value.source) == (
        1234, "no top", ["Host", "KivSaveFormParams"])

    # A missing attribute is 438 to the library, an AttributeError to Python.
    class NoTag:
        pass

    ss2 = tarvo2.CreateObject("Tarvo2.KivStorageString")
    ss2.BindMode = 1
    with pytest.raises(AttributeError):
        ss2.BoundObject = NoTag()


def test_library_error_chains(ss):  # (a blank field name's error is in the README session)
    expect_error(lambda: ss.SetValue("a<\\b", 1), -2147211481, "Illegal Character(s) Passed",
                 ["Tarvo2", "KivStorageString.ValidateString", "KivStorageString.SetValue"])
    e = expect_error(lambda: tarvo2.CreateObject("Tarvo2.Nothing"), 429, "ActiveX component can't create object",
                     ["Tarvo2"])
    assert (e.help_file, e.help_context) == ("", 0)
    assert str(e) == "429: ActiveX component can't create object [Tarvo2]"
    lib = tarvo2.library()
    lib.TarvoRaiseErrors = False
    try:
        ss.DeleteField("missing")  # switched off: no error
    finally:
        lib.TarvoRaiseErrors = True
    expect_error(lambda: ss.DeleteField("missing"), -2147211501, "Field Not Found",
                 ["Tarvo2", "KivStorageString.DeleteValue"])


def rss_kib():
    with open("/proc/self/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    raise RuntimeError("no VmRSS")


def test_creating_and_dropping_objects_does_not_leak():
    def churn(n):
        for i in range(n):
            ss = tarvo2.CreateObject("Tarvo2.KivStorageString")
            ss.SetValue("n", i)
            ss.BoundObject = TextBox()  # a client object each time
            ss.GetValue("n")

    churn(5000)  # warm up allocator pools and caches
    gc.collect()
    tracemalloc.start()
    before_rss, before_py = rss_kib(), tracemalloc.get_traced_memory()[0]
    churn(100_000)
    gc.collect()
    after_rss, after_py = rss_kib(), tracemalloc.get_traced_memory()[0]
    tracemalloc.stop()
    # A leak of one storage string (several hundred bytes) or one Python
    # client object (about 100 bytes) per round would be 10 MB or more.
    assert after_py - before_py < 1_000_000, (before_py, after_py)
    assert after_rss - before_rss < 4096, (before_rss, after_rss)
