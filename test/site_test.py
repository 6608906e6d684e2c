"""Opens the HTML site in headless Chromium: links, titles, search, and three pages on a screen and on a phone, in both modes.

site_test.py FOLDER [SCREENSHOT_FOLDER]
"""
import sys
import time
import unittest
from pathlib import Path
from urllib.parse import unquote, urldefrag

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

ROOT = Path(__file__).resolve().parent.parent
SITE = Path(sys.argv[1]).resolve()
SHOTS = Path(sys.argv[2]).resolve() if len(sys.argv) > 2 else None
# Returns the visible texts whose contrast with the background is below 4.5, the limit of WCAG level AA.
FAINT = """
const channels = color => color.match(/[\\d.]+/g).map(Number);
const light = color => channels(color).slice(0, 3).map(c => c / 255)
    .map(c => c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
    .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
const back = element => {
    for (; element; element = element.parentElement) {
        const color = getComputedStyle(element).backgroundColor;
        if (channels(color)[3] !== 0) return color;
    }
    return "rgb(255, 255, 255)";
};
return [...document.querySelectorAll("body, body *")].filter(element => {
    if (element.getClientRects().length === 0 || ![...element.childNodes].some(n => n.nodeType === 3 && n.data.trim())) return false;
    const [low, high] = [light(getComputedStyle(element).color), light(back(element))].sort((a, b) => a - b);
    return (high + 0.05) / (low + 0.05) < 4.5;
}).map(element => element.outerHTML.slice(0, 100));
"""


class Site(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        for argument in "--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--hide-scrollbars":
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
        cls.browser = webdriver.Chrome(service=service, options=options)
        cls.addClassCleanup(cls.browser.quit)

    def open(self, page, width=1280, mode="light"):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": 900, "deviceScaleFactor": 1, "mobile": width < 600})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": mode}]})
        self.browser.get((SITE / page).as_uri())

    def wait_for(self, script, condition):
        """Waits until the result of a script meets a condition."""
        until = time.monotonic() + 20
        while not condition(found := self.browser.execute_script(script)):
            self.assertLess(time.monotonic(), until, found)
            time.sleep(0.1)

    def test_links_and_titles(self):
        anchors, links = {}, set()
        pages = sorted(SITE.glob("*.html"))
        self.assertGreater(len(pages), 60)
        for page in pages:
            self.open(page.name)
            self.assertRegex(self.browser.title, r"^\w.* - pcm$")
            self.assertEqual(self.browser.get_log("browser"), [], page)
            ids, targets, broken = self.browser.execute_script(
                "return [[...document.querySelectorAll('[id], a[name]')].map(e => e.id || e.name),"
                " [...document.links].map(link => link.href),"
                " [...document.images].filter(image => !image.naturalWidth).map(image => image.src)]")
            self.assertEqual(broken, [], page)
            anchors[page.as_uri()] = ids
            links |= {(target, page.name) for target in targets if not target.startswith("javascript:")}
        for target, page in sorted(links):
            address, anchor = urldefrag(target)
            with self.subTest(page=page, target=target):
                self.assertIn(address, anchors)
                self.assertTrue(not anchor or unquote(anchor) in anchors[address])

    def test_search(self):
        self.open("index.html")
        self.browser.find_element(By.ID, "search").send_keys("gather")
        functions = {name for name in (ROOT / "test/exports/pcm.txt").read_text().split() if "Gather" in name}
        self.assertGreater(len(functions), 10)
        self.wait_for("return [...document.querySelectorAll('#found a')].map(link => link.textContent.trim())",
                      lambda found: functions <= set(found))
        self.browser.find_element(By.ID, "search").send_keys(Keys.CONTROL, "a")
        self.browser.find_element(By.ID, "search").send_keys("pcmSrcGatherSamplesAdd", Keys.ENTER)
        self.wait_for("const target = document.querySelector(':target');"
                      " return target ? (target.closest('tr') || target.nextElementSibling).textContent : ''",
                      lambda target: "pcmSrcGatherSamplesAdd" in target)

    def test_look(self):
        for page in "index.html", "encodings.html", "pcm__packet_8h.html":
            for width in 1280, 400:
                for mode in "light", "dark":
                    with self.subTest(page=page, width=width, mode=mode):
                        self.open(page, width, mode)
                        self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), width)
                        self.assertEqual(self.browser.execute_script(FAINT), [])
                        color = self.browser.execute_script("return getComputedStyle(document.body).backgroundColor")
                        self.assertEqual(color == "rgb(255, 255, 255)", mode == "light")
                        if SHOTS:
                            self.browser.save_screenshot(str(SHOTS / f"{Path(page).stem}-{width}-{mode}.png"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
