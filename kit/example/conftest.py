pytest_plugins = ["pytest_bridge_testkit"]
