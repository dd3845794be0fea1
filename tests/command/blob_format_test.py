"""blob_format.py itself, against bytes that are written out here."""
import unittest

import blob_format
from blob_format import Fault, command, commands, create_dir, create_file, set_metadata, write_file


class Checksum(unittest.TestCase):
    def test_it_is_the_castagnoli_one(self):
        self.assertEqual(blob_format.crc32c(b"123456789"), 0xE3069283)
        self.assertEqual(blob_format.crc32c(b""), 0)
        self.assertEqual(blob_format.crc32c(bytes(32)), 0x8A9136AA)


class Blocks(unittest.TestCase):
    def test_literals_have_their_length_in_the_token_and_behind_it(self):
        self.assertEqual(blob_format.literal_block(b""), b"\x00")
        self.assertEqual(blob_format.literal_block(b"abc"), b"\x30abc")
        self.assertEqual(blob_format.literal_block(b"a" * 14), b"\xe0" + b"a" * 14)
        self.assertEqual(blob_format.literal_block(b"a" * 15), b"\xf0\x00" + b"a" * 15)
        self.assertEqual(blob_format.literal_block(b"a" * 269), b"\xf0\xfe" + b"a" * 269)
        self.assertEqual(blob_format.literal_block(b"a" * 270), b"\xf0\xff\x00" + b"a" * 270)

    def test_literals_come_back(self):
        for length in (0, 1, 14, 15, 16, 269, 270, 271, 1000):
            data = bytes(number % 251 for number in range(length))
            self.assertEqual(blob_format.unpack_block(blob_format.literal_block(data)), data)

    def test_matches_repeat_what_is_there(self):
        self.assertEqual(blob_format.unpack_block(b"\x42abcd\x04\x00\x50vwxyz"), b"abcdabcdabvwxyz")

    def test_matches_may_overlap_what_they_make(self):
        self.assertEqual(blob_format.unpack_block(b"\x1aa\x01\x00\x50vwxyz"), b"a" * 15 + b"vwxyz")
        self.assertEqual(blob_format.unpack_block(b"\x31abc\x03\x00\x10z"), b"abcabcabz")

    def test_long_matches_have_their_length_behind_the_offset(self):
        self.assertEqual(blob_format.unpack_block(b"\x1fa\x01\x00\x00\x10z"), b"a" * 20 + b"z")
        self.assertEqual(blob_format.unpack_block(b"\x1fa\x01\x00\xff\x01\x10z"), b"a" * 276 + b"z")

    def test_two_sequences_and_a_match_without_literals(self):
        self.assertEqual(blob_format.unpack_block(b"\x40abcd\x04\x00\x00\x08\x00\x10z"), b"abcd" * 3 + b"z")

    def test_what_is_no_block_is_a_fault(self):
        for data in (b"", b"\x30ab", b"\xf0", b"\xf0\xff", b"\x10a\x01", b"\x10a\x01\x00", b"\x10a\x00\x00\x10z",
                     b"\x10a\x02\x00\x10z", b"\x11a", b"\x1fa\x01\x00\xff"):
            with self.subTest(data=data), self.assertRaises(Fault):
                blob_format.unpack_block(data)


class Frames(unittest.TestCase):
    GOLDEN = b"\x0f\x00\x00\xf8" b"\x83\x92\x06\xe3" b"\x09\x00\x00\x00" b"\x90123456789"

    def test_a_frame_has_magic_checksum_length_and_a_block(self):
        self.assertEqual(blob_format.frame(b"123456789"), self.GOLDEN)
        self.assertEqual(blob_format.frame(b""), b"\x0f\x00\x00\xf8" + bytes(8) + b"\x00")
        self.assertEqual(blob_format.payload_of(self.GOLDEN), b"123456789")

    def test_a_part_of_it_may_be_wrong_on_purpose(self):
        self.assertEqual(blob_format.frame(b"ab", magic=1, checksum=2, length=3, block=b"x"),
                         b"\x01\0\0\0\x02\0\0\0\x03\0\0\0x")

    def test_every_change_of_a_byte_is_a_fault(self):
        for position in range(len(self.GOLDEN)):
            changed = bytearray(self.GOLDEN)
            changed[position] ^= 0x41
            with self.subTest(position=position), self.assertRaises(Fault):
                blob_format.payload_of(bytes(changed))


class Commands(unittest.TestCase):
    INFO = (b"tFI1" b"\x01\0\0\0" b"\x03\0\0\0\0\0\0\0" b"\x01\0\0\0u" b"\x07\0\0\0" b"\x01\0\0\0g" b"\x08\0\0\0"
            b"\xa4\x01\0\0" b"\x01\0\0\0\0\0\0\0\x02\0\0\0" b"\xff\xff\xff\xff\xff\xff\xff\xff\x04\0\0\0"
            b"\0\0\0\0\0\0\0\0\0\0\0\0" b"\0\0\0\0" b"\0\0\0\0" b"\0\0\0\0" b"\0\0\0\0"
            b"\x01\0\0\0" b"\x06\0\0\0user.a" b"\x01\0\0\0v")

    def test_each_command_is_its_bytes(self):
        self.assertEqual(create_dir(b"/d"), b"\x0d\0\0\0" b"\x01\0\0\0" b"\x02\0" b"/d" b"\0")
        self.assertEqual(create_file(b"/f", 1), b"\x0d\0\0\0" b"\x02\0\0\0" b"\x02\0" b"/f" b"\x01")
        self.assertEqual(write_file(b"", 5, b"abc"),
                         b"\x19\0\0\0" b"\x03\0\0\0" b"\0\0" b"\x05\0\0\0\0\0\0\0" b"\x03\0\0\0" b"abc")
        self.assertEqual(set_metadata(b"", b"xy"),
                         b"\x10\0\0\0" b"\x04\0\0\0" b"\0\0" b"\x02\0\0\0" b"xy")
        self.assertEqual(command(5, b"p", b"b", total=9, path_length=8), b"\x09\0\0\0\x05\0\0\0\x08\0pb")

    def test_a_file_info_is_its_bytes_and_comes_back(self):
        info = blob_format.file_info(blob_format.REGULAR, 3, (b"u", 7), (b"g", 8), 0o644, ((1, 2), (-1, 4), (0, 0)),
                                     [(b"user.a", b"v")])
        self.assertEqual(info, self.INFO)
        read = blob_format.info_of(b"\x6d\0\0\0" + info)
        self.assertEqual(len(info), 0x6D)
        self.assertEqual(read, blob_format.Info(1, 3, 7, 8, 0o644, -999_999_996, {b"user.a": b"v"}))
        for broken in (info, b"\x6c\0\0\0" + info, b"\x6d\0\0\0" + info[:-1], b"\x6d\0\0\0X" + info[1:]):
            with self.assertRaises(Fault):
                blob_format.info_of(broken)

    def test_commands_are_walked_with_the_paths_they_keep(self):
        payload = create_file(b"/f") + write_file(b"", 0, b"a") + create_dir(b"/d")
        self.assertEqual([(step.kind, step.path, step.carries_path) for step in commands(payload)],
                         [(2, b"/f", True), (3, b"/f", False), (1, b"/d", True)])
        for broken in (payload[:-1], payload + b"\0", command(1, b"", b"\0", total=0),
                       command(1, b"", b"\0", total=10, path_length=1)):
            with self.assertRaises(Fault):
                commands(broken)

    def test_replaying_makes_what_the_commands_say(self):
        first = create_dir(b"/d") + create_file(b"/d/f") + write_file(b"", 3, b"abc")
        second = write_file(b"/d/f", 0, b"xy") + set_metadata(b"", self.INFO)
        made = blob_format.replay([first, second])
        self.assertEqual(set(made), {b"/d", b"/d/f"})
        self.assertEqual(bytes(made[b"/d/f"].content), b"xy\0abc")
        self.assertEqual(made[b"/d/f"].info.mode, 0o644)
        self.assertIsNone(made[b"/d"].info)
        for broken in ([first, first], [second], [create_dir(b"/d") + write_file(b"", 0, b"a")]):
            with self.assertRaises(Fault):
                blob_format.replay(broken)


if __name__ == "__main__":
    unittest.main()
