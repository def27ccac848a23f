# Each store from Python: the same calls by name on the three classes (the
# module has no glue per class, and the stores themselves and the importers
# between them are tested in C++ and in the README session).
import pytest

import tarvo2


# (class, its own properties set first: "@" is the test's folder)
STORES = [
    ("KivStorageString", {"PageName": "Main"}),
    ("KivRegistryKey", {"KeyName": "Software\\PyTests\\Script"}),
    ("KivINIFileHandler", {"Path": "@/app.ini", "Section": "Main"}),
]


@pytest.mark.parametrize("prog_id,properties", STORES, ids=[s[0] for s in STORES])
def test_a_script_on_each_store(tmp_path, prog_id, properties):
    store = tarvo2.CreateObject("Tarvo2." + prog_id)
    for name, value in properties.items():
        setattr(store, name, value.replace("@", str(tmp_path)))
    store.SetValue("Colour", "Red")
    store.SetValue("Bounds", [1, 2, 3, 4])
    store.SetValue("Ratio", 1.5)
    assert (store.GetValue("Colour"), list(store.GetValue("Bounds")), store.GetValue("Ratio")) == ("Red", [1, 2, 3, 4], 1.5)
    names = store.GetValueNames() if prog_id == "KivRegistryKey" else store.GetFieldNames()
    assert sorted(names) == ["Bounds", "Colour", "Ratio"]
    store.DeleteValue("Colour") if prog_id == "KivRegistryKey" else store.DeleteField("Colour")
    assert store.GetValue("Colour", "\t", True, True, "gone") == "gone"


def test_registry_subkeys_by_name_and_a_deleted_key():
    key = tarvo2.CreateObject("Tarvo2.KivRegistryKey")
    key.KeyName = "Software\\PyTests\\Subkeys"
    key.SubKeys.Add("Win1")
    key.SubKeys["Win1"].SetValue("Top", 10)
    again = tarvo2.CreateObject("Tarvo2.KivRegistryKey")
    again.KeyName = "Software\\PyTests\\Subkeys\\Win1"
    assert again.GetValue("Top") == 10
    key.DeleteKey(True)
    assert key.Invalidated
