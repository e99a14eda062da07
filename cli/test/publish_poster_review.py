#!/usr/bin/env python3
"""The poster review of `vorlen publish` at a terminal: the countdown runs on the
line, Enter stops it, the person picks the third sampled frame, then an image
file that is not one and is told so, and an empty line publishes the frame.
The published video.json names that frame's poster."""
import json
import os
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

vorlen = sys.argv[1]
home = tempfile.mkdtemp()
env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=f"{home}/config", XDG_DATA_HOME=f"{home}/data",
           XDG_CACHE_HOME=f"{home}/cache", TMPDIR=home)
env.pop("DBUS_SESSION_BUS_ADDRESS", None)
try:
    clip = f"{home}/Meadow.mp4"
    subprocess.run(["ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25:duration=6",
                    "-f", "lavfi", "-i", "sine=frequency=440:duration=6", "-c:v", "libx264", "-pix_fmt", "yuv420p",
                    "-c:a", "aac", "-shortest", clip], check=True)
    pid, terminal = pty.fork()
    if pid == 0:
        os.execve(vorlen, [vorlen, "publish", clip], env)
    seen = b""

    def wait_for(pattern, limit=120):
        """Reads the terminal until pattern shows; the limit only guards against a hang."""
        global seen
        deadline = time.monotonic() + limit
        while not re.search(pattern, seen):
            if time.monotonic() > deadline:
                raise SystemExit(f"never saw {pattern!r}; the terminal showed:\n{seen.decode(errors='replace')}")
            ready, _, _ = select.select([terminal], [], [], 1)
            if ready:
                try:
                    seen += os.read(terminal, 4096)
                except OSError:
                    raise SystemExit(f"the command ended before {pattern!r}:\n{seen.decode(errors='replace')}")
        return re.search(pattern, seen)

    wait_for(rb"Vorlen uses this poster in \d+ s\. Press Enter to choose\.")
    os.write(terminal, b"\n")
    frames = wait_for(rb"Frames: 1\) [\d.]+ s 2\) [\d.]+ s 3\) ([\d.]+) s")
    third = float(frames.group(1))
    os.write(terminal, b"3\n")
    picked = wait_for(rb"Poster: the frame at %.1f s \((poster-[0-9a-f]{8}\.jpg)" % third).group(1).decode()
    os.write(terminal, f"{home}/no-such-image.png\n".encode())
    wait_for(rb"no-such-image\.png.*is not an image file")
    os.write(terminal, b"\n")
    wait_for(rb"Page:  http://localhost:8787/meadow")
    _, status = os.waitpid(pid, 0)
    assert os.waitstatus_to_exitcode(status) == 0, seen.decode(errors="replace")
    with open(f"{home}/data/vorlen/local-site/objects/meadow/video.json") as record:
        poster = json.load(record)["poster"]
    assert poster["name"] == picked, (poster, picked)
    assert os.path.exists(f"{home}/data/vorlen/local-site/objects/meadow/{poster['name']}")
finally:
    shutil.rmtree(home, ignore_errors=True)
