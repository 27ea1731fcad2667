#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""docs/language.py on documents and tables made here. usage: LanguageTest.py FOLDER"""
import sys
import unittest

sys.path.insert(0, sys.argv.pop())
import language  # noqa: E402

GROUPS = [
    {
        "title": "one",
        "commands": [
            {"form": "say <TEXT>", "help": "print it", "example": "say so"},
            {"form": "stop [<N>]", "help": "end", "example": "stop 3"},
        ],
    }
]
WHOLE = """# The lab

**`say <TEXT>`**
Print it.
More by hand.

    say so

**`stop [<N>]`**
End.

    stop 3

## The prompt

**`its own`**
"""


class LanguageTest(unittest.TestCase):
    def follow(self, text):
        document = language.Document(text)
        document.follow(GROUPS)
        return document.errors, "\n".join(document.lines)

    def test_a_document_that_follows_the_table_stays(self):
        self.assertEqual(self.follow(WHOLE), ([], WHOLE))

    def test_another_help_or_example_is_replaced_and_what_is_by_hand_stays(self):
        errors, text = self.follow(WHOLE.replace("Print it.", "Prints.").replace("say so", "say no"))
        self.assertEqual(len(errors), 2)
        self.assertEqual(text, WHOLE)

    def test_a_form_without_an_entry_gets_one_after_the_form_before(self):
        errors, text = self.follow(WHOLE.replace("**`stop [<N>]`**\nEnd.\n\n    stop 3\n\n", ""))
        self.assertEqual(errors, ["no entry: stop [<N>]"])
        self.assertEqual(text, WHOLE)

    def test_an_entry_without_a_form_is_named(self):
        errors, _ = self.follow(WHOLE.replace("stop [<N>]", "halt"))
        self.assertIn("no such form: halt", errors)

    def test_an_optional_part_is_there_or_not(self):
        self.assertEqual(
            language.flat("a [b <X> [c]] d"),
            [["a", "b", "<X>", "c", "d"], ["a", "b", "<X>", "d"], ["a", "d"]],
        )


if __name__ == "__main__":
    unittest.main()
