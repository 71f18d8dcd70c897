"""fixtures.py - a pytest plugin: a virtual switch for tests (pytest -p switching.fixtures, or installed with the package).

    served      a Switch, served once for all tests
    switch      the same, in its state at the start: a fresh one for each test
    switch_state  what `switch` is set to before each test; override it: the path of a snapshot, or a dict
    serving     what is served, the arguments of Switch.serve; override it: {"ports": 48, "sockets": 4}

A test that fails shows what the switch was asked. --switching-build DIR serves a build in a checkout.
"""
import pytest

from .switch import Switch


def pytest_addoption(parser):
    parser.addoption("--switching-build", metavar="DIR", help="serve the virtual switch and the program in this build")


@pytest.fixture(scope="session")
def serving(request):
    return {"build": request.config.getoption("--switching-build")}


@pytest.fixture(scope="session")
def served(serving, request):
    options = {"build": request.config.getoption("--switching-build"), **serving}
    with Switch.serve(**options) as switch:
        yield switch


@pytest.fixture
def switch_state():
    return None


@pytest.fixture
def switch(served, switch_state, request):
    served.end_hosts()
    served.reset()
    if switch_state is not None:
        served.apply(switch_state, exact=True)
    with served.traced() as calls:
        request.node.stash[CALLS] = calls
        yield served


CALLS = pytest.StashKey()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    if report.failed and item.stash.get(CALLS, None):
        report.sections.append(("what the switch was asked", "\n".join(map(str, item.stash[CALLS][-20:]))))
