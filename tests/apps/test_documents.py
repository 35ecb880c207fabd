#!/usr/bin/python3
"""What corvane serve says about documents that aren't good: whoever wrote them finds out there, and nowhere else."""

import unittest

import parallel
from installation import Installation, event, events_document


class Documents(unittest.TestCase):
    GOOD = events_document(event("Good", "1 > 0"))

    def starts_without_events_and_says(self, plant, *words):
        server = plant.serve()
        self.assertEqual(b"[]", server.get("/services/events/list.json").body)
        self.assertEqual(200, server.health())
        for word in words:
            self.assertIn(word, server.messages())

    def test_that_are_not_there_are_nothing_to_talk_about(self):
        plant = Installation(self, events=self.GOOD)
        server = plant.serve()
        self.assertNotIn("default.xtmt", server.messages())
        self.assertNotIn("default.xpark", server.messages())

    def test_that_are_broken_are_told_with_line(self):
        plant = Installation(self, events="<?xml version='1.0'?>\n<main>\n<events>\n</main>\n")
        self.starts_without_events_and_says(plant, "warning", str(plant.folder / "cfg/default.xeve"), "line 4")

    def test_that_are_empty_are_told(self):
        plant = Installation(self, events="")
        self.starts_without_events_and_says(plant, "warning", str(plant.folder / "cfg/default.xeve"))

    def test_that_cannot_be_read_are_told(self):
        plant = Installation(self, events=self.GOOD)
        (plant.folder / "cfg/default.xeve").unlink()
        (plant.folder / "cfg/default.xeve").mkdir()  # unreadable for root too
        self.starts_without_events_and_says(plant, "warning", str(plant.folder / "cfg/default.xeve"))

    def test_of_time_tables_that_are_broken_are_told(self):
        plant = Installation(self, events=self.GOOD, tables="<main><days>")
        server = plant.serve()
        self.assertIn("Good", server.get("/services/events/list.json").text)
        self.assertIn(str(plant.folder / "cfg/default.xtmt"), server.messages())

    def test_of_parking_matter_only_with_parking(self):
        for settings, told in (("", False), ("[parking]\nenabled = true\n", True)):
            plant = Installation(self, settings)
            plant.write("cfg/default.xpark", "no document")
            self.assertEqual(told, "default.xpark" in plant.serve().messages())

    def test_events_that_do_not_load_are_told_with_their_reason(self):
        plant = Installation(
            self,
            events=events_document(
                event("Good", "1 > 0"),
                event("Numeric", "1 + 1"),
                event("Broken & bad", "1 >"),
                "<event><id>{12345678-0000-0000-0000-000000000001}</id><name>No condition</name></event>",
                "<event><id>7</id><name>No id</name><condition>TRUE</condition></event>",
            ),
        )
        server = plant.serve()
        self.assertEqual(1, server.get("/services/events/list.json").text.count('"id"'))
        messages = server.messages()
        for name, reason in (
            ("Numeric", "not logical"),
            ("Broken & bad", "not an expression"),
            ("No condition", "no condition"),
            ("No id", "no id"),
        ):
            self.assertRegex(messages, rf'(?m)warning.*"{name}".*{reason}')
        self.assertNotIn('"Good"', messages)

    def test_events_whose_parts_do_not_load_are_told(self):
        plant = Installation(
            self,
            events=events_document(
                event("Stop is numeric", "1 > 0", conditionStop="5"),
                event("Table is gone", "1 > 0", timeTable="Nights"),
            ),
        )
        messages = plant.serve().messages()
        self.assertRegex(messages, r'(?m)warning.*"Stop is numeric".*stop condition')
        self.assertRegex(messages, r'(?m)warning.*"Table is gone".*time table.*Nights')

    def test_events_of_one_name_share_a_device(self):
        twin = event("Twin", "1 > 0")
        server = Installation(self, events=events_document(twin, twin)).serve()
        self.assertRegex(server.messages(), r'(?m)warning.*"Twin"')
        self.assertEqual(["R$EVE_Twin"], [name for name in server.devices() if name.startswith("R$EVE_")])


if __name__ == "__main__":
    parallel.main()
