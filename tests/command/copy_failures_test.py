"""What a copy does when part of it cannot be done, or when it is interrupted."""
import os
import signal
import subprocess
import unittest

import harness
from harness import UNPRIVILEGED, CommandTest, make_tree, names, write


class FailedItems:
    def setUp(self):
        super().setUp()
        self.root = self.dir / "root"
        self.root.mkdir()
        self.tree = self.dir / "tree"

    def partly(self, *arguments, to="copy", wrapper=UNPRIVILEGED):
        result = harness.tarn("cp", *self.options, *arguments, self.place(to), wrapper=wrapper)
        self.assertEqual(result.status, 3, result)
        return result

    def test_an_unreadable_file_is_named_and_the_rest_travels(self):
        for name in "abcde":
            write(self.tree / name, name.encode())
        os.chmod(self.tree / "c", 0)
        result = self.partly("-r", self.tree)
        self.assertRegex(result.errors, rf"failed {self.tree}/c: .*Permission denied")
        self.assertIn("1 failed", result.text)
        self.assertEqual(names(self.root / "copy"), ["a", "b", "d", "e"])

    def test_an_unreadable_directory_is_named_and_the_rest_travels(self):
        write(self.tree / "a/inside")
        write(self.tree / "b/inside")
        os.chmod(self.tree / "a", 0)
        result = self.partly("-r", self.tree)
        self.assertRegex(result.errors, rf"failed {self.tree}/a: .*Permission denied")
        self.assertIn("b/inside", names(self.root / "copy"))

    def test_a_name_that_is_taken_by_the_staging_folder_fails_alone(self):
        write(self.tree / ".tarn-staging/x")
        write(self.tree / "z", b"x")
        result = harness.tarn("cp", "-r", *self.options, self.tree, self.place("copy"))
        self.assertIn(result.status, (0, 3), result)
        self.assertEqual((self.root / "copy/z").read_bytes(), b"x")

    @unittest.skipUnless(os.geteuid() == 0, "only root can make a file of another user's")
    def test_an_owner_that_may_not_be_set_is_a_warning(self):
        os.chown(write(self.tree / "a", b"x"), 12345, 54321)
        result = self.copy_without_right_to_give_away()
        self.assertEqual(result.status, 0, result)
        self.assertEqual((self.root / "copy/a").read_bytes(), b"x")
        self.assertRegex(result.text, r" [1-9]\d* warnings")
        self.assertIn("copy/a", result.errors)


class FailedItemsHere(FailedItems, CommandTest):
    options = ()

    def place(self, path):
        return self.root / path

    def copy_without_right_to_give_away(self):
        return harness.tarn("cp", "-r", self.tree, self.place("copy"), wrapper=UNPRIVILEGED)

    def test_a_destination_that_may_not_be_written_is_an_error(self):
        os.chmod(self.root, 0o555)
        result = harness.tarn("cp", write(self.tree / "a"), self.place("b"), wrapper=UNPRIVILEGED)
        self.assertEqual(result.status, 1, result)
        self.assertIn("Permission denied", result.errors)

    def test_a_full_device_is_an_error_with_its_name(self):
        result = self.fails(1, "cp", write(self.tree / "a", b"x"), "/dev/full/b")
        self.assertIn("/dev/full", result.errors)


class FailedItemsAtAgent(FailedItems, CommandTest):
    options = ("--plaintext",)

    def setUp(self):
        super().setUp()
        self.agent = self.serve(self.root, wrapper=UNPRIVILEGED)

    def place(self, path):
        return self.agent.url(path)

    def copy_without_right_to_give_away(self):
        return harness.tarn("cp", "-r", "--plaintext", self.tree, self.place("copy"))

    def test_an_item_that_the_agent_refuses_fails_alone(self):
        make_tree(self.tree)
        (self.root / "copy/deep").mkdir(parents=True)
        os.chmod(self.root / "copy/deep", 0o555)
        os.rename(self.tree, self.dir / "copy")
        result = harness.tarn("cp", "-r", "--plaintext", self.dir / "copy", self.agent.url())
        self.assertEqual(result.status, 3, result)
        self.assertIn("Permission denied", result.errors)
        self.assertEqual((self.root / "copy/plain.txt").read_bytes(), b"plain\n")


class Interrupted(CommandTest):
    def interrupt(self, command, ready):
        with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as child:
            ready(child)
            child.send_signal(signal.SIGINT)
            try:
                child.wait(timeout=harness.LIMIT)  # its standard input stays open
            except subprocess.TimeoutExpired:
                child.kill()
                raise
            _, errors = child.communicate()
            return child.returncode, errors.decode()

    @staticmethod
    def feed(child):
        """More than fits a pipe: when all of it is written the copy is under way and waits for more."""
        child.stdin.write(b"x" * (3 << 20))
        child.stdin.flush()

    def test_a_copy_to_an_agent_ends_with_130_and_leaves_nothing(self):
        (self.dir / "root").mkdir()
        agent = self.serve(self.dir / "root")
        status, errors = self.interrupt([harness.TARN, "cp", "--plaintext", "-", agent.url("b")], self.feed)
        self.assertEqual(status, 130, errors)
        self.assertIn("interrupted", errors)
        self.assertEqual(agent.stop(), 0)
        self.assertEqual(os.listdir(self.dir / "root"), [])

    def test_a_local_copy_ends_with_130_and_leaves_nothing(self):
        (self.dir / "root").mkdir()
        status, errors = self.interrupt([harness.TARN, "cp", "-", self.dir / "root/b"], self.feed)
        self.assertEqual(status, 130, errors)
        self.assertEqual(os.listdir(self.dir / "root"), [])


if __name__ == "__main__":
    harness.main()
