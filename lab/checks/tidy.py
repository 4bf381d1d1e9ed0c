"""tidy.py BUILD JOBS [DATABASE]: runs clang-tidy on everything that BUILD compiles, with the compile commands in DATABASE
(default: BUILD).

Skips a source that had no findings before with the same command, rules, headers and version of clang-tidy.
"""

import concurrent.futures
import hashlib
import json
import pathlib
import re
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
TIDY = "clang-tidy-19"


def headers_of(build):
    """object -> the files that it was made from, from ninja's log of dependencies."""
    found, current = {}, []
    listing = subprocess.run(["ninja", "-C", build, "-t", "deps"], capture_output=True, text=True, check=True).stdout
    for line in listing.splitlines():
        if line.startswith("    "):
            current.append(line.strip())
        elif ": #deps" in line:
            current = found.setdefault(line.split(": #deps")[0], [])
    return found


def object_of(entry):
    return re.search(r" -o (\S+)", entry["command"]).group(1)


def digest_of(path, known):
    if path not in known:
        known[path] = hashlib.sha256(path.read_bytes()).digest() if path.is_file() else b""
    return known[path]


def key_of(entry, headers, rules, known):
    digest = hashlib.sha256(rules + entry["command"].encode())
    folder = pathlib.Path(entry["directory"])
    for name in [entry["file"], *sorted(headers)]:
        path = (folder / name).resolve()
        if path.is_relative_to(TOP) and "cmake_pch" not in name:
            digest.update(digest_of(path, known))
        else:
            digest.update(name.encode())
    return digest.hexdigest()


def is_ours(file):
    """Whether it is a source of the project or a unity source that includes some."""
    path = pathlib.Path(file)
    return path.is_relative_to(TOP) and "cmake_pch" not in path.name and "/googletest/" not in file


def main(build, jobs, database=None):
    database = pathlib.Path(database or build)
    entries = json.loads((database / "compile_commands.json").read_text())
    entries = [entry for entry in entries if is_ours(entry["file"])]
    headers = headers_of(build)
    version = subprocess.run([TIDY, "--version"], capture_output=True, check=True).stdout
    rules, known = version + (TOP / ".clang-tidy").read_bytes(), {}
    clean = pathlib.Path(build) / "tidy"
    clean.mkdir(exist_ok=True)
    todo = []
    for entry in entries:
        key = key_of(entry, headers.get(object_of(entry), []), rules, known)
        if not (clean / key).exists():
            todo.append((entry["file"], clean / key))
    print(f"checking {len(todo)} of {len(entries)} sources; the others are unchanged and clean", flush=True)

    def look_at(task):
        file, stamp = task
        found = subprocess.run([TIDY, "--quiet", "-p", database, file], capture_output=True, text=True)
        if found.returncode == 0:
            stamp.touch()
        return found

    with concurrent.futures.ThreadPoolExecutor(int(jobs)) as pool:
        results = list(pool.map(look_at, todo))
    for result in results:
        if result.returncode != 0:
            print(result.stdout, result.stderr, sep="")
    return any(result.returncode != 0 for result in results)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
