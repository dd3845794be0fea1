"""Wrong usage, help and the version."""
import harness
from harness import CommandTest

VERBS = ("serve", "cp", "verify", "cat", "stat", "exists", "rm", "mkdir", "mv", "ln", "path", "blob")
BLOB_VERBS = ("pack", "show", "apply")


class Usage(CommandTest):
    def assert_wrong_usage(self, *arguments):
        result = self.fails(2, *arguments)
        self.assertEqual(result.out, b"")
        self.assertIn("--help", result.errors)

    def test_no_verb_is_wrong_usage(self):
        self.assert_wrong_usage()

    def test_unknown_verb_is_wrong_usage(self):
        self.assert_wrong_usage("send")
        self.assertIn("'send' is no verb of tarn", self.fails(2, "send", "a").errors)

    def test_unknown_option_is_wrong_usage(self):
        for verb in VERBS:
            with self.subTest(verb=verb):
                self.assert_wrong_usage(verb, "--no-such-option", "a", "b")

    def test_missing_arguments_are_wrong_usage(self):
        for verb in VERBS:
            with self.subTest(verb=verb):
                self.assert_wrong_usage(verb)

    def test_one_path_too_many_is_wrong_usage(self):
        for verb in ("cat", "stat", "rm", "mkdir", "path"):
            with self.subTest(verb=verb):
                self.assert_wrong_usage(verb, "a", "b")

    def test_blob_verbs_need_their_arguments_and_no_others(self):
        for verb in BLOB_VERBS:
            with self.subTest(verb=verb):
                self.assert_wrong_usage("blob", verb)
                self.assert_wrong_usage("blob", verb, "--no-such-option", "a", "--out", "b", "--target", "c")
        self.assert_wrong_usage("blob", "show", "a", "b")
        self.assert_wrong_usage("blob", "pack", "a", "--out", "b")
        self.assert_wrong_usage("blob", "pack", "a", "--target", "b")
        self.assert_wrong_usage("blob", "pack", "--out", "a", "--target", "b")
        self.assertIn("'send' is no verb of tarn blob", self.fails(2, "blob", "send", "a").errors)

    def test_cp_needs_a_source_and_a_destination(self):
        self.assert_wrong_usage("cp", "only")

    def test_values_out_of_range_are_wrong_usage(self):
        self.assert_wrong_usage("cp", "--compress", "rar", "a", "b")
        self.assert_wrong_usage("cp", "--block-size", "1", "a", "b")
        self.assert_wrong_usage("cp", "--block-size", "17000000", "a", "b")
        self.assert_wrong_usage("cp", "--batch-limit", "0", "a", "b")
        self.assert_wrong_usage("cp", "--batch-limit", "4194305", "a", "b")
        self.assert_wrong_usage("cp", "--batch-limit", "4096", "--no-batch", "a", "b")
        self.assert_wrong_usage("stat", "--log-level", "loud", "a")
        self.assert_wrong_usage("serve", "--listen", "127.0.0.1:0", "--root", self.dir, "--max-sessions", "0")

    def test_a_map_without_equals_is_wrong_usage(self):
        self.assert_wrong_usage("cat", "--map", "/here", "FlrFS:///x")
        self.assert_wrong_usage("cat", "--map", "=/mnt", "FlrFS:///x")

    def test_plain_text_must_be_asked_for(self):
        url = "tarn://127.0.0.1:1/x"
        source = harness.write(self.dir / "a")
        for arguments in (("serve", "--listen", "127.0.0.1:0", "--root", self.dir), ("cp", source, url),
                          ("exists", url), ("ln", "target", url), ("stat", url), ("rm", url), ("mkdir", url),
                          ("mv", url, url + "2")):
            with self.subTest(verb=arguments[0]):
                self.assertIn("--plaintext", self.fails(2, *arguments).errors)


class Help(CommandTest):
    def test_version_is_one_line(self):
        result = self.succeeds("--version")
        self.assertRegex(result.text, r"\Atarn \d+\.\d+\.\d+\n\Z")

    def test_help_names_every_verb_and_the_exit_status(self):
        text = self.succeeds("--help").text
        for verb in VERBS:
            self.assertRegex(text, rf"(?m)^\s+{verb}\s")
        self.assertIn("Exit status", text)
        self.assertIn("130", text)

    def test_every_verb_has_help_with_an_example(self):
        for verb in VERBS:
            with self.subTest(verb=verb):
                text = self.succeeds(verb, "--help").text
                self.assertRegex(text, rf"Example:\n\s+tarn {verb} ")

    def test_every_blob_verb_has_help_with_an_example(self):
        text = self.succeeds("blob", "--help").text
        for verb in BLOB_VERBS:
            with self.subTest(verb=verb):
                self.assertRegex(text, rf"(?m)^\s+{verb}\s")
                self.assertRegex(self.succeeds("blob", verb, "--help").text, rf"Example:\n\s+tarn blob {verb} ")

    def test_help_says_what_applying_a_blob_file_means(self):
        text = self.succeeds("blob", "apply", "--help").text
        self.assertIn("Only apply what you would run as a program.", text)
        self.assertIn("A blob file is removed when it has been applied", text)

    def test_no_line_of_help_is_wider_than_a_terminal_of_120_columns(self):
        for arguments in ((), *((verb,) for verb in VERBS), *(("blob", verb) for verb in BLOB_VERBS)):
            for line in self.succeeds(*arguments, "--help").text.splitlines():
                self.assertLessEqual(len(line), 120, line)


if __name__ == "__main__":
    harness.main()
