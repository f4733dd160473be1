# SPDX-License-Identifier: Apache-2.0
"""Clips that are difficult for frame interpolation, generated from a seed, a size and a speed.

Each case is a function that draws the luma of one moment with a Stage. Moments are numbered in output
frames: the even ones are the source frames, and the odd ones are the true pictures to which interpolated
frames are compared. The chroma is derived from the luma.
"""

import numpy as np


def smooth_noise(rng, side, slope):
    """Returns periodic noise with mean 0 and standard deviation 1. Its amplitude is proportional to
    the frequency to the power of -`slope`."""
    frequency = np.hypot(np.fft.fftfreq(side)[:, None], np.fft.rfftfreq(side)[None, :])
    frequency[0, 0] = 1
    spectrum = np.fft.rfft2(rng.standard_normal((side, side))) * frequency ** -slope
    spectrum[frequency > 0.25] = 0
    spectrum[0, 0] = 0
    noise = np.fft.irfft2(spectrum, (side, side))
    return (noise / noise.std()).astype(np.float32)


def blurred(image, sigma):
    side = image.shape[0]
    fy, fx = np.fft.fftfreq(side)[:, None], np.fft.rfftfreq(side)[None, :]
    keep = np.exp(-2 * (np.pi * sigma) ** 2 * (fx * fx + fy * fy))
    return np.fft.irfft2(np.fft.rfft2(image) * keep, image.shape).astype(np.float32)


class Texture:
    """An endless picture with the edges and the grain of a game, sampled at any point."""

    SIDE = 2048  # in texels; two for each pixel, so that sampling between texels does not blur
    SCALE = 2

    def __init__(self, rng, mean=120, grain=16, shapes=260, contrast=34):
        image = np.zeros((self.SIDE, self.SIDE), np.float32)
        for _ in range(shapes):
            x, y = rng.integers(0, self.SIDE, 2)
            w, h = rng.integers(24, 260, 2)
            rows, columns = np.arange(y, y + h) % self.SIDE, np.arange(x, x + w) % self.SIDE
            image[np.ix_(rows, columns)] = rng.normal(0, contrast)
        image = blurred(image, 1.4) + grain * smooth_noise(rng, self.SIDE, 1.1)
        self.image = np.clip(mean + image, 24, 230).astype(np.float32)

    def at(self, x, y):
        x, y = np.asarray(x * self.SCALE, np.float32), np.asarray(y * self.SCALE, np.float32)
        left, top = np.floor(x).astype(np.int32), np.floor(y).astype(np.int32)
        u, v = x - left, y - top
        mask = self.SIDE - 1
        l, r, t, b = left & mask, (left + 1) & mask, top & mask, (top + 1) & mask
        image = self.image
        return ((image[t, l] * (1 - u) + image[t, r] * u) * (1 - v)
                + (image[b, l] * (1 - u) + image[b, r] * u) * v)


class Stage:
    """The textures, coordinates and drawing functions for one clip."""

    def __init__(self, seed, width, height, speed):
        self.rng = np.random.default_rng(seed)
        self.width, self.height, self.speed = width, height, speed
        self.y, self.x = np.mgrid[0:height, 0:width].astype(np.float32)
        self.ground = Texture(self.rng)
        self.other = Texture(self.rng, mean=150, grain=22, shapes=120)

    def pan(self, moment, dx, dy=0.0, texture=None):
        move = moment * self.speed
        return (texture or self.ground).at(self.x - dx * move, self.y - dy * move)

    def cover(self, below, above, x, y, half_width, half_height, round_=False):
        """Draws `above` over `below` in a box or an ellipse around (x, y), with soft edges of one pixel."""
        if round_:
            far = np.hypot((self.x - x) / half_width, (self.y - y) / half_height)
            alpha = np.clip((1 - far) * min(half_width, half_height) + 0.5, 0, 1)
        else:
            alpha = (np.clip(half_width - abs(self.x - x) + 0.5, 0, 1)
                     * np.clip(half_height - abs(self.y - y) + 0.5, 0, 1))
        return below * (1 - alpha) + above * alpha


def thin_hud(stage, picture, value=235):
    """Draws a still overlay over the picture: lines of one and two pixels, digits and a ring."""
    h, w = picture.shape
    out = picture.copy()
    out[h // 8, w // 16:w // 3] = value
    out[h // 8:h // 2, w // 16] = value
    out[h - h // 6:h - h // 6 + 2, w // 2:w - w // 12] = value
    out[h // 3:h - h // 4, w - w // 10] = 20
    ring = abs(np.hypot(stage.x - w * 0.5, stage.y - h * 0.45) - h * 0.09)
    out = np.where(ring < 0.8, value, out)
    digits = np.random.default_rng(7).integers(0, 2, (7, 44))
    for row in range(7):
        for column in range(44):
            if digits[row, column]:
                y, x = h // 12 + 2 * row, w // 2 + 2 * column
                out[y:y + 2, x:x + 2] = value
    return out


def pan(s, t):
    return s.pan(t, 1.5)


def slow_slanted_pan(s, t):
    return s.pan(t, 0.6, 0.35)


def fast_pan(s, t):
    return s.pan(t, 13.25, 3.5)


def thin_lines(s, t):
    return thin_hud(s, s.pan(t, 3.0))


def thin_lines_fast(s, t):
    return thin_hud(s, s.pan(t, -7.5, 2.25))


def blinking(s, t):
    picture = s.ground.at(s.x, s.y)
    lit = 1 if (t // 4) % 2 else 0
    return s.cover(picture, picture * 0.5 + 120 * lit, s.width * 0.4, s.height * 0.5, 45, 45, True)


def blinking_over_pan(s, t):
    picture = s.pan(t, 2.5)
    lit = 1 if (t // 4) % 2 else 0
    x = s.width * 0.25 + 2.5 * s.speed * t
    return s.cover(picture, picture * 0.5 + 110 * lit, x, s.height * 0.5, 45, 45, True)


def bars(s, t):
    moved = s.x - 6 * s.speed * t
    edge = np.clip(np.abs((moved % 16) - 8) - 4 + 0.5, 0, 1)
    return 0.55 * s.ground.at(moved, s.y) + 90 * edge


def fence(s, t):
    """Posts that move in front of a slower background."""
    moved = s.x - 6 * s.speed * t
    post = np.clip(3.5 - np.abs((moved % 16) - 8), 0, 1)
    band = np.clip(s.height * 0.25 - np.abs(s.y - s.height * 0.6), 0, 1)
    alpha = post * band
    return s.pan(t, 1.5) * (1 - alpha) + (60 + 0.2 * s.other.at(moved, s.y)) * alpha


def turned(s, degrees, zoom):
    angle, dx, dy = np.radians(degrees), s.x - s.width / 2, s.y - s.height / 2
    cosine, sine = np.cos(angle) / zoom, np.sin(angle) / zoom
    return s.ground.at(500 + dx * cosine - dy * sine, 500 + dx * sine + dy * cosine)


def rotation(s, t):
    return turned(s, 2 * s.speed * t, 1)


def zoom(s, t):
    return turned(s, 0, 1.02 ** (s.speed * t))


def still_fade(s, t):
    return 16 + (s.ground.at(s.x, s.y) - 16) * 0.95 ** t


def pan_fade(s, t):
    return 16 + (s.pan(t, 2.0) - 16) * 0.95 ** t


def dissolve(s, t):
    share = t / s.moments
    return s.ground.at(s.x, s.y) * (1 - share) + s.other.at(s.x + 300, s.y) * share


def hard_cut(s, t):
    return s.pan(t, 2.0) if t < s.moments // 2 else s.pan(t, -1.5, 0.5, s.other)


def cut_to_alike(s, t):
    """A cut between two places on the same texture, with the same brightness."""
    return s.ground.at(s.x - 2 * s.speed * t + (0 if t < s.moments // 2 else 611), s.y)


def occlusion(s, t):
    far = s.pan(t, 1.5)
    x = s.width * 0.3 + 5 * s.speed * t
    near = s.other.at(s.x - x, s.y)
    return s.cover(far, near, x, s.height * 0.5, s.width * 0.12, s.height * 0.3)


def crossing(s, t):
    picture = s.ground.at(s.x, s.y)
    for way, y, texture in ((1, 0.4, s.other), (-1, 0.6, s.ground)):
        x = s.width * (0.5 - way * 0.15) + way * 4 * s.speed * t
        picture = s.cover(picture, texture.at(s.x - x + 900, s.y + 400), x, s.height * y,
                          s.height * 0.2, s.height * 0.17, True)
    return picture


def road(s, t, turn=0.0):
    """The view of a driver: a road in perspective, hills on the horizon, roadside posts and a car."""
    horizon = s.height * 0.42
    below = np.maximum(s.y - horizon, 0.5)
    depth = 0.55 * s.height / below
    distance = 6 * s.speed * t
    across = (s.x - s.width / 2) * depth / 2.2 + 30 * np.sin(distance / 160)
    ground = s.ground.at(across * 2, depth * 60 + distance)
    lane = np.abs(across) < s.width * 0.2
    ground = np.where(lane, 78 + 0.2 * (ground - 120), ground)
    dash = (np.abs(across) < 5) & (((depth * 60 + distance) % 48) < 24)
    ground = np.where(dash, 215, ground)
    hills = s.other.at(s.x + turn * t * s.speed, s.y)
    haze = np.clip((depth - 6) / 10, 0, 1)
    ground = ground * (1 - haze) + 140 * haze
    picture = np.where(s.y > horizon, ground, hills)
    for i in range(12):
        ahead = 40 + (i * 70 - distance) % 840
        scale = 55 / ahead
        for side in (-1, 1):
            x = s.width / 2 + side * s.width * 0.42 * scale
            y = horizon + 0.5 * s.height * scale * 0.6
            if ahead < 500:
                picture = s.cover(picture, np.full_like(picture, 40 + 12 * i), x, y, 9 * scale, 60 * scale)
    x = s.width * (0.5 + 0.06 * np.sin(t * 0.11 * s.speed))
    return s.cover(picture, s.other.at(s.x - x + 200, s.y + 100), x, s.height * 0.8, s.height * 0.13,
                   s.height * 0.09)


def racing_hud(s, t, picture):
    picture = thin_hud(s, picture)
    h, w = picture.shape
    cx, cy, radius = w * 0.88, h * 0.2, h * 0.14
    inside = np.hypot(s.x - cx, s.y - cy)
    track = abs(np.hypot((s.x - cx) * 0.8, s.y - cy) - radius * 0.6) < 1.2
    picture = np.where((inside < radius) & track, 240, picture)
    angle = t * 0.03 * s.speed
    picture = s.cover(picture, np.full_like(picture, 30.0), cx + radius * 0.75 * np.cos(angle),
                      cy + radius * 0.6 * np.sin(angle), 3, 3, True)
    return picture


def racing(s, t):
    return racing_hud(s, t, road(s, t, 2.0))


def racing_fade(s, t):
    return 16 + (racing_hud(s, t, road(s, t, 2.0)) - 16) * 0.96 ** t


# name, function, speed
CASES = {
    "pan of 1.5 pixels a frame": (pan, 1.0),
    "slow slanted pan": (slow_slanted_pan, 1.0),
    "fast pan": (fast_pan, 1.0),
    "thin lines over a pan": (thin_lines, 1.0),
    "thin lines over a fast pan": (thin_lines_fast, 1.0),
    "blinking light, still": (blinking, 1.0),
    "blinking light over a pan": (blinking_over_pan, 1.0),
    "bars of period 16, 6 pixels a frame": (bars, 1.0),
    "fence before a pan": (fence, 1.0),
    "rotation of 2 degrees a frame": (rotation, 1.0),
    "zoom of 2 % a frame": (zoom, 1.0),
    "still fading 5 % a frame": (still_fade, 1.0),
    "pan fading 5 % a frame": (pan_fade, 1.0),
    "dissolve": (dissolve, 1.0),
    "hard cut": (hard_cut, 1.0),
    "cut within one place": (cut_to_alike, 1.0),
    "occlusion": (occlusion, 1.0),
    "crossing objects": (crossing, 1.0),
    "racing game": (racing, 1.0),
    "racing game fading": (racing_fade, 1.0),
}
CUTS = {"hard cut", "cut within one place"}


def frames(name, seed, width, height, speed, moments):
    """Yields the planes Y, U and V of every moment."""
    draw, own_speed = CASES[name]
    stage = Stage(seed, width, height, own_speed * speed)
    stage.moments = moments
    for moment in range(moments):
        luma = np.clip(np.rint(draw(stage, moment)), 16, 235).astype(np.uint8)
        small = luma.reshape(height // 2, 2, width // 2, 2).mean((1, 3))
        # Only colours that RGB can represent, because the player converts its frames to RGB.
        room = np.minimum(small - 16, 235 - small) * 0.2
        u = np.rint(128 + room * np.cos(small / 20)).astype(np.uint8)
        v = np.rint(128 + room * np.sin(small / 20)).astype(np.uint8)
        yield luma, u, v
