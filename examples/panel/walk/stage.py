"""A display without a screen, the panel on it, and somebody who uses it: for walk.py and the tests.

Nothing here waits for a time to pass: the panel says what is to be seen whenever it has come to rest
(see observer.h), and waits until it is told to go on."""

import os
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import zlib

TIME_LIMIT = 60  # seconds for anything to happen
SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def encode_chunk(kind, content):
    return (struct.pack(">I", len(content)) + kind + content +
            struct.pack(">I", zlib.crc32(kind + content)))


class Picture:
    """What was on the screen."""

    def __init__(self, width, height, rgb):
        self.width, self.height, self.rgb = width, height, rgb

    @staticmethod
    def read(path):
        """What write() has written; of one that moves, the first frame."""
        with open(path, "rb") as file:
            parts = file.read()
        data, place = b"", 8
        while place < len(parts):
            size, kind = struct.unpack(">I4s", parts[place:place + 8])
            content = parts[place + 8:place + 8 + size]
            if kind == b"IHDR":
                width, height = struct.unpack(">II", content[:8])
            elif kind == b"IDAT":
                data += content
            place += 12 + size
        rows, line = zlib.decompress(data), 1 + 3 * width
        return Picture(width, height,
                       b"".join(rows[y * line + 1:(y + 1) * line] for y in range(height)))

    def encode_rows(self):
        size = 3 * self.width
        rows = (self.rgb[i:i + size] for i in range(0, len(self.rgb), size))
        return zlib.compress(b"".join(b"\0" + row for row in rows), 9)

    def write(self, path, frames=()):
        """As PNG; with frames, pairs of a picture and its milliseconds, as one that moves."""
        header = struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)
        parts = [b"\x89PNG\r\n\x1a\n", encode_chunk(b"IHDR", header)]
        if frames:
            parts.append(encode_chunk(b"acTL", struct.pack(">II", len(frames), 0)))
        number = 0
        for frame, time in frames:
            control = struct.pack(">IIIIIHHBB", number, self.width, self.height, 0, 0, time, 1000, 0, 0)
            parts.append(encode_chunk(b"fcTL", control))
            rows = frame.encode_rows()
            if number == 0:
                parts.append(encode_chunk(b"IDAT", rows))
            else:
                number += 1
                parts.append(encode_chunk(b"fdAT", struct.pack(">I", number) + rows))
            number += 1
        if not frames:
            parts.append(encode_chunk(b"IDAT", self.encode_rows()))
        parts.append(encode_chunk(b"IEND", b""))
        with open(path, "wb") as file:
            file.write(b"".join(parts))


# What a picture depends on, besides the panel itself.
FONTS = """<?xml version="1.0"?>
<fontconfig>
  <dir>/usr/share/fonts/truetype/dejavu</dir>
  <cachedir>%s/fonts</cachedir>
</fontconfig>
"""


def make_environment(folder, display):
    environment = {name: os.environ[name] for name in ("PATH", "LSAN_OPTIONS", "UBSAN_OPTIONS",
                                                       "ASAN_OPTIONS") if name in os.environ}
    environment.update(
        DISPLAY=display, HOME=folder, XDG_CONFIG_HOME=folder, XDG_DATA_HOME=folder,
        XDG_CACHE_HOME=folder, XDG_RUNTIME_DIR=folder, LC_ALL="C.UTF-8",
        FONTCONFIG_FILE=os.path.join(folder, "fonts.conf"),
        GDK_BACKEND="x11", GDK_RENDERING="image", GSETTINGS_BACKEND="memory", NO_AT_BRIDGE="1",
        GIO_USE_VFS="local", DBUS_SESSION_BUS_ADDRESS="disabled:", G_DEBUG="fatal-criticals")
    return environment


def give_up(*_):
    raise TimeoutError


class Stage:
    """Shows the panel as long as it lasts. The command is the panel's, with options behind it, and
    an emulator in front of it if need be; the source is the folder with its layout and script."""

    def __init__(self, command, size=(800, 480), source=SOURCE):
        for program in ("Xvfb", "xdotool"):
            if shutil.which(program) is None:
                print("left out: there is no " + program)
                sys.exit(77)
        self.folder = tempfile.TemporaryDirectory()
        self.state = {}
        self.waiting = False
        folder = self.folder.name
        with open(os.path.join(folder, "fonts.conf"), "w") as file:
            file.write(FONTS % folder)
        ready, ready_end = os.pipe()
        self.display = subprocess.Popen(
            ["Xvfb", "-displayfd", str(ready_end), "-screen", "0", "%dx%dx24" % size, "-fbdir",
             folder, "-nolisten", "tcp", "-nocursor"], pass_fds=[ready_end],
            stderr=subprocess.DEVNULL)
        os.close(ready_end)
        with os.fdopen(ready) as file:
            self.environment = make_environment(folder, ":" + file.readline().strip())
        options = ["--clock", "09:41", "--observed", "yes", "--size", "%dx%d" % size]
        try:
            self.panel = subprocess.Popen(
                command + options + [source, "."], cwd=folder, env=self.environment, text=True,
                stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        except OSError:  # there is no such program
            self.display.kill()
            self.display.wait()
            raise

    def read_state(self):
        """Lets the panel go on, until it says something else."""
        self.go_on()
        state = {"at": {}, "value": {}}
        for line in self.panel.stdout:
            words = line.rstrip("\n").split("\t")
            if words == [""]:
                self.state, self.waiting = state, True
                return True
            if words[0] == "at":
                state["at"][words[1]] = [int(word) for word in words[2:]]
            elif words[0] == "value":
                state["value"][words[1]] = words[2]
            else:
                state[words[0]] = words[1]
        return False  # it has ended

    def go_on(self):
        if self.waiting:
            self.waiting = False
            self.panel.stdin.write("\n")
            self.panel.stdin.flush()

    def wait_for(self, what):
        """Until what(state) is true."""
        signal.signal(signal.SIGALRM, give_up)
        signal.alarm(TIME_LIMIT)
        try:
            while not self.state or not what(self.state):
                if not self.read_state():
                    raise RuntimeError("the panel has ended")
        except TimeoutError:
            raise RuntimeError("this is all there is to be seen: %s" % self.state) from None
        finally:
            signal.alarm(0)

    def use(self, *words):
        subprocess.run(["xdotool"] + [str(word) for word in words], env=self.environment, check=True)

    def point(self, name, where=0.5):
        x, y, width, height = self.state["at"][name]
        self.use("mousemove", int(x + where * width), int(y + height / 2))

    def click(self, name, where=0.5):
        self.point(name, where)
        self.use("click", 1)

    def press(self, *keys):
        self.use("key", *keys)

    def take_picture(self):
        """Of the display's memory, a file as `xwd` writes them."""
        with open(os.path.join(self.folder.name, "Xvfb_screen0"), "rb") as file:
            dump = file.read()
        words = struct.unpack(">25I", dump[:100])
        first = words[0] + 12 * words[19]
        width, height, line = words[4], words[5], words[12]
        rgb = bytearray(3 * width * height)
        for y in range(height):
            row = dump[first + y * line:first + y * line + 4 * width]
            for part in range(3):
                rgb[3 * width * y + part:3 * width * (y + 1):3] = row[2 - part::4]
        return Picture(width, height, bytes(rgb))

    def end(self):
        """Closes the window; returns what the panel ended with."""
        self.press("ctrl+q")
        self.panel.communicate(timeout=TIME_LIMIT)  # nobody looks any more
        return self.panel.returncode

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in (self.panel, self.display):
            if process.poll() is None:
                process.kill()
            process.wait()
        self.panel.stdin.close()
        self.panel.stdout.close()
        self.folder.cleanup()
