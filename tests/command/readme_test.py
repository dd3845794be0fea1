"""What README.md shows is what there is."""
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCES = Path(os.environ["TARN_SOURCES"])
BIN = Path(os.environ["BIN"])
LIMIT = 180  # seconds, for what takes one
README = (SOURCES / "README.md").read_text(encoding="utf-8")


class Readme(unittest.TestCase):
    def test_its_program_is_the_example_and_does_what_it_says(self):
        self.assertIn(f"```cpp\n{(SOURCES / 'examples/hello.cpp').read_text(encoding='utf-8')}```\n", README)
        done = subprocess.run([BIN / "hello"], capture_output=True, timeout=LIMIT, check=True)
        self.assertEqual((done.stdout, done.stderr), (b"hello\n", b""))

    def test_every_path_it_names_exists(self):
        for path in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", README):
            self.assertTrue((SOURCES / path).exists(), path)

    def test_every_verb_it_shows_is_one(self):
        shown = set(re.findall(r"(?m)^    (?:\$ )?tarn (\w+)", README))
        done = subprocess.run([BIN / "tarn", "--help"], capture_output=True, text=True, timeout=LIMIT, check=True)
        known = set(re.findall(r"(?m)^  (\w+) ", done.stdout.partition("Subcommands:")[2].partition("Examples:")[0]))
        self.assertEqual(shown, known)


class MemoryAndView(unittest.TestCase):
    def run_example(self, original, copy, scratch):
        return subprocess.run([BIN / "memory_and_view", original, copy, scratch], capture_output=True, text=True,
                              timeout=LIMIT, check=False)

    def test_it_finds_the_copy_the_same_and_a_change_different(self):
        with tempfile.TemporaryDirectory(prefix="tarn-example.") as top:
            for tree in ("original", "copy"):
                (Path(top) / tree / "deep").mkdir(parents=True)
                (Path(top) / tree / "a").write_bytes(b"a" * 1_000_000)
                (Path(top) / tree / "deep/empty").write_bytes(b"")
            (Path(top) / "scratch").mkdir()
            places = [Path(top) / name for name in ("original", "copy", "scratch")]
            done = self.run_example(*places)
            self.assertEqual(done.returncode, 0, done)
            self.assertRegex(done.stdout, r"\Amemory slots\t2\t1000000\t[\d.]+\tsame\n"
                                          r"restore view\t2\t1000000\t[\d.]+\tsame\n\Z")
            (Path(top) / "copy/a").write_bytes(b"b" * 1_000_000)
            done = self.run_example(*places)
            self.assertEqual(done.returncode, 1, done)
            self.assertEqual(done.stdout.count("DIFFERS"), 2)


if __name__ == "__main__":
    unittest.main()
