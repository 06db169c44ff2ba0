"""`corvid explain`, as a user and as a script calls it."""

import json
import os
import subprocess
import unittest
from pathlib import Path

CORVID = Path(os.environ["CORVID_BIN_DIR"], "corvid")
DATA = Path(__file__).parents[2] / "Data"

# One language, whatever the machine's is.
ENVIRONMENT = {**os.environ, "LANGUAGE": "", "LC_ALL": "C.UTF-8"}
ENVIRONMENT.pop("CVD_VOLUME_PATH", None)


def explain(*arguments, text=None, **environment):
    return subprocess.run([CORVID, "explain", *arguments], input=text, text=True,
                          env={**ENVIRONMENT, **environment}, capture_output=True, check=False)


def answers(texts):
    """What `--json -` answers for each of `texts`."""
    lines = "".join(json.dumps(text, ensure_ascii=False) + "\n" for text in texts)
    run = explain("--json", "-", text=lines)
    assert run.returncode == 0, run.stderr
    return [json.loads(line) for line in run.stdout.split("\n")[:-1]]


class Words(unittest.TestCase):
    def said(self, path, **environment):
        run = explain(path, **environment)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return run.stdout

    def test_says_that_a_badge_is_asked_for(self):
        self.assertEqual(self.said("/Volumes/Corvid/a b.txt"),
                         "/Volumes/Corvid/a b.txt: a badge is asked for\n")

    def test_names_the_rule_and_the_item(self):
        self.assertEqual(
            self.said("/Volumes/Corvid/~$a b.docx"),
            "/Volumes/Corvid/~$a b.docx: no badge\n"
            '    office owner file: the name begins with "~$" and has an office extension\n'
            "    in the item's URL file:///Volumes/Corvid/~$a%20b.docx\n")

    def test_names_the_parent_where_that_decides(self):
        self.assertEqual(
            self.said("/Volumes/Corvid/old.bak/a.txt"),
            "/Volumes/Corvid/old.bak/a.txt: no badge\n"
            "    drawing lock, backup or scratch file, by its extension or name\n"
            "    in its parent's URL file:///Volumes/Corvid/old.bak\n")

    def test_knows_the_volume_itself(self):
        self.assertIn("the watched folder itself has no badge", self.said("/Volumes/Corvid"))

    def test_maps_the_local_folder_of_the_volume(self):
        self.assertIn("the watched folder itself",
                      self.said("/nowhere/x", CVD_VOLUME_PATH="/nowhere/x"))
        run = explain("--volume", "/nowhere", "/nowhere/.a")
        self.assertIn("file:///Volumes/Corvid/.a", run.stdout)

    def test_fails_for_what_has_no_url_and_goes_on(self):
        run = explain("", b"\xff", "/Volumes/Corvid/a")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(run.stdout, "/Volumes/Corvid/a: a badge is asked for\n")
        self.assertIn("it is empty; name an item", run.stderr)
        self.assertIn("its name is not UTF-8", run.stderr)


class JSON(unittest.TestCase):
    def test_answers_every_member_as_the_platform_does(self):
        with open(DATA / "strings.jsonl", encoding="utf-8") as lines:
            wanted = [json.loads(line) for line in lines]
        answered = answers(line["in"] for line in wanted)
        self.assertEqual(len(answered), len(wanted))
        compared = set()
        for want, answer in zip(wanted, answered):
            for member, value in want.items():
                # Those that take an argument are not answered.
                if member in answer and not isinstance(value, dict):
                    self.assertEqual(answer[member], value, f'{member} of {want["in"]!r}')
                    compared.add(member)
        self.assertEqual(set().union(*wanted) - compared, {
            "deletingPrefix", "equals", "fileURL", "hasPrefix", "insertStringBeforeExtension",
            "isTemporaryOnTheBasisOf", "stringByAppendingPathComponent",
            "stringByAppendingPathExtension", "truncateString"})

    def test_answers_the_members_that_the_platform_file_lacks(self):
        [answer] = answers(["/a/b.tar.gz/"])
        self.assertEqual(answer["in"], "/a/b.tar.gz/")
        self.assertEqual(answer["deletingLastPathComponent"], "/a")
        self.assertEqual(answer["deletePathExtension"], "/a/b.tar")
        self.assertEqual(answer["allExtensions"], ["b", "tar", "gz"])
        self.assertEqual(answer["toPointer"], list(b"/a/b.tar.gz/"))
        self.assertEqual(answers(["Global_Favorites"])[0]["localized"], "Favorites")
        self.assertIsNone(answers(["/"])[0]["allExtensions"])
        self.assertEqual(answers(["#ff8000"])[0]["colorFromHex"], [255, 128, 0])
        self.assertEqual(answers(["#fff"])[0]["colorFromHex"], [])

    def test_says_whether_a_badge_is_asked_for(self):
        asked, hidden, relative = answers(["/Volumes/Corvid/a", "/Volumes/Corvid/.b/c", "a"])
        self.assertEqual(asked["badge"], {"url": "file:///Volumes/Corvid/a", "asked": True,
                                          "rule": None, "decidedOn": None})
        self.assertEqual(hidden["badge"], {"url": "file:///Volumes/Corvid/.b/c", "asked": False,
                                           "rule": "a folder above it begins with a dot",
                                           "decidedOn": "file:///Volumes/Corvid/.b/c"})
        self.assertIsNone(relative["badge"])

    def test_prints_an_object_a_path(self):
        run = explain("--json", "/Volumes/Corvid/a", "x y")
        lines = [json.loads(line) for line in run.stdout.splitlines()]
        self.assertEqual([line["in"] for line in lines], ["/Volumes/Corvid/a", "x y"])

    def test_answers_a_line_that_is_no_string_with_an_error(self):
        run = explain("--json", "-", text='"a"\n17\n"b"\n')
        self.assertEqual(run.returncode, 1)
        first, second, third = [json.loads(line) for line in run.stdout.splitlines()]
        self.assertEqual((first["in"], third["in"]), ("a", "b"))
        self.assertEqual(second, {"error": "line 2 is not a JSON string; put each path in double "
                                           "quotes"})
        self.assertIn("line 2", run.stderr)


unittest.main()
