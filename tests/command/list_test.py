"""list: a directory for a person or a program, and one object as XML."""
import json
import os
import re
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

from harness import LIMIT, CommandTest, write


def unescape(text):
    """Takes back how an attribute carries what XML cannot."""
    raw = re.sub(rb"\\(\\|x[0-9A-F]{2})", lambda m: b"\\" if m[1] == b"\\" else bytes([int(m[1][1:], 16)]),
                 text.encode())
    return raw


class List(CommandTest):
    def setUp(self):
        super().setUp()
        self.top = self.dir / "top"
        write(self.top / "a.TXT", b"12345", 0o4755, 1_600_000_000_123_456_789)
        write(self.top / "sub" / "deep.log", b"", 0o640)
        os.symlink("a.TXT", self.top / "link")
        os.mkfifo(self.top / "pipe")

    def names(self, *arguments):
        return [re.search(r"Z (.*)", line)[1] for line in self.succeeds("list", *arguments).text.splitlines()]

    def test_a_line_says_what_ls_says(self):
        lines = self.succeeds("list", self.top).text.splitlines()
        self.assertRegex(lines[0], r"\A-rwsr-xr-x +1 \S+ \S+ +5 2020-09-13T12:26:40Z a\.TXT\Z")
        self.assertRegex(lines[1], r"\Alrwxrwxrwx .* link -> a\.TXT\Z")
        self.assertRegex(lines[2], r"\Ap\S{9} .* pipe\Z")
        self.assertRegex(lines[3], r"\Ad\S{9} .* sub\Z")
        self.assertEqual(len(lines), 4)

    def test_recursion_mask_and_a_single_file(self):
        self.assertEqual(self.names("-r", self.top), ["a.TXT", "link -> a.TXT", "pipe", "sub", "sub/deep.log"])
        self.assertEqual(self.names("-r", "--mask", "*.txt; *.log", self.top), ["a.TXT", "sub/deep.log"])
        self.assertEqual(self.names("--mask", "*.nothing", self.top), [])
        self.assertEqual(self.names(self.top / "a.TXT"), ["a.TXT"])
        self.assertEqual(self.names(self.top / "sub/"), ["deep.log"])
        self.fails(1, "list", "--mask", "(", self.top)

    def test_json_is_an_array_of_objects(self):
        found = json.loads(self.succeeds("list", "--json", self.top).text)
        self.assertEqual([entry["name"] for entry in found], ["a.TXT", "link", "pipe", "sub"])
        self.assertEqual([entry["type"] for entry in found], ["file", "link", "FIFO", "directory"])
        self.assertEqual(found[0]["size"], 5)
        self.assertEqual(found[0]["mode"], "4755")
        self.assertEqual(found[0]["modified"], "2020-09-13T12:26:40.123456789Z")
        self.assertEqual(found[0]["owner"]["id"], os.geteuid())
        self.assertEqual(found[1]["target"], "a.TXT")
        self.assertEqual(json.loads(self.succeeds("list", "--json", "--mask", "x", self.top).text), [])

    def test_names_that_are_not_text_are_shown_escaped(self):
        write(self.dir / "odd" / os.fsdecode(b"bad\xff\x1b[31m\n"))
        self.assertEqual(self.names(self.dir / "odd"), ["bad\\xff\\x1b[31m\\n"])
        found = json.loads(self.succeeds("list", "--json", self.dir / "odd").text)
        self.assertEqual(found[0]["name"], "bad\\xff\\x1b[31m\\n")

    def test_what_is_missing_or_no_tree_is_an_error(self):
        self.assertIn("No such file or directory", self.fails(1, "list", self.dir / "missing").errors)
        self.assertIn("[MemFs://x] cannot be listed", self.fails(1, "list", "MemFs://x").errors)
        self.fails(2, "list", "--xml", "--json", self.top)

    def describe(self, path):
        document = self.succeeds("list", "--xml", path).out
        subprocess.run(["xmllint", "--noout", "-"], input=document, check=True, timeout=LIMIT)
        root = ElementTree.fromstring(document)
        self.assertEqual(root.tag, "lists")
        self.assertEqual(len(root), 0)
        return root.attrib

    def test_xml_describes_a_file(self):
        found = self.describe(self.top / "a.TXT")
        self.assertEqual(list(found), ["file_name", "file_dir", "dir", "link", "is_reg", "link_to", "has_sub_dirs",
                                       "user_name", "group_name", "mode", "size", "mtime", "uid", "gid"])
        self.assertEqual(found["file_name"], "a.TXT")
        self.assertEqual(found["file_dir"], f"{self.top}/")
        self.assertEqual(found["mode"], "rwsr-xr-x")
        self.assertEqual(found["mtime"], "1600000000")

    def test_any_name_that_is_text_survives_a_parser(self):
        for name in ["<&>\"'", "line\nbreak\ttab\r", "back\\slash", "\u00e4\u20ac\U0001F600", "\x01\x1f\x7f", " a  b ",
                     "\ufffe\uffff", "&#10;"]:
            with self.subTest(name):
                write(self.dir / "names" / name)
                found = self.describe(self.dir / "names" / name)
                self.assertEqual(unescape(found["file_name"]), name.encode())

    def test_what_cannot_be_described_is_an_error(self):
        write(self.dir / "names" / os.fsdecode(b"bad\xff"))
        bad = self.fails(1, "list", "--xml", self.dir / "names" / os.fsdecode(b"bad\xff"))
        self.assertIn("Unable to convert string to Unicode", bad.errors)
        self.assertIn("GetDirDescExc -- not supported on this platform", self.fails(1, "list", "--xml", self.top).errors)


if __name__ == "__main__":
    unittest.main()
