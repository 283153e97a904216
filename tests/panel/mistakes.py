"""The panel when its files, its command line or its surroundings are not as they should be.

Usage: mistakes.py CASE PANEL"""

import os
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../../examples/panel/walk"))
from stage import SOURCE, Stage  # noqa: E402
from trouble import get_service, has_message, has_page  # noqa: E402

# In front of the panel: what it complains of goes to a file in the folder of the stage.
KEEP_ERRORS = ["sh", "-c", "exec \"$@\" 2> errors", "sh"]

# In front of the panel: its window gets another size than the stage has, which comes first.
RESIZE = ["sh", "-c", """
    size=$1
    shift
    for word do
        test "$word" != 800x480 || word=$size
        set -- "$@" "$word"
        shift
    done
    exec "$@" """, "sh"]


def read_errors(stage):
    with open(os.path.join(stage.folder.name, "errors")) as file:
        errors = file.read()
    print(errors)
    return errors


def write_source(folder, old, new):
    """The panel's files, with another text in the layout."""
    for name in "panel.lua", "panel.css":
        shutil.copy(os.path.join(SOURCE, name), folder)
    with open(os.path.join(SOURCE, "panel.xml"), encoding="utf-8") as file:
        text = file.read()
    assert old in text
    with open(os.path.join(folder, "panel.xml"), "w", encoding="utf-8") as file:
        file.write(text.replace(old, new))


# A text of the layout, what is in its place, and what the panel says of it.
MISTAKES = {
    "a_mistyped_element": ("<switch id", "<lever id", "no element is called lever"),
    "a_mistyped_attribute": ('upper="100"', 'uper="100"', "slider has no uper=100"),
    "a_value_that_is_none": ('upper="100"', 'upper="much"', "slider has no upper=much"),
    "a_layout_that_is_no_xml": ("</panel>", "</screen>", "the log tells why"),
    "a_layout_without_a_list": ('<list id="list"', '<list id="other"', "nothing is called list"),
    "a_layout_without_search": ('id="search"', 'id="other"', "nothing is called search"),
    "a_layout_without_messages": ('"message-text"', '"other"', "nothing is called message-text"),
}


def is_refused(command, old, new, complaint):
    """The panel does not open, and says why."""
    with tempfile.TemporaryDirectory() as folder:
        write_source(folder, old, new)
        with Stage(KEEP_ERRORS + command, source=folder) as stage:
            stage.panel.communicate(timeout=60)
            complained = "%s/panel.xml: %s\n" % (folder, complaint) in read_errors(stage)
            return 0 if stage.panel.returncode == 1 and complained else 1


def a_number_below_zero(command):
    with tempfile.TemporaryDirectory() as folder:
        write_source(folder, 'lower="10" upper="100"', 'lower="-20" upper="-10"')
        with Stage(command, source=folder) as stage:
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
        with Stage(KEEP_ERRORS + command[:-1] + [panel]) as stage:
            stage.wait_for(has_message("The settings service is gone."))
            time.sleep(2.5)  # it has tried again, twice
            errors = read_errors(stage)
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
        with Stage(RESIZE + [size] + command) as stage:
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
    said = run(SOURCE), run(SOURCE, ".")
    return 0 if said == ((2, "usage"), (2, "there is no display")) else 1


if __name__ == "__main__":
    case, command = sys.argv[1], sys.argv[2:]
    sys.exit(is_refused(command, *MISTAKES[case]) if case in MISTAKES else globals()[case](command))
