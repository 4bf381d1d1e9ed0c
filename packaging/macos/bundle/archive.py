#!/usr/bin/env python3
"""archive.py BUNDLE ARCHIVE: packs the folder BUNDLE under its own name into the zip archive ARCHIVE.

The same content gives the same bytes: entries are sorted and have the same time, and modes are 755 or 644.
"""

import pathlib
import sys
import zipfile

TIME = (1980, 1, 1, 0, 0, 0)  # the earliest time of the format
DIRECTORY, FILE, EXECUTABLE = 0o040755, 0o100644, 0o100755
UNIX, MSDOS_DIRECTORY = 3, 0x10


def entry(path, name):
    directory = path.is_dir()
    info = zipfile.ZipInfo(name + "/" if directory else name, TIME)
    info.create_system = UNIX
    info.compress_type = zipfile.ZIP_STORED if directory else zipfile.ZIP_DEFLATED
    mode = DIRECTORY if directory else EXECUTABLE if path.stat().st_mode & 0o100 else FILE
    info.external_attr = mode << 16 | (MSDOS_DIRECTORY if directory else 0)
    return info


def pack(bundle, archive):
    with zipfile.ZipFile(archive, "w") as made:
        for path in [bundle, *sorted(bundle.rglob("*"))]:
            if path.is_symlink():
                raise SystemExit(f"{path}: links aren't packed")
            info = entry(path, path.relative_to(bundle.parent).as_posix())
            made.writestr(info, b"" if path.is_dir() else path.read_bytes(), compresslevel=9)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        raise SystemExit(__doc__)
    pack(pathlib.Path(sys.argv[1]).resolve(), sys.argv[2])
