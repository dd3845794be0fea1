"""cat, stat, exists, rm, mkdir, mv and ln on files of this machine."""
import json
import os
import pwd
import subprocess

import harness
from harness import CommandTest, write


class Cat(CommandTest):
    def test_prints_the_bytes_as_they_are(self):
        content = bytes(range(256)) * 20_000
        self.assertEqual(self.succeeds("cat", write(self.dir / "a", content)).out, content)

    def test_an_empty_file_prints_nothing(self):
        self.assertEqual(self.succeeds("cat", write(self.dir / "a")).out, b"")

    def test_a_missing_file_is_named(self):
        result = self.fails(1, "cat", self.dir / "missing")
        self.assertEqual(result.out, b"")
        self.assertIn(str(self.dir / "missing"), result.errors)
        self.assertIn("No such file or directory", result.errors)

    def test_a_directory_is_refused(self):
        self.fails(1, "cat", self.dir)

    def test_a_map_shows_the_file_at_the_path_of_the_backup(self):
        write(self.dir / "copy/etc/name", b"from the copy\n")
        result = self.succeeds("cat", "--map", f"{self.dir}/copy=/", "FlrFS:///etc/name")
        self.assertEqual(result.out, b"from the copy\n")

    def test_the_deepest_map_wins(self):
        write(self.dir / "root/var/x", b"root\n")
        write(self.dir / "var/x", b"var\n")
        result = self.succeeds("cat", "--map", f"{self.dir}/root=/", "--map", f"{self.dir}/var=/var", "FlrFS:///var/x")
        self.assertEqual(result.out, b"var\n")

    def test_an_absolute_link_of_the_view_stays_inside(self):
        write(self.dir / "copy/etc/passwd", b"of the copy\n")
        os.symlink("/etc/passwd", self.dir / "copy/link")
        result = self.succeeds("cat", "--map", f"{self.dir}/copy=/", "FlrFS:///link")
        self.assertEqual(result.out, b"of the copy\n")

    def test_a_path_off_every_map_is_an_error(self):
        result = self.fails(1, "cat", "--map", f"{self.dir}=/mnt/backup", "FlrFS:///etc/passwd")
        self.assertIn("No suitable mapping rule", result.errors)

    def test_a_closed_pipe_does_not_hang(self):
        write(self.dir / "a", b"x" * (8 << 20))
        with subprocess.Popen([harness.TARN, "cat", self.dir / "a"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as child:
            child.stdout.read(10)
            child.stdout.close()
            child.stderr.read()
            self.assertNotEqual(child.wait(timeout=harness.LIMIT), 0)


class Stat(CommandTest):
    def stat(self, path, *options):
        return json.loads(self.succeeds("stat", "--json", *options, path).out)

    def test_json_of_a_file(self):
        path = write(self.dir / "a", b"12345", 0o640, 1_600_000_000_123_456_789)
        found = self.stat(path)
        self.assertEqual(found["path"], str(path))
        self.assertEqual(found["type"], "file")
        self.assertEqual(found["size"], 5)
        self.assertEqual(found["mode"], "0640")
        self.assertEqual(found["modified"], "2020-09-13T12:26:40.123456789Z")
        self.assertEqual(found["owner"], {"name": pwd.getpwuid(os.geteuid()).pw_name, "id": os.geteuid()})
        self.assertEqual(found["group"]["id"], os.getegid())

    def test_a_time_before_1970(self):
        path = write(self.dir / "a", mtime_ns=-1)
        self.assertEqual(self.stat(path)["modified"], "1969-12-31T23:59:59.999999999Z")

    def test_json_of_a_directory(self):
        (self.dir / "d").mkdir(mode=0o755)
        os.chmod(self.dir / "d", 0o1755)
        found = self.stat(self.dir / "d")
        self.assertEqual((found["type"], found["mode"]), ("directory", "1755"))

    def test_a_link_is_described_itself(self):
        os.symlink("nowhere/at all", self.dir / "l")
        found = self.stat(self.dir / "l")
        self.assertEqual((found["type"], found["target"]), ("link", "nowhere/at all"))

    def test_plain_lines_say_the_same(self):
        path = write(self.dir / "a", b"12345", 0o640)
        lines = self.succeeds("stat", path).text.splitlines()
        for line in ("type: file", "size: 5", "mode: 0640"):
            self.assertIn(line, lines)

    def test_a_map_shows_the_file_of_the_copy(self):
        write(self.dir / "copy/etc/name", b"seven\n\n")
        found = self.stat("FlrFS:///etc/name", "--map", f"{self.dir}/copy=/")
        self.assertEqual((found["path"], found["size"]), ("FlrFS:///etc/name", 7))

    def test_a_missing_file_is_named(self):
        self.assertIn(str(self.dir / "missing"), self.fails(1, "stat", self.dir / "missing").errors)


class Exists(CommandTest):
    def test_all_there_is_status_0(self):
        path = write(self.dir / "a")
        self.assertEqual(self.succeeds("exists", path, self.dir).text, f"yes {path}\nyes {self.dir}\n")

    def test_one_missing_is_status_1(self):
        path = write(self.dir / "a")
        result = harness.tarn("exists", path, self.dir / "b")
        self.assertEqual((result.status, result.text, result.err), (1, f"yes {path}\nno  {self.dir}/b\n", b""))

    def test_quiet_tells_by_status_only(self):
        result = harness.tarn("exists", "--quiet", self.dir / "b")
        self.assertEqual((result.status, result.out, result.err), (1, b"", b""))

    def test_a_map_asks_the_copy(self):
        write(self.dir / "copy/only/here")
        maps = ("--map", f"{self.dir}/copy=/")
        self.succeeds("exists", *maps, "FlrFS:///only/here")
        self.assertEqual(harness.tarn("exists", *maps, "FlrFS:///etc/passwd").status, 1)

    def test_a_slot_of_another_process_does_not_exist(self):
        self.assertEqual(harness.tarn("exists", "MemFs://a").status, 1)


class Change(CommandTest):
    def test_rm_removes_a_file(self):
        path = write(self.dir / "a")
        self.succeeds("rm", path)
        self.assertFalse(path.exists())

    def test_rm_removes_a_link_and_not_its_target(self):
        path = write(self.dir / "a")
        os.symlink("a", self.dir / "l")
        self.succeeds("rm", self.dir / "l")
        self.assertEqual(harness.names(self.dir), ["a"])
        self.assertTrue(path.exists())

    def test_rm_removes_an_empty_directory(self):
        (self.dir / "d").mkdir()
        self.succeeds("rm", self.dir / "d")
        self.assertEqual(harness.names(self.dir), [])

    def test_rm_leaves_a_directory_with_something_in_it(self):
        write(self.dir / "d/a")
        self.fails(1, "rm", self.dir / "d")
        self.assertEqual(harness.names(self.dir), ["d", "d/a"])

    def test_mkdir_makes_a_directory(self):
        self.succeeds("mkdir", self.dir / "d")
        self.assertTrue((self.dir / "d").is_dir())

    def test_mkdir_refuses_what_exists(self):
        write(self.dir / "a", b"kept")
        self.assertIn("exists already", self.fails(1, "mkdir", self.dir / "a").errors)
        self.assertEqual((self.dir / "a").read_bytes(), b"kept")

    def test_mv_renames(self):
        write(self.dir / "a", b"x")
        self.succeeds("mv", self.dir / "a", self.dir / "b")
        self.assertEqual(harness.names(self.dir), ["b"])

    def test_mv_does_not_replace_without_being_asked(self):
        write(self.dir / "a", b"new")
        write(self.dir / "b", b"old")
        self.assertIn(str(self.dir / "b"), self.fails(1, "mv", self.dir / "a", self.dir / "b").errors)
        self.assertEqual((self.dir / "b").read_bytes(), b"old")
        self.succeeds("mv", "--overwrite", self.dir / "a", self.dir / "b")
        self.assertEqual((self.dir / "b").read_bytes(), b"new")

    def test_mv_in_memory_says_that_it_cannot(self):
        self.assertIn("cannot rename", self.fails(1, "mv", "MemFs://a", "MemFs://b").errors)

    def test_ln_makes_a_link_that_holds_the_text(self):
        self.succeeds("ln", "../any where/at all", self.dir / "l")
        self.assertEqual(os.readlink(self.dir / "l"), "../any where/at all")

    def test_ln_does_not_replace_without_being_asked(self):
        os.symlink("old", self.dir / "l")
        self.assertIn("exists already", self.fails(1, "ln", "new", self.dir / "l").errors)
        self.assertEqual(os.readlink(self.dir / "l"), "old")
        self.succeeds("ln", "--overwrite", "new", self.dir / "l")
        self.assertEqual(os.readlink(self.dir / "l"), "new")

    def test_a_restore_view_is_read_only(self):
        write(self.dir / "a", b"kept")
        result = self.fails(1, "rm", "FlrFS:///a")
        self.assertIn("read-only", result.errors)


class Remote(CommandTest):
    URL = "tarn://127.0.0.1:1/x"

    def test_verbs_that_work_on_this_machine_say_so(self):
        here = str(write(self.dir / "a"))
        for arguments in (("mv", self.URL, here), ("mv", here, self.URL)):
            with self.subTest(arguments=arguments):
                self.assertIn(self.URL, self.fails(1, *arguments).errors)
        self.assertEqual(harness.names(self.dir), ["a"])

    def test_a_malformed_location_is_named(self):
        for url in ("tarn://", "tarn://host", "tarn://host/x", "tarn://host:70000/x", "tarn://:1/x"):
            with self.subTest(url=url):
                result = self.fails(1, "exists", "--plaintext", url)
                self.assertIn(f"'{url}' is not a location of the form tarn://HOST:PORT/PATH", result.errors)

    def test_an_agent_that_is_not_there_is_named(self):
        here = write(self.dir / "a")
        for verb, *places in (("exists", self.URL), ("cat", self.URL), ("list", self.URL), ("verify", here, self.URL),
                              ("verify", self.URL, here), ("cp", self.URL, self.dir / "b")):
            self.assertIn("127.0.0.1:1", self.fails(1, verb, "--plaintext", *places).errors)
        self.assertEqual(harness.names(self.dir), ["a"])


if __name__ == "__main__":
    harness.main()
