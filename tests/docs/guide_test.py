#!/usr/bin/env python3
"""The test of the guides can fail: each kind of untruth is found, and nothing else is taken for one.

guide_test.py BUILD_DIRECTORY"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import guide_text  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
SKIPPED = 77

FALSE_GUIDE = """Text, and a box that is not run:

```sh
false
```

```console
controller# echo true
true
client# echo printed
shown
controller# false
controller# false
controller# echo $?
1
client# cat <<'END'
> two
> lines
> END
two
lines
controller# echo 12 ms
99.5 ms
controller# echo 'missing   blanks'
missing blanks
```
"""


class Text(unittest.TestCase):
    def test_a_command_continues_over_lines(self):
        steps = guide_text.read_steps(["```console", "client# cat <<END", "> a", "> END", "a", "```"])
        self.assertEqual([(step.host, step.command, step.output) for step in steps],
                         [("client", "cat <<END\na\nEND", ["a"])])

    def test_other_boxes_are_no_commands(self):
        self.assertEqual(guide_text.read_steps(["```sh", "controller# false", "```"]), [])

    def test_a_box_that_begins_with_output_is_refused(self):
        with self.assertRaises(SystemExit):
            guide_text.read_steps(["```console", "output", "```"])

    def test_stated_parts_may_vary(self):
        self.assertTrue(guide_text.same(["11/21|12:02:17 answered in 0.27 ms"], ["01/02|03:04:05 answered in 11.5 s"]))
        self.assertTrue(guide_text.same(["Close         12     9 us"], ["Close   9  11.5 us"]))
        self.assertTrue(guide_text.same(["63 FTX1470I Plug-in"], ["67 FTX1470I Plug-in"]))
        self.assertTrue(guide_text.same(["corvaned, process 7,"], ["corvaned, process 12345,"]))

    def test_all_else_may_not(self):
        self.assertFalse(guide_text.same(["Close 12    9 us"], ["SetSize 12    9 us"]))
        self.assertFalse(guide_text.same(["leases granted 11"], ["leases granted 12"]))
        self.assertFalse(guide_text.same(["a"], ["a", "b"]))
        self.assertFalse(guide_text.same(["63 bytes"], ["67 bytes"]))
        self.assertFalse(guide_text.same(["a  b"], ["a b"]))
        self.assertFalse(guide_text.same(["answered in 0.27 ms"], ["answered in 0.27 ms, twice"]))


class Run(unittest.TestCase):
    def run_guide(self, text, *options):
        with tempfile.TemporaryDirectory() as folder:
            guide = pathlib.Path(folder) / "guide.md"
            guide.write_text(text)
            result = subprocess.run([HERE / "run_guide", *options, guide, build], capture_output=True, text=True)
            if result.returncode == SKIPPED:
                self.skipTest(result.stderr)
            return result, guide.read_text()

    def test_each_untruth_is_told(self):
        result, _ = self.run_guide(FALSE_GUIDE)
        self.assertEqual(result.returncode, 1, result)
        told = [line for line in result.stdout.split("\n") if ": on the " in line]
        self.assertEqual([line.partition("guide.md:")[2] for line in told],
                         ["10: on the client: echo printed", "12: on the controller: false",
                          "24: on the controller: echo 'missing   blanks'"])
        self.assertIn("8 commands run, 3 not as shown", result.stdout)

    def test_outputs_are_rewritten_on_request(self):
        result, text = self.run_guide(FALSE_GUIDE.replace("controller# false\n", "", 1), "--update")
        self.assertEqual(result.returncode, 0, result)
        self.assertIn("printed\nprinted\ncontroller# false", text)
        self.assertIn("99.5 ms", text, "a part that may vary stays as it was shown")


build = pathlib.Path(sys.argv.pop())
unittest.main()
