# One script per store, as a Python user writes it, and the importers
# between them.
import tarvo2


def test_storage_string_script(tmp_path):
    ss = tarvo2.CreateObject("Tarvo2.KivStorageString")
    ss.SetValue("Colour", "Red")
    ss.SetValue("Sizes", [1, 2, 3])
    ss.PageName = "First"
    ss.AddPage("Second", True)
    ss.SetValue("Price", 2.5)
    assert (ss.PageCount, ss.Page, list(ss.GetPageNames())) == (2, 2, ["First", "Second"])
    assert ss.GetPageNames().lower_bound == 1
    ss.Page = "First"
    assert list(ss.GetFieldNames()) == ["Colour", "Sizes"]
    assert ss.Toggle("Colour", "Red,Green", ",") == "Green"
    path = tmp_path / "page.txt"
    ss.Save(str(path))
    copy = tarvo2.CreateObject("Tarvo2.KivStorageString")
    copy.Load(str(path))
    assert copy.GetValue("Colour") == "Green" and list(copy.GetValue("Sizes")) == [1, 2, 3]
    ss.EncryptionKey = "k3y"
    ss.Encrypted = True
    assert "Green" not in ss.Value
    ss.Encrypted = False
    assert ss.GetValue("Colour") == "Green"


def test_registry_script():
    key = tarvo2.CreateObject("Tarvo2.KivRegistryKey")
    key.KeyName = "Software\\PyTests\\Script"
    key.SetValue("Name", "Ledger")
    key.SetValue("Count", 7)
    key.SetValue("List", ["a", "b"])
    assert key.GetValue("Count") == 7 and list(key.GetValue("List")) == ["a", "b"]
    assert sorted(key.GetValueNames()) == ["Count", "List", "Name"]
    key.SubKeys.Add("Win1")
    sub = key.SubKeys["Win1"]
    sub.SetValue("Top", 10)
    again = tarvo2.CreateObject("Tarvo2.KivRegistryKey")
    again.KeyName = "Software\\PyTests\\Script\\Win1"
    assert again.GetValue("Top") == 10
    key.DeleteValue("Name")
    assert key.GetValue("Name", vDefaultReturn="gone") == "gone"
    key.DeleteKey(True)
    assert key.Invalidated


def test_ini_script(tmp_path):
    ini = tarvo2.CreateObject("Tarvo2.KivINIFileHandler")
    path = tmp_path / "app.ini"
    ini.Path = str(path)
    ini.Section = "Main"
    ini.SetValue("Colour", "Red")
    ini.SetValue("Bounds", [1, 2, 3, 4])
    ini.Section = "Other"
    ini.SetValue("x", 1.5)
    assert list(ini.GetSectionNames()) == ["Main", "Other"]
    ini.Section = "Main"
    assert list(ini.GetFieldNames()) == ["Colour", "Bounds"]
    assert list(ini.GetValue("Bounds")) == [1, 2, 3, 4]
    assert "Colour=Red" in path.read_text()
    ini.DeleteField("Colour")
    assert list(ini.GetFieldNames()) == ["Bounds"]


def test_importers_between_the_three_stores(tmp_path):
    ini = tarvo2.CreateObject("Tarvo2.KivINIFileHandler")
    ini.Path = str(tmp_path / "src.ini")
    for section, field, value in (("A", "a", 1), ("B", "b", "two")):
        ini.Section = section
        ini.SetValue(field, value)

    ss = tarvo2.CreateObject("Tarvo2.KivStorageString")
    ss.Value = ini  # import: one page per section
    assert list(ss.GetPageNames()) == ["A", "B"] and ss.GetValue("b") == "two"

    key = tarvo2.CreateObject("Tarvo2.KivRegistryKey")
    key.KeyName = "Software\\PyTests\\Imported"
    key.Value = ss  # page 1 to the key, page 2 to the subkey named after it
    assert key.GetValue("a") == 1
    assert key.SubKeys["B"].GetValue("b") == "two"

    back = tarvo2.CreateObject("Tarvo2.KivINIFileHandler")
    back.Path = str(tmp_path / "back.ini")
    back.Value = key
    back.Section = "Imported"
    assert back.GetValue("a") == 1
    key.DeleteKey(True)
