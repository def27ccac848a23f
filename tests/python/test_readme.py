# The README's Python session, run as written (its files and registry moved
# into a temporary folder), so that the documentation stays true.
import doctest
import os
import re

import tarvo2

README = os.path.join(os.path.dirname(__file__), "..", "..", "README.md")


def test_readme_session(tmp_path, monkeypatch):
    text = open(README, encoding="utf-8").read()
    block = re.search(r"\n    \$ TARVO2_REGISTRY=\S+ PYTHONPATH=build/python /usr/bin/python3\n((?:    .*\n)+)", text)
    assert block, "the README has no Python session"
    session = "".join(line[4:] + "\n" for line in block.group(1).splitlines())
    session = session.replace("/tmp/demo.ini", str(tmp_path / "demo.ini"))
    tarvo2.set_registry_location(str(tmp_path / "registry.db"))
    try:
        parser = doctest.DocTestParser()
        test = parser.get_doctest(session, {}, "README", README, 0)
        runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
        runner.run(test)
        assert runner.tries > 20 and runner.failures == 0, "the README's Python session failed (see the output above)"
    finally:
        tarvo2.set_registry_location(os.environ["TARVO2_REGISTRY"])
