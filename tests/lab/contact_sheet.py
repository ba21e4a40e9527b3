"""contact_sheet.py FOLDER: puts what the panels' screenshots show of the item, and its menu, into FOLDER/contact-sheet.png."""

import subprocess
import sys
from pathlib import Path

NAMES = {"gnome": "GNOME Shell", "plasma": "KDE Plasma", "xfce": "Xfce", "mate": "MATE", "lxqt": "LXQt", "waybar": "Waybar",
         "ayatana": "Ayatana indicators", "trayer": "X11 tray (trayer)", "tint2": "X11 tray (tint2)", "none": "No panel at all"}
# the item and its menu stand at the right end on these, at the left end on the others
AT_THE_RIGHT = {"gnome", "none"}
PART = (560, 470)


def main(folder):
    parts = []
    for kind, name in NAMES.items():
        shot = folder / f"{kind}-menu.png"
        if shot.exists():
            gravity = "NorthEast" if kind in AT_THE_RIGHT else "NorthWest"
            parts += ["(", str(shot), "-gravity", gravity, "-crop", f"{PART[0]}x{PART[1]}+0+0", "+repage", "-set", "label", name, ")"]
    if not parts:
        print("there are no screenshots of panels yet")
        sys.exit(77)
    subprocess.run(["montage", *parts, "-tile", "3x", "-geometry", "+8+8", "-background", "#e8e8ec",
                    str(folder / "contact-sheet.png")], check=True)


if __name__ == "__main__":
    main(Path(sys.argv[1]))
