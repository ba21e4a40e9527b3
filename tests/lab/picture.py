"""Screenshots and what is to be seen in them."""

import subprocess
from collections import Counter

from desktop import colour_class
from support.processes import BARE_ENVIRONMENT

SMALLEST_DOT = 8  # pixels inside its edge


class Picture:
    """A picture in memory, three bytes a pixel."""

    def __init__(self, path):
        options = {"check": True, "capture_output": True, "env": BARE_ENVIRONMENT}
        size = subprocess.run(["identify", "-format", "%w %h", str(path)], **options).stdout
        self.width, self.height = map(int, size.split())
        self._data = subprocess.run(["convert", str(path), "-depth", "8", "rgb:-"], **options).stdout

    def pixel(self, x, y):
        at = 3 * (y * self.width + x)
        return self._data[at:at + 3]

    def row(self, y, left, right):
        return self._data[3 * (y * self.width + left):3 * (y * self.width + right)]

    def commonest(self, y):
        """The colour that most of a line has: the panel's own, where there is little in the panel."""
        line = self.row(y, 0, self.width)
        return Counter(line[at:at + 3] for at in range(0, len(line), 3)).most_common(1)[0][0]

    def dots(self, colour, area):
        """The middles of all solid spots of this colour inside `area` (left, top, right, bottom), from left to right."""
        left, top, right, bottom = area
        classes = {}
        spot = set()
        for y in range(top, bottom):
            for x in range(left, right):
                pixel = self.pixel(x, y)
                if pixel not in classes:
                    classes[pixel] = _is_dot_colour(colour, *pixel)
                if classes[pixel]:
                    spot.add((x, y))
        # the smooth edges of letters have every shade, but never beside their like on all sides
        solid = {(x, y) for x, y in spot if spot.issuperset(((x - 1, y), (x + 1, y), (x, y - 1), (x, y + 1)))}
        found = [part for part in _parts(solid) if len(part) >= SMALLEST_DOT]
        return sorted(tuple(sum(axis) // len(part) for axis in zip(*part)) for part in found)

    def difference(self, other, area):
        """(left, top, right, bottom) of the smallest rectangle inside `area` that holds all pixels that differ, or None."""
        left, top, right, bottom = area
        rows = [y for y in range(top, bottom) if self.row(y, left, right) != other.row(y, left, right)]
        if not rows:
            return None
        columns = [x for y in rows for x in range(left, right) if self.pixel(x, y) != other.pixel(x, y)]
        return min(columns), rows[0], max(columns) + 1, rows[-1] + 1


def _is_dot_colour(colour, red, green, blue):
    """More than a hint of the colour; for gray neither black nor white, as panels and their text are."""
    strongest, weakest = max(red, green, blue), min(red, green, blue)
    telling = 110 < strongest < 190 if colour == "gray" else strongest - weakest > 90
    return telling and colour_class(red, green, blue) == colour


def _parts(points):
    """The points in groups of those that touch each other."""
    left, parts = set(points), []
    while left:
        part, edge = [], [left.pop()]
        while edge:
            x, y = edge.pop()
            part.append((x, y))
            for neighbour in ((x - 1, y), (x + 1, y), (x, y - 1), (x, y + 1)):
                if neighbour in left:
                    left.remove(neighbour)
                    edge.append(neighbour)
        parts.append(part)
    return parts


class Icon:
    """A picture that an item gives to its host (ARGB, network byte order)."""

    def __init__(self, pixmap):
        self.width, self.height, self._data = self.pixmap = pixmap

    def scaled(self, height):
        """The same at another height."""
        if height == self.height:
            return self
        width = max(1, round(self.width * height / self.height))
        # the order of the bytes makes no difference to the resizing, once alpha is told from the rest
        rgba = b"".join(self._data[at + 1:at + 4] + self._data[at:at + 1] for at in range(0, len(self._data), 4))
        result = subprocess.run(
            ["convert", "-size", f"{self.width}x{self.height}", "-depth", "8", "rgba:-", "-filter", "triangle", "-resize",
             f"{width}x{height}!", "rgba:-"], input=rgba, check=True, capture_output=True, env=BARE_ENVIRONMENT).stdout
        argb = b"".join(result[at + 3:at + 4] + result[at:at + 3] for at in range(0, len(result), 4))
        return Icon((width, height, argb))

    def distance(self, picture, x, y, ground, rows=None):
        """How far the picture at that place is from this icon on that ground: mean difference of a colour, 0 to 255.
        `rows`: of these rows of the icon alone."""
        total = count = 0
        for row in range(self.height) if rows is None else rows:
            seen = picture.row(y + row, x, x + self.width)
            for column in range(self.width):
                at = 4 * (row * self.width + column)
                alpha = self._data[at]
                for channel in range(3):
                    shown = (alpha * self._data[at + 1 + channel] + (255 - alpha) * ground[channel]) // 255
                    total += abs(shown - seen[3 * column + channel])
                count += 3
        return total / count
