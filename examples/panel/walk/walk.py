"""Uses the panel, takes pictures of it on the way, and makes one that moves of them.

Usage: walk.py PICTURES COMMAND...

COMMAND is the panel, with an emulator in front of it if need be; the pictures go to the folder
PICTURES. What they show is said in the end."""

import glob
import os
import signal
import sys

from stage import Stage

WAIT = 1200  # milliseconds that each picture of the moving one is shown


class Walk:
    def __init__(self, folder, stage, size):
        self.folder, self.stage, self.size, self.frames, self.shown = folder, stage, size, [], []

    def show(self, name, what):
        at = self.stage.state["at"]["window"]
        if at != [0, 0, *self.size]:
            sys.exit("%s: the window is not as large as the screen: %s" % (name, at))
        picture = self.stage.take_picture()
        path = os.path.join(self.folder, name + ".png")
        picture.write(path)
        self.frames.append((picture, WAIT))
        self.shown.append((path, what))

    def open(self, page):
        self.stage.click("page:" + page)
        self.stage.wait_for(lambda state: state["page"] == page)

    def choose(self, name, keys, title):
        """By keyboard, from the list that a click on it brings up."""
        self.stage.click(name)
        self.stage.wait_for(lambda state: "option" in state["at"])
        self.stage.press(*keys, "Return")
        self.wait_for_saving(name, title)

    def wait_for_saving(self, name, value):
        """Until it is shown, and the service has it."""
        saved = ("Saved", "Gespeichert", "تم الحفظ")
        self.stage.wait_for(
            lambda state: state["value"][name] == value and state["state"] in saved)


def walk_wide(walk):
    stage = walk.stage
    stage.wait_for(lambda state: state.get("page") == "display")
    walk.show("display", "the panel as it opens")
    stage.press("Right", "Right")
    walk.wait_for_saving("brightness", "80")
    walk.show("saved", "a slider moved by keys, and saved by the service")

    walk.open("appearance")
    stage.click("hue", 0.78)
    stage.wait_for(lambda state: state["value"]["hue"] != "215" and state["state"] == "Saved")
    walk.show("accent", "another accent colour: all others follow")
    stage.click("dark")
    walk.wait_for_saving("dark", "✓")
    walk.show("dark", "the same in dark")
    walk.choose("language", ["Down"], "Deutsch")
    walk.open("display")
    walk.show("german", "long texts")
    walk.open("appearance")
    walk.choose("language", ["Down"], "العربية")
    walk.open("display")
    walk.show("arabic", "from right to left")
    walk.open("appearance")
    walk.choose("language", ["Up", "Up"], "English")
    stage.click("dark")
    walk.wait_for_saving("dark", "–")

    walk.open("keyboard")
    stage.wait_for(lambda state: state["value"]["layout"] == "English (US)")
    stage.click("layout")
    stage.wait_for(lambda state: "option" in state["at"])
    walk.show("layouts", "keyboard layouts, which the service has from the registry of the system")
    stage.press("Escape")
    stage.wait_for(lambda state: "option" not in state["at"])

    walk.open("network")
    walk.show("disabled", "a form without changes")
    stage.click("name")
    stage.press("End", "space", "2")
    stage.click("page:system")
    stage.wait_for(lambda state: state["question"] == "1")
    walk.show("question", "a question that is answered before anything else happens")
    stage.press("Escape")
    stage.wait_for(lambda state: state["question"] == "0")
    stage.click("save")
    walk.wait_for_saving("name", "Kitchen 2")

    walk.open("system")
    stage.click("check")
    stage.wait_for(lambda state: state["page"] == "busy")
    walk.show("busy", "something that takes its time, and may be cancelled")
    stage.wait_for(lambda state: state["message"] != "")
    walk.show("answered", "and its answer")

    os.kill(int(stage.state["service"]), signal.SIGKILL)
    stage.wait_for(lambda state: state["service"] == "0")
    walk.show("gone", "the service was killed")
    stage.click("automatic")
    stage.wait_for(lambda state: state["service"] != "0" and state["message"] == "")
    walk.wait_for_saving("automatic", "–")
    walk.show("back", "it was started again, and has what was changed meanwhile")

    stage.press("ctrl+f", "l", "i", "g", "h", "t")
    stage.wait_for(lambda state: state["page"] == "display" and "sleep" not in state["at"])
    walk.show("search", "settings with the word in them")


def walk_narrow(walk):
    stage = walk.stage
    stage.wait_for(lambda state: state.get("page") == "display")
    walk.show("small", "on a screen of 480 × 320")
    walk.open("appearance")
    walk.choose("language", ["Down"], "Deutsch")
    walk.open("system")
    walk.show("small-german", "long texts there")
    walk.open("appearance")
    walk.choose("language", ["Down"], "العربية")
    walk.open("network")
    stage.click("name")
    stage.press("End", "space", "2")
    stage.click("page:system")
    stage.wait_for(lambda state: state["question"] == "1")
    walk.show("small-question", "the question there, from right to left")


def main():
    folder, command = sys.argv[1], sys.argv[2:]
    os.makedirs(folder, exist_ok=True)
    for old in glob.glob(os.path.join(folder, "*.png")):
        os.remove(old)  # it would be taken for one of this walk
    status, shown = 0, []
    for way, size in (walk_wide, (800, 480)), (walk_narrow, (480, 320)):
        with Stage(command, size) as stage:
            walk = Walk(folder, stage, size)
            way(walk)
            status = status or stage.end()
            if way == walk_wide:
                path = os.path.join(folder, "walk.png")
                walk.frames[0][0].write(path, walk.frames)
                shown.append((path, "all of the following, one after the other"))
            shown += walk.shown
    for path, what in shown:
        print("%s  %s" % (path, what))
    return status


if __name__ == "__main__":
    sys.exit(main())
