#!/usr/bin/python3
"""corvane eval: what it prints for an expression, and its exit code."""

import json
import unittest

import parallel
from installation import Installation, event, events_document, memory_device, run

SIMULATED = """
[[device]]
name = "SIM"
driver = "simulator"
  [[device.variable]]
  name = "C"
  signal = "constant"
  low = 12.5
  [[device.variable]]
  name = "Out temp"
  signal = "constant"
  low = -3
  [[device.variable]]
  name = "BITS"
  signal = "constant"
  low = 5
"""

NAN = None  # no value
ROWS = [  # expression, kind, code, text of the value, value
    ("1 + 1", "numeric", 0, "2", 2),
    ("12.5", "numeric", 0, "12.5", 12.5),
    ("0.1 + 0.2", "numeric", 0, "0.30000000000000004", 0.30000000000000004),
    ("-2 ^ 2", "numeric", 0, "-4", -4),
    ("2 ^ -1", "numeric", 0, "0.5", 0.5),
    ("-7 % 4", "numeric", 0, "-3", -3),
    ("0 * -1", "numeric", 0, "0", 0),  # zero has no sign for people
    ("-0.0", "numeric", 0, "0", 0),
    ("1e300 * 10", "numeric", 0, "1e+301", 1e301),
    ("100000", "numeric", 0, "100000", 1e5),
    ("-250000 * 4", "numeric", 0, "-1000000", -1e6),
    ("1e14 + 0.5", "numeric", 0, "100000000000000.5", 1e14 + 0.5),
    ("0.00001", "numeric", 0, "0.00001", 1e-5),
    ("1e15", "numeric", 0, "1e+15", 1e15),
    ("1e-7", "numeric", 0, "1e-07", 1e-7),
    ("ROUND(-2.5)", "numeric", 0, "-3", -3),
    ("MIN(3, 1, 2)", "numeric", 0, "1", 1),
    ("1 > 0", "logical", 0, "1", 1),
    ("1 < 0", "logical", 0, "0", 0),
    ("TRUE", "logical", 0, "1", 1),
    ("NOT true", "logical", 0, "0", 0),
    ("(1 = 1)", "logical", 0, "1", 1),
    ("IF(1, TRUE, 2 > 1)", "logical", 0, "1", 1),
    ("IF(1, TRUE, 2)", "numeric", 0, "1", 1),
    ("TRUE + TRUE", "numeric", 0, "2", 2),
    ("\t1\n+ 1 ", "numeric", 0, "2", 2),
    # what the devices say
    ("[SIM.C]", "numeric", 0, "12.5", 12.5),
    ("[SIM.C] > 12.5", "logical", 0, "0", 0),
    ("[SIM.Out temp] < 0", "logical", 0, "1", 1),
    ("BIT([SIM.BITS], 2)", "logical", 0, "1", 1),
    ("[SIM.C] > 100 AND [MEM.V] > 1", "logical", 0, "0", 0),  # the right side isn't needed
    ("[R$EVE_Too hot.ST]", "numeric", 0, "0", 0),  # events stand still here
    ("[R$EVE_Too hot.CACT] + [R$EVE_Too hot.CTIM]", "numeric", 0, "0", 0),
    # what isn't an expression
    ("", "error", 40, "NaN", NAN),
    ("1 >", "error", 40, "NaN", NAN),
    ("1 < 2 < 3", "error", 40, "NaN", NAN),
    ("ABS(1, 2)", "error", 40, "NaN", NAN),
    ("HOT(1)", "error", 40, "NaN", NAN),
    ("[SIM.C", "error", 40, "NaN", NAN),
    ("(" * 201 + "1" + ")" * 201, "error", 40, "NaN", NAN),
    # what has no value
    ("[NONE.V]", "numeric", 41, "NaN", NAN),
    ("[NONE.V] > 1", "logical", 41, "NaN", NAN),
    ("[V]", "numeric", 41, "NaN", NAN),
    ("[sim.C]", "numeric", 41, "NaN", NAN),
    ("[R$EVE_Nobody.ST] = 1", "logical", 41, "NaN", NAN),
    ("[SIM.D] > 1", "logical", 42, "NaN", NAN),
    ("[SIM.c]", "numeric", 42, "NaN", NAN),
    ("[FILE@3:SIM.C]", "numeric", 43, "NaN", NAN),
    ("1 / 0", "numeric", 50, "NaN", NAN),
    ("5 % 0 = 1", "logical", 50, "NaN", NAN),
    ("SQRT(-1)", "numeric", 51, "NaN", NAN),
    ("LN(0) > 1", "logical", 51, "NaN", NAN),
    ("1e308 * 10", "numeric", 51, "NaN", NAN),
    ("BIT(1, 64)", "logical", 51, "NaN", NAN),
    ("[MEM.V]", "numeric", 62, "NaN", NAN),
    ("[MEM.V] > 1 OR TRUE", "logical", 62, "NaN", NAN),
]


class Eval(unittest.TestCase):
    def setUp(self):
        hot = events_document(event("Too hot", "[SIM.C] > 10"))
        self.plant = Installation(self, SIMULATED + memory_device("MEM", "V"), hot)

    def test_prints_kind_code_and_value(self):
        for expression, kind, code, text, _ in ROWS:
            with self.subTest(expression):
                result = self.plant.eval(expression)
                self.assertEqual(f"{kind} {code} {text}\n", result.out, result)
                self.assertEqual(0 if code == 0 else 1, result.code, result)
                self.assertEqual("", result.err)

    def test_prints_them_as_json_too(self):
        for expression, kind, code, _, value in ROWS[::2]:
            with self.subTest(expression):
                result = self.plant.eval(expression, "--json")
                self.assertEqual(1, result.out.count("\n"), result)
                self.assertNotIn("-0.0", result.out)
                pairs = json.loads(result.out, object_pairs_hook=list)
                self.assertEqual([("kind", kind), ("code", code), ("value", value)], pairs)
                self.assertEqual(0 if code == 0 else 1, result.code, result)

    def test_takes_options_in_any_order(self):
        for arguments in (
            ("--json", "--setup", self.plant.setup, "1 > 0"),
            ("1 > 0", "--setup", self.plant.setup, "--json"),
            ("--setup=" + str(self.plant.setup), "1 > 0", "--json"),
        ):
            result = run("eval", *arguments)
            self.assertEqual(0, result.code, result)
            self.assertEqual({"kind": "logical", "code": 0, "value": 1}, json.loads(result.out))

    def test_leaves_no_trace_in_the_installation(self):
        self.plant.eval("1 > 0")
        self.assertEqual(["cfg", "corvane.toml"], sorted(entry.name for entry in self.plant.folder.iterdir()))

    def test_names_a_device_that_stays_silent(self):
        # Nothing listens there: the port was free a moment ago and low ports aren't given out.
        dead = '[[device]]\nname = "DEAD"\nhost = "127.0.0.1"\nport = 1\n  [[device.variable]]\n  name = "P"\n'
        result = Installation(self, dead).eval("[DEAD.P] > 1")
        self.assertEqual("logical 62 NaN\n", result.out)
        self.assertEqual(1, result.code)
        self.assertIn("DEAD", result.err)

    def test_refuses_wrong_usage(self):
        for arguments in (
            (),
            ("1",),
            ("--setup", self.plant.setup),
            ("--setup", self.plant.setup, "1", "2"),
            ("--setup", self.plant.setup, "--xml", "1"),
            ("--setup", "", "1"),
            ("1", "--setup"),
        ):
            with self.subTest(arguments):
                result = run("eval", *arguments)
                self.assertEqual(2, result.code, result)
                self.assertEqual("", result.out)
                self.assertNotEqual("", result.err)

    def test_tells_where_the_settings_are_wrong(self):
        self.plant.setup.write_text("[http]\nport = 1\n\n[program]\nlangage = 'en'\n", encoding="utf-8")
        result = self.plant.eval("1")
        self.assertEqual(2, result.code)
        self.assertEqual("", result.out)
        self.assertIn(f"{self.plant.setup}:5: ", result.err)
        self.assertIn("langage", result.err)

    def test_tells_that_the_settings_are_not_there(self):
        missing = self.plant.folder / "nowhere.toml"
        result = run("eval", "--setup", missing, "1")
        self.assertEqual(2, result.code)
        self.assertEqual("", result.out)
        self.assertIn(str(missing), result.err)
        self.assertEqual(1, result.err.count("\n"), result.err)


if __name__ == "__main__":
    parallel.main()
