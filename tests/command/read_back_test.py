"""cp, cat and verify on what lies below the root of a receiving agent."""
import os
import signal
import stat

import harness
from harness import CommandTest, make_tree, write


class ReadBack(CommandTest):
    def setUp(self):
        super().setUp()
        self.root = self.dir / "root"
        self.root.mkdir()
        self.agent = self.serve(self.root)

    def url(self, path):
        return self.agent.url(path)

    def at(self, verb, *arguments, **how):
        return self.succeeds(verb, "--plaintext", *arguments, **how)

    def refused(self, status, verb, *arguments, **how):
        return self.fails(status, verb, "--plaintext", *arguments, **how).errors


class Copies(ReadBack):
    def test_a_tree_comes_back_as_it_is(self):
        tree = make_tree(self.root / "tree")
        result = self.at("cp", "-r", self.url("tree"), self.dir / "back")
        self.assertRegex(result.text, r"\A8 files, 6 directories, 2 links, .*; 0 skipped, 0 warnings, 0 failed\n\Z")
        self.assert_same_tree(tree, self.dir / "back")

    def test_a_hole_stays_a_hole(self):
        with open(self.root / "hole", "wb") as file:
            file.truncate(64 << 20)
            file.write(b"x")
        self.at("cp", self.url("hole"), self.dir / "back")
        self.assertLess(os.stat(self.dir / "back").st_blocks, 4096)
        self.assertEqual(os.stat(self.dir / "back").st_size, 64 << 20)

    def test_a_file_goes_into_a_directory_under_its_own_name(self):
        write(self.root / "deep/file", b"content")
        (self.dir / "back").mkdir()
        self.at("cp", self.url("deep/file"), self.dir / "back")
        self.assertEqual((self.dir / "back/file").read_bytes(), b"content")

    def test_several_places_at_once(self):
        write(self.root / "one", b"1")
        write(self.root / "two", b"2")
        here = write(self.dir / "here", b"3")
        (self.dir / "back").mkdir()
        self.at("cp", self.url("one"), here, self.url("two"), self.dir / "back")
        self.assertEqual(harness.names(self.dir / "back"), ["here", "one", "two"])

    def test_a_link_is_copied_as_a_link(self):
        os.symlink("/etc/passwd", self.root / "link")
        self.at("cp", self.url("link"), self.dir / "back")
        self.assertEqual(os.readlink(self.dir / "back"), "/etc/passwd")

    def test_from_agent_to_agent(self):
        tree = make_tree(self.root / "tree")
        (self.dir / "other").mkdir()
        other = self.serve(self.dir / "other")
        self.at("cp", "-r", self.url("tree"), other.url("copy"))
        self.assert_same_tree(tree, self.dir / "other/copy")
        self.at("verify", self.url("tree"), other.url("copy"))

    def test_within_one_agent_but_not_into_itself(self):
        tree = make_tree(self.root / "tree")
        self.at("cp", "-r", self.url("tree"), self.url("copy"))
        self.assert_same_tree(tree, self.root / "copy")
        self.assertIn("cannot be copied into itself",
                      self.refused(1, "cp", "-r", self.url("tree"), self.url("tree/deep/copy")))

    def test_to_memory_and_what_is_no_single_file_not(self):
        write(self.root / "tree/file", b"content")
        self.at("cp", self.url("tree/file"), "MemFs://slot")
        self.assertIn("takes a single file", self.refused(3, "cp", "-r", self.url("tree"), "MemFs://slot"))

    def test_what_is_there_stays_without_overwrite(self):
        write(self.root / "file", b"new")
        here = write(self.dir / "here", b"old")
        self.assertIn("exists already; nothing was changed", self.refused(1, "cp", self.url("file"), here))
        self.assertEqual(here.read_bytes(), b"old")
        self.at("cp", "--overwrite", self.url("file"), here)
        self.assertEqual(here.read_bytes(), b"new")

    def test_a_directory_needs_r(self):
        (self.root / "tree").mkdir()
        self.assertIn("-r copies it with everything in it", self.refused(1, "cp", self.url("tree"), self.dir / "back"))

    def test_what_is_not_there_is_named(self):
        self.assertIn(f"Failed to open [{self.url('missing')}]",
                      self.refused(1, "cp", self.url("missing"), self.dir / "back"))

    def test_what_cannot_be_read_is_named_and_the_rest_comes(self):
        write(self.root / "tree/open", b"open")
        write(self.root / "tree/shut", b"shut", 0)
        agent = self.serve(self.root / "tree", wrapper=harness.UNPRIVILEGED) if os.geteuid() == 0 else self.agent
        text = self.refused(3, "cp", "-r", agent.url("" if os.geteuid() == 0 else "tree"), self.dir / "back")
        self.assertIn("shut", text)
        self.assertIn("Permission denied", text)
        self.assertEqual((self.dir / "back/open").read_bytes(), b"open")
        self.assertFalse((self.dir / "back/shut").exists())

    def test_plaintext_has_to_be_asked_for(self):
        write(self.root / "file")
        for arguments in (("cp", self.url("file"), self.dir / "back"), ("cat", self.url("file")),
                          ("verify", self.url("file"), self.dir), ("verify", self.dir, self.url("file"))):
            self.assertIn("needs --plaintext", self.fails(2, *arguments).errors)
        self.assertFalse((self.dir / "back").exists())


class Cat(ReadBack):
    def test_it_prints_the_file(self):
        content = bytes(range(256)) * 20_000
        write(self.root / "file", content)
        self.assertEqual(self.at("cat", self.url("file")).out, content)

    def test_holes_are_zeroes(self):
        with open(self.root / "hole", "wb") as file:
            file.write(b"begin")
            file.truncate(5 << 20)
        self.assertEqual(self.at("cat", self.url("hole")).out, b"begin" + bytes((5 << 20) - 5))

    def test_only_files_are_printed(self):
        (self.root / "directory").mkdir()
        os.symlink("directory", self.root / "link")
        for name in ("directory", "link", ""):
            self.assertIn("is not a regular file", self.refused(1, "cat", self.url(name)))
        self.assertIn("missing", self.refused(1, "cat", self.url("missing")))
        os.mkfifo(self.root / "pipe")
        self.assertIn("FIFO", self.refused(1, "cat", self.url("pipe")))

    def test_the_staging_folder_is_not_to_be_had(self):
        write(self.root / ".tarn-staging/secret", b"secret")
        result = self.fails(1, "cat", "--plaintext", self.url(".tarn-staging/secret"))
        self.assertEqual(result.out, b"")
        self.assertIn("is refused", result.errors)


class List(ReadBack):
    def test_a_tree_is_listed_as_it_is_here(self):
        make_tree(self.root / "tree")
        there, here = (self.at("list", "-r", "--json", place).text for place in (self.url("tree"), self.root / "tree"))
        self.assertEqual(there, here)
        self.assertIn("needs --plaintext", self.fails(2, "list", self.url("tree")).errors)

    def test_the_staging_folder_is_not_listed(self):
        write(self.root / "file")
        self.assertNotIn("staging", self.at("list", "-r", self.url("")).text)

    def test_xml_is_for_objects_of_this_machine(self):
        write(self.root / "file")
        self.assertIn("cannot be described as XML", self.refused(1, "list", "--xml", self.url("file")))


class Verify(ReadBack):
    def setUp(self):
        super().setUp()
        self.tree = make_tree(self.root / "tree")
        self.back = self.dir / "back"
        self.at("cp", "-r", self.url("tree"), self.back)

    def test_equal_trees_on_either_side(self):
        for places in ((self.url("tree"), self.back), (self.back, self.url("tree")),
                       (self.url("tree"), self.url("tree"))):
            self.assertIn("; 0 differences", self.at("verify", *places).text)

    def test_differences_are_named(self):
        with open(self.back / "large", "r+b") as file:
            file.seek(300_000)
            file.write(b"?!")
        os.utime(self.back / "large", ns=(os.stat(self.tree / "large").st_mtime_ns,) * 2)
        os.chmod(self.back / "program", stat.S_IRUSR)
        os.unlink(self.back / "link")
        write(self.back / "more")
        result = self.fails_with_output(self.url("tree"), self.back)
        self.assertIn("large: content differs at byte 300000\n", result)
        self.assertIn("program: mode 0755 against 0400\n", result)
        self.assertIn("link: missing in the second\n", result)
        self.assertIn("more: only in the second\n", result)

    def test_single_files(self):
        self.at("verify", self.url("tree/large"), self.back / "large")
        write(self.back / "large", b"shorter")
        self.assertIn("size 3072000 against 7", self.fails_with_output(self.url("tree/large"), self.back / "large"))

    def fails_with_output(self, first, second):
        result = harness.tarn("verify", "--plaintext", first, second)
        self.assertEqual(result.status, 1, result)
        return result.text


class AgentThatGoes(ReadBack):
    def test_a_stopped_agent_is_a_failure_with_a_name(self):
        url = self.url("file")
        self.agent.stop(signal.SIGKILL)
        self.assertIn("Failed to open a session", self.refused(1, "cat", url))


if __name__ == "__main__":
    harness.main()
