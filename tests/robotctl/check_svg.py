#!/usr/bin/env python3
"""check_svg.py FILE: parses a picture and prints as JSON what is drawn in it: of each curve its title and
its points in pixels, of each bar its title and its left and right edge, and all texts."""
import json
import re
import sys
import xml.etree.ElementTree as ElementTree

SVG = "{http://www.w3.org/2000/svg}"


def points(path):
    x = y = 0.0
    drawn = []
    for command, numbers in re.findall(r"([MLH])([-0-9. ]+)", path):
        values = [float(number) for number in numbers.split()]
        x, y = (values[0], y) if command == "H" else values
        drawn.append([x, y])
    return drawn


def title(element):
    return element.findtext(SVG + "title")


root = ElementTree.parse(sys.argv[1]).getroot()
curves = [element for element in root.iter(SVG + "path") if "curve" in element.get("class", "").split()]
bars = [element for element in root.iter(SVG + "rect") if title(element)]
print(json.dumps({
    "width": float(root.get("width")),
    "height": float(root.get("height")),
    "curves": [{"title": title(curve), "points": points(curve.get("d"))} for curve in curves],
    "bars": [{"title": title(bar), "left": float(bar.get("x")), "right": float(bar.get("x")) + float(bar.get("width"))} for bar in bars],
    "texts": [element.text for element in root.iter(SVG + "text")],
}))
