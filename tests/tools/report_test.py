#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Opens the page of a registration in Chromium and looks at it as a reader would.

    tests/tools/report_test.py out/report.html --poses out/poses.json [--screenshot page.png]

The table must say what the poses file says; the clouds must be there in the colours of their scans, turn, zoom and go
back; a scan must vanish with its check mark and stay alone with its partner when a pair is pointed at; nothing may be
fetched or complained about. Skipped without Chromium and its driver (--chromium, --chromedriver).
"""
import argparse
import base64
import json
import math
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of an element in WebDriver's JSON
FLAGS = ("--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
         "--disable-component-update --disable-sync --window-size=1500,1250").split()

# Counts the pixels of each scan: shading scales a colour, so that its direction stays. Too dark ones say little.
COLOURS = """
const canvas = document.getElementById("canvas");
const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
const directions = arguments[0].map(c => c.map(x => x / Math.hypot(...c)));
const counts = directions.map(() => 0), distinct = new Set();
let hash = 0;
for (let i = 0; i < pixels.length; i += 4) {
    const [r, g, b] = [pixels[i], pixels[i + 1], pixels[i + 2]];
    hash = (hash * 31 + r + 7 * g + 13 * b + pixels[i + 3]) % 1000000007;
    if (pixels[i + 3]) distinct.add(r << 16 | g << 8 | b);
    if (Math.max(r, g, b) < 32) continue;
    const alike = directions.map(d => d[0] * r + d[1] * g + d[2] * b);
    ++counts[alike.indexOf(Math.max(...alike))];
}
return { counts, distinct: distinct.size, hash };
"""
RULER = """
const width = document.getElementById("scaleBar").getBoundingClientRect().width;
return parseFloat(document.getElementById("scaleText").textContent) / width; // units a pixel
"""
# The ring of a spot against the middle of the view, the share of it that something at its depth fills, and how bright
# that is.
RING = """
const spot = [...document.querySelectorAll("#spots g")].find(g => g.textContent === arguments[0]);
if (!spot) return null;
const ring = spot.querySelector("circle").getBoundingClientRect(), box = canvas.getBoundingClientRect();
const { image: { width, height }, depth, ratio } = view.pixels, r = 0.4 * ring.width * ratio;
const near = z => Math.abs(z) < 2.5 * r; // turned and zoomed about the spot, whose depth is then zero
const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
let inside = 0, filled = 0, light = 0;
for (let y = -r | 0; y <= r; ++y) {
    for (let x = -r | 0; x <= r; ++x) {
        if (x * x + y * y > r * r) continue;
        ++inside;
        if (!near(depth[((height >> 1) + y) * width + (width >> 1) + x])) continue;
        const pixel = 4 * (((canvas.height >> 1) + y) * canvas.width + (canvas.width >> 1) + x);
        ++filled;
        light += Math.max(data[pixel], data[pixel + 1], data[pixel + 2]);
    }
}
return { x: ring.x + ring.width / 2 - box.x - box.width / 2, y: ring.y + ring.height / 2 - box.y - box.height / 2,
    diameter: ring.width, filled: filled / inside, light: light / filled };
"""
TABLE = """
const texts = row => [...row.cells].map(cell => cell.textContent.trim());
const table = document.getElementById("table");
return { head: texts(table.tHead.rows[0]), rows: [...table.tBodies[0].rows].map(texts) };
"""


class Browser:
    def __init__(self, chromium, chromedriver):
        self.profile = tempfile.TemporaryDirectory(prefix="zorvan-page-", ignore_cleanup_errors=True)
        self.driver = subprocess.Popen([chromedriver, "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        try:
            self.session = self.start(chromium)
        except BaseException:
            self.stop()
            raise

    def start(self, chromium):
        port = next(m.group(1) for m in map(re.compile(r"successfully on port (\d+)").search, self.driver.stdout) if m)
        self.session = f"http://127.0.0.1:{port}/session"
        options = {"binary": chromium, "args": [*FLAGS, f"--user-data-dir={self.profile.name}"]}
        capabilities = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
        return self.session + "/" + self.call("", {"capabilities": {"alwaysMatch": capabilities}})["sessionId"]

    def stop(self):
        self.driver.terminate()
        self.driver.wait()
        self.profile.cleanup()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        urllib.request.urlopen(urllib.request.Request(self.session, method="DELETE"), timeout=60).close()
        self.stop()

    def call(self, path, body=None):
        payload = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.session + path, payload, {"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=600) as reply:
                return json.load(reply)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def run(self, script, *args):
        return self.call("/execute/sync", {"script": script, "args": args})

    def find(self, selector):
        return self.call("/element", {"using": "css selector", "value": selector})

    def click(self, selector):
        self.call(f"/element/{self.find(selector)[ELEMENT]}/click", {})

    def act(self, kind, *steps):
        source = {"type": kind, "id": kind, "actions": list(steps)}
        self.call("/actions", {"actions": [source | ({"parameters": {"pointerType": "mouse"}} if kind == "pointer" else {})]})


class Page:
    def __init__(self, browser, file):
        self.browser = browser
        browser.call("/url", {"url": file.absolute().as_uri()})
        self.data = browser.run('return JSON.parse(document.getElementById("data").textContent, '
                                '(key, value) => key === "cloud" ? value.count : value)')
        self.scans, self.pairs, self.frames = (self.data[key] for key in ("scans", "pairs", "frames"))
        self.faults = []

    def expect(self, is_right, fault):
        if not is_right:
            self.faults.append(fault)

    def picture(self):
        # The view draws all of its points again a moment after the last movement.
        while self.browser.run("return view.isMoving || view.isPlanned"):
            time.sleep(0.02)
        return self.browser.run(COLOURS, [scan["colour"] for scan in self.scans])

    def drag(self, *steps):
        canvas = self.browser.find("#canvas")
        go = [{"type": "pointerMove", "origin": canvas, "x": x, "y": y, "duration": 50} for x, y in steps]
        press, release = ({"type": kind, "button": 0} for kind in ("pointerDown", "pointerUp"))
        self.browser.act("pointer", go[0], press, *go[1:], release)


def agrees(text, value):
    """Whether a cell shows the value, rounded to the decimals that it shows; a dash stands for none."""
    if value is None or not math.isfinite(value):
        return text == "\u2013"
    digits = re.fullmatch(r"-?\d+(?:\.(\d+))?", text)
    return bool(digits) and abs(float(text) - value) <= 0.501 * 10.0 ** -len(digits.group(1) or "")


def check_table(page, poses):
    table = page.browser.run(TABLE)
    column = {re.sub(r" \[.*", "", title): k for k, title in enumerate(table["head"])}
    rows = {row[column["Scan"]].rsplit("/", 1)[-1]: row for row in table["rows"]}
    scans = [scan for cluster in poses["clusters"] for scan in cluster["scans"]]
    page.expect(len(table["rows"]) == len(scans), f"{len(table['rows'])} rows for {len(scans)} scans")
    for scan in scans:
        row, result = rows.get(scan["file"].rsplit("/", 1)[-1]), scan.get("result", {})
        page.expect(row, f"no row for {scan['file']}")
        if not row:
            continue
        shown = {"RMSE": row[column["RMSE"]], "Slip": row[column["Slip"]], "Overlap": row[column["Overlap"]]}
        expected = {"RMSE": result.get("rmse"), "Slip": result.get("slip"), "Overlap": result.get("overlap")}
        shown["Overlap"] = shown["Overlap"].removesuffix("\u202f%")
        if expected["Overlap"] is not None:
            expected["Overlap"] *= 100
        for name, text in shown.items():
            page.expect(agrees(text, expected[name]), f"{scan['file']}: {name} is {expected[name]}, the table says {text}")
        numbers = re.findall(r"-?\d+(?:\.\d+)?(?:e[-+]\d+)?", row[column["Pose"]].removeprefix("4 \u00d7 4"))
        pose = [x for line in scan["pose"] or [] for x in line]
        page.expect(len(numbers) == len(pose) and all(abs(float(a) - b) <= 1e-6 * max(1, abs(b)) for a, b in zip(numbers, pose)),
                    f"{scan['file']}: another pose than in the poses file: {numbers}")
    check_headline(page, [cluster["scans"] for cluster in poses["clusters"]])


def check_headline(page, clusters):
    """How many scans found their places, in how many frames; green only when all lie in one. The runs looked at end by themselves."""
    is_placed = lambda scan: scan["result"]["kind"] == 0
    placed = sum(is_placed(scan) for cluster in clusters for scan in cluster)
    groups = sum(any(map(is_placed, cluster)) for cluster in clusters)
    headline, title, colour = page.browser.run("""
        return [document.getElementById("headline").textContent, document.title, document.getElementById("state").className];""")
    words = f"{placed} of {len(page.scans)} scans registered, in {groups} cluster{'s' * (groups != 1)}"
    page.expect(headline == title and headline.startswith(words), f"headline: {headline}, title: {title}, not {words}")
    page.expect(("put apart" in headline) == bool(page.data["disputes"]), f"headline: {headline}")
    page.expect((colour == "mark placed") == (len(clusters) == 1 and placed == len(page.scans)), f"{headline}: {colour}")


def check_view(page):
    first = page.picture()
    members = page.frames[0]["scans"]
    page.expect(first["distinct"] >= len(members), f"only {first['distinct']} colours in the view")
    hidden = [page.scans[s]["file"] for s in members if first["counts"][s] == 0 and page.scans[s]["cloud"] > 0]
    page.expect(not hidden or len(members) > 20, f"nothing in the colour of {hidden}")  # later colours are too alike
    page.drag((0, 0), (120, 40), (160, 60))
    page.expect(page.picture()["hash"] != first["hash"], "a drag does not turn the cloud")
    before = page.browser.run(RULER)
    page.browser.act("wheel", {"type": "scroll", "origin": page.browser.find("#canvas"), "x": 30, "y": 20, "deltaX": 0,
                               "deltaY": -240})
    page.picture()
    page.expect(page.browser.run(RULER) < 0.8 * before, "the wheel does not bring the cloud nearer")
    page.browser.run('document.getElementById("canvas").dispatchEvent(new MouseEvent("dblclick"))')
    page.expect(page.picture()["hash"] == first["hash"], "a double click does not bring the first view back")
    if len(page.frames) == 1 and len(members) > 1:
        page.browser.click("#none")
        page.expect(page.picture()["distinct"] == 0, "\"none\" leaves points in the view")
        page.browser.click("#all")
    if len(members) > 1:
        switch_off(page, first, max(members, key=lambda s: first["counts"][s]))


def switch_off(page, first, scan):
    page.browser.click(f'input[type=checkbox][data-scan="{scan}"]')
    left = page.picture()["counts"][scan]
    page.expect(left <= 0.01 * first["counts"][scan], f"{left} points of {page.scans[scan]['file']} stay when it is off")
    page.browser.click(f'input[type=checkbox][data-scan="{scan}"]')
    page.expect(page.picture()["hash"] == first["hash"], "the view is another one with the scan back on")


def check_frames(page):
    for number, frame in enumerate(page.frames[1:4], 1):
        page.browser.click(f'input[type=radio][value="{number}"]')
        counts = page.picture()["counts"]
        inside = sum(counts[s] for s in frame["scans"])
        page.expect(inside > 0.97 * sum(counts) > 0, f"cluster {number}: {inside} of {sum(counts)} points are its own")
    if len(page.frames) > 1:
        page.browser.click('input[type=radio][value="0"]')


def check_pairs(page):
    marks = page.browser.run('return [...document.querySelectorAll("#matrix .pair")].map(m => m.textContent)')
    dots = page.browser.run('return document.querySelectorAll("#scatter .pair").length')
    page.expect(len(marks) == len(page.pairs), f"{len(marks)} marks in the matrix for {len(page.pairs)} pairs")
    page.expect(dots == sum(None not in (p["rmse"], p["overlap"]) for p in page.pairs), f"{dots} marks in the scatter")
    if not page.pairs:
        return
    mark = page.browser.find('#matrix .pair[data-pair="0"]')
    page.browser.act("pointer", {"type": "pointerMove", "origin": mark, "x": 0, "y": 0})
    counts = page.picture()["counts"]
    both = sum(counts[page.pairs[0][end]] for end in "ab")
    page.expect(both > 0.97 * sum(counts) > 0, f"{sum(counts)} points, {both} of the pair that is pointed at")


def rows_of(page, section):
    return page.browser.run("""
        const section = document.getElementById(arguments[0]);
        const rows = [...section.querySelectorAll("tbody tr")].map(row => [...row.cells].map(cell => cell.textContent));
        return section.hidden ? [] : rows;""", section)


def check_evidence(page, record):
    """What the pairs say and where scans were divided, as run.json has it."""
    shown = [[row[0], row[1], row[4].split(" (")[0], *map(int, row[5:])] for row in rows_of(page, "weighed")]
    counts = ("matched", "contradictions", "through", "missing", "opposed")
    said = [[p["a"], p["b"], p["standing"], *(p[key] for key in counts)] for p in record["pairs"]]
    page.expect(shown == said and bool(said), f"pairs: {shown}, and the record has {said}")
    shown = [row[:5] for row in rows_of(page, "disputes")]
    said = [[str(k), p["scan"], "surface" if p["scan"] in d["showing"] else "a hole" if p["scan"] in d["lacking"] else
             "too little to say", f"{p['surface']} of {d['samples']}", f"{p['open']} of {d['samples']}"]
            for k, d in enumerate(record["disputes"], 1) for p in d["sights"]]
    page.expect(shown == said, f"disputes: {shown}, and the record has {said}")
    words = page.browser.run('return [...document.querySelectorAll("#disputes li")].map(item => item.textContent)')
    page.expect(len(words) == len(record["disputes"]), f"disputes in words: {words}")


def check_spots(page):
    """Each entry brings its ring to the middle of the view, of the size of the spot; a ring goes with its scans."""
    marks = [(f"Spot {k}", dispute, mark, set(mark["scans"]) - set(dispute["unclear"]))
             for k, dispute in enumerate(page.data["disputes"], 1) for mark in dispute["marks"]]
    marks = [mark for mark in marks if mark[-1]]
    buttons = page.browser.run("return document.querySelectorAll('#disputes li button').length")
    page.expect(len(marks) == buttons, f"{buttons} buttons for {len(marks)} marks of spots")
    for number, (spot, dispute, mark, telling) in enumerate(marks):
        name = f"{spot} in frame {mark['frame']}"
        page.browser.run("document.querySelectorAll('#disputes li button')[arguments[0]].click()", number)
        page.picture()
        ring = page.browser.run(RING, spot)
        page.expect(math.hypot(ring["x"], ring["y"]) < 2, f"{name} is not in the middle: {ring}")
        page.expect(abs(ring["diameter"] * page.browser.run(RULER) / dispute["width"] - 1) < 0.02, f"{name}: {ring}")
        is_surface = telling <= set(dispute["showing"])
        page.expect(ring["filled"] > 0.8 if is_surface else ring["filled"] < 0.2, f"{name}: {ring}")
        brightest = max(max(page.scans[s]["colour"]) for s in telling)
        page.expect(not is_surface or ring["light"] > 0.6 * brightest, f"{name} is seen from behind: {ring}")
        page.browser.run("for (const s of arguments[0]) document.querySelector(`input[data-scan='${s}']`).click()", mark["scans"])
        page.picture()
        page.expect(not page.browser.run(RING, spot), f"{name} stays without its scans")
        page.browser.run("document.querySelectorAll('#disputes li button')[arguments[0]].click()", number)
        page.picture()
        page.expect(page.browser.run(RING, spot), f"{name} is not brought back with a scan of it")


def check_calm(page):
    fetched = page.browser.run('return performance.getEntriesByType("resource").map(entry => entry.name)')
    page.expect(not fetched, f"the page asks for {fetched}")
    strangers = page.browser.run('return document.querySelectorAll("img, iframe, object, embed, script:nth-of-type(3)").length')
    page.expect(strangers == 0, f"{strangers} elements that the page does not have")
    for entry in page.browser.call("/se/log", {"type": "browser"}):
        page.expect(entry["level"] != "SEVERE", f"browser log: {entry['message']}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("--poses", type=pathlib.Path, required=True)
    parser.add_argument("--record", type=pathlib.Path, help="the run.json beside it")
    parser.add_argument("--screenshot", type=pathlib.Path)
    parser.add_argument("--chromium", default=shutil.which("chromium") or shutil.which("chromium-browser"))
    parser.add_argument("--chromedriver", default=shutil.which("chromedriver"))
    args = parser.parse_args()
    if not args.chromium or not args.chromedriver:
        print("skipped: no Chromium, or no driver for it")
        return
    with Browser(args.chromium, args.chromedriver) as browser:
        page = Page(browser, args.page)
        check_table(page, json.loads(args.poses.read_text(encoding="utf8")))
        if page.frames:
            check_view(page)
            check_frames(page)
        if args.screenshot:
            args.screenshot.write_bytes(base64.b64decode(browser.call("/screenshot")))
        check_pairs(page)
        if args.record:
            check_evidence(page, json.loads(args.record.read_text(encoding="utf8")))
        check_spots(page)
        check_calm(page)
    print("\n".join(page.faults) or f"{args.page}: {len(page.scans)} scans, {len(page.pairs)} pairs, all as it should be")
    sys.exit(bool(page.faults))


if __name__ == "__main__":
    main()
