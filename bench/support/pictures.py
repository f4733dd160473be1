# SPDX-License-Identifier: Apache-2.0
"""Interpolated frames against held-out ones: the player beside ffmpeg's blend and mci, case by case."""

import argparse
import pathlib
import subprocess
import sys

import numpy as np

import cases

BEGIN = "<!-- figures of bench/pictures: begin -->"
END = "<!-- figures of bench/pictures: end -->"
FRAME = b"FRAME\n"
ALLOWANCE = 0.2  # dB below the better of blend and mci
CUT_AIM = 40.0   # dB to the nearer source


def write_y4m(path, planes, width, height, rate):
    with open(path, "wb") as out:
        out.write(f"YUV4MPEG2 W{width} H{height} F{rate}:1 Ip A1:1 C420jpeg\n".encode())
        for frame in planes:
            out.write(FRAME)
            for plane in frame:
                out.write(plane.tobytes())


def read_luma(path):
    """All frames' luma, as one array."""
    data = pathlib.Path(path).read_bytes()
    head = data.index(b"\n")
    fields = dict((word[:1], word[1:]) for word in data[:head].decode().split()[1:])
    width, height = int(fields["W"]), int(fields["H"])
    size = width * height + 2 * ((width + 1) // 2) * ((height + 1) // 2)
    body = np.frombuffer(data, np.uint8, offset=head + 1)
    whole = body[:len(body) // (size + 6) * (size + 6)].reshape(-1, size + 6)
    return whole[:, 6:6 + width * height].reshape(-1, height, width)


def psnr(one, other):
    error = np.mean((one.astype(np.float32) - other.astype(np.float32)) ** 2)
    return 10 * np.log10(255 * 255 / max(error, 1e-3))


def run(command):
    subprocess.run([str(word) for word in command], check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def ffmpeg(given, out, mode):
    run(["ffmpeg", "-v", "error", "-y", "-i", given, "-vf", f"minterpolate=fps=60:mi_mode={mode}",
         "-pix_fmt", "yuv420p", "-f", "yuv4mpegpipe", out])


def ours(player, given, out):
    run([player, "-i", given, "-o", out, "--interp", "1"])


class Made:
    """Frames that somebody made, found again by the given frames among them."""

    def __init__(self, frames, truth):
        self.frames = frames
        self.offset = max(range(-2, 3), key=lambda by: self.likeness(truth, by))

    def likeness(self, truth, by):
        at = [i for i in range(2, len(truth) - 2, 2) if 0 <= i + by < len(self.frames)]
        return np.mean([min(psnr(self.frames[i + by], truth[i]), 60) for i in at]) if at else -1

    def at(self, moment):
        return self.frames[moment + self.offset]


def score(made, truth, moments, is_cut):
    if not is_cut:
        error = [np.mean((made.at(i).astype(np.float32) - truth[i]) ** 2) for i in moments]
        return 10 * np.log10(255 * 255 / max(np.mean(error), 1e-3))
    cut = len(truth) // 2
    cut = cut if cut % 2 else cut - 1
    return max(psnr(made.at(cut), truth[cut - 1]), psnr(made.at(cut), truth[cut + 1]))


def measure(name, chosen, folder):
    truth = list(cases.frames(name, chosen.seed, chosen.width, chosen.height, chosen.speed,
                              2 * chosen.frames - 1))
    key = f"{name.replace(' ', '-').replace('%', 'p')}-{chosen.seed}-{chosen.width}-{chosen.speed}-{chosen.frames}"
    given = folder / f"{key}.y4m"
    write_y4m(given, truth[::2], chosen.width, chosen.height, 30)
    luma = [frame[0] for frame in truth]
    moments = range(3, len(luma) - 4, 2)  # ffmpeg leaves out or repeats at both ends
    found = {}
    for side in ("ours", "blend", "mci"):
        out = folder / f"{key}-{side}.y4m"
        if side == "ours":
            ours(chosen.player, given, out)
        elif not out.exists():
            ffmpeg(given, out, side)
        made = Made(read_luma(out), luma)
        found[side] = score(made, luma, moments, name in cases.CUTS)
    return found


def verdict(name, found):
    aim = CUT_AIM if name in cases.CUTS else max(found["blend"], found["mci"]) - ALLOWANCE
    if name.startswith("racing game"):
        aim = found["mci"] + 1
    return aim, found["ours"] - aim


def options():
    parser = argparse.ArgumentParser(prog="bench/pictures", description=__doc__)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--speed", type=float, default=1.0, help="times each case's own speed")
    parser.add_argument("--size", default="640x360")
    parser.add_argument("--frames", type=int, default=12, help="given frames of a case")
    parser.add_argument("--case", action="append", help="part of a case's name; may be repeated")
    parser.add_argument("--player", default="build/release/tools/qozplay/qozplay")
    parser.add_argument("--folder", type=pathlib.Path, default=pathlib.Path("build/pictures"))
    parser.add_argument("--write", type=pathlib.Path, help="puts the table between the marks in this file")
    chosen = parser.parse_args()
    chosen.width, chosen.height = (int(side) for side in chosen.size.split("x"))
    return chosen


def main():
    chosen = options()
    chosen.folder.mkdir(parents=True, exist_ok=True)
    lines = ["| case | ours | blend | mci | over the aim |", "|---|---|---|---|---|"]
    missed = 0
    for name in cases.CASES:
        if chosen.case and not any(part in name for part in chosen.case):
            continue
        found = measure(name, chosen, chosen.folder)
        _, over = verdict(name, found)
        missed += over < 0
        lines.append(f"| {name} | {found['ours']:.1f} | {found['blend']:.1f} | {found['mci']:.1f} | {over:+.1f} |")
        print(lines[-1], file=sys.stderr, flush=True)
    head = (f"{chosen.width}x{chosen.height}, seed {chosen.seed}, speed {chosen.speed:g}, "
            f"{chosen.frames} frames given for each case; luma PSNR of the interpolated frames, dB.")
    text = "\n".join([head, ""] + lines)
    print(text)
    if chosen.write:
        whole = chosen.write.read_text()
        before, after = whole[:whole.index(BEGIN) + len(BEGIN)], whole[whole.index(END):]
        chosen.write.write_text(f"{before}\n\n{text}\n\n{after}")
    return missed


if __name__ == "__main__":
    main()
