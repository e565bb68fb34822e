"""A world for each pytest test that asks for it. In conftest.py: pytest_plugins = ["pytest_bridge_testkit"].

    def test_it_registers(bridge_world):
        bridge_world.start("./my_daemon")
        bridge_world.wait("client my_daemon registered")

`--bridge-time-scale N` or the marker `bridge_time_scale(N)` make its clocks run faster. A failed test shows the last
messages of its world and what its daemons printed.
"""

import pytest

import bridge_testkit


def pytest_addoption(parser):
    parser.addoption("--bridge-time-scale", type=float, default=10, help="how fast the clocks of a world run (10)")


def pytest_configure(config):
    config.addinivalue_line("markers", "bridge_time_scale(N): how fast the clocks of the test's world run")


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    report = (yield).get_result()
    world = getattr(item, "funcargs", {}).get("bridge_world")
    if report.when == "call" and report.failed and world is not None:
        report.sections.append(("bridge world", world.report()))


@pytest.fixture
def bridge_world(request):
    marker = request.node.get_closest_marker("bridge_time_scale")
    scale = marker.args[0] if marker else request.config.getoption("--bridge-time-scale")
    with bridge_testkit.World(time_scale=scale) as world:
        yield world
