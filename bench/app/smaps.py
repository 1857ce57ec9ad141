"""A process's memory by mapping, from /proc/PID/smaps: RSS and PSS in kB per kind of mapping and per
file, so two programs can be compared kind by kind and file by file."""
import os
import re

KINDS = ("Qt libraries", "other libraries", "program", "heap and anonymous", "other")

_HEADER = re.compile(r"^[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ \d+\s*(.*)$")
_FIELD = re.compile(r"^(Rss|Pss):\s+(\d+) kB$")
_LIBRARY = re.compile(r"\.so(\.[0-9.]+)?$")


def kind_of(path, program):
    name = os.path.basename(path)
    if path == program:
        return "program"
    if not path or path in ("[heap]", "[stack]") or path.startswith("[anon:"):
        return "heap and anonymous"
    if _LIBRARY.search(name):
        return "Qt libraries" if name.startswith("libQt6") or "/plugins/" in path else "other libraries"
    return "other"


def by_file(pid):
    """{path: [rss, pss]} in kB; anonymous mappings under "", the rest as /proc names them."""
    files = {}
    current = None
    with open(f"/proc/{pid}/smaps") as f:
        for line in f:
            header = _HEADER.match(line)
            if header:
                current = files.setdefault(header.group(1).replace(" (deleted)", ""), [0, 0])
                continue
            field = _FIELD.match(line)
            if field and current is not None:
                current[0 if field.group(1) == "Rss" else 1] += int(field.group(2))
    return files


def sample(pid):
    """{"files": by_file, "kinds": {kind: [rss, pss]}} of the process now."""
    program = os.path.realpath(f"/proc/{pid}/exe")
    files = by_file(pid)
    kinds = {kind: [0, 0] for kind in KINDS}
    for path, (rss, pss) in files.items():
        totals = kinds[kind_of(path, program)]
        totals[0] += rss
        totals[1] += pss
    return {"files": files, "kinds": kinds}
