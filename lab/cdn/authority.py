"""The lab's certificate authority, and certificates for the CDN's names.

The engine trusts the authority only if linux_host.json names it.
"""

import subprocess
from pathlib import Path

AUTHORITY = "authority.pem"
_AUTHORITY_KEY = "authority.key"
_KEY_OPTIONS = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]
_DAYS = "30"


def _openssl(*arguments):
    subprocess.run(["openssl", "req", "-x509", *_KEY_OPTIONS, "-days", _DAYS, *map(str, arguments)],
                   check=True, capture_output=True)


def make_authority(folder):
    """Makes authority.pem and its key in `folder` unless they exist. Returns the path of authority.pem."""
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    authority = folder / AUTHORITY
    if not authority.exists():
        _openssl("-subj", "/CN=Kelo lab authority", "-addext", "basicConstraints=critical,CA:TRUE",
                 "-addext", "keyUsage=critical,keyCertSign,cRLSign",
                 "-keyout", folder / _AUTHORITY_KEY, "-out", authority)
    return authority


def make_certificate(folder, label, names):
    """Makes {label}.pem and {label}.key in `folder` for these host names. Returns both paths."""
    folder = Path(folder)
    certificate, key = folder / f"{label}.pem", folder / f"{label}.key"
    alternative = ",".join(f"DNS:{name}" for name in names)
    _openssl("-CA", make_authority(folder), "-CAkey", folder / _AUTHORITY_KEY, "-subj", f"/CN={names[0]}",
             "-addext", f"subjectAltName={alternative}", "-addext", "basicConstraints=critical,CA:FALSE",
             "-keyout", key, "-out", certificate)
    return certificate, key
