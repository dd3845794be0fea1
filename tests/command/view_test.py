"""A restore view from the command line: backed-up volumes, their links and mount points, and nothing outside them."""
import os
import unittest

from harness import CommandTest, describe, tarn, write


class View(CommandTest):
    """"/" of a backed-up machine lies in volumes/system, its "/srv" in volumes/srv, its "/srv/data" in volumes/data."""

    def setUp(self):
        super().setUp()
        system, srv, data = (self.dir / "volumes" / name for name in ("system", "srv", "data"))
        write(system / "etc/hostname", b"backed-up\n", 0o644, 1_500_000_000_000_000_001)
        write(system / "etc/alternatives/editor", b"#!editor\n", 0o755)
        (system / "srv").mkdir()
        (srv / "data").mkdir(parents=True)
        write(srv / "motd", b"hello\n")
        write(data / "book", b"pages\n")
        write(self.dir / "outside/secret", b"secret\n")
        links = {
            system / "etc/absolute": "/etc/hostname",
            system / "etc/chain": "absolute",
            system / "etc/through": "/srv/data/book",
            system / "etc/dangling": "/no/such/file",
            system / "etc/loop": "loop",
            system / "bin": "etc/alternatives",
            srv / "up": "../../../../../../etc/hostname",
            data / "host": str(self.dir / "outside/secret"),
            data / "out": str(self.dir / "outside"),
            data / "climb": "../../../outside/secret",
        }
        for place, target in links.items():
            os.symlink(target, place)
        self.maps = [f"--map={system}=/", f"--map={srv}=/srv", f"--map={data}=/srv/data"]
        self.view = "FlrFS://"

    def test_a_tree_is_restored_across_its_mount_points_with_links_as_stored(self):
        self.succeeds("cp", "-r", *self.maps, f"{self.view}/", self.dir / "restored")
        restored = self.dir / "restored"
        self.assertEqual(describe(restored / "etc/hostname"), describe(self.dir / "volumes/system/etc/hostname"))
        self.assertEqual((restored / "srv/motd").read_bytes(), b"hello\n")
        self.assertEqual((restored / "srv/data/book").read_bytes(), b"pages\n")
        self.assertEqual(os.readlink(restored / "etc/absolute"), "/etc/hostname")
        self.assertEqual(os.readlink(restored / "srv/data/out"), str(self.dir / "outside"))
        self.assertEqual(os.readlink(restored / "etc/loop"), "loop")
        self.succeeds("verify", *self.maps, f"{self.view}/", restored)
        self.succeeds("verify", *self.maps, restored, f"{self.view}/")

    def test_a_difference_is_found(self):
        self.succeeds("cp", "-r", *self.maps, f"{self.view}/etc", self.dir / "etc")
        (self.dir / "etc/hostname").write_bytes(b"other-one\n")
        result = self.fails_with_lines("verify", *self.maps, f"{self.view}/etc", self.dir / "etc")
        self.assertIn("hostname: content differs at byte 0", result)

    def fails_with_lines(self, *arguments):
        result = tarn(*arguments)
        self.assertEqual(result.status, 1, result)
        return result.text.splitlines()

    def test_links_lead_on_inside_the_view(self):
        for path, content in [("/etc/absolute", b"backed-up\n"), ("/etc/chain", b"backed-up\n"),
                              ("/etc/through", b"pages\n"), ("/srv/up", b"backed-up\n"), ("/bin/editor", b"#!editor\n")]:
            with self.subTest(path):
                self.assertEqual(self.succeeds("cat", *self.maps, self.view + path).out, content)

    def test_no_link_leads_out_of_the_volumes(self):
        for path in ["/srv/data/host", "/srv/data/out/secret", "/srv/data/climb", "/etc/dangling", "/etc/loop",
                     "/../../outside/secret"]:
            with self.subTest(path):
                result = self.fails(1, "cat", *self.maps, self.view + path)
                self.assertEqual(result.out, b"")
                self.assertNotIn("secret\n", result.errors.replace("/secret", ""))

    def test_a_link_is_a_link_and_with_a_slash_what_it_leads_to(self):
        self.succeeds("cp", *self.maps, f"{self.view}/etc/absolute", self.dir / "link")
        self.assertEqual(os.readlink(self.dir / "link"), "/etc/hostname")
        listed = self.succeeds("list", *self.maps, f"{self.view}/bin/").text
        self.assertIn("editor", listed)
        self.assertIn("bin -> etc/alternatives", self.succeeds("list", *self.maps, f"{self.view}/bin").text)

    def test_listing_stat_and_exists_know_the_view(self):
        listed = self.succeeds("list", "-r", "--mask=book; motd", *self.maps, f"{self.view}/srv").text.splitlines()
        self.assertEqual([line.split("Z ")[-1] for line in listed], ["data/book", "motd"])
        self.assertIn("size: 6", self.succeeds("stat", *self.maps, f"{self.view}/srv/motd").text)
        self.succeeds("exists", *self.maps, f"{self.view}/srv/data/book", f"{self.view}/etc/dangling")
        self.fails_quietly("exists", *self.maps, f"{self.view}/srv/data/missing")

    def fails_quietly(self, *arguments):
        self.assertEqual(tarn(*arguments).status, 1)

    def test_without_a_rule_nothing_is_there(self):
        text = "No suitable mapping rule was found for a given path."
        for verb in (["list"], ["cat"], ["cp", "-r"]):
            with self.subTest(verb):
                target = [self.dir / "x"] if verb[0] == "cp" else []
                self.assertIn(text, self.fails(1, *verb, self.maps[2], f"{self.view}/etc/hostname", *target).errors)


if __name__ == "__main__":
    unittest.main()
