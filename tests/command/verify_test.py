"""verify: every kind of difference is found and named."""
import os
import shutil
import stat
import unittest

import harness
from harness import CommandTest, make_tree, write


class Verify(CommandTest):
    def setUp(self):
        super().setUp()
        self.first = make_tree(self.dir / "first")
        self.second = self.dir / "second"
        self.succeeds("cp", "-r", self.first, self.second)

    def lines(self, status=1, *options):
        result = harness.tarn("verify", *options, self.first, self.second)
        self.assertEqual(result.status, status, result)
        self.assertEqual(result.err, b"", result)
        return result.text.splitlines()

    def assert_difference(self, path, words, count=1):
        lines = self.lines()
        self.assertRegex(lines[-1], rf"; {count} differences\Z")
        self.assertEqual(len(lines), count + 1)
        self.assertTrue(any(line.startswith(path) and words in line for line in lines), lines)

    def touch_parents(self, path):
        """Gives the directories above `path` the times they had, so that only `path` differs."""
        folder = self.second / path
        while folder != self.second:
            folder = folder.parent
            seen = os.lstat(self.first / folder.relative_to(self.second))
            os.utime(folder, ns=(seen.st_atime_ns, seen.st_mtime_ns))

    def test_a_copy_is_the_same(self):
        lines = self.lines(0)
        self.assertEqual(len(lines), 1)
        self.assertRegex(lines[0], r"\A8 files, 6 directories, 2 links, \d+ bytes compared; 0 differences\Z")

    def test_quiet_prints_nothing_of_a_good_copy(self):
        self.assertEqual(self.lines(0, "--quiet"), [])

    def test_one_byte_of_content(self):
        path = self.second / "large"
        seen = path.stat()
        with open(path, "r+b") as file:
            file.seek(2_000_000)
            file.write(b"\xff" if path.read_bytes()[2_000_000] != 0xFF else b"\x00")
        os.utime(path, ns=(seen.st_atime_ns, seen.st_mtime_ns))
        self.assert_difference("large: ", "2000000")

    def test_a_byte_in_a_hole(self):
        path = self.second / "hole"
        seen = path.stat()
        with open(path, "r+b") as file:
            file.seek(3 << 20)
            file.write(b"\x01")
        os.utime(path, ns=(seen.st_atime_ns, seen.st_mtime_ns))
        self.assert_difference("hole: ", str(3 << 20))

    def test_a_longer_file(self):
        path = self.second / "plain.txt"
        seen = path.stat()
        with open(path, "ab") as file:
            file.write(b"more")
        os.utime(path, ns=(seen.st_atime_ns, seen.st_mtime_ns))
        self.assert_difference("plain.txt: ", "")

    def test_a_missing_file(self):
        os.unlink(self.second / "deep/er/still/file")
        self.touch_parents("deep/er/still/file")
        self.assert_difference("deep/er/still/file: ", "missing")

    def test_an_extra_file(self):
        write(self.second / "deep/extra")
        self.touch_parents("deep/extra")
        self.assert_difference("deep/extra: ", "")

    def test_a_missing_directory_is_named_before_what_was_in_it(self):
        shutil.rmtree(self.second / "deep/er")
        self.touch_parents("deep/er")
        lines = self.lines()
        self.assertTrue(lines[0].startswith("deep/er: "), lines)

    def test_another_type(self):
        os.unlink(self.second / "empty")
        (self.second / "empty").mkdir()
        self.touch_parents("empty")
        lines = self.lines()
        self.assertTrue(any(line.startswith("empty: ") and "directory" in line for line in lines), lines)

    def test_a_mode(self):
        os.chmod(self.second / "program", 0o711)
        self.assert_difference("program: ", "0711")

    def test_the_mode_of_a_directory(self):
        os.chmod(self.second / "shut", 0o755)
        self.assert_difference("shut: ", "0755")

    def test_a_nanosecond_of_a_time(self):
        os.utime(self.second / "plain.txt", ns=(0, 1_600_000_000_123_456_788))
        self.assert_difference("plain.txt: ", "time")

    def test_the_time_of_a_directory(self):
        os.utime(self.second / "deep", ns=(0, 0))
        self.assert_difference("deep: ", "time")

    def test_the_time_of_the_place_itself(self):
        os.utime(self.second, ns=(0, 0))
        self.assertEqual(len(self.lines()), 2)

    def test_a_link_target(self):
        seen = os.lstat(self.first / "link")
        os.unlink(self.second / "link")
        os.symlink("elsewhere", self.second / "link")
        os.utime(self.second / "link", ns=(0, seen.st_mtime_ns), follow_symlinks=False)
        self.touch_parents("link")
        self.assert_difference("link: ", "target")

    def test_a_link_in_place_of_what_it_points_to(self):
        os.rename(self.second / "plain.txt", self.dir / "aside")
        os.symlink(self.dir / "aside", self.second / "plain.txt")
        self.touch_parents("plain.txt")
        lines = self.lines()
        self.assertTrue(any(line.startswith("plain.txt: ") and "link" in line for line in lines), lines)

    @unittest.skipUnless(os.geteuid() == 0, "only root can give a file away")
    def test_an_owner_and_that_it_can_be_left_out(self):
        seen = os.lstat(self.second / "program")
        os.chown(self.second / "program", 12345, 54321)
        os.chmod(self.second / "program", stat.S_IMODE(seen.st_mode))
        lines = self.lines()
        self.assertTrue(any(line.startswith("program: ") and "12345" in line for line in lines), lines)
        self.assertIn("owner and group left out", self.lines(0, "--ignore-owner")[-1])
        self.assertIn("12345", self.lines(1, "--numeric-owner")[0])

    def test_an_extended_attribute(self):
        try:
            os.setxattr(self.second / "plain.txt", "user.note", b"here")
        except OSError as error:
            self.skipTest(f"no extended attributes here: {error}")
        self.assert_difference("plain.txt: ", "user.note")

    def test_several_differences_are_all_named(self):
        os.chmod(self.second / "program", 0o711)
        os.utime(self.second / "plain.txt", ns=(0, 0))
        os.chmod(self.second / "secret", 0o640)
        named = [line.split(":")[0] for line in self.lines()[:-1]]
        self.assertEqual(sorted(named), ["plain.txt", "program", "secret"])

    def test_special_files_of_the_first_are_left_out(self):
        seen = os.lstat(self.first)
        os.mkfifo(self.first / "pipe")
        os.utime(self.first, ns=(seen.st_atime_ns, seen.st_mtime_ns))
        self.lines(0)

    def test_two_files(self):
        self.succeeds("verify", self.first / "large", self.second / "large")
        self.fails_to_match(self.first / "large", self.second / "plain.txt")

    def fails_to_match(self, first, second):
        self.assertEqual(harness.tarn("verify", first, second).status, 1)

    def test_a_file_is_not_a_directory(self):
        self.fails_to_match(self.first / "plain.txt", self.second)
        self.fails_to_match(self.first, self.second / "plain.txt")

    def test_a_missing_place_is_an_error(self):
        for places in ((self.first, self.dir / "missing"), (self.dir / "missing", self.second)):
            with self.subTest(places=places):
                self.assertIn(str(self.dir / "missing"), self.fails(1, "verify", *places).errors)

    def test_a_restore_view_is_compared_with_the_original(self):
        maps = ("--map", f"{self.second}={self.first}")
        original = self.first / "large"
        self.succeeds("verify", *maps, original, f"FlrFS://{original}")
        with open(self.second / "large", "r+b") as file:
            file.write(b"\xff\xff")
        self.assertEqual(harness.tarn("verify", *maps, original, f"FlrFS://{original}").status, 1)


if __name__ == "__main__":
    harness.main()
