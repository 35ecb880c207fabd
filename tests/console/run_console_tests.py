#!/usr/bin/python3
"""The tests of the operator console: against a mock server, and against the program named by CORVANE_BIN when it is set.

    tests/console/run_console_tests.py            all
    tests/console/run_console_tests.py test_link  one file; further arguments as for unittest
"""

import pathlib
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from case import ConsoleCase  # noqa: E402  the path has to be there first


def main():
    loader = unittest.TestLoader()
    names = sys.argv[1:]
    suite = loader.loadTestsFromNames(names) if names else loader.discover(str(HERE), "test_*.py")
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    ConsoleCase.close_browser()
    failed = len({test.id() for test, _ in result.failures + result.errors})
    skipped = len(result.skipped)
    print(f"{result.testsRun - failed - skipped} passed, {failed} failed, {skipped} skipped", flush=True)
    return 0 if result.wasSuccessful() and result.testsRun > skipped else 1


if __name__ == "__main__":
    sys.exit(main())
