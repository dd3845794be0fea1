"""`tarn path`: every form of a path, taken apart."""
import json

import harness
from harness import CommandTest


class Path(CommandTest):
    def path(self, text):
        return json.loads(self.succeeds("path", "--json", text).out)

    def test_each_form_reaches_its_backend(self):
        for text, backend in (("/etc/hostname", "host"), ("relative/name", "host"), ("", "host"),
                              ("MemFs://scratch", "memory"), ("mEmFS://scratch", "memory"),
                              ("FlrFS:///etc/hostname", "restore view"), ("flrfs:///etc/hostname", "host"),
                              ("tarn://127.0.0.1:7070/host1", "agent")):
            with self.subTest(text=text):
                self.assertEqual(self.path(text)["backend"], backend)

    def test_fields_of_an_agents_path(self):
        found = self.path("tarn://[::1]:7070/host1/etc/")
        self.assertIn("host1/etc", found.values())

    def test_fields_of_a_memory_path(self):
        self.assertIn("a/b c", self.path("MemFs://a/b c").values())

    def test_plain_lines_say_the_same(self):
        self.assertIn("backend: memory", self.succeeds("path", "MemFs://x").text.splitlines())

    def test_nothing_is_touched(self):
        self.succeeds("path", self.dir / "not there")
        self.assertEqual(harness.names(self.dir), [])

    def test_a_malformed_location_is_an_error(self):
        self.assertIn("tarn://HOST:PORT/PATH", self.fails(1, "path", "tarn://nowhere").errors)

    def test_control_bytes_and_bytes_that_are_not_utf_8_are_escaped(self):
        found = self.path(b"MemFs://tab\tescape\x1b[31m\xff\\end\n")
        self.assertIn("tab\\x09escape\\x1b[31m\\xff\\\\end\\n", found.values())

    def test_quotes_survive_json(self):
        self.assertIn("say \"hi\" and 'bye'", self.path("MemFs://say \"hi\" and 'bye'").values())

    def test_letters_beyond_ascii_stay_as_they_are(self):
        self.assertIn("größe 文件 😀", self.path("MemFs://größe 文件 😀").values())


if __name__ == "__main__":
    harness.main()
