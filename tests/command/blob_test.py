"""tarn blob: blob files made and read by blob_format.py, which shares nothing with the program."""
import json
import os
import stat
import sys
from pathlib import Path

import blob_format
import harness
from blob_format import command, create_dir, create_file, frame, set_metadata, write_file
from harness import CommandTest, listing, names, write

SECOND = 1_000_000_000

# No file may have more than 4 KiB, and what would make it larger fails instead of ending the program.
LITTLE_ROOM = ["sh", "-c", "trap '' XFSZ; exec prlimit --fsize=4096 \"$@\"", "sh"]

# Runs a program and prints how many KiB it took at most.
TELL_MEMORY = """import resource, subprocess, sys
status = subprocess.run(sys.argv[1:]).returncode
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
sys.exit(status)
"""


def path_in(top, name):
    return os.fsencode(top / name)


class Blobs(CommandTest):
    """What the tests of all three verbs need: an empty `target` and blob files beside it."""

    def setUp(self):
        super().setUp()
        self.target = self.dir / "target"
        self.target.mkdir()

    def at(self, name):
        return path_in(self.target, name)

    def blob(self, *commands, name="blobfs0", **parts):
        """A blob file with these commands."""
        return write(self.dir / name, frame(b"".join(commands), **parts))


class Apply(Blobs):
    def test_commands_make_directories_files_contents_and_attributes(self):
        info = blob_format.file_info(blob_format.REGULAR, 6, (b"", os.getuid()), (b"", os.getgid()), 0o641,
                                     ((1, 2), (-5, 999_999_999), (0, 0)))
        of_directory = blob_format.file_info(blob_format.DIRECTORY, 0, (b"", os.getuid()), (b"", os.getgid()), 0o2750,
                                             ((7, 0), (1_700_000_000, 5), (0, 0)))
        blob = self.blob(create_dir(self.at("d")), create_file(self.at("d/f")), write_file(b"", 0, b"abc"),
                         write_file(b"", 4, b"ef"), set_metadata(b"", info), create_file(self.at("d/empty")),
                         set_metadata(self.at("d"), of_directory))
        result = self.succeeds("blob", "apply", blob)
        self.assertEqual((result.text, result.errors), ("1 blob files applied, 0 left; 0 failures\n", ""))
        self.assertEqual((self.target / "d/f").read_bytes(), b"abc\0ef")
        seen = os.lstat(self.target / "d/f")
        self.assertEqual((stat.S_IMODE(seen.st_mode), seen.st_mtime_ns), (0o641, -5 * SECOND + 999_999_999))
        self.assertEqual((self.target / "d/empty").read_bytes(), b"")
        seen = os.lstat(self.target / "d")
        self.assertEqual((stat.S_IMODE(seen.st_mode), seen.st_mtime_ns), (0o2750, 1_700_000_000 * SECOND + 5))
        self.assertEqual(names(self.dir), ["target", "target/d", "target/d/empty", "target/d/f"])

    def test_packed_blocks_with_matches_are_unpacked(self):
        payload = create_file(self.at("f")) + write_file(b"", 0, b"a" * 300 + b"vwxyz")
        head = payload[:-304]
        # head and one "a", a match one byte back for the other 299, the rest as literals
        block = bytes([0xF0 | 15]) + blob_format.literal_block(head)[1:] + b"\x01\x00\xff\x19" + b"\x50vwxyz"
        self.assertGreater(len(head), 15)
        self.assertEqual(blob_format.unpack_block(block), payload)
        self.succeeds("blob", "apply", self.blob(payload, block=block))
        self.assertEqual((self.target / "f").read_bytes(), b"a" * 300 + b"vwxyz")

    def test_a_checksum_that_is_not_announced_is_not_compared(self):
        self.succeeds("blob", "apply", self.blob(create_dir(self.at("d")), magic=0xF000000F, checksum=1))
        self.assertEqual(names(self.target), ["d"])

    def test_other_flags_mean_nothing(self):
        self.succeeds("blob", "apply", self.blob(create_dir(self.at("d")), magic=0xFF00000F))
        self.succeeds("blob", "apply", self.blob(create_dir(self.at("e")), magic=0xF700000F, checksum=1))
        self.assertEqual(names(self.target), ["d", "e"])

    def test_a_file_without_a_byte_is_applied_and_removed(self):
        blob = write(self.dir / "blobfs0")
        self.assertEqual(self.succeeds("blob", "apply", blob).text, "1 blob files applied, 0 left; 0 failures\n")
        self.assertFalse(blob.exists())

    def test_files_that_are_there_are_written_into_or_made_anew(self):
        for name in ("kept", "anew"):
            write(self.target / name, b"0123456789")
        self.succeeds("blob", "apply", self.blob(create_file(self.at("kept")), write_file(b"", 2, b"ab"),
                                                 create_file(self.at("anew"), 1), write_file(b"", 2, b"ab")))
        self.assertEqual((self.target / "kept").read_bytes(), b"01ab456789")
        self.assertEqual((self.target / "anew").read_bytes(), b"\0\0ab")

    def test_directories_that_are_there_stay_or_are_made_anew_when_empty(self):
        write(self.target / "kept/x")
        os.chmod(self.target / "kept", 0o700)
        (self.target / "anew").mkdir(mode=0o700)
        before = os.lstat(self.target / "anew").st_mtime_ns
        os.utime(self.target / "anew", ns=(SECOND, SECOND))
        self.succeeds("blob", "apply", self.blob(create_dir(self.at("kept")), create_dir(self.at("anew"), 1)))
        self.assertEqual(names(self.target), ["anew", "kept", "kept/x"])
        self.assertGreaterEqual(os.lstat(self.target / "anew").st_mtime_ns, before)

    def test_a_file_goes_on_in_the_next_blob_file_and_a_directory_stands_for_all_in_order(self):
        folder = self.dir / "blobs"
        for number in (10, 2, 0):
            part = create_file(self.at("f")) if number == 0 else b""
            write(folder / f"blobfs{number}", frame(part + write_file(self.at("f"), 0, b"%d" % number)))
        write(folder / "other", b"no blob file")
        self.assertEqual(self.succeeds("blob", "apply", folder).text, "3 blob files applied, 0 left; 0 failures\n")
        self.assertEqual((self.target / "f").read_bytes(), b"10")
        self.assertEqual(names(folder), ["other"])

    def test_quiet_prints_nothing(self):
        result = self.succeeds("--quiet", "blob", "apply", self.blob(create_dir(self.at("d"))))
        self.assertEqual((result.text, result.errors), ("", ""))


class Damaged(Blobs):
    """Blob files that cannot be read: each is named, changes nothing and stays."""

    def assert_damaged(self, blob, *causes):
        before = listing(self.dir)
        result = self.fails(1, "blob", "apply", blob)
        self.assertEqual(result.errors,
                         "".join(f"tarn: {line}\n" for line in (f"Failed to parse file [{blob}].", *causes)))
        self.assertEqual(result.text, "0 blob files applied, 1 left; 0 failures\n")
        self.assert_same_listing(listing(self.dir), before)

    def good(self):
        """A command that would leave a trace."""
        return create_dir(self.at("d"))

    def test_another_magic(self):
        text = "Failed to decompress LZ4 block: incorrect block header."
        for magic in (0xE800000F, 0xF800000E, 0x0F0000F8, 0, 0xF810000F):
            self.assert_damaged(self.blob(self.good(), magic=magic), text)

    def test_a_wrong_checksum(self):
        payload = self.good()
        right = blob_format.crc32c(payload)
        self.assert_damaged(self.blob(payload, checksum=0xABC),
                            "Failed to decompress LZ4 block: Bad crc (original crc: 00000abc, "
                            f"current crc: {right:x}).")

    def test_a_changed_byte_of_the_payload(self):
        payload = self.good()
        changed = payload[:-1] + b"\x01"
        self.assert_damaged(self.blob(changed, checksum=blob_format.crc32c(payload)),
                            "Failed to decompress LZ4 block: Bad crc (original crc: "
                            f"{blob_format.crc32c(payload):08x}, current crc: {blob_format.crc32c(changed):x}).")

    def test_another_length(self):
        payload = self.good()
        for length in (len(payload) + 1, 0x7FFFFFFF, 0xFFFFFFFF):
            self.assert_damaged(self.blob(payload, length=length),
                                "Failed to decompress LZ4 block: Incorrect decompression result or length "
                                f"(result: '{len(payload)}', expected length: '{length}').")

    def test_a_length_that_lies_takes_no_memory(self):
        blob = self.blob(self.good(), length=0xFFFFFFFF)
        result = self.fails(1, "blob", "apply", blob, wrapper=[sys.executable, "-c", TELL_MEMORY])
        self.assertIn("expected length: '4294967295'", result.errors)
        self.assertLess(int(result.text.splitlines()[-1]), 1 << 20)

    def test_a_block_that_is_none(self):
        for block in (b"", b"\xf0\xff", b"\x10a\x05\x00"):
            blob = self.blob(self.good(), block=block)
            result = self.fails(1, "blob", "apply", blob)
            self.assertRegex(result.errors, r"\Atarn: Failed to parse file \[.*\]\.\ntarn: Failed to decompress LZ4 "
                                            r"block: Incorrect decompression result or length \(result: '-?\d+', "
                                            rf"expected length: '{len(self.good())}'\)\.\n\Z")
            self.assertTrue(blob.exists())

    def test_a_file_that_is_shorter_than_a_header(self):
        for size in (1, 5, 11):
            self.assert_damaged(write(self.dir / "blobfs0", bytes(size)),
                                "cannot create std::vector larger than max_size()")

    def test_a_file_that_is_too_large(self):
        blob = write(self.dir / "blobfs0")
        os.truncate(blob, (2 << 30) + 1)
        result = self.fails(1, "blob", "apply", blob)
        self.assertEqual(result.errors, f"tarn: Failed to parse file [{blob}].\ntarn: File too big! [2147483649].\n")
        self.assertEqual(blob.stat().st_size, (2 << 30) + 1)

    def test_a_payload_without_a_command(self):
        for payload in (b"", b"\0" * 9):
            self.assert_damaged(self.blob(payload),
                                f"Blob payload of [{len(payload)}] bytes is shorter than a command.")

    def test_commands_that_end_outside_of_the_payload(self):
        good = self.good()
        offset = len(good)
        rest = command(1, b"/x", b"\0")
        for bad, text in (
                (command(1, b"/x", b"\0", total=0), "has length [0], less than its header."),
                (command(1, b"/x", b"\0", total=9), "has length [9], less than its header."),
                (command(1, b"/x", b"\0", total=11), "has length [11], too short for its path of [2] bytes."),
                (command(1, b"/x", b"\0", path_length=65535),
                 "has length [13], too short for its path of [65535] bytes."),
                (command(1, b"/x", b"\0", total=14), "has length [14], only [13] bytes are left."),
                (command(1, b"/x", b"\0", total=0xFFFFFFFF), "has length [4294967295], only [13] bytes are left.")):
            with self.subTest(text=text):
                self.assert_damaged(self.blob(good, bad), f"Blob command at offset [{offset}] {text}")
        for left in range(1, 10):
            self.assert_damaged(self.blob(good, rest[:left]),
                                f"Blob payload ends within the header of the command at offset [{offset}].")

    def test_a_file_that_is_not_there_or_no_file(self):
        result = self.fails(1, "blob", "apply", self.dir / "missing")
        self.assertEqual(result.errors,
                         f"tarn: Failed to parse file [{self.dir}/missing].\n"
                         f"tarn: Failed to get size of file [{self.dir}/missing]: No such file or directory\n")
        self.assertEqual(self.fails(1, "blob", "apply", self.target).errors,
                         f"tarn: There is no blob file in [{self.target}].\n")

    def test_what_is_no_regular_file_is_refused_and_stays(self):
        pipe = self.dir / "pipe"
        os.mkfifo(pipe)
        self.assertEqual(self.fails(1, "blob", "apply", pipe).errors,
                         f"tarn: Failed to parse file [{pipe}].\ntarn: Blob file is not a regular file.\n")
        self.assertEqual(self.fails(1, "blob", "show", pipe).errors, f"tarn: [{pipe}] is not a regular file.\n")
        self.assertTrue(pipe.exists())

    def test_what_follows_a_damaged_file_is_left_alone(self):
        first = self.blob(create_dir(self.at("a")), name="first")
        second = self.blob(create_dir(self.at("b")), b"rest", name="second")
        third = self.blob(create_dir(self.at("c")), name="third")
        result = self.fails(3, "blob", "apply", first, second, third)
        self.assertEqual(result.text, "1 blob files applied, 2 left; 0 failures\n")
        self.assertEqual(names(self.target), ["a"])
        self.assertEqual((first.exists(), second.exists(), third.exists()), (False, True, True))


class Failing(Blobs):
    """Commands that fail: each is named and counted, the rest goes on, the blob file goes."""

    def assert_fails(self, blob, *failed, made=()):
        """`failed`: pairs of a path and what is said of it."""
        result = self.fails(3, "blob", "apply", blob)
        lines = [f"failed {os.fsdecode(path)}: {text}" for path, text in failed]
        lines += [f"Failed to parse file [{blob}].", f"{len(failed)} fails found ."]
        self.assertEqual(result.errors.splitlines(), [f"tarn: {line}" for line in lines])
        self.assertEqual(result.text, f"1 blob files applied, 0 left; {len(failed)} failures\n")
        self.assertEqual(names(self.target), sorted(made))
        self.assertFalse(blob.exists())

    def test_a_first_command_without_a_path_ends_its_run_only(self):
        self.assert_fails(self.blob(command(1, b"", b"\0"), command(2, b"", b"\0"), create_dir(self.at("d"))),
                          (b"", "Cannot create file without name."), made=["d"])

    def test_an_unknown_command_ends_its_run_only(self):
        for number in (5, 0, 0xFFFFFFFF):
            self.assert_fails(self.blob(create_file(self.at("f"), 1), command(number, b"", b""),
                                        write_file(b"", 0, b"not written"), create_dir(self.at("d"))),
                              (self.at("f"), f"Invalid command type = {number}."), made=["d", "f"])
            self.assertEqual((self.target / "f").read_bytes(), b"")

    def test_bodies_that_are_too_short_end_their_run_only(self):
        for kind, body in ((1, b""), (2, b""), (3, b"\0" * 11), (4, b"\0" * 3)):
            first = create_dir(self.at("d"))
            self.assert_fails(self.blob(first, command(kind, self.at("x"), body), command(5, b"", b"")),
                              (self.at("x"), f"Blob command of type [{kind}] with a body of [{len(body)}] bytes is too "
                                             "short."), made=["d"])

    def test_bodies_that_announce_more_than_they_have_end_their_run_only(self):
        first = create_file(self.at("f"), 1)
        for bad, kind, announced, there in ((write_file(b"", 0, b"abc", length=4), 3, 4, 3),
                                            (write_file(b"", 0, b"", length=0xFFFFFFFF), 3, 0xFFFFFFFF, 0),
                                            (set_metadata(b"", b"ab", length=3), 4, 3, 2)):
            self.assert_fails(self.blob(first, bad, write_file(b"", 0, b"not written")),
                              (self.at("f"), f"Blob command of type [{kind}] announces [{announced}] bytes, "
                                             f"only [{there}] follow."), made=["f"])
            self.assertEqual((self.target / "f").read_bytes(), b"")

    def test_attributes_that_make_no_sense_fail_alone(self):
        good = blob_format.file_info(blob_format.REGULAR, mode=0o600)
        for info, text in ((b"", "Failed to retrieve value from the binary stream: received less bytes (0) than "
                                 "expected (4)."),
                           (b"tFI2" + good[4:], "Invalid file info: unknown version."),
                           (good[:4] + b"\x08" + good[5:], "Invalid file info: unknown file type."),
                           (good[:-1], "Failed to retrieve value from the binary stream: received less bytes (3) than "
                                       "expected (4).")):
            with self.subTest(text=text):
                blob = self.blob(create_file(self.at("f")), set_metadata(b"", info), write_file(b"", 0, b"ab"))
                self.assert_fails(blob, (self.at("f"), text), made=["f"])
                self.assertEqual((self.target / "f").read_bytes(), b"ab")

    def test_paths_that_cannot_be_used_fail_each_command(self):
        missing, under_file, long = self.at("no/f"), self.at("file/f"), self.at("n" * 256)
        write(self.target / "file")
        for path, reason in ((missing, "No such file or directory"), (under_file, "Not a directory"),
                             (long, "File name too long")):
            shown = os.fsdecode(path)
            self.assert_fails(self.blob(create_dir(path), create_dir(self.at("d"))),
                              (path, f"Failed to create directory [{shown}]: {reason}") if path != long else
                              (path, f"Failed to examine [{shown}]: {reason}"), made=["d", "file"])

    def test_a_path_with_a_zero_byte_is_refused(self):
        self.assert_fails(self.blob(create_dir(self.at("a") + b"\0b"), create_dir(self.at("d"))),
                          (b"", "Path of a blob command contains a zero byte."), made=["d"])

    def test_a_file_in_a_missing_directory_fails_with_all_its_commands(self):
        path = self.at("no/f")
        shown = os.fsdecode(path)
        result = self.fails(3, "blob", "apply", self.blob(create_file(path), write_file(b"", 0, b"a")))
        self.assertEqual(result.errors.splitlines()[:2], [
            f"tarn: failed {shown}: Failed to create file [{shown}]: No such file or directory",
            f"tarn: failed {shown}: Failed to open file [{shown}] for writing: No such file or directory"])
        self.assertEqual(names(self.target), [])

    def test_a_directory_that_is_not_empty_is_not_made_anew(self):
        write(self.target / "d/x", b"kept")
        path = self.at("d")
        self.assert_fails(self.blob(create_dir(path, 1)),
                          (path, f"Failed to delete file [{os.fsdecode(path)}]: Directory not empty"),
                          made=["d", "d/x"])

    def test_a_link_in_a_files_place_is_not_written_through(self):
        other = write(self.dir / "other", b"theirs")
        os.symlink(other, self.target / "l")
        path, before = self.at("l"), harness.describe(other)
        refusal = f"Failed to open file [{self.target}/l] for writing: Too many levels of symbolic links"
        self.assert_fails(self.blob(create_file(path), write_file(b"", 0, b"ours")), (path, refusal), (path, refusal),
                          made=["l"])
        self.succeeds("blob", "apply", self.blob(create_file(path, 1), write_file(b"", 0, b"ours")))
        self.assertEqual((os.path.islink(self.target / "l"), (self.target / "l").read_bytes()), (False, b"ours"))
        self.assertEqual(harness.describe(other), before)

    def test_control_bytes_of_a_path_reach_no_line(self):
        path = self.at("no") + b"/\x1b[2J\n\xff"
        result = self.fails(3, "blob", "apply", self.blob(create_dir(path)))
        self.assertNotIn(b"\x1b", result.err)
        self.assertNotIn(b"\xff", result.err)
        self.assertTrue(result.errors.startswith(f"tarn: failed {self.target}/no/\\x1b[2J\\n\\xff: "), result)

    def test_the_blob_files_behind_it_are_applied(self):
        first = self.blob(create_dir(self.at("no/d")), name="first")
        second = self.blob(create_dir(self.at("d")), name="second")
        result = self.fails(3, "blob", "apply", first, second)
        self.assertEqual(result.text, "2 blob files applied, 0 left; 1 failures\n")
        self.assertEqual(names(self.target), ["d"])


def example_of_the_documents():
    """The blob file of docs/formats.md."""
    text = (Path(os.environ["TARN_SOURCES"]) / "docs/formats.md").read_text(encoding="utf-8")
    block = text.partition("\n## Blob file\n")[2].partition("```hex\n")[2].partition("```")[0]
    return bytes.fromhex("".join(line.split(";")[0] for line in block.splitlines()))


class Show(Blobs):
    def test_the_example_of_the_documents_as_a_table(self):
        blob = write(self.dir / "example", example_of_the_documents())
        result = self.succeeds("blob", "show", blob)
        self.assertEqual(result.text, f"""\
{blob}: 173 bytes, 159 unpacked, magic f800000f, checksum f24e7a97 (good)
create directory  /d
create file       /d/f
write file        /d/f: 3 bytes at 0
set metadata      /d/f: file 0644 1000 50 3 1970-01-01T00:00:01.000000002Z
4 commands: 1 directories, 1 files, 1 writes of 3 bytes, 1 metadata
""")
        self.assertEqual(result.errors, "")
        self.assertEqual(blob.read_bytes(), example_of_the_documents())

    def test_the_example_of_the_documents_as_json(self):
        blob = write(self.dir / "example", example_of_the_documents())
        self.assertEqual(json.loads(self.succeeds("blob", "show", "--json", blob).text), {
            "file": str(blob),
            "size": 173,
            "header": {"magic": "f800000f", "checksum": "f24e7a97", "verdict": "good", "length": 159},
            "commands": [
                {"at": 0, "length": 13, "type": "create directory", "path": "/d", "inherited": False,
                 "overwrite": False},
                {"at": 13, "length": 15, "type": "create file", "path": "/d/f", "inherited": False,
                 "overwrite": False},
                {"at": 28, "length": 25, "type": "write file", "path": "/d/f", "inherited": True,
                 "offset": 0, "bytes": 3},
                {"at": 53, "length": 106, "type": "set metadata", "path": "/d/f", "inherited": True, "info": {
                    "type": "file", "size": 3, "mode": "0644", "owner": {"name": "", "id": 1000},
                    "group": {"name": "", "id": 50}, "modified": "1970-01-01T00:00:01.000000002Z"}}],
            "totals": {"commands": 4, "directories": 1, "files": 1, "writes": 1, "bytes": 3, "metadata": 1},
            "error": None})

    def show(self, blob, status):
        """The table's lines without its first, what is said of errors, and the JSON."""
        table, document = harness.tarn("blob", "show", blob), harness.tarn("blob", "show", "--json", blob)
        self.assertEqual((table.status, document.status), (status, status), (table, document))
        self.assertEqual(table.errors, document.errors)
        return table.text.splitlines()[1:], table.errors, json.loads(document.text)

    def test_what_was_readable_of_a_damaged_file_comes_before_the_error(self):
        blob = self.blob(create_dir(b"/d"), b"\0\0\0")
        lines, errors, document = self.show(blob, 1)
        text = "Blob payload ends within the header of the command at offset [13]."
        self.assertEqual(lines, ["create directory  /d", "1 commands: 1 directories, 0 files, 0 writes of 0 bytes, "
                                                         "0 metadata"])
        self.assertEqual(errors, f"tarn: {text}\n")
        self.assertEqual((document["error"], len(document["commands"])), (text, 1))

    def test_a_wrong_checksum_is_told_and_the_commands_are_shown(self):
        blob = self.blob(create_file(b"/f", 1), checksum=1)
        lines, errors, document = self.show(blob, 1)
        self.assertEqual(lines[0], "create file       /f, made anew")
        self.assertEqual(errors, f"tarn: Failed to read blob file [{blob}].\n"
                                 "tarn: Failed to decompress LZ4 block: Bad crc (original crc: 00000001, current crc: "
                                 f"{blob_format.crc32c(create_file(b'/f', 1)):x}).\n")
        self.assertEqual(document["header"]["verdict"], "wrong")

    def test_a_checksum_that_is_not_there_is_told(self):
        document = self.show(self.blob(create_file(b"/f"), magic=0xF000000F), 0)[2]
        self.assertEqual(document["header"]["verdict"], "absent")

    def test_a_file_that_cannot_be_unpacked_is_its_header(self):
        blob = self.blob(create_file(b"/f"), length=14)
        lines, errors, document = self.show(blob, 1)
        self.assertEqual(lines, ["0 commands: 0 directories, 0 files, 0 writes of 0 bytes, 0 metadata"])
        self.assertIn("(result: '13', expected length: '14')", errors)
        self.assertEqual((document["header"]["verdict"], document["header"]["length"], document["commands"]),
                         ("unknown", 14, []))

    def test_a_file_without_a_byte_is_shown_as_such(self):
        blob = write(self.dir / "blobfs0")
        self.assertEqual(self.show(blob, 0)[2]["header"], None)
        self.assertEqual(harness.tarn("blob", "show", blob).text.splitlines()[0], f"{blob}: 0 bytes")

    def test_commands_that_could_not_be_applied_are_shown_with_the_reason(self):
        blob = self.blob(command(1, b"", b"\0"), command(5, b"/x", b""), write_file(b"", 0, b"", length=1),
                         create_dir(b"/d"))
        lines, errors, document = self.show(blob, 1)
        self.assertEqual(lines, ["create directory  (no path) (Cannot create file without name.)",
                                 "command 5         /x (Invalid command type = 5.)",
                                 "write file        /x (Blob command of type [3] announces [1] bytes, only [0] "
                                 "follow.)",
                                 "create directory  /d",
                                 "4 commands: 1 directories, 0 files, 0 writes of 0 bytes, 0 metadata"])
        self.assertEqual(errors, "tarn: 3 commands cannot be applied.\n")
        self.assertEqual([step.get("error") for step in document["commands"]],
                         ["Cannot create file without name.", "Invalid command type = 5.",
                          "Blob command of type [3] announces [1] bytes, only [0] follow.", None])

    def test_control_bytes_are_escaped(self):
        path = b"/\x1b[2J\n\xff\\"
        info = blob_format.file_info(blob_format.REGULAR, owner=(b"\x1bo", 1), group=(b"\xc2\x9b", 2))
        blob = self.blob(create_file(path), set_metadata(b"", info))
        lines, _, document = self.show(blob, 0)
        self.assertEqual(lines[0], "create file       /\\x1b[2J\\n\\xff\\\\")
        self.assertIn(" \\x1bo \\xc2\\x9b ", lines[1])
        self.assertEqual(document["commands"][0]["path"], "/\\x1b[2J\\n\\xff\\\\")
        self.assertEqual(document["commands"][1]["info"]["owner"]["name"], "\\x1bo")

    def test_a_file_that_is_not_there_is_named(self):
        self.assertEqual(self.fails(1, "blob", "show", self.dir / "missing").errors,
                         f"tarn: Failed to open file [{self.dir}/missing] for reading: No such file or directory\n")


class Pack(Blobs):
    def setUp(self):
        super().setUp()
        self.source = self.dir / "source"
        self.out = self.dir / "out"

    def tree(self):
        """One of everything that a blob file can hold."""
        harness.make_tree(self.source)
        os.unlink(self.source / "link")
        os.unlink(self.source / "deep/dangling")
        write(self.source / "odd/\udcff\n name", b"odd")
        return self.source

    def payloads(self):
        return [blob_format.payload_of((self.out / name).read_bytes()) for name in sorted(os.listdir(self.out))]

    def pack(self, *sources, target="/t", options=(), status=0, **how):
        arguments = ["blob", "pack", *sources, "--out", self.out, "--target", target, *options]
        return self.succeeds(*arguments, **how) if status == 0 else self.fails(status, *arguments, **how)

    def assert_holds(self, made, top, target):
        """What the commands make is the tree at `top`, below `target`."""
        expected = listing(top)
        below = {path[len(target):].lstrip(b"/"): one for path, one in made.items() if path.startswith(target + b"/") or
                 path == target}
        self.assertEqual(sorted(below), sorted(expected))
        for name, seen in expected.items():
            info = below[name].info
            kind = blob_format.kind_of(seen["type"])
            self.assertEqual((info.kind, info.mode, info.owner, info.group, info.modified),
                             (kind, seen["mode"], seen["uid"], seen["gid"], seen["mtime"]), name)
            if kind == blob_format.REGULAR:
                self.assertEqual(bytes(below[name].content), (Path(os.fsdecode(top)) / os.fsdecode(name)).read_bytes())
                self.assertEqual(info.size, len(below[name].content))

    def test_a_tree_is_in_its_blob_files_with_everything(self):
        result = self.pack(self.tree(), target="/some/place")
        files = sum(1 for one in listing(self.source).values() if "content" in one)
        directories = len(listing(self.source)) - files
        self.assertRegex(result.text, rf"\A{self.out}/blobfs0\n{files} files, {directories} directories, "
                                      r"\d+ bytes in 1 blob files; 0 skipped, 0 warnings, 0 failed\n\Z")
        self.assertEqual(result.errors, "")
        made = blob_format.replay(self.payloads())
        self.assertIn(b"/some/place", made)
        self.assert_holds(made, self.source, b"/some/place/source")

    def test_what_is_packed_is_the_same_when_it_was_applied(self):
        self.pack(self.tree(), target=self.target)
        self.succeeds("blob", "apply", self.out)
        self.assert_same_tree(self.source, self.target / "source")
        self.assertEqual(names(self.out), [])

    def test_the_commands_of_a_small_tree_are_these(self):
        write(self.source / "b/f", b"abc")
        write(self.source / "a", b"")
        self.pack(self.source)
        found = [step for payload in self.payloads() for step in blob_format.commands(payload)]
        self.assertEqual([(step.kind, step.path, step.carries_path) for step in found], [
            (1, b"/t", True), (1, b"/t/source", True), (2, b"/t/source/a", True), (4, b"/t/source/a", False),
            (1, b"/t/source/b", True), (2, b"/t/source/b/f", True), (3, b"/t/source/b/f", False),
            (4, b"/t/source/b/f", False), (4, b"/t/source/b", True), (4, b"/t/source", True)])
        self.assertEqual({step.body for step in found if step.kind in (1, 2)}, {b"\0"})
        self.assertEqual(blob_format.write_of(found[6].body), (0, b"abc"))

    def test_overwriting_is_for_files_only(self):
        write(self.source / "f", b"abc")
        self.pack(self.source, options=["--overwrite"])
        found = [step for payload in self.payloads() for step in blob_format.commands(payload)]
        self.assertEqual([(step.kind, step.body) for step in found if step.kind in (1, 2)],
                         [(1, b"\0"), (1, b"\0"), (2, b"\1")])

    def test_several_sources_go_below_the_target_by_their_names(self):
        for name in ("one", "two"):
            write(self.dir / name / "f", name.encode())
        self.pack(self.dir / "one", self.dir / "two/", target="t")
        made = blob_format.replay(self.payloads())
        self.assertEqual(sorted(made), [b"t", b"t/one", b"t/one/f", b"t/two", b"t/two/f"])
        self.assertEqual(bytes(made[b"t/two/f"].content), b"two")

    def test_holes_are_not_in_the_commands(self):
        (self.source).mkdir()
        with open(self.source / "hole", "wb") as file:
            file.truncate(8 << 20)
            file.seek(4 << 20)
            file.write(b"x" * 4096)
        with open(self.source / "hole", "rb") as file:
            if os.lseek(file.fileno(), 0, os.SEEK_DATA) != 4 << 20:
                self.skipTest("this file system keeps no holes")
        self.pack(self.source)
        found = blob_format.commands(self.payloads()[0])
        writes = [blob_format.write_of(step.body) for step in found if step.kind == 3]
        self.assertEqual(writes, [(4 << 20, b"x" * 4096), ((8 << 20) - 1, b"\0")])

    def test_a_tree_of_a_restore_view_is_packed_across_its_mount_points(self):
        write(self.dir / "system/etc/hostname", b"backed-up\n", 0o640)
        (self.dir / "system/srv").mkdir()
        write(self.dir / "data/book", b"pages\n")
        self.pack("FlrFS:///", options=["--map", f"{self.dir}/system=/", "--map", f"{self.dir}/data=/srv"])
        made = blob_format.replay(self.payloads())
        self.assertEqual(sorted(made), [b"/t", b"/t/etc", b"/t/etc/hostname", b"/t/srv", b"/t/srv/book"])
        self.assertEqual(bytes(made[b"/t/srv/book"].content), b"pages\n")
        self.assertEqual(made[b"/t/etc/hostname"].info.mode, 0o640)

    def test_links_are_named_and_end_it_with_status_3(self):
        write(self.source / "f", b"abc")
        os.symlink("f", self.source / "l")
        result = self.pack(self.source, status=3)
        self.assertEqual(result.errors, f"tarn: failed {self.source}/l: A blob file cannot hold a link.\n")
        self.assertIn("1 files, 1 directories, 3 bytes in 1 blob files; 0 skipped, 0 warnings, 1 failed\n", result.text)
        self.assertNotIn(b"/t/source/l", blob_format.replay(self.payloads()))

    def test_special_files_are_named_and_are_no_failure(self):
        self.source.mkdir()
        os.mkfifo(self.source / "pipe")
        result = self.pack(self.source)
        self.assertEqual(result.errors, f"tarn: skipped {self.source}/pipe: FIFO\n")
        self.assertIn("; 1 skipped, 0 warnings, 0 failed\n", result.text)

    def test_what_cannot_be_read_is_named_and_the_rest_is_packed(self):
        write(self.source / "secret", b"s", 0o000)
        write(self.source / "open", b"o")
        result = self.pack(self.source, status=3, wrapper=harness.UNPRIVILEGED)
        self.assertEqual(result.errors, f"tarn: failed {self.source}/secret: Failed to open file "
                                        f"[{self.source}/secret]: Permission denied\n")
        self.assertEqual(sorted(blob_format.replay(self.payloads())), [b"/t", b"/t/source", b"/t/source/open"])

    def test_blob_files_that_are_there_are_left_alone(self):
        write(self.source / "f")
        write(self.out / "blobfs3", b"theirs")
        result = self.pack(self.source, status=1)
        self.assertEqual(result.errors,
                         f"tarn: [{self.out}/blobfs3] is there already: blob files go into a directory without any.\n")
        self.assertEqual((self.out / "blobfs3").read_bytes(), b"theirs")
        self.assertEqual(names(self.out), ["blobfs3"])

    def test_a_tree_is_not_packed_into_itself(self):
        write(self.source / "f")
        self.out = self.source / "out"
        result = self.pack(self.source, status=1)
        self.assertEqual(result.errors, f"tarn: [{self.source}] cannot be packed into itself, [{self.out}].\n")
        self.assertEqual(names(self.source), ["f"])

    def test_a_source_that_is_not_there_leaves_nothing(self):
        result = self.pack(self.dir / "missing", status=1)
        self.assertIn(f"[{self.dir}/missing]", result.errors)
        self.assertFalse(self.out.exists())

    def test_a_full_disk_ends_it_and_leaves_no_blob_file(self):
        write(self.source / "f", os.urandom(1 << 16))
        result = self.pack(self.source, status=1, wrapper=LITTLE_ROOM)
        self.assertIn("File too large", result.errors)
        self.assertEqual(names(self.out), [])

    def test_blob_files_are_for_their_owner_only(self):
        write(self.source / "f", b"s")
        self.pack(self.source)
        self.assertEqual(stat.S_IMODE(os.lstat(self.out / "blobfs0").st_mode), 0o600)

    def test_quiet_prints_failures_only(self):
        write(self.source / "f", b"abc")
        os.mkfifo(self.source / "pipe")
        os.symlink("f", self.source / "l")
        result = self.pack(self.source, options=["--quiet"], status=3)
        self.assertEqual(result.text, "")
        self.assertEqual(result.errors, f"tarn: failed {self.source}/l: A blob file cannot hold a link.\n")


if __name__ == "__main__":
    harness.main()
