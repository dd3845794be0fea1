"""serve: how it starts, what it prints, how it ends."""
import contextlib
import os
import re
import signal
import socket
import subprocess
import time
import unittest

import harness
from harness import CommandTest, write


class Serve(CommandTest):
    def setUp(self):
        super().setUp()
        self.root = self.dir / "root"
        self.root.mkdir()

    def connect(self, agent):
        host, port = agent.address.rsplit(":", 1)
        connection = socket.create_connection((host, int(port)), timeout=harness.LIMIT)
        self.addCleanup(connection.close)
        return connection

    @staticmethod
    def is_alive(process):
        try:
            with open(f"/proc/{process}/stat", encoding="utf-8") as file:
                return file.read().rsplit(")", 1)[1].split()[0] != "Z"
        except FileNotFoundError:
            return False

    def wait_for(self, condition):
        end = time.monotonic() + harness.LIMIT
        while not condition():
            self.assertLess(time.monotonic(), end, "it did not come true")
            time.sleep(0.001)

    def test_the_first_line_tells_the_port_that_was_picked(self):
        agent = self.serve(self.root)
        self.assertRegex(agent.address, r"\A127\.0\.0\.1:[1-9]\d*\Z")

    def test_it_warns_of_plain_text(self):
        agent = self.serve(self.root)
        agent.stop()
        self.assertIn("--plaintext", agent.errors)

    def test_quiet_prints_the_address_alone(self):
        agent = self.serve(self.root, "--quiet")
        self.succeeds("cp", "--plaintext", write(self.dir / "a"), agent.url("a"))
        agent.stop()
        self.assertEqual((agent.next_line(), agent.errors), ("", ""))

    def test_each_session_is_a_line(self):
        agent = self.serve(self.root)
        for name in ("a", "b"):
            self.succeeds("cp", "--plaintext", write(self.dir / name), agent.url(name))
            self.assertRegex(agent.next_line(), r"\Asession 127\.0\.0\.1:\d+ \d+ ms ended\Z")
        agent.stop()
        self.assertEqual(agent.next_line(), "")

    def test_a_session_that_fails_says_why(self):
        write(self.root / "a", b"a file")
        agent = self.serve(self.root)
        self.assertEqual(harness.tarn("cp", "--plaintext", write(self.dir / "b"), agent.url("a/b")).status, 3)
        self.assertRegex(agent.next_line(), r"\Asession 127\.0\.0\.1:\d+ \d+ ms failed: .*a/b")

    def test_term_and_int_end_it_with_0(self):
        for how in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(how=how):
                self.assertEqual(self.serve(self.root).stop(how), 0)

    def test_an_open_session_does_not_keep_it(self):
        agent = self.serve(self.root)
        with subprocess.Popen([harness.TARN, "cp", "--plaintext", "-", agent.url("a")], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as client:
            client.stdin.write(b"x" * (3 << 20))
            client.stdin.flush()
            self.assertEqual(agent.stop(), 0)
            _, errors = client.communicate(timeout=harness.LIMIT)
            self.assertNotEqual(client.returncode, 0, errors)
        self.assertEqual(os.listdir(self.root), [])

    def test_whoever_reads_its_lines_may_leave(self):
        with subprocess.Popen([harness.TARN, "serve", "--plaintext", "--listen", "127.0.0.1:0", "--root", self.root],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as child:
            address = child.stdout.readline().decode().split()[-1]
            child.stdout.close()
            for name in ("a", "b"):
                self.succeeds("cp", "--plaintext", write(self.dir / name), f"tarn://{address}/{name}")
            child.terminate()
            self.assertEqual(child.wait(timeout=harness.LIMIT), 0)

    def test_noise_ends_its_own_session_only(self):
        agent = self.serve(self.root)
        for noise in (b"GET / HTTP/1.1\r\nHost: x\r\n\r\n", b"\x00" * 4096, os.urandom(4096), b""):
            connection = self.connect(agent)
            with contextlib.suppress(OSError):  # the agent may have hung up already
                connection.sendall(noise)
                connection.shutdown(socket.SHUT_WR)
            self.assertRegex(agent.next_line(), r"\Asession .* failed: ")
        self.succeeds("cp", "--plaintext", write(self.dir / "a", b"x"), agent.url("a"))
        self.assertEqual((self.root / "a").read_bytes(), b"x")
        self.assertEqual(agent.stop(), 0)

    def test_one_session_more_than_allowed_is_refused_by_name(self):
        agent = self.serve(self.root, "--max-sessions", "1")
        with subprocess.Popen([harness.TARN, "cp", "--plaintext", "-", agent.url("a")], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as first:
            first.stdin.write(b"x" * (3 << 20))
            first.stdin.flush()
            result = self.fails(1, "exists", "--plaintext", agent.url("a"))
            self.assertIn("refused the connection", result.errors)
            first.communicate(timeout=harness.LIMIT)
            self.assertEqual(first.returncode, 0)
        self.assertEqual((self.root / "a").stat().st_size, 3 << 20)

    def test_two_clients_at_once_are_served(self):
        agent = self.serve(self.root)
        sources = [write(self.dir / name, os.urandom(5_000_000)) for name in "abcd"]
        clients = [subprocess.Popen([harness.TARN, "cp", "--plaintext", source, agent.url(source.name)],
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT) for source in sources]
        for client in clients:
            output, _ = client.communicate(timeout=harness.LIMIT)
            self.assertEqual(client.returncode, 0, output)
        for source in sources:
            self.assertEqual((self.root / source.name).read_bytes(), source.read_bytes())

    def test_a_missing_root_is_named(self):
        result = self.fails(1, "serve", "--plaintext", "--listen", "127.0.0.1:0", "--root", self.dir / "missing")
        self.assertIn(str(self.dir / "missing"), result.errors)

    def test_an_address_in_use_is_named(self):
        agent = self.serve(self.root)
        (self.dir / "other").mkdir()
        result = self.fails(1, "serve", "--plaintext", "--listen", agent.address, "--root", self.dir / "other")
        self.assertIn(agent.address, result.errors)
        self.assertIn("Address already in use", result.errors)

    def test_a_malformed_address_is_named(self):
        for address in ("nowhere", "127.0.0.1:", "127.0.0.1:port", "127.0.0.1:65536"):
            with self.subTest(address=address):
                result = harness.tarn("serve", "--plaintext", "--listen", address, "--root", self.root)
                self.assertIn(result.status, (1, 2), result)
                self.assertIn(f"'{address}' is not an address of the form HOST:PORT", result.errors)

    def test_unconfined_it_serves_this_machine_only(self):
        result = harness.tarn("serve", "--plaintext", "--unconfined", "--listen", "0.0.0.0:0", "--root", self.root)
        self.assertIn(result.status, (1, 2), result)
        self.assertIn("loopback", result.errors)

    def test_confined_it_serves_any_address(self):
        with subprocess.Popen([harness.TARN, "serve", "--plaintext", "--listen", "0.0.0.0:0", "--root", self.root],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as child:
            port = re.fullmatch(rb"listening on 0\.0\.0\.0:(\d+)\n", child.stdout.readline())[1].decode()
            self.succeeds("cp", "--plaintext", write(self.dir / "a", b"x"), f"tarn://127.0.0.1:{port}/a")
            child.terminate()
            _, errors = child.communicate(timeout=harness.LIMIT)
        self.assertEqual((self.root / "a").read_bytes(), b"x")
        self.assertIn(f"whoever can connect to 0.0.0.0:{port} can read and write below the root", errors.decode())

    def test_unconfined_says_what_is_missing(self):
        agent = self.serve(self.root, "--unconfined")
        self.succeeds("cp", "--plaintext", write(self.dir / "a", b"x"), agent.url("a"))
        self.assertEqual(agent.stop(), 0)
        self.assertIn("--unconfined: no kernel barrier", agent.errors)

    def test_it_sees_the_root_alone(self):
        agent = self.serve(self.root)
        seen = os.readlink(f"/proc/{agent.process.pid}/cwd")
        with open(f"/proc/{agent.process.pid}/mountinfo", encoding="utf-8") as mounts:
            points = [line.split()[4] for line in mounts]
        agent.stop()
        self.assertEqual((seen, points), ("/", ["/"]))

    def test_its_helper_ends_with_it(self):
        for how in (signal.SIGTERM, signal.SIGKILL):
            with self.subTest(how=how):
                agent = self.serve(self.root)
                with open(f"/proc/{agent.process.pid}/task/{agent.process.pid}/children", encoding="utf-8") as file:
                    helpers = file.read().split()
                self.assertEqual(len(helpers), 1)
                agent.stop(how)
                self.wait_for(lambda: not any(self.is_alive(helper) for helper in helpers))

    @unittest.skipUnless(os.geteuid() == 0, "needs root, to give it up")
    def test_an_ordinary_user_confines_it_too(self):
        self.dir.chmod(0o755)
        os.chown(self.root, 65534, 65534)
        agent = self.serve(self.root, wrapper=["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"])
        result = self.succeeds("cp", "--plaintext", write(self.dir / "a", b"x"), agent.url("a"))
        self.assertIn("owner", result.errors)
        agent.stop()
        self.assertIn("confined in a user namespace", agent.errors)
        self.assertEqual((self.root / "a").stat().st_uid, 65534)

    @unittest.skipUnless(os.geteuid() == 0, "needs root, to make a namespace where others are forbidden")
    def test_where_it_cannot_be_confined_it_says_how_to_go_on(self):
        # The limit is that of a namespace of its own.
        script = "echo 0 >/proc/sys/user/max_user_namespaces && exec setpriv --bounding-set=-sys_admin \"$@\""
        wrapper = ["unshare", "--user", "--map-root-user", "sh", "-c", script, "sh"]
        result = harness.tarn("serve", "--plaintext", "--listen", "127.0.0.1:0", "--root", self.root, wrapper=wrapper)
        self.assertEqual((result.status, result.text), (1, ""), result)
        self.assertIn(f"Failed to confine the process to [{self.root}]", result.errors)
        self.assertIn("--unconfined", result.errors)
        agent = self.serve(self.root, "--unconfined", wrapper=wrapper)
        self.succeeds("cp", "--plaintext", write(self.dir / "a", b"x"), agent.url("a"))
        self.assertEqual(agent.stop(), 0)

    def test_a_root_is_served_by_one_process(self):
        self.serve(self.root)
        result = self.fails(1, "serve", "--plaintext", "--listen", "127.0.0.1:0", "--root", self.root)
        self.assertIn("in use by another process", result.errors)

    def test_what_a_killed_agent_left_is_cleared_by_the_next(self):
        agent = self.serve(self.root)
        with subprocess.Popen([harness.TARN, "cp", "--plaintext", "-", agent.url("a")], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as client:
            client.stdin.write(b"x" * (3 << 20))
            client.stdin.flush()
            agent.stop(signal.SIGKILL)
            client.communicate(timeout=harness.LIMIT)
        self.assertEqual(self.serve(self.root).stop(), 0)
        self.assertEqual(os.listdir(self.root), [])

    def test_ipv6_works_where_the_machine_has_it(self):
        try:
            with socket.socket(socket.AF_INET6) as probe:
                probe.bind(("::1", 0))
        except OSError as error:
            self.skipTest(f"no IPv6 loopback here: {error}")
        with subprocess.Popen([harness.TARN, "serve", "--quiet", "--plaintext", "--listen", "[::1]:0", "--root", self.root],
                              stdout=subprocess.PIPE) as child:
            address = re.fullmatch(rb"listening on (\[::1\]:\d+)\n", child.stdout.readline())
            self.succeeds("cp", "--plaintext", write(self.dir / "a"), f"tarn://{address[1].decode()}/a")
            child.terminate()
            self.assertEqual(child.wait(timeout=harness.LIMIT), 0)


if __name__ == "__main__":
    harness.main()
