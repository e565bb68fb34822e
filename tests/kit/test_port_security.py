"""A daemon that limits how many addresses a port may learn, two here."""

import os
import pathlib

import pytest

DAEMON = pathlib.Path(os.environ["BRIDGE_TEST_DAEMONS"]) / "port_security"
HOST = "02:00:00:00:00:{:02x}"


@pytest.fixture
def world(bridge_world):
    bridge_world.run("vlan create 10")
    for port in (3, 4):
        bridge_world.run(f"port add {port} access 10")
    bridge_world.daemon = bridge_world.start(DAEMON, "-l", "2")
    wait_until_it_follows(bridge_world)
    return bridge_world


def wait_until_it_follows(world):
    """It asks for the addresses when it is synchronised; what is announced from then on reaches it."""
    world.wait("request BRIDGE_EVENT_ORI_DATA_REQUEST from portsec")


def send(world, host, port):
    return world.run(f"traffic {HOST.format(host)} 10 {port}")["outcome"]


def fill(world, port, *hosts):
    for host in hosts:
        assert send(world, host, port) == "learned"
    closes(world, port)


def closes(world, port):
    world.wait(f"request MAC_EVENT_INTF_LEARN ifx={port} learn_disable=1 from portsec")


def opens(world, port):
    world.wait(f"request MAC_EVENT_INTF_LEARN ifx={port} learn_disable=0 from portsec")


def learned(world):
    return {(entry["mac"], entry["ifx"]) for entry in world.run("mac show")["addresses"]}


def test_full_port_learns_no_more(world):
    fill(world, 3, 1, 2)
    assert send(world, 3, 3) != "learned"
    assert send(world, 3, 4) == "learned"
    assert learned(world) == {(HOST.format(1), 3), (HOST.format(2), 3), (HOST.format(3), 4)}


def test_what_came_at_once_is_deleted_down_to_the_limit(world):
    world.run("traffic flood 5 10 3")
    for _ in range(3):
        world.wait("request MAC_EVENT_NOTIFY_ADDR from portsec")
    assert len(learned(world)) == 2


def test_room_by_an_address_that_goes_is_used(world):
    fill(world, 3, 1, 2)
    world.run(f"mac delete {HOST.format(1)}")
    opens(world, 3)
    assert send(world, 3, 3) == "learned"
    closes(world, 3)


def test_move_is_followed(world):
    fill(world, 3, 1, 2)
    assert send(world, 1, 4) == "moved"
    opens(world, 3)
    assert world.daemon.prints("moved from port 3 to port 4\n")
    assert send(world, 3, 3) == "learned"
    closes(world, 3)
    fill(world, 4, 4)
    assert learned(world) == {(HOST.format(n), port) for n, port in ((1, 4), (2, 3), (3, 3), (4, 4))}


def test_limits_hold_after_the_server_was_killed(world):
    fill(world, 3, 1, 2)
    assert send(world, 3, 4) == "learned"
    before = learned(world)
    world.kill_server()
    world.start_server()
    wait_until_it_follows(world)
    assert learned(world) == before
    closes(world, 3)
    fill(world, 4, 4)
    assert send(world, 5, 3) != "learned"
    assert send(world, 5, 4) != "learned"
