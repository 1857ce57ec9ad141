#!/usr/bin/env python3
"""Checks of the repository itself: every tracked file stays inside the checkout, and the application's
sources include only downwards (shell over features over the foundation)."""
import argparse
import pathlib
import re
import subprocess
import sys

# "../" steps towards a name, and the variable they follow, if any.
UPWARDS = re.compile(r"(?P<var>\$\{?\w+\}?/)?(?P<ups>(?:\.\./)+)(?=[\w-])")
TOP_LEVEL = {"ROOT", "CMAKE_SOURCE_DIR", "PROJECT_SOURCE_DIR"}
THIS_FOLDER = {"CMAKE_CURRENT_SOURCE_DIR", "CMAKE_CURRENT_LIST_DIR"}
INCLUDE = re.compile(r'^\s*#\s*include\s+"NubraApp/([^/"]+)/', re.M)
FEATURES = {"Capture", "Overlay", "History", "Settings", "Onboarding", "Update", "ScreenText"}


def layer(folder):
    if folder == "Foundation":
        return 0
    if folder in FEATURES:
        return 1
    if folder == "Shell":
        return 2
    return None


def tracked_files(root):
    listed = subprocess.run(["git", "-C", str(root), "ls-files", "-z"], capture_output=True, check=True)
    return [root / name for name in listed.stdout.decode().split("\0") if name]


def escapes(root, path, text):
    """Relative paths in `text` that climb above the checkout."""
    found = []
    for match in UPWARDS.finditer(text):
        var = (match["var"] or "").strip("${}/")
        if var and var not in TOP_LEVEL | THIS_FOLDER:
            continue  # relative to somewhere else, such as an installed program's folder
        base = root if var in TOP_LEVEL else path.parent
        ups = match["ups"].count("..")
        if ups > len(base.relative_to(root).parts):
            line = text.count("\n", 0, match.start()) + 1
            found.append(f"{path.relative_to(root)}:{line}: {match.group(0)}")
    return found


def wrong_includes(root, path, text):
    """Includes of the application's own headers that point at a higher layer."""
    relative = path.relative_to(root / "Sources" / "NubraApp")
    own = layer(relative.parts[0]) if len(relative.parts) > 1 else 2  # main.cpp sits on top
    if own is None:
        return [f"{relative}: a folder outside the known layers"]
    return [f"Sources/NubraApp/{relative}: includes NubraApp/{folder}/"
            for folder in INCLUDE.findall(text) if layer(folder) is None or layer(folder) > own]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", type=pathlib.Path, required=True)
    root = parser.parse_args().root.resolve()
    app = root / "Sources" / "NubraApp"
    problems = []
    for path in tracked_files(root):
        if not path.is_file() or path.suffix in {".png", ".svg", ".qm", ".ico"}:
            continue
        try:
            text = path.read_text(encoding="utf-8")
        except UnicodeDecodeError:
            continue
        problems += escapes(root, path, text)
        if app in path.parents and path.suffix in {".h", ".cpp"}:
            problems += wrong_includes(root, path, text)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
