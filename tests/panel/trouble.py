"""The panel when things go wrong, and without a mouse.

Usage: trouble.py CASE PANEL"""

import os
import signal
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../../examples/panel/walk"))
from stage import Stage  # noqa: E402


def has_page(page):
    return lambda state: state.get("page") == page


def has_message(text):
    return lambda state: text in state.get("message", "")


def get_service(stage):
    """Its process, once there is one: 0 would be the processes of this test."""
    stage.wait_for(lambda state: state.get("service", "0") != "0")
    return int(stage.state["service"])


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
