"""Names that shells, terminals and encodings stumble over."""
import json
import os

import harness
from harness import CommandTest, write

NAMES = [b"new\nline", b"tab\tand\x1bescape", b"'single' \"double\" `back` $HOME", b"back\\slash", b"-r", b"--", b"-", b" ",
         b"not utf-8 \xff\xfe", b"\xed\xa0\x80 surrogate", "größe 文件 😀".encode(), b"x" * 255, b"%s%n%1", b"tarn:",
         b"a=b", b"*?[a]", b"#;&|<>", b"...",
         b"one byte for a terminal's escape \xc2\x9b31m"]


class Names(CommandTest):
    def setUp(self):
        super().setUp()
        self.tree = self.dir / "tree"
        for name in NAMES:
            path = os.path.join(os.fsencode(self.tree), name)
            write(os.fsdecode(path), name)
        os.symlink(b"target \xff\n", os.path.join(os.fsencode(self.tree), b"link"))
        (self.dir / "root").mkdir()

    def path(self, name, top="tree"):
        return os.path.join(os.fsencode(self.dir / top), name)

    def test_all_of_them_are_copied_here(self):
        self.succeeds("cp", "-r", self.tree, self.dir / "root/copy")
        self.assert_same_tree(self.tree, self.dir / "root/copy")
        self.succeeds("verify", self.tree, self.dir / "root/copy")

    def test_all_of_them_are_copied_to_an_agent(self):
        agent = self.serve(self.dir / "root")
        self.succeeds("cp", "-r", "--plaintext", self.tree, agent.url("copy"))
        self.assert_same_tree(self.tree, self.dir / "root/copy")

    def test_each_of_them_works_by_itself_at_an_agent(self):
        agent = self.serve(self.dir / "root")
        for name in NAMES:
            with self.subTest(name=name):
                url = os.fsencode(agent.url()) + name
                self.succeeds("cp", "--plaintext", self.path(name), url)
                self.succeeds("exists", "--plaintext", url)
                with open(self.path(name, "root"), "rb") as file:
                    self.assertEqual(file.read(), name)

    def test_each_of_them_can_be_read_and_described(self):
        for name in NAMES:
            with self.subTest(name=name):
                self.assertEqual(self.succeeds("cat", self.path(name)).out, name)
                found = json.loads(self.succeeds("stat", "--json", self.path(name)).out.decode("utf-8"))
                self.assertEqual(found["size"], len(name))
                self.assertEqual(self.succeeds("exists", self.path(name)).out.count(b"\n"), 1)

    def test_each_of_them_can_be_read_through_a_view(self):
        for name in NAMES:
            with self.subTest(name=name):
                result = self.succeeds("cat", "--map", os.fsencode(self.tree) + b"=/", b"FlrFS:///" + name)
                self.assertEqual(result.out, name)

    def test_messages_show_each_of_them_on_one_line(self):
        for name in NAMES:
            with self.subTest(name=name):
                result = self.fails(1, "cat", self.path(name, "missing"))
                for line in result.errors.splitlines():
                    self.assertTrue(line.startswith("tarn: "), line)
                    self.assertTrue(line.isprintable(), line)

    def test_json_and_lines_escape_the_same_way(self):
        path = self.path(b"new\nline")
        shown = str(self.tree) + "/new\\nline"
        self.assertEqual(json.loads(self.succeeds("stat", "--json", path).out)["path"], shown)
        self.assertIn(f"path: {shown}", self.succeeds("stat", path).text.splitlines())

    def test_a_link_target_that_is_not_utf_8_is_escaped(self):
        found = json.loads(self.succeeds("stat", "--json", self.tree / "link").out)
        self.assertEqual(found["target"], "target \\xff\\n")

    def test_differences_in_them_are_named_on_one_line(self):
        self.succeeds("cp", "-r", self.tree, self.dir / "root/copy")
        os.chmod(self.path(b"new\nline", "root/copy"), 0o700)
        os.chmod(self.path(b"not utf-8 \xff\xfe", "root/copy"), 0o700)
        result = harness.tarn("verify", self.tree, self.dir / "root/copy")
        self.assertEqual(result.status, 1)
        lines = result.text.splitlines()
        self.assertEqual(len(lines), 3)
        self.assertTrue(lines[0].startswith("new\\nline: "), lines)
        self.assertTrue(lines[1].startswith("not utf-8 \\xff\\xfe: "), lines)

    def test_a_name_of_256_bytes_is_refused(self):
        agent = self.serve(self.dir / "root")
        for target in (self.dir / "root" / ("y" * 256), agent.url("y" * 256)):
            with self.subTest(target=target):
                self.assertNotEqual(harness.tarn("cp", "--plaintext", self.tree / "...", target).status, 0)
        self.assertEqual([name for name in os.listdir(self.dir / "root") if name.startswith("y")], [])

    def test_a_deep_path_is_copied(self):
        deep = self.dir / "deep"
        write(deep.joinpath(*["d" * 200] * 15, "file"), b"x")
        self.succeeds("cp", "-r", deep, self.dir / "root/deep")
        self.assert_same_tree(deep, self.dir / "root/deep")


if __name__ == "__main__":
    harness.main()
