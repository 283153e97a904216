"""Runs tools/wire-to-json over the golden files, and over messages that are damaged.

    python3 wire-to-json-test.py SOURCE_DIR
"""
import json
import pathlib
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(sys.argv.pop())
GOLDEN = sorted((SOURCE / "tests/data").glob("*.wire"))


def run(*args, message=b""):
    return subprocess.run([sys.executable, SOURCE / "tools/wire-to-json", *args], input=message,
                          capture_output=True, check=False)


def same(line):
    """Numbers have one spelling here, and 0.0 is not -0.0."""
    return json.dumps(json.loads(line))


class WireToJsonTest(unittest.TestCase):
    def test_golden_files_are_read(self):
        self.assertGreater(len(GOLDEN), 20)
        for file in GOLDEN:
            with self.subTest(file.name):
                result = run(file)
                self.assertEqual((result.returncode, result.stderr), (0, b""))
                self.assertEqual(result.stdout.count(b"\n"), 1)
                expected = file.with_suffix(".json").read_text(encoding="utf-8")
                self.assertEqual(same(result.stdout), same(expected))

    def test_messages_of_the_standard_input_get_a_line_each(self):
        result = run(message=b"".join(file.read_bytes() for file in GOLDEN))
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        lines = result.stdout.splitlines()
        self.assertEqual(len(lines), len(GOLDEN))
        for line, file in zip(lines, GOLDEN):
            self.assertEqual(same(line), same(file.with_suffix(".json").read_text(encoding="utf-8")))

    def test_odd_entries_are_read(self):
        # A narrow number, an unknown kind, a slot with something behind the text, not a number.
        body = bytes([1, 8, 3, 0xFF, 0x7F, 1, 1, 77, 2, 10, 4, 0xFE, 0xAB, 0xCD, 5]) + b"a\0bc"
        body += b"\0\0\xC0\x7F"
        result = run(message=b"Ox\1" + bytes([len(body)]) + body)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual(json.loads(result.stdout), {"blocks": [{"repeatCount": -2, "values": [
            {"INT": 254}, {"KIND 77": "abcd"}, {"STRING": "a"}, {"FLOAT": "nan"}]}]})

    def test_messages_of_a_channel_say_what_they_are(self):
        good = (SOURCE / "tests/data/entry-int.wire").read_bytes()
        expected = json.loads(run(message=good).stdout)
        stream = bytes(5) + good + b"\1\7\0\0\1" + good + b"\2\7\0\0\1" + good
        result = run("--channel", message=stream)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual([json.loads(line) for line in result.stdout.splitlines()],
                         [expected, {"request": 0x01000007, **expected},
                          {"answer": 0x01000007, **expected}])
        for front in [b"\0\1\0\0\0", b"\1\0\0\0\0", b"\3\1\0\0\0"]:
            result = run("--channel", message=front + good)
            self.assertEqual(result.stderr, b"wire-to-json: damaged before byte 5\n")

    def test_damaged_messages_are_refused_with_their_place(self):
        good = (SOURCE / "tests/data/entry-int.wire").read_bytes()
        damaged = [(good[:size], size) for size in range(1, len(good))]
        damaged[:2] = [(b"ox\1", 3), (b"Ox\2", 3)]
        for place, byte, seen in [(3, 11, 12), (3, 13, 16), (4, 6, 5), (5, 7, 6), (7, 0, 8),
                                  (7, 0x11, 8)]:
            message = bytearray(good)
            message[place] = byte
            damaged.append((bytes(message), seen))
        for message, seen in damaged:
            with self.subTest(message=message.hex(), seen=seen):
                result = run(message=good + message)
                self.assertEqual(result.returncode, 1)
                self.assertEqual(result.stdout.count(b"\n"), 1)  # the good one
                self.assertEqual(result.stderr.decode(),
                                 f"wire-to-json: damaged before byte {len(good) + seen}\n")

    def test_a_file_that_is_not_there_is_named(self):
        result = run("no such file")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"no such file", result.stderr)


unittest.main()
