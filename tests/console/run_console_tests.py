#!/usr/bin/python3
"""The tests of the operator console: against a mock server, and against the program named by CORVANE_BIN when it is set.

    tests/console/run_console_tests.py            all
    tests/console/run_console_tests.py test_link  one file; further arguments as for unittest
    tests/console/run_console_tests.py --files 'test_history*' [--but]    the files of such names, or all others
"""

import argparse
import pathlib
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from case import ConsoleCase  # noqa: E402  the path has to be there first


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("names", nargs="*")
    parser.add_argument("--files", default="test_*")
    parser.add_argument("--but", action="store_true")
    options = parser.parse_args()
    files = {path.stem for path in HERE.glob(f"{options.files}.py")}
    if options.but:
        files = {path.stem for path in HERE.glob("test_*.py")} - files
    suite = unittest.TestLoader().loadTestsFromNames(options.names or sorted(files))
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    ConsoleCase.close_browser()
    failed = len({test.id() for test, _ in result.failures + result.errors})
    skipped = len(result.skipped)
    print(f"{result.testsRun - failed - skipped} passed, {failed} failed, {skipped} skipped", flush=True)
    return 0 if result.wasSuccessful() and result.testsRun > skipped else 1


if __name__ == "__main__":
    sys.exit(main())
