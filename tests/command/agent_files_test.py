"""stat, exists, rm, mkdir and mv on files of a receiving agent."""
import json
import os

import harness
from harness import CommandTest, write


class AgentFiles(CommandTest):
    def setUp(self):
        super().setUp()
        self.root = self.dir / "root"
        self.root.mkdir()
        self.outside = write(self.dir / "outside/file", b"outside")
        self.agent = self.serve(self.root)

    def url(self, path):
        return self.agent.url(path)

    def names(self):
        return harness.names(self.root)

    def at(self, verb, *arguments):
        return self.succeeds(verb, "--plaintext", *arguments)

    def refused(self, verb, *arguments):
        return self.fails(1, verb, "--plaintext", *arguments).errors


class Stat(AgentFiles):
    def test_it_says_what_stat_says_of_the_same_file_here(self):
        write(self.root / "file", b"12345", 0o4750, -1)
        os.setxattr(self.root / "file", "user.note", b"x\x00\xff")
        (self.root / "directory").mkdir()
        os.symlink("no\nwhere", self.root / "link")
        os.mkfifo(self.root / "pipe")
        for name in ("file", "directory", "link", "pipe"):
            with self.subTest(name=name):
                there, here = (json.loads(text) for text in (
                    self.at("stat", "--json", self.url(name)).out, self.succeeds("stat", "--json", self.root / name).out))
                self.assertEqual((there.pop("path"), here.pop("path")), (self.url(name), str(self.root / name)))
                # Looking at a directory here may have changed when it was looked at.
                there.pop("accessed"), here.pop("accessed")
                self.assertEqual(there, here)

    def test_plain_lines_and_the_root(self):
        self.assertIn("type: directory", self.at("stat", self.url("")).text.splitlines())

    def test_a_missing_file_is_named(self):
        self.assertIn("[d/missing]: No such file or directory", self.refused("stat", self.url("d/missing")))

    def test_a_link_is_not_followed(self):
        os.symlink(self.outside.parent, self.root / "way")
        self.assertIn("[way/file]", self.refused("stat", self.url("way/file")))


class Exists(AgentFiles):
    def test_objects_are_told_and_links_not_followed(self):
        write(self.root / "d/a")
        os.symlink("nowhere", self.root / "dangling")
        os.symlink(self.outside.parent, self.root / "way")
        urls = [self.url(path) for path in ("d/a", "dangling", "way", "way/file", "d/a/b", "")]
        result = harness.tarn("exists", "--plaintext", *urls)
        self.assertEqual((result.status, [line.split()[0] for line in result.text.splitlines()]),
                         (1, ["yes", "yes", "yes", "no", "no", "yes"]))

    def test_thousands_are_asked_at_once(self):
        for number in range(0, 1200, 2):
            write(self.root / str(number))
        result = harness.tarn("exists", "--plaintext", *(self.url(str(number)) for number in range(1200)))
        self.assertEqual([line.split()[0] for line in result.text.splitlines()], ["yes", "no"] * 600)
        self.assertRegex(self.agent.next_line(), " ended$")


class Change(AgentFiles):
    def test_rm_removes_a_file_a_link_and_an_empty_directory(self):
        write(self.root / "file")
        (self.root / "directory").mkdir()
        os.symlink(self.outside, self.root / "link")
        for name in ("file", "directory", "link"):
            self.at("rm", self.url(name))
        self.assertEqual(self.names(), [])
        self.assertEqual(self.outside.read_bytes(), b"outside")

    def test_rm_leaves_a_directory_with_something_in_it(self):
        write(self.root / "d/a")
        self.assertIn("Failed to remove [d]: Directory not empty", self.refused("rm", self.url("d")))
        self.assertEqual(self.names(), ["d", "d/a"])

    def test_mkdir_makes_one_directory(self):
        self.at("mkdir", self.url("new"))
        self.assertTrue((self.root / "new").is_dir())
        self.assertIn("[new] exists already.", self.refused("mkdir", self.url("new")))
        self.assertIn("[no/parent]: No such file or directory", self.refused("mkdir", self.url("no/parent")))
        self.assertEqual(self.names(), ["new"])

    def test_mv_replaces_nothing_unless_it_is_told_to(self):
        write(self.root / "a", b"a")
        write(self.root / "d/b", b"b")
        self.assertIn("[d/b] exists already.", self.refused("mv", self.url("a"), self.url("d/b")))
        self.assertEqual((self.root / "d/b").read_bytes(), b"b")
        self.at("mv", "--overwrite", self.url("a"), self.url("d/b"))
        self.assertEqual((self.root / "d/b").read_bytes(), b"a")
        self.at("mv", self.url("d"), self.url("e"))
        self.assertEqual(self.names(), ["e", "e/b"])
        self.assertIn("cannot be moved into itself", self.refused("mv", self.url("e"), self.url("e/e")))

    def test_mv_stays_at_one_place(self):
        other = self.serve(self.dir / "outside")
        here = write(self.dir / "here")
        write(self.root / "a")
        for old, new in ((self.url("a"), here), (here, self.url("b")), (self.url("a"), other.url("b"))):
            self.assertIn("are at different places", self.refused("mv", old, new))
        self.assertEqual(self.names(), ["a"])

    def test_no_path_leads_out_or_into_the_staging_folder(self):
        os.symlink(self.outside.parent, self.root / "way")
        write(self.root / "a")
        for path in ("../outside/file", "way/file", "a/../../outside/file", ".tarn-staging/lock", ""):
            with self.subTest(path=path):
                self.refused("rm", self.url(path))
                self.refused("mv", "--overwrite", self.url("a"), self.url(path))
                self.refused("mv", "--overwrite", self.url(path), self.url("b"))
        for path in ("../new", "way/new", ".tarn-staging/new"):
            with self.subTest(path=path):
                self.refused("mkdir", self.url(path))
        self.assertEqual(self.outside.read_bytes(), b"outside")
        self.assertEqual(os.listdir(self.outside.parent), ["file"])
        self.assertEqual(self.names(), ["a", "way"])

    def test_what_a_terminal_obeys_is_shown_and_not_sent(self):
        errors = harness.tarn("rm", "--plaintext", self.url("a\x1b[2Jb\rc")).err
        self.assertIn(b"a\\x1b[2Jb\\x0dc", errors)
        self.assertNotIn(b"\x1b", errors)
        self.assertNotIn(b"\r", errors)

    def test_each_is_a_session_that_ends_well(self):
        self.at("mkdir", self.url("d"))
        self.at("exists", self.url("d"))
        self.at("rm", self.url("d"))
        for _ in range(3):
            self.assertRegex(self.agent.next_line(), r"\Asession 127\.0\.0\.1:\d+ \d+ ms ended\Z")


if __name__ == "__main__":
    harness.main()
