"""Runs the tests of a file side by side: they mostly wait, each for a server of its own."""

import concurrent.futures
import sys
import time
import unittest

AT_A_TIME = 8


def flatten(suite):
    for entry in suite:
        if isinstance(entry, unittest.TestSuite):
            yield from flatten(entry)
        else:
            yield entry


def run_one(test):
    result = unittest.TestResult()
    begun = time.monotonic()
    test.run(result)
    return test, result, time.monotonic() - begun


def main():
    """All tests of the file, or those named as for unittest: `CLASS`, `CLASS.test`."""
    loader = unittest.TestLoader()
    module = sys.modules["__main__"]
    names = sys.argv[1:]
    tests = list(flatten(loader.loadTestsFromNames(names, module) if names else loader.loadTestsFromModule(module)))
    failed = skipped = 0
    with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as pool:
        for done in concurrent.futures.as_completed([pool.submit(run_one, test) for test in tests]):
            test, result, seconds = done.result()
            faults = result.failures + result.errors
            skipped += len(result.skipped)
            failed += not result.wasSuccessful()
            print(f"{'FAILED' if not result.wasSuccessful() else 'ok':6} {seconds:6.1f} s  {test.id()}", flush=True)
            for place, text in faults:
                print(f"{place}\n{text}", flush=True)
    print(f"{len(tests) - failed - skipped} passed, {failed} failed, {skipped} skipped", flush=True)
    sys.exit(0 if not failed and len(tests) > skipped else 1)
