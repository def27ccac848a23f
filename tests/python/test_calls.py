# Calls by name from Python: arguments, by-reference cells, attribute reads
# and writes, introspection and errors of bad calls.
import inspect
import os
import pydoc

import pytest

import tarvo2
from conftest import Form, expect_error


def test_positional_keyword_and_case_insensitive_names(ss):
    assert ss.SetValue("Colour", "Red") is True
    assert ss.setvalue(SFIELD="Size", vvalue="1\t2") is True
    assert ss.GETVALUE("Colour") == "Red"
    assert list(ss.GetValue(sFieldName="Size")) == [1, 2]
    # Keywords in any order and after positional ones; omitted optionals default.
    assert ss.GetValue("Size", bdetectnum=False, bDetectArray=True) == ["1", "2"]
    assert ss.GetValue("Size", bDetectArray=False) == "1\t2"
    assert ss.GetValue("missing") == tarvo2.Missing
    assert ss.GetValue("missing", tarvo2.Missing, True, True, "dflt") == "dflt"
    # Properties in any letter case, read and assigned.
    ss.pagename = "Main"
    assert ss.PAGENAME == "Main"


# (label, call, number, description): calls the dispatcher refuses.
BAD_CALLS = [
    ("unknown member", lambda s: s.NoSuchMember, 438, "Object doesn't support this property or method"),
    ("unknown named argument", lambda s: s.GetValue("a", bNope=1), 448, "Named argument not found"),
    ("required argument missing", lambda s: s.GetValue(bDetectNum=False), 449, "Argument not optional"),
    ("too many arguments", lambda s: s.GetValue(1, 2, 3, 4, 5, 6), 450,
     "Wrong number of arguments or invalid property assignment"),
    ("assigning a method", lambda s: setattr(s, "GetValue", 1), 438,
     "Object doesn't support this property or method"),
]


@pytest.mark.parametrize("label,call,number,description", BAD_CALLS, ids=[r[0] for r in BAD_CALLS])
def test_bad_calls(ss, label, call, number, description):
    expect_error(lambda: call(ss), number, description, ["Tarvo2"])


def test_unknown_members_are_attribute_errors(ss):
    assert not hasattr(ss, "NoSuchMember")
    assert getattr(ss, "NoSuchMember", 5) == 5
    # A write-only property cannot be read.
    assert not hasattr(tarvo2.library(), "TarvoRaiseErrors")


def test_by_reference_cells(host):
    lib = tarvo2.library()
    lib.KivSetFormSaveParams(2, "Vendor")
    form = Form(state=2)
    lib.KivSaveFormParams(form, 42)
    extra = tarvo2.Ref("untouched")
    lib.KivRestoreFormParams(Form(top=0), extra)
    assert extra.value == 42
    # A field never saved leaves the cell as it was; a keyword can carry a cell.
    nothing = tarvo2.Ref("kept")
    lib.KivRestoreFormParams(Form(name="other"), vExtraParams=nothing)
    assert nothing.value == "kept"
    # A cell given to a by-value parameter keeps its very object.
    items = ["a", "b"]
    cell = tarvo2.Ref(items)
    assert ss_value_of(cell) == ["a", "b"] and cell.value is items


def ss_value_of(cell):
    return tarvo2.CreateObject("Tarvo2.KivStorageString").GetValue("none", vReturn=cell)


def test_indexed_property_len_and_iteration():
    key = tarvo2.CreateObject("Tarvo2.KivRegistryKey")
    key.KeyName = "Software\\PyTests\\Indexed"
    for name in ("B", "A"):
        key.SubKeys.Add(name)
    subs = key.SubKeys
    assert len(subs) == subs.Count == 2
    names = [k.KeyName.rsplit("\\", 1)[1] for k in subs]
    assert sorted(names) == ["A", "B"]
    assert [k.KeyName for k in subs.NewEnum] == [k.KeyName for k in subs]
    assert subs.Item[1] == subs.Item(1) == subs[1]
    assert subs.Item["A"].KeyName.endswith("\\A")
    expect_error(lambda: subs.Item[99], 9, "Subscript out of range", ["Tarvo2", "SubKeysCollection.Item (Get)"])
    with pytest.raises(TypeError):
        len(tarvo2.CreateObject("Tarvo2.KivStorageString"))
    with pytest.raises(TypeError):
        iter(tarvo2.CreateObject("Tarvo2.KivStorageString"))
    key.DeleteKey(True)


def test_dir_help_and_signatures(ss):
    names = dir(ss)
    for member in ("GetValue", "SetValue", "PageCount", "BoundObject", "Value"):
        assert member in names
    doc = type(ss).GetValue.__doc__
    assert "Gets a value from a field" in doc and "sFieldName" in doc
    sig = inspect.signature(ss.GetValue)
    assert list(sig.parameters) == ["sFieldName", "sArrayDelim", "bDetectArray", "bDetectNum", "vReturn"]
    assert sig.parameters["sArrayDelim"].default == "\t"
    assert "The number of pages" in type(ss).PageCount.__doc__
    text = pydoc.render_doc(ss, renderer=pydoc.plaintext)  # what help(ss) shows
    assert "An in-memory, multi-page text store" in text and "Lists the page names, indexed from 1" in text
    assert isinstance(ss, tarvo2.KivStorageString) and isinstance(ss, tarvo2.Object)
    assert type(tarvo2.KivStorageString()) is tarvo2.KivStorageString
    with pytest.raises(TypeError):
        tarvo2.SubKeysCollection()
    info = tarvo2.type_info("KivStorageString")
    assert info["creatable"] and any(m["name"] == "LookFor" for m in info["members"])


def test_stub_file_lists_every_member():
    stub = os.path.join(os.path.dirname(tarvo2.__file__), "tarvo2.pyi")
    text = open(stub, encoding="utf-8").read()
    for prog_id in tarvo2.prog_ids():
        info = tarvo2.type_info(prog_id)
        assert f"class {info['name']}(Object):" in text
        for m in info["members"]:
            if not m["hidden"]:
                assert f" {m['name']}" in text, (info["name"], m["name"])
    assert "def GetValue(self, sFieldName: str, sArrayDelim: str = ..." in text
    compile(text, stub, "exec")
