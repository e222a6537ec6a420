import sys

sys.dont_write_bytecode = True
SKIPPED = 77  # for CTest, which would take it for passed otherwise


def pytest_sessionfinish(session, exitstatus):
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    no_tests = 5
    if exitstatus in (0, no_tests) and reporter.stats.get("skipped"):
        session.exitstatus = SKIPPED
