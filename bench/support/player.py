# SPDX-License-Identifier: Apache-2.0
"""The whole player at twice the frame rate of a 720p clip against ffmpeg's frame interpolation."""

import pathlib
import shutil
import statistics
import subprocess
import sys
import time

FRAMES = 60
MCI_FRAMES = 30  # ffmpeg's motion compensation takes its time
THREADS = "2"    # of ffmpeg


def seconds(command):
    begin = time.monotonic()
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
    return time.monotonic() - begin


def make_clip(qozplay):
    clip = pathlib.Path("build/bench-clip.y4m")
    if not clip.exists():
        part = clip.with_suffix(".part")
        seconds([qozplay, "--interp", "0", "--frames", str(FRAMES), "-o", part])
        part.rename(clip)
    return clip


def ours(qozplay, clip, frames):
    return [qozplay, "-i", clip, "--frames", str(frames), "--interp", "1", "--service", "inline",
            "-o", "/dev/null"]


def ffmpeg(clip, frames, mode):
    filters = f"trim=end_frame={frames},minterpolate=fps=60:mi_mode={mode}"
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
    clip = make_clip(qozplay)
    made = []
    for mode, frames, rounds in (("blend", FRAMES, 9), ("mci", MCI_FRAMES, 3)):
        frames = 6 if quick else frames
        made.append(compare(f"player: 720p at 2x against ffmpeg's {mode}",
                            ours(qozplay, clip, frames), ffmpeg(clip, frames, mode), frames,
                            1 if quick else rounds))
    return made
