"""A spanning-tree daemon: forwarding two seconds of the world's time after a link has come up."""

import os
import pathlib

import pytest

pytestmark = pytest.mark.bridge_time_scale(20)  # its delays are seconds

DAEMON = pathlib.Path(os.environ["BRIDGE_TEST_DAEMONS"]) / "stpd"
TELLS = "request L2TOP_EVENT_PORT_STATUS from stpd"
DISCARDING, FORWARDING = 1, 2


@pytest.fixture
def world(bridge_world):
    for port in (3, 4):
        bridge_world.run(f"port add {port} trunk 1")
    start(bridge_world)
    return bridge_world


def start(world):
    world.daemon = world.start(DAEMON, "-d", "2000")
    world.wait("client stpd registered")


def states(world):
    """(port, instance): state, as the tables hold it."""
    return {(row["ifx"], row["instance"]): row["state"] for row in world.run("stp show")["states"]}


def both(port, state):
    return {(port, instance): state for instance in (0, 1)}


def reach(world, expected):
    for (port, instance), state in expected.items():
        world.wait(f"stp {port} {instance} state is {state}")


def test_states_arrive_in_the_tables(world):
    reach(world, both(3, FORWARDING) | both(4, FORWARDING))
    assert world.run("proto show")["state"] == "mstp"
    instances = {row["instance"]: row["vlans"] for row in world.run("stp show")["instances"]}
    assert instances[1] == "10-19"


def test_link_that_fails_discards_and_forwards_again_after_its_delay(world):
    reach(world, both(3, FORWARDING) | both(4, FORWARDING))
    world.run("port down 3")
    reach(world, both(3, DISCARDING))
    assert both(4, FORWARDING).items() <= states(world).items()
    world.run("port up 3")
    world.run("sleep 1")
    assert both(3, DISCARDING).items() <= states(world).items()
    reach(world, both(3, FORWARDING))


def test_flapping_link_does_not_forward(world):
    reach(world, both(3, FORWARDING) | both(4, FORWARDING))
    world.run("port flap 3 times 5 every 0.2")
    assert both(3, DISCARDING).items() <= states(world).items()
    reach(world, both(3, FORWARDING))


def test_states_are_there_when_the_server_comes_back(world):
    reach(world, both(3, FORWARDING) | both(4, FORWARDING))
    world.kill_server()
    world.start_server()
    assert world.daemon.prints("port 3: still forwarding\n") and world.daemon.prints("port 4: still forwarding\n")
    assert states(world) == both(3, FORWARDING) | both(4, FORWARDING)
    world.run("port down 4")
    reach(world, both(4, DISCARDING))


def test_states_come_back_when_the_daemon_is_started_again(world):
    reach(world, both(3, FORWARDING) | both(4, FORWARDING))
    assert world.daemon.stop() == 0
    start(world)
    assert world.daemon.prints("port 3: still forwarding\n") and world.daemon.prints("port 4: still forwarding\n")
    assert states(world) == both(3, FORWARDING) | both(4, FORWARDING)


def test_conflicting_protocol_keeps_it_from_starting(bridge_world):
    bridge_world.run("port add 3 trunk 1")
    bridge_world.run("proto conflict mstp erps")
    bridge_world.run("proto set erps")
    start(bridge_world)
    assert bridge_world.daemon.prints("is in the way\n")
    bridge_world.never(TELLS, 4)
    assert bridge_world.run("proto show")["state"] == "erps"
