"""cp, once from place to place on this machine and once to a receiving agent: the same has to come out."""
import os
import re
import socket
import stat

import harness
from harness import CommandTest, make_tree, names, write


class Copies:
    """The tests; a subclass says how a place below `self.root` is named as a destination."""

    def setUp(self):
        super().setUp()
        self.root = self.dir / "root"
        self.root.mkdir()
        self.source = self.dir / "source"
        self.source.mkdir()

    def cp(self, *arguments, to="", **how):
        return harness.tarn("cp", *self.options, *arguments, self.place(to), **how)

    def copied(self, *arguments, to="", **how):
        result = self.cp(*arguments, to=to, **how)
        self.assertEqual(result.status, 0, result)
        return result

    def refused(self, status, *arguments, to="", **how):
        before = harness.listing(self.root)
        result = self.cp(*arguments, to=to, **how)
        self.assertEqual(result.status, status, result)
        self.assertNotEqual(result.err, b"", result)
        self.assert_same_listing(harness.listing(self.root), before)
        return result

    def test_a_file_with_its_attributes(self):
        path = write(self.source / "a", b"content", 0o640, 1_600_000_000_123_456_789)
        self.copied(path, to="b")
        self.assert_same_tree(path, self.root / "b")

    def test_the_summary_counts(self):
        write(self.source / "a", b"12345")
        os.symlink("a", self.source / "l")
        text = self.copied("-r", self.source, to="b").text
        self.assertRegex(text, r"\A1 files, 1 directories, 1 links, 5 bytes, \d+\.\d s, [\d.]+ MB/s; "
                               r"0 skipped, 0 warnings, 0 failed\n\Z")

    def test_quiet_prints_nothing(self):
        result = self.copied("--quiet", write(self.source / "a"), to="b")
        self.assertEqual((result.out, result.err), (b"", b""))

    def test_a_tree_with_its_attributes(self):
        tree = make_tree(self.source / "tree")
        self.copied("-r", tree, to="copy")
        self.assert_same_tree(tree, self.root / "copy")

    def test_a_hole_stays_a_hole(self):
        path = self.source / "hole"
        with open(path, "wb") as file:
            file.truncate(32 << 20)
        self.copied(path, to="hole")
        self.assertEqual((self.root / "hole").stat().st_size, 32 << 20)
        self.assertLess((self.root / "hole").stat().st_blocks * 512, 4 << 20)

    def test_every_compression_and_block_size_brings_the_same(self):
        path = write(self.source / "a", os.urandom(300_001) + b"text " * 100_000)
        for compression in ("lz4", "zstd", "none"):
            for size in ("4096", "1048576", "16777216"):
                with self.subTest(compression=compression, size=size):
                    self.copied("--overwrite", "--compress", compression, "--block-size", size, path, to="b")
                    self.assert_same_tree(path, self.root / "b")

    def test_sizes_around_the_block_arrive(self):
        for size in (0, 1, 4095, 4096, 4097, 8192, 8193):
            with self.subTest(size=size):
                path = write(self.source / "a", os.urandom(size))
                self.copied("--overwrite", "--block-size", "4096", path, to="b")
                self.assert_same_tree(path, self.root / "b")

    def test_an_existing_directory_takes_the_source_under_its_own_name(self):
        (self.root / "d").mkdir()
        self.copied("-r", write(self.source / "a", b"x"), make_tree(self.source / "tree"), to="d")
        self.assert_same_tree(self.source / "tree", self.root / "d/tree")
        self.assert_same_tree(self.source / "a", self.root / "d/a")

    def test_the_root_itself_takes_the_source_under_its_own_name(self):
        self.copied(write(self.source / "a", b"x"))
        self.assertEqual(names(self.root), ["a"])

    def test_a_slash_at_the_end_changes_no_name(self):
        self.copied("-r", f"{make_tree(self.source / 'tree')}/")
        self.assertIn("tree/plain.txt", names(self.root))

    def test_missing_parents_are_made(self):
        self.copied(write(self.source / "a", b"x"), to="new/and/newer/b")
        self.assertEqual((self.root / "new/and/newer/b").read_bytes(), b"x")
        self.assertEqual(stat.S_IMODE((self.root / "new").stat().st_mode), 0o700)

    def test_directories_merge(self):
        write(self.root / "copy/kept", b"kept")
        write(self.root / "copy/deep/kept", b"kept")
        tree = make_tree(self.source / "copy")
        self.copied("-r", tree)
        self.assertEqual((self.root / "copy/deep/kept").read_bytes(), b"kept")
        self.assertEqual((self.root / "copy/plain.txt").read_bytes(), b"plain\n")
        self.assertLess(set(names(tree)), set(names(self.root / "copy")))

    def test_several_sources_need_a_directory(self):
        a, b = write(self.source / "a"), write(self.source / "b")
        self.assertIn("not a directory", self.refused(1, a, b, to="c").errors)

    def test_a_directory_needs_r(self):
        result = self.refused(1, make_tree(self.source / "tree"), to="copy")
        self.assertIn(str(self.source / "tree"), result.errors)
        self.assertIn("-r", result.errors)

    def test_a_missing_source_is_named_and_nothing_is_copied(self):
        result = self.refused(1, write(self.source / "a"), self.source / "missing")
        self.assertIn(str(self.source / "missing"), result.errors)

    def test_an_existing_target_is_named_and_nothing_changes(self):
        write(self.root / "copy/plain.txt", b"old")
        result = self.refused(1, "-r", make_tree(self.source / "copy"))
        self.assertIn("copy/plain.txt", result.errors)
        self.assertIn("exists already", result.errors)

    def test_an_existing_link_is_in_the_way_even_when_it_dangles(self):
        os.symlink("nowhere", self.root / "b")
        self.assertIn("exists already", self.refused(1, write(self.source / "a"), to="b").errors)

    def test_a_file_is_in_the_way_of_a_directory(self):
        write(self.root / "copy", b"a file")
        self.refused(1, "-r", make_tree(self.source / "tree"), to="copy")

    def test_overwrite_replaces(self):
        write(self.root / "b", b"old and longer", 0o600)
        path = write(self.source / "a", b"new", 0o644)
        self.copied("--overwrite", path, to="b")
        self.assert_same_tree(path, self.root / "b")

    def test_overwrite_replaces_a_link_and_not_its_target(self):
        write(self.root / "target", b"kept")
        os.symlink("target", self.root / "b")
        path = write(self.source / "a", b"new")
        self.copied("--overwrite", path, to="b")
        self.assertEqual((self.root / "target").read_bytes(), b"kept")
        self.assert_same_tree(path, self.root / "b")

    def test_a_second_copy_over_the_first_changes_nothing(self):
        tree = make_tree(self.source / "tree")
        self.copied("-r", tree)
        before = harness.listing(self.root / "tree")
        self.copied("-r", "--overwrite", tree)
        self.assert_same_listing(harness.listing(self.root / "tree"), before)

    def test_a_link_travels_as_a_link(self):
        os.symlink("no/where", self.source / "l")
        self.copied(self.source / "l", to="b")
        self.assert_same_tree(self.source / "l", self.root / "b")

    def test_a_link_with_a_slash_is_followed(self):
        make_tree(self.source / "tree")
        os.symlink("tree", self.source / "l")
        self.copied("-r", f"{self.source}/l/", to="b")
        self.assert_same_tree(self.source / "tree", self.root / "b")

    def test_standard_input_becomes_a_file(self):
        content = os.urandom(3_000_000)
        self.copied("-", to="b", stdin=content)
        self.assertEqual((self.root / "b").read_bytes(), content)

    def test_empty_standard_input_becomes_an_empty_file(self):
        self.copied("-", to="b")
        self.assertEqual((self.root / "b").read_bytes(), b"")

    def test_standard_input_needs_a_name(self):
        self.assertIn("standard input", self.refused(1, "-", stdin=b"x").errors)

    def test_a_place_is_found_from_the_working_directory(self):
        write(self.source / "a", b"x")
        self.copied("a", to="b", cwd=self.source)
        self.assertEqual((self.root / "b").read_bytes(), b"x")

    def test_a_directory_named_dot_becomes_the_destination(self):
        tree = make_tree(self.source / "tree")
        self.copied("-r", ".", to="copy", cwd=tree)
        self.assert_same_tree(tree, self.root / "copy")

    def test_special_files_are_skipped_named_and_counted(self):
        tree = self.source / "tree"
        write(tree / "a", b"x")
        os.mkfifo(tree / "pipe")
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(str(tree / "socket"))
        skipped = {"pipe": "FIFO", "socket": "socket"}
        if os.geteuid() == 0:
            os.mknod(tree / "null", stat.S_IFCHR | 0o666, os.makedev(1, 3))
            skipped["null"] = "device"
        result = self.copied("-r", tree, to="copy")
        self.assertEqual(names(self.root / "copy"), ["a"])
        self.assertIn(f"{len(skipped)} skipped", result.text)
        for name, kind in skipped.items():
            self.assertRegex(result.errors, rf"skipped {re.escape(str(tree))}/{name}: {kind}")

    def test_nothing_is_left_beside_the_copy(self):
        self.copied("-r", make_tree(self.source / "tree"), to="copy")
        self.finish()
        self.assertEqual(os.listdir(self.root), ["copy"])


class CopyHere(Copies, CommandTest):
    options = ()

    def place(self, path):
        return self.root / path if path else self.root

    def finish(self):
        pass

    def test_a_tree_is_not_copied_into_itself(self):
        tree = make_tree(self.source / "tree")
        (tree / "zzz").mkdir()
        before = harness.listing(tree)
        for target in (tree, tree / "zzz", tree / "zzz/new", tree / "new"):
            with self.subTest(target=target):
                result = self.fails(1, "cp", "-r", tree, target)
                self.assertIn(str(tree), result.errors)
                self.assert_same_listing(harness.listing(tree), before)

    def test_a_file_is_not_copied_onto_itself(self):
        path = write(self.source / "a", b"kept")
        harness.tarn("cp", "--overwrite", path, path)
        self.assertEqual(path.read_bytes(), b"kept")

    def test_a_view_without_rules_has_no_files(self):
        result = harness.tarn("cp", "FlrFS:///etc/hostname", self.root / "b")
        self.assertIn(result.status, (1, 3), result)
        self.assertIn("No suitable mapping rule", result.errors)

    def test_a_memory_slot_takes_a_single_file(self):
        self.succeeds("cp", write(self.source / "a", b"x"), "MemFs://slot")


class CopyToAgent(Copies, CommandTest):
    options = ("--plaintext",)

    def setUp(self):
        super().setUp()
        self.agent = self.serve(self.root)

    def place(self, path):
        return self.agent.url(path)

    def finish(self):
        self.assertEqual(self.agent.stop(), 0)

    def refused(self, status, *arguments, **how):
        result = super().refused(status, *arguments, **how)
        self.assertIsNone(self.agent.process.poll())
        return result

    def test_paths_that_lead_out_are_refused(self):
        path = write(self.source / "a", b"x")
        for target in ("../b", "d/../../b", "./b", "d//b", ".tarn-staging/b"):
            with self.subTest(target=target):
                self.assertNotEqual(self.cp(path, to=target).status, 0)
        self.assertEqual(names(self.dir), ["root", "source", "source/a"])

    def test_a_link_in_the_root_leads_nowhere(self):
        outside = self.dir / "outside"
        outside.mkdir()
        os.symlink(outside, self.root / "way")
        self.assertNotEqual(self.cp("--overwrite", write(self.source / "a"), to="way/b").status, 0)
        self.assertEqual(os.listdir(outside), [])

    def test_exists_asks_the_agent(self):
        write(self.root / "d/a")
        here = write(self.source / "a")
        urls = [self.agent.url(path) for path in ("d/a", "d", "no", "")]
        result = harness.tarn("exists", "--plaintext", *urls, here)
        self.assertEqual((result.status, result.text.splitlines()),
                         (1, [f"yes {urls[0]}", f"yes {urls[1]}", f"no  {urls[2]}", f"yes {urls[3]}", f"yes {here}"]))
        self.succeeds("exists", "--plaintext", *urls[:2])

    def test_ln_makes_the_link_at_the_agent(self):
        self.succeeds("ln", "--plaintext", "../any/where", self.agent.url("l"))
        self.assertEqual(os.readlink(self.root / "l"), "../any/where")
        self.assertIn("exists already", self.fails(1, "ln", "--plaintext", "new", self.agent.url("l")).errors)
        self.assertEqual(os.readlink(self.root / "l"), "../any/where")
        self.succeeds("ln", "--plaintext", "--overwrite", "new", self.agent.url("l"))
        self.assertEqual(os.readlink(self.root / "l"), "new")


if __name__ == "__main__":
    harness.main()
