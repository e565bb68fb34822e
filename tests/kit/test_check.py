"""bridge-sandbox check: what it says about a daemon that does everything well, and about ones that do one thing badly."""

import json
import os
import pathlib
import subprocess

import pytest

import bridge_testkit

FAULTY = pathlib.Path(os.environ["BRIDGE_TEST_DAEMONS"]) / "faulty"
PORT_WATCH = pathlib.Path(os.environ["BRIDGE_EXAMPLES"]) / "port_watch"


def check(*arguments):
    """Its status, and its object or what it says instead."""
    command = [bridge_testkit.find_sandbox(), "check", "--json", *map(str, arguments)]
    run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    lines = run.stdout.splitlines()
    return run.returncode, json.loads(lines[-1]) if lines and lines[-1].startswith("{") else run.stdout


def named(report, verdict):
    return {(point["story"], point["point"]): point["why"] for point in report["points"] if point["verdict"] == verdict}


def test_good_daemon_does_everything_right():
    status, report = check("--", FAULTY)
    assert named(report, "wrong") == {}
    assert status == 0
    stories = "start questions killed changed slave late early kernel delay slow".split()
    assert list(dict.fromkeys(point["story"] for point in report["points"])) == stories
    right = named(report, "right")
    for point in [
        ("questions", "answers in time"),
        ("killed", "registers again"),
        ("changed", "asks for origin data"),
        ("slave", "sends nothing as a slave"),
        ("late", "waits for the end of the switch-over"),
        ("early", "waits for the server's data"),
        ("kernel", "gives its addresses again"),
        ("delay", "acts as before"),
        ("slow", "stops on SIGTERM"),
    ]:
        assert point in right


@pytest.mark.parametrize(
    "fault, story, point, why",
    [
        ("hangs", "start", "stops on SIGTERM", "it does not"),
        ("no-answer", "questions", "answers in time", "VLAN_EVENT_CREATE_PREJ: 1 questions, 0 answers"),
        ("late-answer", "questions", "answers in time", "an answer after"),
        ("second-answer", "questions", "answers in time", "1 questions, 2 answers"),
        ("forgets-the-server", "killed", "registers again", "waited in vain"),
        ("dies", "killed", "stays alive", 'ended with status 134 at "idle 3"'),
        ("spins", "killed", "does not spin", "% of the time"),
        ("no-data", "changed", "asks for origin data", "it does nothing about VLAN 3301"),
        ("eager", "slave", "sends nothing as a slave", "it sends VLAN_EVENT_SET_ADD_DYN_INTF"),
        ("early", "late", "waits for the end of the switch-over", "it sends VLAN_EVENT_SET_ADD_DYN_INTF"),
        ("no-addresses", "kernel", "gives its addresses again", ""),
        ("dies-of-bursts", "delay", "stays alive", 'ended with status 134 at "acts"'),
    ],
)
def test_fault_is_found_where_it_shows(fault, story, point, why):
    # Answers are timed, and events are held back for longer than a busy machine takes to cause them.
    scale = {"questions": 10, "delay": 4}.get(story, 20)
    status, report = check("--time-scale", scale, "--only", story, "--", FAULTY, fault)
    wrong = named(report, "wrong")
    assert list(wrong) == [(story, point)]
    assert why in wrong[story, point]
    assert status == 1


def test_daemon_that_does_not_register_or_ends_is_found():
    for command, point in ((("sleep", "60"), "registers"), (("true",), "stays alive")):
        status, report = check("--time-scale", "100", "--", *command)
        assert (status, list(named(report, "wrong"))) == (1, [("start", point)])


def test_what_cannot_be_judged_is_said():
    status, report = check("--only", "slave", "--", PORT_WATCH, "-p", "0")
    assert status == 0
    assert named(report, "not judged") == {
        ("slave", "sends nothing as a slave"): "it sends nothing as a master either"
    }


def test_switch_may_be_the_authors_own(tmp_path):
    script = tmp_path / "switch"
    script.write_text("port add 3 trunk 1\nport add 5 access 10\nvlan create 10\n")
    status, report = check("--only", "killed", "--script", script, "--", FAULTY)
    assert (status, report["wrong"]) == (0, 0)
    script.write_text("port add 99 trunk 1\n")
    status, said = check("--script", script, "--", FAULTY)
    assert status == 1
    assert "port add 99" in said


def test_bad_usage_ends_with_64():
    for arguments in ((), ("--only", "bogus", "--", FAULTY), ("--bogus", "--", FAULTY)):
        assert check(*arguments)[0] == 64
