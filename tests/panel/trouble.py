"""The panel when things go wrong, and without a mouse.

Usage: trouble.py CASE PANEL"""

import fcntl
import os
import re
import shutil
import signal
import sys
import tempfile
import termios
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../../examples/panel/walk"))
from stage import SOURCE, TIME_LIMIT, Stage  # noqa: E402


def has_page(page):
    return lambda state: state.get("page") == page


def has_message(text):
    return lambda state: text in state.get("message", "")


def get_service(stage):
    """Its process, once there is one: 0 would be the processes of this test."""
    stage.wait_for(lambda state: state.get("service", "0") != "0")
    return int(stage.state["service"])


def wait_for_request(service):
    """Until there is something in its pipe to be read; it is stopped and does not."""
    end = time.monotonic() + TIME_LIMIT
    with open("/proc/%d/fd/0" % service, "rb") as pipe:
        while fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)) == bytes(4):
            if time.monotonic() > end:
                raise RuntimeError("the service is not asked for anything")
            time.sleep(0.01)


def change_name(stage):
    stage.wait_for(has_page("display"))
    stage.click("page:network")
    stage.wait_for(has_page("network"))
    stage.click("name")
    stage.press("End", "x")
    stage.wait_for(lambda state: state["value"]["name"] == "Kitchenx")


def errors_of_the_script(command):
    script = os.path.join(os.path.dirname(__file__), "broken.lua")
    with Stage(command + ["--script", script]) as stage:
        stage.wait_for(has_page("display"))
        for page, message in (
                ("keyboard", "broken.lua:12: nobody can hear this"),
                ("network", "onOpen: nothing is called nonsense"),
                ("system", "broken.lua:25: attempt to index global 'nothing'")):
            stage.click("page:" + page)
            stage.wait_for(has_page(page))
            stage.wait_for(has_message("The script has failed: "))
            stage.wait_for(has_message(message))
        stage.click("automatic")
        stage.wait_for(has_message("onChanged: automatic can't be nonsense"))
        stage.click("close")
        stage.wait_for(lambda state: state["message"] == "")
        return stage.end()


def a_script_that_is_no_lua(command):
    with Stage(command + ["--script", __file__]) as stage:
        stage.wait_for(has_message("The script has failed: load"))
        return stage.end()


def a_service_that_is_silent(command):
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        service = get_service(stage)
        stage.click("page:system")
        stage.wait_for(has_page("system"))
        os.kill(service, signal.SIGSTOP)
        stage.click("check")
        stage.wait_for(has_page("busy"))
        stage.wait_for(has_message("The settings service does not answer."))
        stage.wait_for(has_page("system"))
        os.kill(service, signal.SIGCONT)
        stage.click("automatic")
        stage.wait_for(lambda state: state["state"] == "Saved")
        return stage.end()


def a_service_that_is_killed_in_the_question(command):
    with Stage(command) as stage:
        change_name(stage)
        stage.click("page:keyboard")
        stage.wait_for(lambda state: state["question"] == "1")
        os.kill(get_service(stage), signal.SIGKILL)
        stage.wait_for(has_message("The settings service is gone."))
        stage.wait_for(lambda state: state["service"] != "0" and state["message"] == "")
        stage.click("drop")
        stage.wait_for(has_page("keyboard"))
        return 0 if stage.state["value"]["name"] == "Kitchen" else 1


def the_window_is_closed_in_the_question(command):
    with Stage(command) as stage:
        change_name(stage)
        stage.click("page:keyboard")
        stage.wait_for(lambda state: state["question"] == "1")
        return stage.end()


def the_window_is_closed_before_anything_is_saved(command):
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        stage.click("adaptive")
        stage.wait_for(lambda state: state["value"]["adaptive"] == "–")
        status = stage.end()
        with open(os.path.join(stage.folder.name, "settings"), "rb") as file:
            return status if b"adaptive" in file.read() else 1


def the_window_is_closed_while_something_is_saved(command):
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        service = get_service(stage)
        os.kill(service, signal.SIGSTOP)
        stage.click("adaptive")
        stage.wait_for(lambda state: state["value"]["adaptive"] == "–")
        stage.go_on()
        wait_for_request(service)
        status = stage.end()
        os.kill(service, signal.SIGCONT)
        end = time.monotonic() + TIME_LIMIT
        settings = os.path.join(stage.folder.name, "settings")
        while not os.path.exists(settings) and time.monotonic() < end:
            time.sleep(0.01)
        with open(settings, "rb") as file:
            return status if b"adaptive\0" in file.read() else 1


def a_screen_that_is_small(command):
    """What is asked for is 800 pixels wide."""
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        return 0 if stage.state["at"]["window"] == [0, 0, 480, 320] else 1


def a_service_that_is_silent_when_it_should_save(command):
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        service = get_service(stage)
        os.kill(service, signal.SIGSTOP)
        stage.click("adaptive")
        stage.wait_for(has_message("The settings service does not answer."))
        os.kill(service, signal.SIGKILL)
        stage.wait_for(lambda state: state["state"] == "Saved")
        return 0 if stage.state["value"]["adaptive"] == "–" else 1


def a_saving_that_is_refused(command):
    """A folder is in the place of the file. What is wrong is said, and the next time all is kept."""
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        settings = os.path.join(stage.folder.name, "settings")
        os.mkdir(settings)
        stage.click("adaptive")
        stage.wait_for(has_message("Not saved: not written: ./settings"))
        if stage.state["state"] == "Saved":
            return 1
        os.rmdir(settings)
        stage.click("night")
        stage.wait_for(lambda state: state["state"] == "Saved")
        return stage.end()


def a_change_while_the_last_one_is_refused(command):
    """It is not lost: it goes to the service afterwards."""
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        service = get_service(stage)
        settings = os.path.join(stage.folder.name, "settings")
        os.mkdir(settings)
        os.kill(service, signal.SIGSTOP)
        stage.click("adaptive")
        stage.wait_for(lambda state: state["value"]["adaptive"] == "–")
        stage.go_on()
        wait_for_request(service)
        stage.click("night")
        stage.wait_for(lambda state: state["value"]["night"] == "✓")
        os.kill(service, signal.SIGCONT)
        stage.wait_for(has_message("Not saved: not written: ./settings"))
        os.rmdir(settings)
        stage.click("adaptive")
        stage.wait_for(lambda state: state["value"]["adaptive"] == "✓" and state["state"] == "Saved")
        with open(settings, "rb") as file:
            return 0 if b"night\1" in file.read() else 1


def a_check_that_is_cancelled(command):
    """By the key for it; its answer is not taken for that of the next one."""
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        stage.click("page:system")
        stage.wait_for(has_page("system"))
        stage.click("check")
        stage.wait_for(has_page("busy"))
        stage.press("Escape")
        stage.wait_for(has_page("system"))
        if stage.state["message"] != "":
            return 1  # it was not the key
        begin = time.monotonic()
        stage.press("Return")
        stage.wait_for(has_page("busy"))
        stage.wait_for(has_message("The software is up to date."))
        return 0 if time.monotonic() - begin >= 1.5 else 1  # what the service takes


def changes_that_are_kept(command):
    """What was searched for is forgotten, and one goes on where one was."""
    with Stage(command) as stage:
        change_name(stage)
        stage.press("ctrl+f", "s", "y", "s")
        stage.wait_for(lambda state: state["question"] == "1")
        stage.press("Escape")
        stage.wait_for(lambda state: "name" in state["at"] and state["focus"] == "name")
        if stage.state["state"] != "Not saved yet":
            return 1
        stage.press("y")
        stage.wait_for(lambda state: state["value"]["name"] == "Kitchenxy")
        stage.click("page:keyboard")
        stage.wait_for(lambda state: state["question"] == "1")
        stage.press("Return")
        stage.wait_for(lambda state: state["focus"] == "name")
        stage.press("z")
        stage.wait_for(lambda state: state["value"]["name"] == "Kitchenxyz")
        return stage.end()


def a_search_on_a_form(command):
    """What is not saved stays so, whatever is searched for."""
    with Stage(command) as stage:
        change_name(stage)
        stage.press("ctrl+f", "n", "a", "m")
        stage.wait_for(lambda state: "server" not in state["at"])
        return 0 if stage.state["state"] == "Not saved yet" else 1


def another_layout(command):
    """A switch on the form, and settings that are gone."""
    with tempfile.TemporaryDirectory() as folder:
        for name in "panel.lua", "panel.css", "panel.xml":
            shutil.copy(os.path.join(SOURCE, name), folder)
        path = os.path.join(folder, "panel.xml")
        with open(path) as file:
            lines = file.read().splitlines()
        clicks = next(line for line in lines if 'id="clicks"' in line)
        lines.remove(clicks)
        lines.insert(next(i for i, line in enumerate(lines) if 'id="name"' in line), clicks)
        text = "\n".join(lines)
        for name in "brightness", "night", "layout", "language":
            text = re.sub(r'<(\w+) id="%s"(.(?!/?>))*.(/>|>.*?</\1>)' % name, "", text, flags=re.DOTALL)
        with open(path, "w") as file:
            file.write(text)
        with Stage(command, source=folder) as stage:
            stage.wait_for(lambda state: state.get("value", {}).get("sleep") == "2 minutes")
            stage.click("page:network")
            stage.wait_for(has_page("network"))
            stage.click("clicks")
            stage.wait_for(lambda state: state["state"] == "Not saved yet")
            stage.click("save")
            stage.wait_for(lambda state: state["state"] == "Saved")
            return stage.end() if stage.state["message"] == "" else 1


def a_panel_that_is_not_there(command):
    """Then nothing stays of the display either."""
    try:
        Stage(["./no-such-panel"])
    except FileNotFoundError:
        try:
            os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return 0
    return 1


def keys_alone(command):
    """From the list of pages to a switch, a choice, a text, the question, and to the end."""
    with Stage(command) as stage:
        stage.wait_for(has_page("display"))
        stage.press("Right")
        stage.wait_for(lambda state: state["value"]["brightness"] == "75")
        stage.press("Tab", "space")
        stage.wait_for(lambda state: state["value"]["adaptive"] == "–")
        stage.press("Tab", "space")
        stage.wait_for(lambda state: "option" in state["at"])
        stage.press("Down", "Return")
        stage.wait_for(lambda state: state["value"]["sleep"] == "10 minutes")
        stage.press("ctrl+f", "n", "e", "t", "w")
        stage.wait_for(has_page("network"))
        stage.press("Escape")
        stage.wait_for(lambda state: "page:keyboard" in state["at"])
        stage.press("Tab", "Up")
        stage.wait_for(has_page("keyboard"))
        stage.press("Down")
        stage.wait_for(has_page("network"))
        stage.press("Tab", "End", "x")
        stage.wait_for(lambda state: state["value"]["name"] == "Kitchenx")
        stage.press("ctrl+f", "s", "y", "s", "t", "e", "m")
        stage.wait_for(lambda state: state["question"] == "1")
        stage.press("Left", "Return")
        stage.wait_for(has_page("system"))
        return stage.end()


if __name__ == "__main__":
    sys.exit(globals()[sys.argv[1]](sys.argv[2:]))
