"""contact_sheet.py FOLDER: puts what the panels' screenshots show of the item, twice as large, and of its menu into
FOLDER/contact-sheet.png."""

import subprocess
import sys
import tempfile
from pathlib import Path

NAMES = {"gnome": "GNOME Shell", "plasma": "KDE Plasma", "xfce": "Xfce", "mate": "MATE", "lxqt": "LXQt", "waybar": "Waybar",
         "ayatana": "Ayatana indicators", "trayer": "X11 tray (trayer)", "tint2": "X11 tray (tint2)", "none": "No panel at all"}
# the item and its menu stand at the right end on these, at the left end on the others
AT_THE_RIGHT = {"gnome", "none"}
MENU = "560x470+0+0"
ITEM = "280x30+0+0"


def main(folder):
    with tempfile.TemporaryDirectory() as parts_folder:
        parts = []
        for kind, name in NAMES.items():
            item, menu = (folder / f"{kind}-{what}.png" for what in ("green", "menu"))
            if item.exists() and menu.exists():
                part = Path(parts_folder, f"{kind}.png")
                gravity = "NorthEast" if kind in AT_THE_RIGHT else "NorthWest"
                subprocess.run(["convert", "-gravity", gravity,
                                "(", str(item), "-crop", ITEM, "+repage", "-filter", "point", "-resize", "200%", ")",
                                "(", str(menu), "-crop", MENU, "+repage", ")", "-append", str(part)], check=True)
                parts += ["-label", name, str(part)]
        if not parts:
            print("there are no screenshots of panels yet")
            sys.exit(77)
        subprocess.run(["montage", *parts, "-tile", "3x", "-geometry", "+8+8", "-background", "#e8e8ec",
                        str(folder / "contact-sheet.png")], check=True)


if __name__ == "__main__":
    main(Path(sys.argv[1]))
