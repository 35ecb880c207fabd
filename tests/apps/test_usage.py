#!/usr/bin/python3
"""The command line of every subcommand: help, and what it says to mistakes."""

import subprocess
import unittest

import parallel
from installation import PATIENCE, PROGRAM, Installation, run

SUBCOMMANDS = {  # what its help has to name
    "serve": ["--setup", "--port"],
    "log": ["--setup", "--begin", "--end", "--event", "--before", "--totals", "--file", "--format", "--json"],
    "migrate": ["--setup", "--dry-run", "--json"],
    "rename": ["--setup", "--old", "--new", "--json"],
    "eval": ["--setup", "--json", "expression"],
    "password": [],
}


class Usage(unittest.TestCase):
    def test_help_names_the_subcommands_and_the_exit_codes(self):
        result = run("--help")
        self.assertEqual(0, result.code, result)
        self.assertEqual("", result.err)
        for name in SUBCOMMANDS:
            self.assertRegex(result.out, rf"(?m)^\s+{name}\s+\S")
        self.assertIn("Exit codes", result.out)

    def test_help_of_a_subcommand_names_its_options(self):
        for name, options in SUBCOMMANDS.items():
            with self.subTest(name):
                result = run(name, "--help")
                self.assertEqual(0, result.code, result)
                self.assertEqual("", result.err)
                self.assertIn(f"corvane {name}", result.out)
                for option in options:
                    self.assertRegex(result.out, rf"(?m)^\s+{option}\b.*\S")

    def test_help_needs_no_other_option(self):
        self.assertEqual(0, run("serve", "--port", "0", "--help").code)

    def test_refuses_what_it_does_not_know(self):
        setup = Installation(self).setup
        for arguments in (
            (),
            ("observe",),
            ("--verbose",),
            ("serve", "--setup", setup, "--verbose"),
            ("serve", "--setup", setup, "--port", "0", "more"),
            ("serve", "--setup", setup, "--port", "65536"),
            ("serve", "--setup", setup, "--port", "-1"),
            ("serve", "--setup", setup, "--port", "http"),
            ("serve", "--setup", setup, "--port"),
            ("serve", "--port", "0"),
            ("eval", "--setup", setup, "--verbose", "1"),
            ("password", "--verbose"),
            ("password", "secret"),  # not on the command line, where others see it
        ):
            with self.subTest(arguments):
                result = run(*arguments, given="secret\n")
                self.assertEqual(2, result.code, result)
                self.assertEqual("", result.out)
                self.assertNotEqual("", result.err)

    def test_tells_when_its_result_could_not_be_written(self):
        setup = Installation(self).setup
        for arguments in (("eval", "--setup", setup, "1"), ("eval", "--setup", setup, "--json", "1"), ("password",)):
            with self.subTest(arguments), open("/dev/full", "w", encoding="ascii") as full:
                done = subprocess.run(
                    [PROGRAM, *map(str, arguments)], input="secret\n", stdout=full, stderr=subprocess.PIPE, text=True, timeout=PATIENCE
                )
                self.assertEqual(3, done.returncode)
                self.assertIn("standard output", done.stderr)


class Password(unittest.TestCase):
    def test_prints_a_hash_alone_and_another_each_time(self):
        hashes = set()
        for given in ("secret\n", "secret", "secret\r\n"):
            result = run("password", given=given)
            self.assertEqual(0, result.code, result)
            self.assertEqual("", result.err)
            self.assertRegex(result.out, r"\A\$\S+\n\Z")
            self.assertNotIn("secret", result.out)
            hashes.add(result.out)
        self.assertEqual(3, len(hashes))

    def test_refuses_none(self):
        for given in ("", "\n"):
            result = run("password", given=given)
            self.assertEqual(2, result.code, result)
            self.assertEqual("", result.out)
            self.assertIn("empty", result.err)


if __name__ == "__main__":
    parallel.main()
