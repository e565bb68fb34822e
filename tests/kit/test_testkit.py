"""The Python side of the kit."""

import os
import pathlib
import signal
import subprocess
import sys

import pytest

import bridge_testkit

EXAMPLES = pathlib.Path(os.environ["BRIDGE_EXAMPLES"])


def start_watch(world, name="watch"):
    daemon = world.start(EXAMPLES / "port_watch", "-n", name, "-p", "0")
    world.wait(f"client {name} registered")
    return daemon


def test_commands_are_answered_in_fields(bridge_world):
    bridge_world.run("port add 3 access 10")
    (port,) = bridge_world.run("port show")["ports"]
    assert (port["ifx"], port["mode"], port["pvid"]) == (3, "ACCESS", 10)


def test_refused_command_tells_its_reason(bridge_world):
    with pytest.raises(bridge_testkit.Refused, match="no such command: bogus"):
        bridge_world.run("bogus")
    with pytest.raises(bridge_testkit.Refused, match="one line"):
        bridge_world.run("print a\nprint b")
    bridge_world.run("print still there")


def test_wait_in_vain_is_refused(bridge_world):
    with pytest.raises(bridge_testkit.Refused, match="waited in vain for client watch registered"):
        bridge_world.wait("client watch registered", within=0.2)


def test_order_is_expected(bridge_world):
    start_watch(bridge_world)
    bridge_world.run("mark")
    bridge_world.run("port add 3 access 10")
    bridge_world.expect("event VLAN_EVENT_CREATE_INTF ifx=3", "event VLAN_EVENT_MODIFY_INTF_PVID pvid=10", within=2)
    bridge_world.run("port pvid 3 11")
    with pytest.raises(bridge_testkit.Refused):
        bridge_world.expect("event VLAN_EVENT_MODIFY_INTF_PVID pvid=11", "event VLAN_EVENT_CREATE_INTF", within=0.2)


def test_never_passes_when_nothing_happens_and_fails_at_once_otherwise(bridge_world):
    watch = start_watch(bridge_world)
    bridge_world.never("client watch gone", 0.5)
    watch.stop()
    with pytest.raises(bridge_testkit.Refused, match="it happened"):
        bridge_world.never("client watch gone", 100)


def test_output_and_status_of_a_daemon(bridge_world):
    watch = start_watch(bridge_world)
    assert watch.prints("watch: connected\n")
    assert not watch.prints("what nobody prints", 0.05)
    assert watch.status is None
    assert watch.stop() == 0
    assert watch.output.endswith("watch: ended\n")
    killed = start_watch(bridge_world, "other")
    assert killed.stop(signal.SIGKILL) == 128 + signal.SIGKILL


def test_tables_and_addresses_outlive_a_killed_server(bridge_world):
    start_watch(bridge_world)
    bridge_world.run("port add 3 access 10")
    bridge_world.run("vlan create 10")
    bridge_world.run("traffic 02:00:00:00:00:05 10 3")
    assert bridge_world.kill_server() == 128 + signal.SIGKILL
    with pytest.raises(bridge_testkit.Refused, match="no server"):
        bridge_world.run("port show")
    bridge_world.start_server()
    bridge_world.wait("client watch registered")
    assert [entry["mac"] for entry in bridge_world.run("mac show")["addresses"]] == ["02:00:00:00:00:05"]


def test_trace_tells_what_happened_at_both_servers(bridge_world):
    start_watch(bridge_world)
    bridge_world.kill_server()
    bridge_world.start_server()
    bridge_world.wait("client watch registered")
    registrations = [record for record in bridge_world.trace() if record.get("type") == "BRIDGE_EVENT_REG_MSG"]
    assert [record["fields"]["name"] for record in registrations] == ["watch", "watch"]


def test_worlds_side_by_side_share_nothing(bridge_world):
    with bridge_testkit.World(time_scale=10) as other:
        start_watch(bridge_world)
        bridge_world.run("port add 3 access 10")
        bridge_world.run("vlan create 10")
        bridge_world.run("traffic 02:00:00:00:00:05 10 3")
        assert other.run("port show")["ports"] == []
        assert other.run("vlan show")["vlans"] == []
        assert other.run("mac show")["addresses"] == []
        assert other.run("clients")["clients"] == []


def test_end_leaves_nothing_behind():
    world = bridge_testkit.World()
    watch = start_watch(world)
    world.run("vlan create 10")
    keys = subprocess.run(["ipcs", "-m"], stdout=subprocess.PIPE, text=True, check=True)
    key = f"{0x22220001 + world.vsdid:#010x}"
    assert key in keys.stdout
    world.end()
    assert not os.path.exists(world.tmpdir)
    assert not watch.runs and not world.server.runs and not world.kernel.runs
    assert key not in subprocess.run(["ipcs", "-m"], stdout=subprocess.PIPE, text=True, check=True).stdout
    world.end()  # nothing more


def clean(vsdid):
    """bridge-sandbox clean: its status and what it says."""
    run = subprocess.run(
        [bridge_testkit.find_sandbox(), "clean"],
        env=dict(os.environ, VSDID=vsdid),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
    )
    return run.returncode, run.stdout


def test_clean_removes_the_tables_of_its_vsdid_once(bridge_world):
    bridge_world.run("vlan create 10")
    bridge_world.server.stop()
    status, first = clean(str(bridge_world.vsdid))
    assert status == 0
    assert not first.startswith(f"VSDID {bridge_world.vsdid}: 0 objects")
    assert clean(str(bridge_world.vsdid)) == (0, f"VSDID {bridge_world.vsdid}: 0 objects removed\n")


@pytest.mark.parametrize("vsdid", ["abc", "1x", "-1"])
def test_clean_refuses_a_vsdid_that_is_none(vsdid):
    status, said = clean(vsdid)
    assert status == 64
    assert vsdid in said


def test_failed_test_shows_its_world(tmp_path):
    (tmp_path / "conftest.py").write_text('pytest_plugins = ["pytest_bridge_testkit"]\n')
    (tmp_path / "test_it.py").write_text(
        "def test_it(bridge_world):\n"
        f"    bridge_world.start({str(EXAMPLES / 'port_watch')!r}, '-n', 'watch')\n"
        "    bridge_world.wait('client watch registered')\n"
        "    assert False\n"
    )
    command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", str(tmp_path)]
    run = subprocess.run(command, stdout=subprocess.PIPE, text=True, cwd=tmp_path, check=False)
    assert run.returncode == 1
    assert "BRIDGE_EVENT_REG_MSG" in run.stdout
    assert "watch: connected" in run.stdout
