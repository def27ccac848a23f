# Values between Python and the library, both ways. A storage string's
# GetValue returns its vReturn argument untouched when the field does not
# exist, so it carries a value into the library and back unchanged.
import datetime as dt
from decimal import Decimal

import pytest

import tarvo2
from conftest import expect_error

V = tarvo2.VarType

# (label, value passed in, expected value back, expected type back)
ROUND_TRIPS = [
    ("None is Empty", None, None, type(None)), ("Null", tarvo2.Null, tarvo2.Null, type(tarvo2.Null)),
    ("True", True, True, bool), ("False", False, False, bool), ("Long min", -2**31, -2**31, int),
    ("Long max", 2**31 - 1, 2**31 - 1, int), ("Byte", tarvo2.Byte(255), 255, int),
    ("Double", 1.5e300, 1.5e300, float), ("negative zero", -0.0, -0.0, float),
    ("Currency", Decimal("-922337203685477.5808"), Decimal("-922337203685477.5808"), Decimal),
    ("Currency rounds half to even", Decimal("0.00005"), Decimal("0.0000"), Decimal),
    ("Currency rounds half to even up", Decimal("0.00015"), Decimal("0.0002"), Decimal),
    ("Date", dt.datetime(2024, 2, 29, 13, 45, 7, 250000), dt.datetime(2024, 2, 29, 13, 45, 7, 250000), dt.datetime),
    ("Date epoch", dt.datetime(1899, 12, 30), dt.datetime(1899, 12, 30), dt.datetime),
    ("Date before the epoch", dt.datetime(1899, 12, 29, 6, 0), dt.datetime(1899, 12, 29, 6, 0), dt.datetime),
    ("Date first year", dt.datetime(100, 1, 1), dt.datetime(100, 1, 1), dt.datetime),
    ("date only", dt.date(2001, 5, 6), dt.datetime(2001, 5, 6), dt.datetime), ("empty str", "", "", str),
    ("str beyond the BMP", "a\U0001F600b\u00e9\u4e2d", "a\U0001F600b\u00e9\u4e2d", str),
    ("lone surrogate", "x\ud800y", "x\ud800y", str),
    ("list", [1, "two", None, [3.5]], [1, "two", None, [3.5]], tarvo2.Array), ("tuple", (), [], tarvo2.Array),
    ("bytes", b"\x00\xff", [0, 255], tarvo2.Array),
    ("Error value", tarvo2.ErrorValue(-5), tarvo2.ErrorValue(-5), tarvo2.ErrorValue),
]


@pytest.mark.parametrize("label,value,expected,kind", ROUND_TRIPS, ids=[r[0] for r in ROUND_TRIPS])
def test_round_trip(ss, label, value, expected, kind):
    back = ss.GetValue("no such field", vReturn=value)
    assert type(back) is kind, label
    assert back == expected, label
    if isinstance(expected, float):
        assert str(back) == str(expected), label  # keeps the sign of zero


# (label, array in, element type back, lower bound back, items back)
ARRAYS = [
    ("typed Long from 5", tarvo2.Array([1, 2.6], V.Long, lower_bound=5), V.Long, 5, [1, 3]),
    ("Strings from 1", tarvo2.Array(["a", "b"], V.String, lower_bound=1), V.String, 1, ["a", "b"]),
    ("negative bound", tarvo2.Array([True], V.Boolean, lower_bound=-3), V.Boolean, -3, [True]),
    ("Bytes", tarvo2.Array([1, 255], V.Byte), V.Byte, 0, [1, 255]),
    ("not sized", tarvo2.Array([], V.Double, sized=False), V.Double, 0, []),
]


@pytest.mark.parametrize("label,array,etype,lower,items", ARRAYS, ids=[r[0] for r in ARRAYS])
def test_array_round_trip(ss, label, array, etype, lower, items):
    back = ss.GetValue("none", vReturn=array)
    assert (back.element_type, back.lower_bound, list(back)) == (etype, lower, items), label
    assert back.sized == array.sized, label
    assert back.upper_bound == lower + len(items) - 1


# (label, value, error number): values the library cannot take.
REFUSED = [
    ("int above Long", 2**31, 6, "Overflow"), ("int below Long", -2**31 - 1, 6, "Overflow"),
    ("huge int", 10**30, 6, "Overflow"), ("Currency too large", Decimal("922337203685477.5808"), 6, "Overflow"),
    ("Currency NaN", Decimal("NaN"), 6, "Overflow"),
    ("Long array element out of range", tarvo2.Array([2**31 - 1 + 0.9], V.Long), 6, "Overflow"),
    ("text in a Long array", tarvo2.Array(["x"], V.Long), 13, "Type mismatch"),
]


@pytest.mark.parametrize("label,value,number,description", REFUSED, ids=[r[0] for r in REFUSED])
def test_refused_values(ss, label, value, number, description):
    expect_error(lambda: ss.GetValue("none", vReturn=value), number, description, ["Tarvo2"])


def test_byte_range_and_integer_parameters(ss):
    expect_error(lambda: tarvo2.Byte(256), 6, "Overflow", ["Tarvo2"])
    assert repr(tarvo2.Byte(7)) == "tarvo2.Byte(7)"
    # A Long parameter converts what it is given, with the library's rules.
    ss.Value = "abcdef"
    ss.Cursor = "3"
    assert ss.Cursor == 3
    # Arguments are converted before the member runs: no member line.
    expect_error(lambda: setattr(ss, "Cursor", "x"), 13, "Type mismatch", ["Tarvo2"])


def test_records_are_read_only_objects(ss):
    ss.Value = "one two one"
    results = ss.LookFor(["one", "two"], bStartFromCursor=False)
    assert len(results) == 2
    first = results[0]
    assert first.type_name == "KivSSLookForResults"
    assert (first.Text, first.hits, list(first.POSITIONS)) == ("one", 2, [1, 9])
    with pytest.raises(AttributeError):
        first.Hits = 3
    with pytest.raises(AttributeError):
        first.NoSuchField
    # Records and arrays of records passed back in come back equal.
    assert ss.GetValue("none", vReturn=first) == first
    back = ss.GetValue("none", vReturn=results)
    assert back == results and back.element_type == V.Record


def test_objects_are_wrappers_with_identity(ss):
    other = tarvo2.CreateObject("Tarvo2.KivStorageString")
    back = ss.GetValue("none", vReturn=ss)
    assert back is not ss and back == ss and tarvo2.same(back, ss) and hash(back) == hash(ss)
    assert back != other and not tarvo2.same(ss, other)
    assert ss.GetValue("none", vReturn=tarvo2.library()) == tarvo2.library()
    # A Python object passed in comes back as itself.
    marker = object()
    assert ss.GetValue("none", vReturn=marker) is marker
