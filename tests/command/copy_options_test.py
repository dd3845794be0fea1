"""The options of cp that say what is copied and what a copy promises, here and to a receiving agent."""
import os
import re
import signal
import subprocess
import time
import unittest

import harness
from harness import UNPRIVILEGED, CommandTest, make_tree, names, write


class CopyEssentials:
    """What holds however the items travel."""

    def setUp(self):
        super().setUp()
        self.root = self.dir / "root"
        self.root.mkdir()
        self.tree = make_tree(self.dir / "tree")

    def cp(self, *arguments, to="", status=0, **how):
        result = harness.tarn("cp", *self.options, *arguments, self.place(to), **how)
        self.assertEqual(result.status, status, result)
        return result

    def count(self, result, what):
        found = re.search(rf"(\d+) {what}", result.text)
        return int(found[1]) if found else 0

    def inode(self, path):
        return os.lstat(self.root / path).st_ino

    def test_a_second_copy_leaves_everything_alone(self):
        self.cp("-r", self.tree)
        before = {name: self.inode(f"tree/{name}") for name in names(self.tree)}
        result = self.cp("-r", "--overwrite", self.tree)
        self.assertEqual(self.count(result, "unchanged"), len(before) + 1)
        self.assertRegex(result.text, r"\A0 files, 0 directories, 0 links, 0 bytes, ")
        self.assertEqual({name: self.inode(f"tree/{name}") for name in names(self.tree)}, before)

    def test_what_has_changed_is_copied_and_the_rest_is_not(self):
        self.cp("-r", self.tree)
        os.utime(self.tree / "plain.txt", ns=(5, 7))
        os.chmod(self.tree / "secret", 0o640)
        os.remove(self.tree / "link")
        os.symlink("elsewhere", self.tree / "link")
        write(self.tree / "deep/er/new", b"new")
        large = self.inode("tree/large")
        result = self.cp("-r", "--overwrite", self.tree)
        self.assert_same_tree(self.tree, self.root / "tree")
        self.assertEqual(self.inode("tree/large"), large)
        self.assertEqual(self.count(result, "files"), 3)
        self.assertEqual(self.count(result, "links"), 1)
        self.assertEqual(self.count(result, "directories"), 2)

    def test_hard_links_stay_hard_links(self):
        os.link(self.tree / "plain.txt", self.tree / "deep/er/again")
        os.link(self.tree / "plain.txt", self.tree / "zz")
        result = self.cp("-r", self.tree)
        self.assertEqual(self.count(result, "hard links"), 2)
        self.assert_same_tree(self.tree, self.root / "tree")
        self.assertEqual({self.inode(f"tree/{name}") for name in ("plain.txt", "deep/er/again", "zz")},
                         {self.inode("tree/zz")})
        self.assertEqual(os.lstat(self.root / "tree/zz").st_nlink, 3)
        again = self.cp("-r", "--overwrite", self.tree)
        self.assertEqual(self.count(again, "hard links"), 0)

    def test_verify_reads_back_and_finds_everything_in_order(self):
        self.cp("-r", "--verify", self.tree)
        self.assert_same_tree(self.tree, self.root / "tree")

    def test_each_durability_brings_the_same(self):
        for durability in ("each", "tree", "none"):
            with self.subTest(durability=durability):
                os.link(self.tree / "plain.txt", self.tree / f"again {durability}")
                self.cp("-r", "--durable", durability, self.tree, to=durability)
                self.assert_same_tree(self.tree, self.root / durability)

    def test_two_sources_for_one_place_leave_the_later_one(self):
        first = write(self.dir / "one/a", b"first")
        second = write(self.dir / "two/a", b"second")
        self.cp("--overwrite", first, second)
        self.assertEqual((self.root / "a").read_bytes(), b"second")

    def test_more_items_than_a_group_takes_arrive(self):
        for number in range(1200):
            write(self.dir / f"many/{number}", str(number).encode())
        self.cp("-r", self.dir / "many")
        self.assert_same_tree(self.dir / "many", self.root / "many")

    @unittest.skipUnless(os.geteuid() == 0, "only root can make a file of another user's")
    def test_strict_makes_an_attribute_that_was_not_kept_a_failure(self):
        os.chown(write(self.tree / "plain.txt", b"x"), 12345, 54321)
        result = self.copy_without_right_to_give_away("-r", "--strict", status=3)
        self.assertRegex(result.errors, r"failed .*plain.txt")
        self.assertIn(" 0 warnings", result.text)
        self.assertEqual((self.root / "strict/plain.txt").read_bytes(), b"x")


class CopyOptions(CopyEssentials):
    def test_a_changed_owner_is_seen(self):
        if os.geteuid() != 0:
            self.skipTest("only root can change an owner")
        self.cp("-r", self.tree)
        os.chown(self.tree / "plain.txt", 12345, 54321)
        result = self.cp("-r", "--overwrite", self.tree)
        self.assertEqual(self.count(result, "files"), 1)
        self.assert_same_tree(self.tree, self.root / "tree")

    def test_checksum_finds_what_times_hide(self):
        path = write(self.dir / "a", b"one", mtime_ns=10**18)
        self.cp(path, to="a")
        write(path, b"two", mtime_ns=10**18)
        self.assertEqual(self.count(self.cp("--overwrite", path, to="a"), "unchanged"), 1)
        self.assertEqual((self.root / "a").read_bytes(), b"one")
        self.assertEqual(self.count(self.cp("--overwrite", "--checksum", path, to="a"), "unchanged"), 0)
        self.assertEqual((self.root / "a").read_bytes(), b"two")

    def test_checksum_spares_what_only_has_another_time(self):
        path = write(self.dir / "a", b"same", mtime_ns=10**18)
        self.cp(path, to="a")
        os.utime(path, ns=(7, 7))
        self.assertEqual(self.count(self.cp("--overwrite", "--checksum", path, to="a"), "unchanged"), 1)
        self.assertEqual(self.count(self.cp("--overwrite", path, to="a"), "unchanged"), 0)

    def test_force_copies_what_is_unchanged(self):
        self.cp("-r", self.tree)
        before = self.inode("tree/plain.txt")
        result = self.cp("-r", "--overwrite", "--force", self.tree)
        self.assertEqual(self.count(result, "unchanged"), 0)
        self.assertNotEqual(self.inode("tree/plain.txt"), before)
        self.assert_same_tree(self.tree, self.root / "tree")

    def test_checksum_goes_with_overwrite(self):
        result = self.cp("--checksum", self.tree / "plain.txt", to="a", status=2)
        self.assertIn("--overwrite", result.errors)

    def test_names_that_came_apart_are_linked_again(self):
        os.link(self.tree / "plain.txt", self.tree / "zz")
        self.cp("-r", self.tree)
        (self.root / "tree/zz").unlink()
        stamp = os.lstat(self.tree / "zz")
        write(self.root / "tree/zz", b"plain\n", 0o644, stamp.st_mtime_ns)
        result = self.cp("-r", "--overwrite", self.tree)
        self.assertEqual(self.count(result, "hard links"), 1)
        self.assertEqual(self.inode("tree/zz"), self.inode("tree/plain.txt"))

    def test_dry_run_tells_what_would_be_done_and_changes_nothing(self):
        self.cp("-r", self.tree)
        write(self.tree / "plain.txt", b"another text")
        write(self.tree / "new", b"new")
        os.link(self.tree / "new", self.tree / "newer")
        os.mkfifo(self.tree / "pipe")
        before = harness.listing(self.root)
        result = self.cp("-r", "--overwrite", "--dry-run", self.tree)
        self.assert_same_listing(harness.listing(self.root), before)
        lines = result.text.splitlines()
        for action, name in (("copy", "new"), ("link", "newer"), ("replace", "plain.txt"), ("skip FIFO", "pipe"),
                             ("skip unchanged", "large"), ("skip unchanged", "deep")):
            self.assertIn(f"{action} {self.tree}/{name}", lines)
        self.assertEqual(lines[-1], f"update {self.tree}")
        self.assertEqual(len(lines), len(names(self.tree)) + 1)

    def test_dry_run_of_a_first_copy_makes_not_even_the_staging_folder(self):
        os.rename(self.root, self.dir / "moved")
        os.rename(self.dir / "moved", self.root)
        before = os.stat(self.root).st_mtime_ns
        result = self.cp("-r", "--dry-run", self.tree, to="copy")
        self.assertEqual(os.stat(self.root).st_mtime_ns, before)
        self.assertIn(f"copy {self.tree}", result.text.splitlines())

    def test_dry_run_is_refused_as_the_copy_would_be(self):
        self.cp("-r", self.tree)
        self.assertIn("exists already", self.cp("-r", "--dry-run", self.tree, status=1).errors)

    def test_verify_of_standard_input(self):
        content = os.urandom(3_000_000)
        self.cp("--verify", "-", to="b", stdin=content)
        self.assertEqual((self.root / "b").read_bytes(), content)

    def test_a_durability_that_is_none_of_the_three_is_wrong_usage(self):
        self.cp("--durable", "maybe", self.tree / "plain.txt", to="a", status=2)

    def kept(self):
        """The most bytes of a file that is kept."""
        folder = self.root / ".tarn-staging/partial"
        try:
            return max((file.stat().st_size for file in folder.iterdir()), default=0)
        except FileNotFoundError:
            return 0

    def test_a_large_file_goes_on_where_its_copy_broke_off(self):
        path = write(self.dir / "large", os.urandom(1 << 20) * 64)
        self.break_off(path)
        self.assertFalse((self.root / "large").exists())
        result = self.cp("--verify", path, to="large")
        self.assertRegex(result.text, r", [1-9]\d* resumed, ")
        self.assert_same_tree(path, self.root / "large")

    def test_what_is_kept_of_another_content_is_not_used(self):
        path = write(self.dir / "large", b"a" * (64 << 20), mtime_ns=10**18)
        self.break_off(path)
        write(path, b"b" * (64 << 20), mtime_ns=10**18)
        result = self.cp("--verify", path, to="large")
        self.assertNotIn("resumed", result.text)
        self.assert_same_tree(path, self.root / "large")


class CopyOptionsHere(CopyOptions, CommandTest):
    options = ()

    def break_off(self, path):
        """Lets a copy of `path` die when it has written a part."""
        self.cp(path, to="large", status=-signal.SIGXFSZ, wrapper=["prlimit", f"--fsize={24 << 20}"])
        self.assertGreater(self.kept(), 0)

    def place(self, path):
        return self.root / path

    def copy_without_right_to_give_away(self, *options, status):
        return self.cp(*options, self.tree, to="strict", status=status, wrapper=UNPRIVILEGED)


class AtAgent:
    options = ("--plaintext",)

    def setUp(self):
        super().setUp()
        self.agent = self.serve(self.root)

    def place(self, path):
        return self.agent.url(path)

    def copy_without_right_to_give_away(self, *options, status):
        self.agent.stop()
        self.agent = self.serve(self.root, wrapper=UNPRIVILEGED)
        return self.cp(*options, self.tree, to="strict", status=status)


class CopyOptionsAtAgent(AtAgent, CopyOptions, CommandTest):
    def break_off(self, path):
        """Kills a copy of `path` when a part has come, and no more of it comes."""
        with harness.Narrow(self.agent.address, 24 << 20) as narrow:
            command = [harness.TARN, "cp", *self.options, "--compress", "none", path, f"tarn://{narrow.address}/large"]
            with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as child:
                end = time.monotonic() + harness.LIMIT
                while self.kept() == 0 and time.monotonic() < end:
                    time.sleep(0.001)
                self.assertIsNone(child.poll())
                child.kill()
        for _ in range(narrow.connections):
            self.agent.next_line()  # its session has ended
        self.assertGreater(self.kept(), 0)

    def test_files_on_both_sides_of_the_limit_of_a_batch_arrive(self):
        for number in range(40):
            write(self.dir / f"many/{number}", b"x" * number, mtime_ns=10**18 + number)
        os.link(self.dir / "many/3", self.dir / "many/3 again")
        result = self.cp("-r", "--batch-limit", "20", self.dir / "many")
        self.assertEqual(self.count(result, "files"), 40)
        self.assertEqual(self.count(result, "bytes"), sum(range(40)))
        self.assert_same_tree(self.dir / "many", self.root / "many")

    def test_nothing_temporary_is_left(self):
        temporary = self.dir / "temporary"
        temporary.mkdir()
        self.cp("-r", self.tree, wrapper=["env", f"TMPDIR={temporary}"])
        self.assertEqual(list(temporary.iterdir()), [])
        self.assert_same_tree(self.tree, self.root / "tree")

    def test_without_a_place_for_temporary_files_everything_arrives(self):
        self.cp("-r", self.tree, wrapper=["env", f"TMPDIR={self.dir / 'nowhere'}"])
        self.assert_same_tree(self.tree, self.root / "tree")


class CopyOptionsAtAgentItemByItem(AtAgent, CopyEssentials, CommandTest):
    options = ("--plaintext", "--no-batch")


if __name__ == "__main__":
    harness.main()
