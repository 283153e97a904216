"""The panel when its files, its command line or its surroundings are not as they should be.

Usage: mistakes.py CASE PANEL"""

import os
import shutil
import subprocess
import sys
import tempfile
import time

FILES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples/panel")
sys.path.insert(0, os.path.join(FILES, "walk"))
from stage import Stage  # noqa: E402
from trouble import get_service, has_message, has_page  # noqa: E402

ERRORS = "errors"  # what the panel says on its standard error output, in the folder of the stage


class OtherStage(Stage):
    """A stage whose panel gets other arguments than usual, pairs of a text and what replaces it."""

    def __init__(self, command, *replacements):
        rewriter = [sys.executable, "-B", os.path.abspath(__file__), "--instead"]
        for pair in replacements:
            rewriter += pair
        super().__init__(rewriter + ["--"] + command)

    def read_errors(self):
        with open(os.path.join(self.folder.name, ERRORS)) as file:
            return file.read()


def run_instead(words):
    """What the stage starts: the panel, with other arguments."""
    end = words.index("--")
    replacements = dict(zip(words[:end:2], words[1:end:2]))
    with open(ERRORS, "w") as file:
        os.dup2(file.fileno(), 2)
    command = [replacements.get(word, word) for word in words[end + 1:]]
    os.execvp(command[0], command)


class OtherLayout(tempfile.TemporaryDirectory):
    """A folder with the panel's files, and pairs of a text and what replaces it in panel.xml."""

    def __init__(self, *replacements):
        super().__init__()
        for name in "panel.lua", "panel.css", "report.xsl":
            shutil.copy(os.path.join(FILES, name), self.name)
        with open(os.path.join(FILES, "panel.xml"), encoding="utf-8") as file:
            text = file.read()
        for old, new in replacements:
            assert old in text, old
            text = text.replace(old, new)
        with open(os.path.join(self.name, "panel.xml"), "w", encoding="utf-8") as file:
            file.write(text)


def with_layout(command, *replacements):
    """The panel with such a layout, and the folder for as long as it is needed."""
    layout = OtherLayout(*replacements)
    stage = OtherStage(command, (os.path.abspath(FILES), layout.name))
    stage.layout = layout
    return stage


def is_refused(command, complaint, *replacements):
    """The panel does not open, and says why."""
    with with_layout(command, *replacements) as stage:
        stage.panel.communicate(timeout=60)
        errors = stage.read_errors()
        print(errors)
        expected = "%s/panel.xml: %s\n" % (stage.layout.name, complaint)
        return 0 if stage.panel.returncode == 1 and expected in errors else 1


def a_mistyped_element(command):
    return is_refused(command, "no element is called lever", ("<switch id", "<lever id"))


def a_mistyped_attribute(command):
    return is_refused(command, "slider has no uper=100", ('upper="100"', 'uper="100"'))


def a_value_that_is_none(command):
    return is_refused(command, "slider has no upper=much", ('upper="100"', 'upper="much"'))


def a_layout_that_is_no_xml(command):
    return is_refused(command, "the log tells why", ("</panel>", "</screen>"))


def a_layout_without_a_list(command):
    return is_refused(command, "nothing is called list", ('<list id="list"', '<list id="other"'))


def a_layout_without_search(command):
    return is_refused(command, "nothing is called search", ('id="search"', 'id="other"'))


def a_layout_without_messages(command):
    return is_refused(command, "nothing is called message-text", ('"message-text"', '"other"'))


def a_number_below_zero(command):
    with with_layout(command, ('lower="10" upper="100"', 'lower="-20" upper="-10"')) as stage:
        stage.wait_for(has_page("display"))
        stage.wait_for(lambda state: state["value"].get("brightness") == "-10")
        return stage.end()


def a_script_that_fails_at_once(command):
    with tempfile.NamedTemporaryFile("w", suffix=".lua") as script:
        script.write("Panel.build('en')\nPanel.set('nonsense', 1)\n")
        script.flush()
        with Stage(command + ["--script", script.name]) as stage:
            stage.wait_for(has_message("The script has failed: load: nothing is called nonsense"))
            return stage.end()


def a_service_that_is_not_there(command):
    """The panel says once which program it is, and goes on trying."""
    with tempfile.TemporaryDirectory() as folder:
        panel = shutil.copy(command[-1], folder)
        with OtherStage(command[:-1] + [panel]) as stage:
            stage.wait_for(has_message("The settings service is gone."))
            time.sleep(2.5)  # it has tried again, twice
            errors = stage.read_errors()
            print(errors)
            if errors.count(panel + "-service") != 1 or "Invalid descriptor" in errors:
                return 1
            shutil.copy(command[-1] + "-service", folder)
            get_service(stage)
            stage.wait_for(lambda state: state["message"] == "")
            return stage.end()


def a_panel_that_is_found_by_its_name(command):
    path = os.path.dirname(command[-1]) + os.pathsep + os.environ["PATH"]
    with Stage(["env", "PATH=" + path] + command[:-1] + [os.path.basename(command[-1])]) as stage:
        stage.wait_for(has_page("display"))
        get_service(stage)
        return stage.end()


def a_size_that_is_none(command):
    for size in "-5x-5", "5", "0x480", "large":
        with OtherStage(command, ("800x480", size)) as stage:
            stage.wait_for(has_page("display"))
            if stage.state["at"]["window"] != [0, 0, 800, 480] or stage.end() != 0:
                return 1
    return 0


def no_display_and_no_arguments(command):
    """Two mistakes, and what is said of each."""
    def run(*arguments):
        environment = {name: value for name, value in os.environ.items() if "DISPLAY" not in name}
        done = subprocess.run(command + list(arguments), env=environment, text=True,
                              stderr=subprocess.PIPE, check=False)
        print(done.stderr)
        return done.returncode, done.stderr.splitlines()[-1].split(":")[0]
    said = run(FILES), run(FILES, ".")
    return 0 if said == ((2, "usage"), (2, "there is no display")) else 1


if __name__ == "__main__":
    if sys.argv[1] == "--instead":
        run_instead(sys.argv[2:])
    sys.exit(globals()[sys.argv[1]](sys.argv[2:]))
