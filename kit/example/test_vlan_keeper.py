"""The daemon's tests in Python. A test that fails shows the last messages and what the daemon printed."""

import os

import pytest


@pytest.fixture
def world(bridge_world):
    bridge_world.keeper = bridge_world.start(os.environ["VLAN_KEEPER"], "900")
    bridge_world.wait("vlan 900 exists")
    return bridge_world


def test_deleted_vlan_comes_back(world):
    world.run("mark")
    world.run("vlan delete 900")
    world.wait("request VLAN_EVENT_CREATE_INDEX vid=900 from vlan_keeper")
    world.wait("vlan 900 exists")


def test_other_vlans_are_left_alone(world):
    world.run("vlan create 10-12")
    world.run("vlan delete 11")
    world.never("request VLAN_EVENT_CREATE_INDEX from vlan_keeper", 2)
    assert [vlan["vid"] for vlan in world.run("vlan show")["vlans"]] == [10, 12, 900]


def test_slave_asks_for_nothing_until_it_is_master(world):
    world.run("role slave")
    world.run("vlan delete 900")
    world.never("request VLAN_EVENT_CREATE_INDEX from vlan_keeper", 2)
    world.run("switchover")
    world.run("vlan create 10")
    world.run("vlan delete 10")
    world.wait("vlan 900 exists")


def test_killed_server_finds_it_again(world):
    world.kill_server()
    world.start_server()
    world.wait("client vlan_keeper registered")
    world.run("vlan delete 900")
    world.wait("vlan 900 exists")
    assert world.keeper.prints("VLAN 900 is missing\n")
