"""A daemon that wants guest VLAN 20 for port 3, which others may refuse."""

import os
import pathlib

import pytest

pytestmark = pytest.mark.bridge_time_scale(20)  # its delays are seconds

DAEMON = pathlib.Path(os.environ["BRIDGE_TEST_DAEMONS"]) / "dot1x"
VLAN_GUARD = pathlib.Path(os.environ["BRIDGE_EXAMPLES"]) / "vlan_guard"
ASKS = "request VLAN_EVENT_CREATE_INDEX vid=20 from dot1x"


@pytest.fixture
def world(bridge_world):
    bridge_world.run("port add 3 access 1")
    return bridge_world


def start(world):
    world.start(DAEMON, "-g", "20", "-p", "3", "-t", "2000")


def has_guests(world):
    world.wait("vlan 20 members has 3")
    world.wait("port 3 pvid is 20")


def test_port_gets_its_guest_vlan(world):
    start(world)
    world.expect(ASKS, "event VLAN_EVENT_CREATE_INDEX vid=20 to dot1x")
    has_guests(world)
    world.never(ASKS, 5)


def test_vlan_that_another_daemon_refuses_is_asked_for_again(world):
    guard = world.start(VLAN_GUARD, "-r", "20")
    world.wait("client vlan_guard registered")
    start(world)
    world.expect(ASKS, "event VLAN_EVENT_CREATE_PREJ vid=20 to vlan_guard", ASKS)
    assert world.run("vlan show")["vlans"] == []
    assert guard.prints("VLAN 20 asked: refused\n")
    guard.stop()
    has_guests(world)


def test_vlan_that_the_switch_refuses_is_asked_for_again(world):
    world.run("refuse request VLAN_EVENT_CREATE_INDEX vid=20 2 times")
    start(world)
    world.expect(ASKS.replace("request", "refusal"), ASKS.replace("request", "refusal"), ASKS)
    has_guests(world)


def test_deleted_vlan_is_wanted_back(world):
    start(world)
    has_guests(world)
    world.run("mark")
    world.run("vlan delete 20")
    world.wait(ASKS)
    has_guests(world)


def test_port_that_comes_later_gets_it_too(world):
    world.run("port del 3")
    start(world)
    world.wait("vlan 20 exists")
    world.run("port add 3 access 1")
    has_guests(world)


def test_guests_are_there_after_the_server_was_killed(world):
    start(world)
    has_guests(world)
    world.kill_server()
    world.start_server()
    world.wait("client dot1x registered")
    world.run("vlan delete 20")
    has_guests(world)
