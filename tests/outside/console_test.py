#!/usr/bin/python3
"""console_test.py - uses the console as a person would, in a headless Chromium. console_test.sh starts it.

Usage: console_test.py URL BUILD LIGHTTPD-CONFIGURATION LIGHTTPD-PID SESSION-DIRECTORY TOKEN READ-ONLY-TOKEN SHOTS
OPENCLT_SOCKET names the switch's socket. AXE, if set, is the path of axe-core's script: then each view is checked for
accessibility. The screenshots go into the directory SHOTS.
"""
import inspect
import json
import os
import signal
import subprocess
import sys
import tempfile
import time
import urllib.request

if len(sys.argv) != 9:  # before selenium is needed
    print(__doc__)
    sys.exit(0 if "--help" in sys.argv else 2)

from selenium import webdriver
from selenium.common.exceptions import NoSuchElementException, StaleElementReferenceException
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
from description import load, operations_of  # noqa: E402

url, build, configuration, web_server, sessions, token, reader, shots = sys.argv[1:]
api = url.replace("/console/", "/api/v2/switching/")
endpoints = len(list(operations_of(load())))


def browser(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for option in ("headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run",
                   "disable-background-networking", "disable-component-update", "disable-sync",
                   "window-size=1280,900", f"user-data-dir={profile}"):
        options.add_argument("--" + option)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=webdriver.chrome.service.Service("/usr/bin/chromedriver"), options=options)


class Page:
    """What a person sees and does. A test fails when something does not appear within half a minute."""

    def __init__(self, driver):
        self.driver = driver

    def at(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.at(selector).text

    def waits(self, there):
        """Waits until there() is true. The page may replace an element meanwhile: then it is read again."""
        passing = [NoSuchElementException, StaleElementReferenceException]
        WebDriverWait(self.driver, 30, ignored_exceptions=passing).until(there)

    def clicks(self, selector):
        self.waits(lambda _: self.at(selector).click() or True)

    def sees(self, selector, *parts):
        def there(_):
            return all(part in self.text(selector) for part in parts)
        try:
            self.waits(there)
        except Exception as reason:
            raise AssertionError(f"{selector} shows {self.text(selector)!r}, not {parts}") from reason

    def go(self, link):
        self.driver.get(url + link)

    def logs_in(self, name):
        self.driver.get("about:blank")
        self.go("#session=" + name)
        self.sees("#found", f"of {endpoints} endpoints")

    def sends(self, link, **fields):
        self.go(link)
        self.sees("#title", link[2:].split("@")[0])
        for key, value in fields.items():
            field = self.driver.find_element(By.XPATH, f"//p[label/code='{key}']/*[self::input or self::select]")
            if field.tag_name == "input":
                field.clear()
            field.send_keys(value)
        self.at("#form button[type=submit]").click()


def ask(target):
    request = urllib.request.Request(api + target, headers={"Session": token})
    return next(iter(json.load(urllib.request.urlopen(request)).values()))


def switch(*words):
    subprocess.run([build + "/vswitch", *words], check=True, stdout=subprocess.DEVNULL)


# Counts requests, and notes each that is sent again before its answer has come.
WATCH = """window.asked = 0; window.twice = [];
const send = window.fetch, pending = new Set();
window.fetch = async (...request) => {
  asked++;
  const [target] = request;
  if (pending.has(target)) twice.push(target);
  pending.add(target);
  try { return await send(...request); } finally { pending.delete(target); }
};"""


# The tests are the functions that take a page, in this order: each begins with it as the one before has left it.

def loads_in_time_and_hides_the_token(page):
    took = []
    while len(took) < 3 and min(took, default=9) >= 1.5: # a busy machine may be slow at first
        started = time.monotonic()
        page.logs_in(token)
        took.append(time.monotonic() - started)
    assert min(took) < 1.5, took
    assert token not in page.driver.current_url
    page.sees("#who", "may read and write")
    return f"({min(took):.2f} s)"


def finds_by_key_and_operation(page):
    for text, path in (("participationMode", "vlan/if-participation"), ("rpcclt_openapiVlanCreate", "vlan/create")):
        search = page.at("#search")
        search.clear()
        search.send_keys(text)
        page.sees("#list", path)
    search.clear()


def tries_an_endpoint(page):
    page.sends("#/vlan/create", vlanNum="77")
    page.sees("#verdict", "Success: 0")
    page.sees("#trace", "rpcclt_openapiVlanCreate", "77")
    assert "ConnectivityCheck" not in page.text("#trace").split("\n", 3)[-1]
    page.driver.save_screenshot(shots + "/requests.png")
    page.at("#form button[type=submit]").click()
    page.sees("#verdict", "Failure: 10011", "Object exist")


def says_the_same_as_its_curl_line(page):
    page.sends("#/vlan/if-participation@PUT", vlanNum="77", ifNum="2", participationMode="1")
    page.sees("#verdict", "Success")
    answer = subprocess.run(page.text("#curl") + " -s", shell=True, check=True, capture_output=True, text=True).stdout
    assert json.loads(answer) == json.loads(page.text("#answer"))


def refuses_what_a_browser_cannot_send(page):
    page.sends("#/voip/oui@DELETE")
    page.sees("#refusal", "curl line sends them raw")
    assert not page.at("#outcome").is_displayed()
    page.sends("#/vlan/mac-oui-vlan-next", oui="a b")
    page.sees("#verdict", ": ") # a decoded value may contain anything
    page.sends("#/macal/rule", macalName='a "b"')
    page.sees("#refusal", "macalName goes into the query raw")


def shows_the_switch(page):
    page.go("#/switch")
    page.sees("#sum", "14 up", "14 down", "root: this switch")
    assert page.text("[aria-pressed=true]").startswith("1")
    page.clicks("#port3")
    page.sees("#portTitle", "Port 3: forwarding")
    page.sees("#settings", "general")
    page.clicks("#cell77-5")
    page.sees("#cell77-5", "U")
    assert 77 in ask("vlan/dot1q-sw-port-untagged-vlan-list?intf=5")["vidList"]
    page.clicks("#cell77-5")
    page.sees("#cell77-5", "T")
    page.clicks("#undo")
    page.sees("#cell77-5", "U")
    page.sees("#changed", "Undone", "Success")
    page.clicks("#port5")
    page.sees("#portTrace", "VlanIfTaggingSet", "ifNum=5")
    switch("fault", "rpcclt_openapiVlanIfParticipationSet", "code=-1", "times=1")
    page.clicks("#cell77-6")
    page.sees("#changed", "Failure: -1", "Error code unknown")


def shows_changes_at_once(page):
    page.sends("#/vlan/create", vlanNum="88")
    page.go("#/switch")
    page.sees("#vlans", "88")


def shows_what_happens(page):
    switch("learn", "77", "02:00:00:00:77:01", "2")
    page.sees("#addresses", "02:00:00:00:77:01")
    page.at("#filter").send_keys("77:01")
    page.sees("#addressCount", "1 of ")
    page.at("#filter").send_keys(Keys.CONTROL + "a", Keys.DELETE)
    page.clicks("#port4")
    page.clicks("#linkDown")
    page.sees("#port4", "D")
    page.clicks("#linkUp")
    page.sees("#port4", "F")
    page.clicks("#fault")
    page.sees("#faults", "* code=-1")
    page.sees("#trouble", "10000")
    page.clicks("#clearFaults")
    page.sees("#faults", "none")
    switch("fault", "rpcclt_openapiDot1dTpPortInDiscardsGet", "code=0", "port=9", "count=7")
    page.clicks("#readNow")
    page.clicks("#counters-discarded") # the most first
    page.sees("#counterTable tr:first-child #counterRow9", "9")
    page.clicks("#clearFaults")
    page.sees("#faults", "none")
    page.driver.save_screenshot(shots + "/switch.png")


def asks_one_thing_once(page):
    """A slow switch: no request is repeated before its answer has come. The page says that it reads."""
    switch("fault", "*", "delay=300")
    page.driver.get("about:blank")
    page.go("#/")
    page.sees("#found", "endpoints")
    page.driver.execute_script(WATCH)
    page.go("#/switch")
    page.sees("#updates", "Reading")
    time.sleep(12)
    repeated, asked, first = page.driver.execute_script("return [twice.length, asked, twice[0]]")
    switch("clear")
    assert repeated == 0, f"{repeated} of {asked} requests were repeated, such as {first}"


def shows_what_it_does_not_know(page):
    switch("fault", "*", "hangup")
    page.logs_in(token)
    page.go("#/switch")
    page.sees("#trouble", "10000", "General Failed")
    page.sees("#sum", "? VLANs", "? addresses")
    assert "null" not in page.text("#switch") and "0 of 0" not in page.text("#switch")
    switch("clear")
    page.sees("#sum", "14 up")
    page.waits(lambda _: not page.at("#trouble").is_displayed())
    switch("fault", "rpcclt_openapiDot1dStpDesignatedRootGet", "code=-1")
    page.sees("#sum", "14 up", "root: this switch (", "ago)")
    switch("clear")


def believes_no_nonsense(page):
    for operation, value, part in (("Dot1dBaseNumPortsGet", "numPorts=4294967295", "4294967295"),
                                   ("NextVlanGet", "nextVlanId=1", "does not ascend: 1 follows 1"),
                                   ("FdbEntryNextGet", "mac=a", "does not ascend: a follows a")):
        switch("fault", "rpcclt_openapi" + operation, "code=0", value)
        page.logs_in(token)
        page.go("#/switch")
        page.sees("#trouble", part)
        switch("clear")


def fits_a_phone(page):
    page.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                {"width": 360, "height": 740, "deviceScaleFactor": 1, "mobile": True})
    for link in ("#/switch", "#/vlan/if-participation@PUT"):
        page.go(link)
        width = page.driver.execute_script("return document.scrollingElement.scrollWidth")
        assert width <= 360, f"{link} is {width} pixels wide"
    page.go("#/switch")
    page.sees("#port28", "D")
    assert page.driver.execute_script("return document.getElementById('sum').getBoundingClientRect().bottom") < 740
    page.driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": True})
    page.clicks("#cell77-6") # a finger hits the wrong cell easily
    page.sees("#askText", "Port 6, VLAN 77: none")
    page.clicks("#askNo")
    assert 77 not in ask("vlan/dot1q-sw-port-untagged-vlan-list?intf=6")["vidList"]
    page.driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": False})
    page.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})


def needs_no_mouse(page):
    page.go("#/")
    page.at("#search").click()
    keys = ActionChains(page.driver)
    keys.send_keys("dot1d-tp-aging", Keys.ENTER, Keys.TAB).perform() # the first result has the focus
    page.sees("#title", "bridge/db-dot1d-tp-aging-time")
    for _ in range(10):
        if page.driver.switch_to.active_element.text == "Send":
            break
        ActionChains(page.driver).send_keys(Keys.TAB).perform()
    ActionChains(page.driver).send_keys(Keys.ENTER).perform()
    page.sees("#verdict", "Success")
    page.at("#search").clear()


def is_accessible(page):
    if "AXE" not in os.environ:
        return "skipped: axe-core is missing"
    for link in ("#/vlan/create", "#/switch"):
        for scheme in ("light", "dark"):
            page.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                        {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
            page.go(link)
            # Through the debugger: the page's policy forbids other scripts.
            page.driver.execute_cdp_cmd("Runtime.evaluate", {"expression": open(os.environ["AXE"]).read()})
            found = page.driver.execute_async_script(
                "axe.run().then(result => arguments[0](result.violations.map(v => v.id + ': ' + v.nodes[0].html)))")
            assert not found, f"{link}, {scheme}: {found}"
    page.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})


def is_no_use_to_others(page):
    page.driver.get("data:text/html,<p>elsewhere</p>")
    outcome = page.driver.execute_async_script(
        "fetch(arguments[0], {headers: {Session: arguments[1]}}).then(a => a.text(), e => e.name).then(arguments[2])",
        api + "vlan/next-vlan?vid=0", token)
    assert outcome == "TypeError", outcome
    for name, headers in (("lighttpd.conf", {"Session": token}), ("vswitch", {}), ("vswitch", {"Session": reader}),
                          ("vswitch/x", {"Session": "0" * 32})):
        try:
            urllib.request.urlopen(urllib.request.Request(url + name, headers=headers))
            raise AssertionError(f"{name} is served")
        except urllib.error.HTTPError:
            pass


def knows_who_may_only_read(page):
    page.logs_in(reader)
    page.sees("#who", "may only read")
    page.sends("#/vlan/create", vlanNum="78")
    page.sees("#verdict", "HTTP 403", "may only read")
    page.go("#/switch")
    page.sees("#sum", "14 up")
    assert not page.at("#simulation").is_displayed()


def outlives_the_web_server_but_not_the_session(page):
    page.logs_in(token)
    page.go("#/switch")
    page.sees("#updates", "requests")
    os.kill(int(web_server), signal.SIGTERM)
    page.sees("#trouble", "does not answer")
    page.go("#/vlan/next-vlan")
    page.at("#form button[type=submit]").click()
    page.sees("#verdict", "does not answer")
    again = subprocess.Popen(["lighttpd", "-D", "-f", configuration], stderr=subprocess.DEVNULL)
    try:
        page.go("#/switch")
        page.sees("#updates", "requests")
        WebDriverWait(page.driver, 30).until(lambda _: not page.at("#trouble").is_displayed())
        os.unlink(f"{sessions}/{token}")
        page.driver.execute_script(WATCH)
        page.sees("#trouble", "HTTP 403", "session has ended")
        asked = page.driver.execute_script("return asked")
        time.sleep(6)
        assert page.driver.execute_script("return asked") == asked, "the page goes on asking"
        page.sends("#/vlan/create", vlanNum="79")
        page.sees("#verdict", "HTTP 403")
    finally:
        again.terminate()
        again.wait()


def main():
    tests = [one for one in globals().values() if inspect.isfunction(one) and "page" in inspect.signature(one).parameters]
    failed = 0
    with tempfile.TemporaryDirectory() as profile:
        driver = browser(profile)
        try:
            for test in tests:
                name = test.__name__.replace("_", " ")
                try:
                    print(f"ok      {name} {test(Page(driver)) or ''}", flush=True)
                except Exception as reason: # an exception of the browser is a failure as well
                    failed += 1
                    print(f"FAILED  {name}: {str(reason).split('Stacktrace')[0]}", flush=True)
            for line in driver.get_log("browser"):
                if "Content Security Policy" in line["message"]:
                    failed += 1
                    print("FAILED  the page violates its content security policy:", line["message"])
        finally:
            driver.quit()
    print(f"{len(tests) - failed} passed, {failed} failed")
    return failed > 0


if __name__ == "__main__":
    sys.exit(main())
