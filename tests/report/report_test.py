#!/usr/bin/env python3
"""report_test.py DPDU TRACES: a browser shows what traces say.

Each test waits for what has to appear. Set TARVIK_SCREENSHOTS to a folder to keep pictures of the views.
"""
import json, os, subprocess, sys, tempfile, time, unittest
from collections import Counter
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

import sample_trace

PROGRAM, TRACES = sys.argv[1], Path(sys.argv[2])
PICTURES = os.environ.get("TARVIK_SCREENSHOTS")
LIMIT = 60  # seconds until something that must appear counts as missing
MILLION = 1_000_000


def start_browser(profile):
    options = Options()
    for argument in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1400,1000",
                     f"--user-data-dir={profile}"):
        options.add_argument(argument)
    if os.getuid() == 0:
        options.add_argument("--no-sandbox")  # Chromium has none for root
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def report(folder, *traces, name="report.html"):
    target = Path(folder) / name
    result = subprocess.run([PROGRAM, "trace", "report", "-o", target, *traces], check=True,
                            capture_output=True, text=True)
    return target, result


class ReportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.base = Path(scratch.name)
        cls.browser = start_browser(cls.base / "profile")
        cls.addClassCleanup(cls.browser.quit)
        cls.trace = cls.base / "sample.jsonl"
        cls.sample = sample_trace.write(cls.trace, 30_000)
        cls.page, _ = report(cls.base, cls.trace)

    def open(self, page=None, address=""):
        self.browser.get("about:blank")
        self.browser.get_log("browser")
        self.browser.get(f"{(page or self.page).as_uri()}{address}")
        self.until(lambda: self.browser.execute_script("return document.body.dataset.ready") == "true")

    def tearDown(self):
        # A refused script, style or request is a line of the console, too.
        self.assertEqual([line["message"] for line in self.browser.get_log("browser")], [])

    def until(self, condition):
        return WebDriverWait(self.browser, LIMIT, poll_frequency=0.05).until(lambda _: condition())

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.find(selector).text

    def status(self, count):
        wanted = f"{count:,} of {len(self.sample.exchanges):,} exchanges"
        self.until(lambda: self.text("#status") == wanted)

    def hash(self):
        return self.browser.execute_script("return location.hash")

    def keep_picture(self, name):
        if PICTURES:
            self.browser.save_screenshot(f"{PICTURES}/{name}.png")

    def keys(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def ink(self, selector="#chart"):
        """How many pixels of a canvas are not of its background."""
        return self.browser.execute_script(
            "const c = document.querySelector(arguments[0]);"
            "const p = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;"
            "let n = 0; for (let i = 3; i < p.length; i += 4) if (p[i] > 0) n++; return n;", selector)

    def outcomes(self):
        return Counter(outcome for _, _, outcome, _ in self.sample.exchanges)

    def test_the_overview_has_the_traces_figures(self):
        self.open()
        self.status(len(self.sample.exchanges))
        tiles = dict(zip([e.text for e in self.browser.find_elements(By.CSS_SELECTOR, ".tiles dt")],
                         [e.text for e in self.browser.find_elements(By.CSS_SELECTOR, ".tiles dd")]))
        outcomes = self.outcomes()
        self.assertEqual((tiles["Control units"], tiles["Negative responses"], tiles["No answer"]),
                         ("64", str(outcomes["negative"]), str(outcomes["silent"])))
        self.assertIn(str(self.sample.seq), self.text("#overview"))
        self.assertIn("requestOutOfRange (0x31)", self.text("#overview"))
        self.assertIn("Slowest exchanges", self.text("#overview"))
        self.assertIn("p99", self.text("#overview"))
        self.keep_picture("overview-light")

    def test_filters_leave_the_exchanges_that_pass(self):
        self.open()
        exchanges = self.sample.exchanges
        Select(self.find("#unit")).select_by_visible_text("605:685")
        self.status(sum(1 for unit, *_ in exchanges if unit == 5))
        self.find("#clear").click()
        self.status(len(exchanges))
        Select(self.find("#service")).select_by_value(str(0x22))
        self.status(sum(1 for _, service, *_ in exchanges if service == 0x22))
        self.find("#problems").click()
        self.status(sum(1 for _, service, outcome, _ in exchanges if service == 0x22 and outcome != "ok"))
        self.find("#clear").click()
        for field, typed, passes in (("id", "686", lambda e: e[0] == 6),
                                     ("bytes", "19 02 09", lambda e: e[1] == 0x19),
                                     ("text", "testerpresent", lambda e: e[1] == 0x3E)):
            self.find(f"#{field}").send_keys(typed)
            self.status(sum(1 for exchange in exchanges if passes(exchange)))
            self.find("#clear").click()
            self.status(len(exchanges))
        self.find("#bytes").send_keys("2")
        self.until(lambda: "pairs of hexadecimal digits" in self.text("#fault"))

    def test_a_negative_response_is_filtered_from_the_table(self):
        self.open()
        row = self.find("#overview").find_element(By.XPATH, ".//tr[td[contains(., 'requestOutOfRange')]]")
        number = int(row.find_elements(By.TAG_NAME, "td")[1].text)
        row.find_element(By.TAG_NAME, "button").click()
        self.status(number)
        self.assertEqual(self.find("#nrc").get_attribute("value"), str(0x31))

    def test_the_timeline_is_zoomed_and_moved_by_keys_wheel_and_mouse(self):
        self.open(address="#tab=timeline")
        self.until(lambda: self.ink() > 10_000)
        self.keep_picture("timeline-light")
        chart = self.find("#chart")
        self.browser.execute_script("arguments[0].focus()", chart)
        self.keys("+", "+", Keys.ARROW_RIGHT)
        self.until(lambda: "begin=" in self.hash())
        after_keys = self.hash()
        ActionChains(self.browser).scroll_from_origin(
            webdriver.common.actions.wheel_input.ScrollOrigin.from_element(chart), 0, -400).perform()
        self.until(lambda: self.hash() != after_keys)
        after_wheel = self.hash()
        ActionChains(self.browser).move_to_element(chart).click_and_hold().move_by_offset(-200, 0).release().perform()
        self.until(lambda: self.hash() != after_wheel)
        self.keep_picture("timeline-zoomed")
        self.keys("0")
        self.until(lambda: "begin=" not in self.hash())

    def test_an_exchange_is_reached_by_keys_and_shows_its_bytes(self):
        self.open(address="#tab=timeline")
        chart = self.find("#chart")
        self.browser.execute_script("arguments[0].focus()", chart)
        self.keys(Keys.ARROW_DOWN, "n")
        self.until(lambda: self.find("#detail").is_displayed())
        first = self.text("#detail")
        self.assertIn("600:680", first)
        self.assertIn("0000", first)
        self.until(lambda: "600:680" in self.find("#announcement").get_attribute("textContent"))
        self.keys("n")
        self.until(lambda: self.text("#detail") != first)
        self.keep_picture("detail-light")
        self.keys(Keys.ESCAPE)
        self.until(lambda: not self.find("#detail").is_displayed())

    def test_an_exchange_is_hovered_and_clicked(self):
        self.open(address="#tab=timeline&begin=0&end=3000000")
        chart = self.find("#chart")
        # The first exchange of the first control unit, in the lane below the module's.
        size = chart.size
        lines = [json.loads(line) for line in self.trace.read_text().splitlines()[:2000]]
        sent = next(line for line in lines if line["ev"] == "comm_req_sent")["ts_us"] - lines[0]["ts_us"]
        labels = 190
        x = labels + (sent + 500) / 3e6 * (size["width"] - labels) - size["width"] / 2
        y = 26 + 22 + 11 - size["height"] / 2
        ActionChains(self.browser).move_to_element_with_offset(chart, round(x) + 1, round(y)).perform()
        self.until(lambda: "600:680" in self.text("#tip"))
        ActionChains(self.browser).click().perform()
        self.until(lambda: "600:680" in self.text("#detail"))

    def test_raw_frames_are_filtered_by_identifier(self):
        self.open(address="#tab=timeline&id=1A0")
        self.status(0)
        chart = self.find("#chart")
        # The lane below the module's, since no exchange is left.
        y = 26 + 22 + 22 - chart.size["height"] / 2
        tips = []
        for x in range(-400, 400, 10):
            ActionChains(self.browser).move_to_element_with_offset(chart, x, round(y)).perform()
            tips += [tip] if (tip := self.text("#tip")) else []
        self.assertGreater(len(tips), 3)
        for tip in tips:
            self.assertRegex(tip, r"^[^\n]*\n(\d+ frames: 1A0|1A0 received [ 0-9A-F]*)$")

    def test_a_region_of_the_answer_times_filters_everything(self):
        self.open(address="#tab=latency")
        self.until(lambda: self.ink("#histogram") > 500 and self.ink("#scatter") > 500)
        self.keep_picture("latency-light")
        scatter = self.find("#scatter")
        ActionChains(self.browser).move_to_element(scatter).click_and_hold().move_by_offset(150, 60).release().perform()
        self.until(lambda: self.text("#status") != f"{len(self.sample.exchanges):,} of {len(self.sample.exchanges):,} exchanges")
        shown = int(self.text("#status").split()[0].replace(",", ""))
        self.assertGreater(shown, 0)
        self.find("#tab-overview").click()
        self.until(lambda: self.text("#overview .tiles").count(f"{shown:,} of "))
        while buttons := self.browser.find_elements(By.CSS_SELECTOR, "#regions button"):
            buttons[0].click()
        self.status(len(self.sample.exchanges))

    def test_the_address_brings_the_view_back(self):
        self.open(address="#tab=timeline&begin=2000000&end=5000000&exchange=9&service=34&rate=250000")
        self.until(lambda: "Exchange 10" in self.text("#detail"))
        self.status(sum(1 for _, service, *_ in self.sample.exchanges if service == 0x22))
        self.assertEqual(self.find("#rate").get_attribute("value"), "250000")
        self.assertEqual(self.find("#tab-timeline").get_attribute("aria-selected"), "true")

    def test_an_address_that_is_typed_into_the_open_page_is_followed(self):
        self.open(address="#tab=overview")
        self.browser.execute_script("location.hash = '#tab=timeline&exchange=4'")
        self.until(lambda: "Exchange 5" in self.text("#detail"))
        self.browser.execute_script("location.hash = '#tab=latency&exchange=99999999'")
        self.until(lambda: self.find("#latency").is_displayed())
        self.assertFalse(self.find("#detail").is_displayed())

    def test_views_are_reached_by_keyboard_alone(self):
        self.open()
        for _ in range(12):
            self.keys(Keys.TAB)
            if self.browser.switch_to.active_element.get_attribute("id") == "tab-overview":
                break
        self.keys(Keys.ARROW_RIGHT)
        self.until(lambda: self.find("#timeline").is_displayed())
        self.keys(Keys.TAB, Keys.TAB)
        self.assertEqual(self.browser.switch_to.active_element.get_attribute("id"), "chart")

    def test_both_themes_are_drawn(self):
        self.open(address="#tab=timeline")
        background = "return getComputedStyle(document.body).backgroundColor"
        light = self.browser.execute_script(background)
        self.find("#theme").click()
        self.until(lambda: self.browser.execute_script(background) != light)
        for tab in ("overview", "timeline", "latency"):
            self.find(f"#tab-{tab}").click()
            self.until(lambda: self.find(f"#{tab}").is_displayed())
            if tab == "timeline":
                self.until(lambda: self.ink() > 10_000)
            self.keep_picture(f"{tab}-dark")

    def test_text_of_a_trace_is_never_markup(self):
        hostile = "<img src=x onerror=document.title='run'>"
        trace = self.base / f"{hostile}.jsonl"
        lines = (TRACES / "negative.jsonl").read_text()
        number = lines.count("\n") + 1
        packet = {"seq": number, "ts_us": 15413775300, "pid": 8150, "tid": 1, "ev": "cloud_pkt", "dir": "rx", "stage": "plain",
                  "type": 1, "type_str": "</script><script>document.title='run'</script>", "len": 4, "hex": "", "hex_len": 0,
                  "trunc": False}
        trace.write_text(lines + json.dumps(packet, separators=(",", ":")) + "\n")
        page, _ = report(self.base, trace, name="hostile.html")
        self.open(page, "#tab=overview&exchange=0&text=%3Cimg%20src=x%3E&unit=%3Cb%3E")
        self.until(lambda: hostile in self.text("#title"))
        self.assertIn(hostile, self.text("#overview"))
        self.assertIn("<script>document.title", self.text("#detail"))
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, "#page img, #page script"), [])
        self.assertEqual(self.browser.title, "D-PDU trace report")

    def test_damaged_cut_and_concatenated_traces_open(self):
        text = (TRACES / "three_units.jsonl").read_text()
        trace = self.base / "broken.jsonl"
        trace.write_text(text + '{"seq":1,"nonsense\n' + text.replace('"ev":"cop_free"', '"ev":"of_the_future"', 1)
                         + text[:700])
        page, result = report(self.base, trace, TRACES / "long_request.jsonl", name="broken.html")
        self.assertIn("damaged", result.stderr)
        self.assertIn("unknown", result.stderr)
        self.open(page)
        rows = self.browser.find_elements(By.CSS_SELECTOR, "#overview table")[0].find_elements(By.TAG_NAME, "tr")
        broken = [cell.text for cell in rows[1].find_elements(By.TAG_NAME, "td")]
        lines = len(text.splitlines())
        self.assertEqual(broken[2], f"2 (first: line {lines + 1})")
        self.assertTrue(broken[3].startswith("1 (first: line "), broken)
        cut = [cell.text for cell in rows[2].find_elements(By.TAG_NAME, "td")]
        self.assertEqual(cut[4], "2")

    def test_every_recorded_trace_opens_in_every_view(self):
        for trace in sorted(TRACES.glob("*.jsonl")):
            page, _ = report(self.base, trace, name=f"{trace.stem}.html")
            for tab in ("overview", "timeline", "latency"):
                self.open(page, f"#tab={tab}")
                self.assertTrue(self.find(f"#{tab}").is_displayed(), trace.stem)
                self.assertEqual(self.browser.get_log("browser"), [], trace.stem)

    def test_times_beyond_all_calendars_open(self):
        trace = self.base / "late.jsonl"
        first, *others = (TRACES / "negative.jsonl").read_text().splitlines(keepends=True)
        late = [line.replace('"ts_us":154', f'"ts_us":{2 ** 61}'[:-8]) for line in others]
        trace.write_text(first + "".join(late))
        page, _ = report(self.base, trace, name="late.html")
        for tab in ("overview", "timeline", "latency"):
            self.open(page, f"#tab={tab}&exchange=0")
            self.until(lambda: "22 FF FF" in self.text("#detail"))

    def test_a_narrow_window_at_twice_the_size_has_everything(self):
        self.browser.set_window_size(700, 900)
        self.addCleanup(self.browser.set_window_size, 1400, 1000)
        self.open(address="#tab=timeline&exchange=3")
        self.browser.execute_script("document.documentElement.style.fontSize = '200%'")
        for selector in ("#unit", "#text", "#clear", "#tab-latency", "#chart", "#detail"):
            self.assertTrue(self.find(selector).is_displayed(), selector)
        self.assertTrue(self.browser.execute_script(
            "return document.documentElement.scrollWidth <= document.documentElement.clientWidth"))
        self.keep_picture("narrow-200")

    def test_a_million_events_are_measured(self):
        trace = self.base / "million.jsonl"
        sample = sample_trace.write(trace, MILLION)
        begin = time.monotonic()
        page, _ = report(self.base, trace, name="million.html")
        written = time.monotonic() - begin
        size = page.stat().st_size
        self.assertLess(size, 30_000_000)
        self.open(page, "#tab=timeline")
        picture = self.browser.execute_script("return performance.getEntriesByName('first picture')[0].startTime")
        self.browser.set_script_timeout(LIMIT)
        frames = self.browser.execute_async_script("""
            const done = arguments[arguments.length - 1], chart = document.getElementById('chart');
            chart.focus();
            const key = (key) => chart.dispatchEvent(new KeyboardEvent('keydown', {key, bubbles: true}));
            for (let i = 0; i < 3; i++) key('+');
            let frames = 0, begin = 0, least = Infinity, before = 0;
            const step = (now) => {
                if (begin === 0) begin = now;
                else { frames++; least = Math.min(least, 1000 / (now - before)); }
                before = now;
                if (now - begin > 2000) done([1000 * frames / (now - begin), least]);
                else { key(frames % 40 < 20 ? 'ArrowRight' : 'ArrowLeft'); requestAnimationFrame(step); }
            };
            requestAnimationFrame(step);""")
        print(f"{sample.seq} events, {len(sample.exchanges)} exchanges: {size / 1e6:.1f} MB, written in {written:.1f} s, "
              f"first picture after {picture / 1e3:.2f} s, panning at {frames[0]:.0f} pictures a second "
              f"(at least {frames[1]:.0f})", flush=True)
        self.until(lambda: f"{len(sample.exchanges):,} of" in self.text("#status"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
