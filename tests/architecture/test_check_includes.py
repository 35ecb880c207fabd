#!/usr/bin/env python3
"""Breaks small trees in each way and sees check_includes.py fail."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).with_name("check_includes.py")


class CheckIncludes(unittest.TestCase):
    def run_on(self, files):
        with tempfile.TemporaryDirectory() as folder:
            for path, text in files.items():
                target = pathlib.Path(folder, path)
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_text(text, encoding="utf-8")
            done = subprocess.run([sys.executable, CHECK, folder], capture_output=True, text=True, check=False)
            return done.returncode, done.stdout

    def test_a_good_tree_passes(self):
        code, out = self.run_on({"host/A.h": "#include <string>\n", "engine/B.h": '#include "host/A.h"\n',
                                 "engine/B.cpp": '#include "engine/B.h"\n',
                                 "timetable/KTTimeTableWeek.cpp": '#include "engine/B.h"\n'})
        self.assertEqual(code, 0, out)

    def test_faults_are_told(self):
        rows = [
            ({"host/A.h": '#include "engine/B.h"\n', "engine/B.h": ""}, "host/ may not include"),
            ({"timetable/KTTimeTableWeek.h": '#include "engine/B.h"\n', "engine/B.h": ""}, "timetable/ may not include"),
            ({"timetable/Day.cpp": '#include "engine/B.h"\n', "engine/B.h": ""}, "timetable/ may not include"),
            ({"suite/A.cpp": '#include "engine/B.h"\n', "engine/B.h": ""}, "suite/ may not include"),
            ({"engine/A.h": '#include "suite/B.h"\n', "suite/B.h": ""}, "engine/ may not include"),
            ({"engine/A.h": "#include <unistd.h>\n"}, "a header of the module includes"),
            ({"engine/A.h": '#include "engine/B.h"\n', "engine/B.h": '#include "engine/A.h"\n'}, "circle"),
            ({"engine/A.h": "", "engine/A.cpp": "#include <string>\n"}, "not first"),
            ({"engine/A.h": '#include "A.h"\n'}, "not a path from the root"),
        ]
        for files, reason in rows:
            with self.subTest(reason=reason, files=files):
                code, out = self.run_on(files)
                self.assertEqual(code, 1)
                self.assertIn(reason, out)

    def test_an_empty_tree_is_no_success(self):
        self.assertEqual(self.run_on({})[0], 2)


if __name__ == "__main__":
    unittest.main()
