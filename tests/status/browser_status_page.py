#!/usr/bin/env python3
"""The status page in a real browser.

havrel-client-sim plays a script (a sweep, then one control change and one note through the
pure-MIDI path) against havrel-central; headless Chromium opens the status page, and the test
reads the page's DOM over the DevTools protocol (on a pipe) until it has seen the client's name,
a non-zero message rate and monitor lines for the script's control change and note. A screenshot
of the page is kept.

Usage: browser_status_page.py CENTRAL SIM ARTEFACT_DIR [--address-only URL]
Exit 0 on success, 77 (skipped) where Chromium is not installed, 1 on failure.
"""
import base64
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time

CHROMIUM = "/usr/bin/chromium"
SCRIPT = "wait 2; sweep fader 0 1 4; midi B0 4A 21; midi 90 3D 63; wait 6"
CLIENT_NAME = "Browser Pad"
EXPECTED_CC = "cc 74 value 33"
EXPECTED_NOTE = "note 61 vel 99"
TIMEOUT = 40.0

# What the test reads from the page: names in the client table, the rate, and the monitor rows.
READ_DOM = """JSON.stringify({
  live: document.getElementById('connection').textContent,
  names: [...document.querySelectorAll('#clients .client-name')].map(n => n.textContent),
  rate: Number(document.getElementById('rate').textContent),
  monitor: [...document.querySelectorAll('#monitor tr')].map(r => r.textContent)
})"""


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_for_port(port, deadline):
    while time.monotonic() < deadline:
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=0.5):
                return True
        except OSError:
            time.sleep(0.1)
    return False


class DevTools:
    """The DevTools protocol over --remote-debugging-pipe: JSON messages ended by NUL, commands
    on the browser's fd 3, answers and events on its fd 4."""

    def __init__(self, profile, log=subprocess.DEVNULL):
        self.log = log
        to_browser_r, self.to_browser = os.pipe()
        self.from_browser, from_browser_w = os.pipe()
        flags = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--user-data-dir=" + profile, "--remote-debugging-pipe", "--window-size=1280,1100",
                 "--hide-scrollbars", "about:blank"]

        def child_fds():
            # Copies first: a pipe end may already be fd 3 or 4, and dup2 onto itself would
            # leave it closed at exec.
            read_end, write_end = os.dup(to_browser_r), os.dup(from_browser_w)
            os.dup2(read_end, 3)
            os.dup2(write_end, 4)

        self.process = subprocess.Popen([CHROMIUM] + flags, pass_fds=(), preexec_fn=child_fds,
                                        stdout=subprocess.DEVNULL, stderr=self.log,
                                        close_fds=False)
        os.close(to_browser_r)
        os.close(from_browser_w)
        self.buffer = b""
        self.next_id = 1

    def call(self, method, params=None, session=None, timeout=15.0):
        message = {"id": self.next_id, "method": method, "params": params or {}}
        if session:
            message["sessionId"] = session
        self.next_id += 1
        os.write(self.to_browser, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            while b"\0" not in self.buffer:
                chunk = os.read(self.from_browser, 1 << 20)
                if not chunk:
                    raise RuntimeError("the browser closed the DevTools pipe")
                self.buffer += chunk
            raw, self.buffer = self.buffer.split(b"\0", 1)
            answer = json.loads(raw)
            if answer.get("id") == message["id"]:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
        raise RuntimeError(f"{method}: no answer")

    def close(self):
        try:
            self.call("Browser.close", timeout=5)
        except Exception:
            pass
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def open_page(devtools, url):
    target = devtools.call("Target.createTarget", {"url": "about:blank"})["targetId"]
    session = devtools.call("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
    devtools.call("Page.enable", session=session)
    devtools.call("Page.navigate", {"url": url}, session=session)
    return session


def read_dom(devtools, session):
    result = devtools.call("Runtime.evaluate", {"expression": READ_DOM, "returnByValue": True}, session=session)
    value = result.get("result", {}).get("value")
    return json.loads(value) if isinstance(value, str) else None


def screenshot(devtools, session, path):
    data = devtools.call("Page.captureScreenshot", {"format": "png"}, session=session)["data"]
    with open(path, "wb") as f:
        f.write(base64.b64decode(data))


def take_screenshot_only(url, path):
    """For the demo: one screenshot of a running Central's page."""
    profile = tempfile.mkdtemp(prefix="havrel-chromium-")
    devtools = DevTools(profile)
    try:
        session = open_page(devtools, url)
        time.sleep(1.5)  # let the page receive a few states; this is not a test
        screenshot(devtools, session, path)
    finally:
        devtools.close()
        shutil.rmtree(profile, ignore_errors=True)


def main():
    if len(sys.argv) >= 4 and sys.argv[1] == "--screenshot":
        take_screenshot_only(sys.argv[2], sys.argv[3])
        return 0
    if not os.access(CHROMIUM, os.X_OK):
        print(f"browser test skipped: {CHROMIUM} is not installed")
        return 77
    central, sim, artefacts = sys.argv[1], sys.argv[2], sys.argv[3]
    os.makedirs(artefacts, exist_ok=True)
    work = tempfile.mkdtemp(prefix="havrel-browser-")
    sim_port, status_port = free_port(), free_port()
    url = f"http://127.0.0.1:{status_port}/"
    processes = []
    devtools = None
    try:
        sim_log = open(os.path.join(artefacts, "sim.log"), "w")
        central_log = open(os.path.join(artefacts, "central.log"), "w")
        processes.append(subprocess.Popen([sim, "--port", str(sim_port), "--name", CLIENT_NAME, "--do", SCRIPT],
                                          stdout=sim_log, stderr=subprocess.STDOUT))
        processes.append(subprocess.Popen(
            [central, "--midi-backend", "loopback", "--no-usbmux", "--local-port", str(sim_port),
             "--status-port", str(status_port), "--config-dir", os.path.join(work, "config")],
            stdout=central_log, stderr=subprocess.STDOUT))
        deadline = time.monotonic() + TIMEOUT
        if not wait_for_port(status_port, deadline):
            print(f"FAIL: nothing listens on {url}")
            return 1
        devtools = DevTools(os.path.join(work, "profile"))
        session = open_page(devtools, url)
        seen = {"name": False, "rate": 0, "cc": False, "note": False}
        state = None
        while time.monotonic() < deadline:
            state = read_dom(devtools, session)
            if state:
                seen["name"] = seen["name"] or CLIENT_NAME in state["names"]
                seen["rate"] = max(seen["rate"], state["rate"])
                seen["cc"] = seen["cc"] or any(EXPECTED_CC in row for row in state["monitor"])
                seen["note"] = seen["note"] or any(EXPECTED_NOTE in row for row in state["monitor"])
                if seen["name"] and seen["rate"] > 0 and seen["cc"] and seen["note"]:
                    break
            time.sleep(0.2)
        screenshot(devtools, session, os.path.join(artefacts, "status-page.png"))
        print(f"seen: {seen}; screenshot: {os.path.join(artefacts, 'status-page.png')}")
        if not (seen["name"] and seen["rate"] > 0 and seen["cc"] and seen["note"]):
            print(f"FAIL: last DOM state read: {json.dumps(state)[:2000]}")
            return 1
        return 0
    finally:
        if devtools:
            devtools.close()
        for process in processes:
            if process.poll() is None:
                process.terminate()
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                process.kill()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
