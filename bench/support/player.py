# SPDX-License-Identifier: Apache-2.0
"""The whole player at twice and four times a clip's frame rate against ffmpeg's interpolation."""

import pathlib
import shutil
import statistics
import subprocess
import sys
import time

FRAMES = 60      # of a clip
RATE = 30        # of a clip, a second
MCI_FRAMES = 30  # ffmpeg's motion compensation takes its time
# ffmpeg's mode, the clip, times its frame rate, frames, rounds
CASES = [
    ("blend", "720p", "1280x720", 2, FRAMES, 9),
    ("blend", "720p", "1280x720", 4, FRAMES, 5),
    ("blend", "1080p", "1920x1080", 2, FRAMES, 5),
    ("mci", "720p", "1280x720", 2, MCI_FRAMES, 3),
]
THREADS = "2"    # of ffmpeg


def seconds(command):
    begin = time.monotonic()
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
    return time.monotonic() - begin


def make_clip(qozplay, size):
    clip = pathlib.Path(f"build/bench-clip-{size}.y4m")
    if not clip.exists():
        # The player leaves no half file behind.
        seconds([qozplay, "--scene-size", size, "--interp", "0", "--frames", str(FRAMES), "-o", clip])
    return clip


def ours(qozplay, clip, frames, times):
    return [qozplay, "-i", clip, "--frames", str(frames), "--interp", str(times - 1),
            "--service", "inline", "-o", "/dev/null"]


def ffmpeg(clip, frames, mode, times):
    filters = f"trim=end_frame={frames},minterpolate=fps={RATE * times}:mi_mode={mode}"
    return ["ffmpeg", "-v", "error", "-nostdin", "-y", "-threads", THREADS, "-filter_threads",
            THREADS, "-i", clip, "-vf", filters, "-f", "yuv4mpegpipe", "/dev/null"]


def compare(name, mine, theirs, frames, rounds):
    """Whole commands in turn, from start to end; nanoseconds a source frame."""
    pairs = [(seconds(mine), seconds(theirs)) for _ in range(rounds)]
    ratios = [one / other for one, other in pairs]
    scale = 1e9 / frames
    return {"bench": "player", "name": name, "rounds": rounds,
            "ours_ns": statistics.median(one for one, _ in pairs) * scale,
            "peer_ns": statistics.median(other for _, other in pairs) * scale,
            "ratio": statistics.median(ratios), "ratio_min": min(ratios), "ratio_max": max(ratios),
            "ratios": ratios}


def rows(qozplay, quick):
    if not shutil.which("ffmpeg"):
        print("== player: left out, no ffmpeg (scripts/setup --bench)", file=sys.stderr)
        return []
    made = []
    for mode, label, size, times, frames, rounds in CASES:
        clip = make_clip(qozplay, size)
        frames = 6 if quick else frames
        made.append(compare(f"player: {label} at {times}x against ffmpeg's {mode}",
                            ours(qozplay, clip, frames, times), ffmpeg(clip, frames, mode, times),
                            frames, 1 if quick else rounds))
    return made
