"""The device console in a real browser (headless Chromium through Selenium), against a running
dme-device-server serving the example gateway.

Environment: DME_CONSOLE_URL (the console, e.g. http://127.0.0.1:8080/), DME_API_URL (the tree,
e.g. http://127.0.0.1:8080/api), DME_SCREENSHOT (where the main page's screenshot goes).
"""
import base64
import json
import os
import time
import unittest
import urllib.error
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

CONSOLE_URL = os.environ.get("DME_CONSOLE_URL", "http://127.0.0.1:8080/")
API_URL = os.environ.get("DME_API_URL", "http://127.0.0.1:8080/api")
SCREENSHOT = os.environ.get("DME_SCREENSHOT", "console.png")
PATIENCE = 15  # seconds: how long a test waits for the page before it fails


def api(method, uri, user="admin", body=None):
    """Sends a request to the tree as `user` (password: the user name). Returns (status,
    headers, parsed JSON or None)."""
    data = None if body is None else json.dumps(body).encode()
    request = urllib.request.Request(API_URL + uri, data=data, method=method)
    token = base64.b64encode(f"{user}:{user}".encode()).decode()
    request.add_header("Authorization", "Basic " + token)
    if data is not None:
        request.add_header("Content-Type", "application/json")
    try:
        with urllib.request.urlopen(request, timeout=PATIENCE) as response:
            text = response.read().decode()
            return response.status, response.headers, json.loads(text) if text else None
    except urllib.error.HTTPError as error:
        text = error.read().decode()
        return error.code, error.headers, json.loads(text) if text else None


def may_update(uri, user):
    """Whether the server lets `user` PUT `uri`, from its Allow header."""
    _, headers, _ = api("OPTIONS", uri, user)
    return "PUT" in [method.strip() for method in headers.get("Allow", "").split(",")]


def wait_for(condition, message):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.05)
    raise AssertionError("timed out waiting: " + message)


class ConsoleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage",
                         "--window-size=1280,900"):
            options.add_argument(argument)
        options.binary_location = "/usr/bin/chromium"
        cls.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()

    def setUp(self):
        self.driver.set_window_size(1280, 900)
        self.driver.get(CONSOLE_URL)
        self.driver.execute_script("sessionStorage.clear()")
        self.driver.get(CONSOLE_URL)

    # ---- helpers ----

    def log_in(self, user, password=None, view="/"):
        self.driver.get(CONSOLE_URL + "#" + view)
        self.driver.find_element(By.ID, "login-user").send_keys(user)
        self.driver.find_element(By.ID, "login-password").send_keys(
            user if password is None else password)
        self.driver.find_element(By.ID, "login-submit").click()
        if password is None or password == user:
            self.wait_until_ready(view)

    def wait_until_ready(self, view):
        wait_for(lambda: self.driver.execute_script("return document.body.dataset.ready") == view,
                 "the view of " + view)

    def show(self, view, query=""):
        self.driver.get(CONSOLE_URL + query + "#" + view)
        self.wait_until_ready(view)

    def field_input(self, uri):
        return self.driver.find_element(By.CSS_SELECTOR, f'[data-uri="{uri}"]:is(input, select)')

    def field_error(self, uri):
        return self.driver.find_element(By.CSS_SELECTOR, f'.field[data-uri="{uri}"] .error')

    def enter(self, uri, text):
        # Selecting the old text and typing over it changes the field once, as a user does.
        self.field_input(uri).send_keys(Keys.CONTROL + "a" + Keys.NULL + text + Keys.TAB)

    def inputs(self):
        return self.driver.find_elements(By.CSS_SELECTOR, "input[data-uri], select[data-uri]")

    def assert_page_agrees_with_server(self, user):
        """Every input of the page is editable exactly when the server lets `user` update it."""
        inputs = self.inputs()
        self.assertGreater(len(inputs), 5)
        for field in inputs:
            uri = field.get_attribute("data-uri")
            expected = may_update(uri, user) and field.get_attribute("data-readonly") is None
            self.assertEqual(expected, field.is_enabled(), f"{user} on {uri}")

    # ---- logging in and rights ----

    def test_guest_can_change_nothing(self):
        self.log_in("guest")
        self.assertEqual("guest", self.driver.find_element(By.ID, "current-user").text)
        self.assertEqual([], [f.get_attribute("data-uri") for f in self.inputs() if f.is_enabled()])
        self.assert_page_agrees_with_server("guest")

    def test_operator_can_change_the_network_but_not_the_system(self):
        self.log_in("operator")
        self.assertEqual("operator", self.driver.find_element(By.ID, "current-user").text)
        self.assertTrue(self.field_input("/network/defaultRoute").is_enabled())
        self.assertTrue(self.field_input("/network/dnsServers/0").is_enabled())
        self.assertFalse(self.field_input("/system/hostname").is_enabled())
        self.assert_page_agrees_with_server("operator")

    def test_admin_can_change_the_system_but_not_what_is_read_only(self):
        self.log_in("admin")
        self.assertEqual("admin", self.driver.find_element(By.ID, "current-user").text)
        self.assertTrue(self.field_input("/system/hostname").is_enabled())
        self.assertFalse(self.field_input("/system/firmwareVersion").is_enabled())
        self.assert_page_agrees_with_server("admin")

    def test_wrong_password_shows_an_error_and_no_console(self):
        self.log_in("admin", "wrong")
        error = wait_for(lambda: self.driver.find_element(By.ID, "login-error").text,
                         "the login error")
        self.assertEqual("Wrong user name or password", error)
        self.assertFalse(self.driver.find_element(By.ID, "console").is_displayed())

    def test_log_out_returns_to_the_login_form(self):
        self.log_in("admin")
        self.driver.find_element(By.ID, "logout").click()
        self.assertTrue(self.driver.find_element(By.ID, "login").is_displayed())
        self.assertFalse(self.driver.find_element(By.ID, "console").is_displayed())

    # ---- writing values ----

    def test_out_of_range_number_shows_the_servers_message_and_changes_nothing(self):
        uri = "/system/timezoneOffset"
        _, _, before = api("GET", uri)
        _, _, refusal = api("PUT", uri, body=5000)
        self.log_in("admin")
        self.enter(uri, "5000")
        error = wait_for(lambda: self.field_error(uri).text, "the field's error")
        expected = refusal["error"]["message"]
        self.assertTrue(error.startswith(expected), error)
        wait_for(lambda: self.field_input(uri).get_attribute("value") == str(before),
                 "the stored value back in the field")
        self.assertEqual(before, api("GET", uri)[2])

    def test_number_in_range_is_stored(self):
        uri = "/system/timezoneOffset"
        self.log_in("admin")
        self.enter(uri, "120")
        wait_for(lambda: api("GET", uri)[2] == 120, "the server to hold 120")
        self.assertEqual("", self.field_error(uri).text)
        api("PUT", uri, body=60)

    def test_text_too_long_is_refused_next_to_its_field(self):
        uri = "/system/location"
        self.log_in("admin")
        self.driver.execute_script(
            "arguments[0].removeAttribute('maxlength')", self.field_input(uri))
        self.enter(uri, "x" * 65)
        error = wait_for(lambda: self.field_error(uri).text, "the field's error")
        self.assertIn("String too long", error)
        self.assertEqual("", api("GET", uri)[2])

    # ---- collections ----

    def test_admin_adds_and_deletes_a_user(self):
        self.log_in("admin", view="/users")
        form = self.driver.find_element(By.CSS_SELECTOR, 'form.add[data-uri="/users"]')
        form.find_element(By.NAME, "name").send_keys("carol")
        form.find_element(By.CSS_SELECTOR, "button.add").click()
        self.wait_until_ready("/users")
        _, _, users = api("GET", "/users?expand=2")
        carol = [user for user in users["members"] if user["name"] == "carol"]
        self.assertEqual(1, len(carol))
        row_selector = f'tr[data-uri="{carol[0]["href"]}"]'
        row = self.driver.find_element(By.CSS_SELECTOR, row_selector)
        row.find_element(By.CSS_SELECTOR, "button.delete").click()
        wait_for(lambda: not self.driver.find_elements(By.CSS_SELECTOR, row_selector),
                 "the row to go")
        self.assertEqual(404, api("GET", carol[0]["href"])[0])

    def test_guest_sees_users_without_add_or_delete(self):
        self.log_in("guest", view="/users")
        self.assertEqual([], self.driver.find_elements(By.CSS_SELECTOR, "form.add"))
        self.assertEqual([], [b for b in self.driver.find_elements(By.CSS_SELECTOR, "button.delete")
                              if b.is_displayed()])

    def test_large_collection_is_paged(self):
        self.log_in("admin")
        self.show("/users", "?pageSize=1")
        pager = self.driver.find_element(By.CSS_SELECTOR, ".pager")
        self.assertIn("1–1 of 2", pager.text)
        rows = self.driver.find_elements(By.CSS_SELECTOR, "tbody tr")
        self.assertEqual(["/users/1"], [row.get_attribute("data-uri") for row in rows])
        pager.find_element(By.CSS_SELECTOR, "button.next").click()
        wait_for(lambda: [r.get_attribute("data-uri") for r in
                          self.driver.find_elements(By.CSS_SELECTOR, "tbody tr")] == ["/users/2"],
                 "the second page")

    def test_link_navigates_to_its_target(self):
        self.log_in("admin", view="/network")
        link = self.driver.find_element(By.CSS_SELECTOR, '.field[data-uri="/network/gateway"] a')
        link.click()
        self.wait_until_ready("/network/interfaces/wan")
        self.assertEqual("eth1", self.field_input("/network/interfaces/wan/device")
                         .get_attribute("value"))

    # ---- live changes ----

    def test_change_made_elsewhere_appears_in_the_page(self):
        uri = "/system/location"
        self.log_in("admin")
        self.assertEqual(200, api("PUT", uri, body="changed by curl")[0])
        wait_for(lambda: self.field_input(uri).get_attribute("value") == "changed by curl",
                 "the new value in the page")
        api("PUT", uri, body="")

    # ---- layout ----

    def test_phone_sized_window_has_no_horizontal_scrolling(self):
        self.driver.set_window_size(375, 667)
        self.log_in("admin")
        self.assertLessEqual(
            self.driver.execute_script("return document.documentElement.scrollWidth"),
            self.driver.execute_script("return window.innerWidth"))
        self.show("/users")
        self.assertLessEqual(
            self.driver.execute_script("return document.documentElement.scrollWidth"),
            self.driver.execute_script("return window.innerWidth"))

    def test_screenshot_of_the_main_page(self):
        self.log_in("admin")
        self.driver.save_screenshot(SCREENSHOT)
        with open(SCREENSHOT, "rb") as image:
            header = image.read(8)
        self.assertEqual(b"\x89PNG\r\n\x1a\n", header)
        self.assertGreater(os.path.getsize(SCREENSHOT), 10000)


if __name__ == "__main__":
    unittest.main(verbosity=2)
