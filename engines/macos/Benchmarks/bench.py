#!/usr/bin/python3
"""Compares the engine with common programs for the same task, on the same inputs, in alternating runs.

  bench.py BUILD_FOLDER [--rows NAME,...] [--rounds N] [--scale FACTOR] [--work FOLDER]

Prints a table in Markdown: the medians of both, the ratio of the medians with the quartiles of the rounds' ratios, the
ratio of the processor times, which depends less on other load, and the peak memory of the largest process of ours.
Appends the figures to WORK/history.jsonl and shows the previous ratio of each row from that file. --scale multiplies the
size of the inputs.
"""

import argparse
import contextlib
import datetime
import hashlib
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import slow_network

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[2]
CDN = ROOT / "lab/cdn/lab-cdn"
HOST = "cdn.kelo.example"
TEAM = "QX7M4R2V9D"
MEGABYTE = 1 << 20
BUNDLE_FILES, BUNDLE_BYTES = 3100, 311_000_000


class Run:
    """Duration and processor time of a child process. The processor time includes its own children."""

    def __init__(self, words, environment=None):
        with open(os.devnull, "r+b") as nothing:
            start = time.perf_counter()
            child = subprocess.Popen([str(word) for word in words], stdin=nothing, stdout=nothing, stderr=subprocess.PIPE,
                                     env=environment)
            said = child.stderr.read()
            _, status, usage = os.wait4(child.pid, 0)
            child.returncode = os.waitstatus_to_exitcode(status)
        self.seconds = time.perf_counter() - start
        self.processor = usage.ru_utime + usage.ru_stime
        if child.returncode:
            sys.exit(f"bench.py: {words} ended with {child.returncode}: {said.decode(errors='replace')[-2000:]}")


def peak(words):
    """The peak memory of a child process in kB. wait4 also counts the memory before its exec, so a small process starts it."""
    with tempfile.NamedTemporaryFile() as file:
        Run(["time", "--format=%M", f"--output={file.name}", *words])
        return int(file.read())


class Bench:
    def __init__(self, arguments):
        self.build, self.rounds, self.scale = arguments.build.resolve(), arguments.rounds, arguments.scale
        self.lab = self.build / "lab/bin"
        self.engine = self.build / "engines/macos/engine-cli"
        self.calls = self.build / "engines/macos/Benchmarks/host-calls"
        self.work = arguments.work.resolve()
        self.inputs = self.work / "inputs"
        self.rows = []
        shutil.rmtree(self.inputs, ignore_errors=True)
        self.inputs.mkdir(parents=True)

    def call(self, *words):
        return [self.calls, self.inputs / "calls", *words]

    def compare(self, name, goal, ours, beside=None, before=lambda: None):
        """`before` prepares each run. Without `beside` nothing is compared."""
        taken, others = [], []
        for _ in range(self.rounds):
            before()
            taken.append(Run(ours))
            if beside:
                before()
                others.append(Run(beside))
        before()
        self.add(name, goal, taken, others, peak(ours))

    def add(self, name, goal, taken, others, kilobytes):
        row = {"row": name, "goal": goal, "seconds": statistics.median(run.seconds for run in taken),
               "processor": statistics.median(run.processor for run in taken), "peak": kilobytes}
        if others:
            row["beside"] = statistics.median(run.seconds for run in others)
            row["ratio"] = row["seconds"] / row["beside"]
            single = sorted(one.seconds / other.seconds for one, other in zip(taken, others, strict=True))
            row["spread"] = [single[len(single) // 4], single[(3 * len(single)) // 4]]
            row["processorRatio"] = row["processor"] / max(statistics.median(run.processor for run in others), 1e-3)
        self.rows.append(row)
        print(json.dumps(row), file=sys.stderr, flush=True)

    # Inputs

    def file(self, name, size):
        path = self.inputs / name
        if not path.exists():
            with path.open("wb") as file:
                for begin in range(0, size, MEGABYTE):
                    file.write(os.urandom(min(MEGABYTE, size - begin)))
        return path

    def bundle(self, files=BUNDLE_FILES, name="bundle"):
        """An application with that many files, times the scale, signed ad hoc."""
        folder = self.inputs / name
        app = folder / "Brenna.app"
        if not app.exists():
            subprocess.run([self.lab / "lab-fixture", "app", "--app", "brenna", "--version", "2.0", "--output", folder], check=True,
                           stdout=subprocess.DEVNULL)
            count = max(1, round(files * self.scale))
            for number in range(count):
                place = app / f"Contents/Resources/part-{number % 40:02}"
                place.mkdir(exist_ok=True, parents=True)
                (place / f"file-{number}").write_bytes(os.urandom(BUNDLE_BYTES // BUNDLE_FILES))
            subprocess.run([self.lab / "lab-sign", "sign", "--variant", "ad-hoc", app], check=True)
        return app

    def authority(self):
        folder = self.inputs / "authority"
        if not folder.exists():
            subprocess.run([self.lab / "lab-sign", "make-authority", folder, "--team", TEAM], check=True, stdout=subprocess.DEVNULL)
        return folder

    def installer(self, name, *options):
        folder = self.inputs / name
        subprocess.run([self.lab / "lab-fixture", "offline-installer", "--engine", self.engine, "--programs", self.lab, "--machine",
                        folder / "machine", "--version", "2.0", "--output", folder, *options], check=True, stdout=subprocess.DEVNULL)
        return folder / "Kelo-Desk-Installer.app/Contents"

    # Rows

    def digest(self):
        file = self.file("gigabyte", int(1024 * MEGABYTE * self.scale))
        self.compare("digest of 1 GiB beside `openssl dgst`", 0.95, self.call("digest", file), ["openssl", "dgst", "-sha256", file])

    def verify(self):
        app = self.bundle()
        self.compare("verification of 3,100 files beside `openssl dgst` of each", 1.05, [self.lab / "codesign", "--verify", app],
                     ["find", app, "-type", "f", "-exec", "openssl", "dgst", "-sha256", "{}", "+"])

    def copies(self):
        for kind, folder in (("tmpfs", Path("/dev/shm")), (file_system(self.work), self.work)):
            place = folder / f"kelo-bench-{os.getpid()}"
            shutil.copytree(self.bundle(), place / "from.app", symlinks=True)
            made = place / "to.app"
            try:
                self.compare(f"copy of it beside `cp -a`, {kind}", 1.0, self.call("copy", place / "from.app", made),
                             ["cp", "-a", place / "from.app", made], lambda made=made: shutil.rmtree(made, ignore_errors=True))
                self.compare(f"removal of it beside `rm -rf`, {kind}", 1.05, self.call("remove", made), ["rm", "-rf", made],
                             lambda place=place, made=made: copy_again(place, made))
            finally:
                shutil.rmtree(place)

    def downloads(self):
        (self.inputs / "tree").mkdir()
        program = self.build / "engines/macos/Benchmarks/url-session-fetch"
        with served(self.inputs / "cdn", self.inputs / "tree", HOST) as host:
            for megabytes in (20, 200, 2048):
                name = f"tree/{megabytes}.dmg"
                self.file(name, int(megabytes * MEGABYTE * self.scale))
                url, address = f"https://{HOST}/{megabytes}.dmg", host["hostAddresses"][HOST]
                self.compare(f"download of {megabytes} MB beside `curl -o`", 1.0,
                             [program, self.inputs / "root", host["extraCertificateAuthority"], f"{HOST}={address}", url],
                             curl(host, HOST, self.inputs / "curl.dmg", url))
                (self.inputs / name).unlink()

    def install(self):
        """The bundle, signed by a test authority: without a team the engine checks no signature."""
        authority = self.authority()
        contents = self.installer("offline", "--apps", "brenna", "--authority", authority, "--team-id", TEAM)
        image = contents / "Resources/packages/brenna_installer.dmg"
        image.unlink()
        signed = self.inputs / "signed"
        shutil.copytree(self.bundle(), signed / "Brenna.app", symlinks=True)
        subprocess.run([self.lab / "lab-sign", "sign", "--authority", authority, signed / "Brenna.app"], check=True)
        subprocess.run([self.lab / "lab-diskimage", "--volume-name", "Kelo Brenna", signed, image], check=True)
        listed = contents / "Resources/packages/packages.json"
        packages = json.loads(listed.read_text())
        (entry,) = packages.values()
        entry.update(size=image.stat().st_size, checksum=hashlib.sha256(image.read_bytes()).hexdigest())
        listed.write_text(json.dumps(packages))
        machine = self.inputs / "offline/machine"
        app = machine / "Applications/Brenna.app"
        programs = contents / "Resources/programs"
        digest = f'echo "{entry["checksum"]}  {image}" | sha256sum --check --quiet'
        checked = self.script("checked", f"""{digest}
            "{programs}/hdiutil" attach "{image}" -nobrowse -noverify -plist >/dev/null
            "{programs}/codesign" --verify --strict "{machine}/Volumes/Kelo Brenna/Brenna.app"
            cp -a "{machine}/Volumes/Kelo Brenna/Brenna.app" "{app}"
            "{programs}/codesign" --verify --strict "{app}"
            "{programs}/xattr" -r -d com.apple.quarantine "{app}"
            "{programs}/hdiutil" detach "{machine}/Volumes/Kelo Brenna" -quiet""")
        unchecked = self.script("unchecked", f"""{digest}
            rm -rf "{machine}/tmp/x"; 7zz x -bd -snld "-o{machine}/tmp/x" "{image}" >/dev/null
            cp -a "{machine}/tmp/x/Kelo Brenna/Brenna.app" "{app}"; rm -rf "{machine}/tmp/x" """)
        ours = [contents / "MacOS/engine-cli", "--silent", "--mode", "install", "--apps", "brenna"]
        for name, goal, script in (("the same checks", 0.85, checked), ("no checks", 1.1, unchecked)):
            self.compare(f"offline install beside a script with {name}", goal, ours, ["sh", script],
                         lambda: shutil.rmtree(app, ignore_errors=True))

    def script(self, name, text):
        path = self.inputs / f"{name}.sh"
        path.write_text("set -e\n" + text + "\n")
        return path

    def online(self):
        """Four apps of 20 MB each, signed by a test authority."""
        authority, tree = self.authority(), self.inputs / "apps"
        for app, architectures in slow_network.ARCHITECTURES.items():
            folder, image = self.inputs / f"online-{app}", self.inputs / f"online-{app}.dmg"
            subprocess.run([self.lab / "lab-fixture", "app", "--app", app, "--version", "2.0", "--output", folder], check=True,
                           stdout=subprocess.DEVNULL)
            (bundle,) = folder.glob("*.app")
            (bundle / "Contents/Resources").mkdir(exist_ok=True)
            (bundle / "Contents/Resources/payload").write_bytes(os.urandom(int(20 * MEGABYTE * self.scale)))
            subprocess.run([self.lab / "lab-sign", "sign", "--authority", authority, bundle], check=True)
            subprocess.run([self.lab / "lab-diskimage", "--volume-name", bundle.stem, folder, image], check=True)
            subprocess.run([self.lab / "lab-sign", "sign", "--authority", authority, image], check=True)
            for architecture in architectures:
                subprocess.run([self.lab / "lab-publish", "publish", "--tree", tree, "--app", app, "--version", "2.0", "--arch",
                                architecture, "--image", image], check=True, stdout=subprocess.DEVNULL)
        contents = self.installer("online", "--apps", "brenna", "--authority", authority, "--team-id", TEAM)
        shutil.rmtree(contents / "Resources/packages")
        with served(self.inputs / "cdn", tree, f"{HOST},www.kelo.example") as host:
            settings = contents / "Resources/linux_host.json"
            settings.write_text(json.dumps({**json.loads(settings.read_text()), **host}))
            configuration = contents / "Resources/installer_config.json"
            configuration.write_text(json.dumps({**json.loads(configuration.read_text()), "trustedDownloadDomains": ["kelo.example"],
                                                 "cdn": {"domains": {"us": f"https://{HOST}"}}}))
            applications = self.inputs / "online/machine/Applications"
            script = self.script("online", "\n".join(self.by_hand(app, tree, contents, host) for app in slow_network.ARCHITECTURES))
            self.compare("four apps online beside a script with curl and the same checks", None,
                         [contents / "MacOS/engine-cli", "--silent", "--mode", "install"], ["sh", script],
                         lambda: [shutil.rmtree(path) for path in applications.iterdir()])

    def by_hand(self, app, tree, contents, host):
        (image,) = (tree / f"desksuite/apps/default/{app}/mac/{slow_network.ARCHITECTURES[app][0]}/dmg/latest").glob("*.dmg")
        volume = next((self.inputs / f"online-{app}").glob("*.app")).stem
        machine, programs = self.inputs / "online/machine", contents / "Resources/programs"
        file = machine / f"tmp/{app}.dmg"
        url = f"https://{HOST}/{image.relative_to(tree)}"
        fetch = " ".join(f"'{word}'" for word in curl(host, HOST, file, url))
        return f"""{fetch}
            sha256sum "{file}" >/dev/null
            "{programs}/spctl" --assess --type open --context context:primary-signature "{file}" 2>/dev/null
            "{programs}/codesign" --verify --strict "{file}"
            "{programs}/codesign" --verify --strict "{file}"
            "{programs}/hdiutil" attach "{file}" -nobrowse -noverify -plist >/dev/null
            "{programs}/codesign" --verify --strict "{machine}/Volumes/{volume}/{volume}.app"
            cp -a "{machine}/Volumes/{volume}/{volume}.app" "{machine}/Applications/"
            "{programs}/codesign" --verify --strict "{machine}/Applications/{volume}.app"
            "{programs}/hdiutil" detach "{machine}/Volumes/{volume}" -quiet
            rm "{file}" """

    def hello(self):
        contents = self.installer("hello", "--apps", "brenna")
        words = [contents / "MacOS/engine-cli", "hello"]
        self.compare("`hello` on an empty machine beside `curl --version`", 1.0, words, ["curl", "--version"])
        installed = self.inputs / "hello/machine/Applications/Brenna.app"
        shutil.copytree(self.bundle(), installed)
        subprocess.run([contents / "Resources/programs/lsregister", "-f", installed], check=True)
        self.compare("`hello` with 3,100 files installed beside `curl --version`", 1.5, words, ["curl", "--version"])

    def sweep(self):
        folder = self.inputs / "sweep"
        folder.mkdir()
        with slow_network.slow_engine(folder, self.build, 0.3) as engine:
            one, four = ([engine, "check-updates", "--apps", ",".join(list(slow_network.ARCHITECTURES)[:count])] for count in (1, 4))
            self.compare("sweep of four apps, round trips of 300 ms, beside one app", 1.05, four, one)

    def bulk(self):
        count = max(4, int(1_000_000 * self.scale))
        self.compare(f"{count:,} log calls from four threads", None, self.call("log", "4", str(count)))
        self.compare(f"{count // 10:,} events", None, self.call("events", str(count // 10)))

    def growth(self):
        for factor in (1, 4, 16):
            size = int(64 * factor * MEGABYTE * self.scale)
            self.compare(f"digest of {64 * factor} MB", None, self.call("digest", self.file(f"growth-{factor}", size)))
        for factor in (1, 4, 16):
            app = self.bundle(BUNDLE_FILES * factor // 16, f"bundle-{factor}")
            self.compare(f"verification of {BUNDLE_FILES * factor // 16} files", None, [self.lab / "codesign", "--verify", app])


ROWS = ("digest", "verify", "copies", "downloads", "install", "online", "hello", "sweep", "bulk", "growth")


def file_system(folder):
    return subprocess.run(["stat", "-f", "-c", "%T", folder], check=True, capture_output=True, text=True).stdout.strip()


def copy_again(place, made):
    if not made.exists():
        subprocess.run(["cp", "-a", place / "from.app", made], check=True)


def curl(host, name, target, url):
    return ["curl", "--silent", "--fail", "--cacert", host["extraCertificateAuthority"], "--connect-to",
            f"{name}::{host['hostAddresses'][name]}", "--output", target, url]


@contextlib.contextmanager
def served(folder, tree, names):
    started = subprocess.run([CDN, "start", "--folder", folder, "--tree", tree, "--names", names], check=True, capture_output=True)
    try:
        yield json.loads(started.stdout)
    finally:
        subprocess.run([CDN, "stop", "--folder", folder], check=True)


def last_ratios(history):
    """row -> its ratio in the latest run that has it."""
    found = {}
    for line in history.read_text().splitlines() if history.exists() else []:
        found.update({row["row"]: row["ratio"] for row in json.loads(line)["rows"] if "ratio" in row})
    return found


def table(rows, last):
    lines = ["| what | ours | beside | ratio (quartiles) | goal | processor | peak | last |", "|---|---|---|---|---|---|---|---|"]
    for row in rows:
        def shown(key, form, row=row):
            return format(row[key], form) if row.get(key) is not None else ""

        ratio = f"**{row['ratio']:.2f}** ({row['spread'][0]:.2f} to {row['spread'][1]:.2f})" if "ratio" in row else ""
        beside = f"{row['beside']:.3f} s" if "beside" in row else ""
        memory = f"{row['peak'] / 1024:.0f} MB"
        previous = f"{last[row['row']]:.2f}" if row["row"] in last else ""
        cells = (row["row"], f"{row['seconds']:.3f} s", beside, ratio, shown("goal", ".2f"), shown("processorRatio", ".2f"), memory,
                 previous)
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=Path)
    parser.add_argument("--rows", default=",".join(ROWS), help=f"some of {', '.join(ROWS)}")
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--scale", type=float, default=1.0)
    parser.add_argument("--work", type=Path, default=ROOT / "build/bench-work")
    arguments = parser.parse_args()
    wanted = arguments.rows.split(",")
    if unknown := set(wanted) - set(ROWS):
        parser.error(f"no row {', '.join(sorted(unknown))}")
    bench = Bench(arguments)
    history = bench.work / "history.jsonl"
    load = os.getloadavg()[0]
    try:
        for name in wanted:
            getattr(bench, name)()
    finally:
        shutil.rmtree(bench.inputs, ignore_errors=True)
    last = last_ratios(history)
    commit = subprocess.run(["git", "-C", ROOT, "describe", "--always", "--dirty"], capture_output=True, text=True, check=False).stdout
    with history.open("a") as file:
        file.write(json.dumps({"time": datetime.datetime.now(datetime.UTC).isoformat(timespec="seconds"), "commit": commit.strip(),
                               "processors": os.cpu_count(), "load": load, "rounds": bench.rounds, "scale": bench.scale,
                               "rows": bench.rows}) + "\n")
    print(table(bench.rows, last))
    scaled = f", inputs scaled by {bench.scale:g}" if bench.scale != 1 else ""
    print(f"\n{os.cpu_count()} processors, load {load:.1f} at the start, {bench.rounds} rounds{scaled}.")


if __name__ == "__main__":
    main()
