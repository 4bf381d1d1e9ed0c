"""The files of an installer: the engine uses values that their schemas accept, and ignores values that they refuse.

`TAKEN` marks the cases in which the engine accepts more than the schemas.
"""

import copy
import json
import re

import pytest
from online_machine import META
from protocol_schema import FILES, PROTOCOL, file_validator
from support import APPS, Installation

PAGE = (PROTOCOL / "installer.md").read_text(encoding="utf-8")
# A value that a schema refuses and the engine accepts.
TAKEN = object()


def put(document, path, value):
    """A copy of a document with a new value at a path of keys."""
    made = copy.deepcopy(document)
    inner = made
    for step in path[:-1]:
        inner = inner.setdefault(step, {})
    inner[path[-1]] = value
    return made


def keys_of(node):
    """Every key of a schema."""
    if isinstance(node, dict):
        yield from node.get("properties", {})
        for part in node.values():
            yield from keys_of(part)


def schema(name):
    return json.loads((FILES / name).read_text(encoding="utf-8"))


# installer_config.json: (path of keys, values that the schema accepts, values that it refuses).

BASE = {"apps": {"brenna": {"primaryBundleIdentifier": "com.example.b"}},
        "cdn": {"dataCenter": "us", "domains": {"us": "https://us.example", "cn": "https://cn.example"}}}
ENTRY = {"primaryBundleIdentifier": "com.example.tolvi"}
CONFIGURATION = [
    (["installScope"], ["machine", ""], [5, None]),
    (["showTermsStep"], [False, True], ["false", 0]),
    (["flavour"], ["special", ""], [5, ["special"]]),
    (["downloadPageUrl"], ["https://www.example/"], ["", 5, ("http://www.example/", TAKEN)]),
    (["helpUrl"], ["https://www.example/help"], ["", False]),
    (["feedbackUrl"], ["mailto:help@example"], ["", {}]),
    (["appWebUrls"], [{"tolvi": "https://tolvi.example"}], [{"tolvi": ""}, {"tolvi": 5}, {"tolvi": "x", "rulo": 5}, []]),
    (["expiresOn", "online"], ["2099-12-31"], ["", 5, ("31.12.2099", TAKEN)]),
    (["expiresOn", "offline"], ["2099-12-31"], ["", None, ("2099/12/31", TAKEN)]),
    (["expiresOn"], [{"online": "2099-12-30", "offline": "2099-12-31"}], [{"online": "2099-12-31", "offline": 5}, "2099-12-31"]),
    (["trustedDownloadDomains"], [["a.example", "b"], []], [["a.example", 5], "a.example", (["*.example"], TAKEN)]),
    (["expectedSigningTeamId"], ["ABCDE12345", ""], [5, None]),
    (["apps", "tolvi"], [ENTRY, {**ENTRY, "otherBundleIdentifiers": ["a", "b"]}, {**ENTRY, "included": True}],
     [{}, "com.example.tolvi", {"primaryBundleIdentifier": 5}, ({"primaryBundleIdentifier": ""}, TAKEN)]),
    (["apps", "brenna", "primaryBundleIdentifier"], ["com.example.other"], [5]),
    (["apps", "brenna", "otherBundleIdentifiers"], [["a"], []], [["a", 5], "a"]),
    (["apps", "brenna", "included"], [False, True], ["no", 0]),
    (["cdn", "dataCenter"], ["us", "cn"], ["moon", 5, ("CN", TAKEN)]),
    (["cdn", "domains"], [{"us": "https://other.example"}], [{"us": 5}, {"us": "https://other.example", "cn": 5}]),
    (["cdn", "distributionRoot"], ["root"], [5]),
    (["cdn", "appsRoot"], ["root"], [5]),
    (["cdn", "release"], ["preview"], [5]),
    (["cdn", "releaseNotesEnabled"], [True, False], ["true", 1]),
    (["cdn"], [{"domains": {"us": "https://other.example"}, "release": "preview"}], ["us", []]),
    (["surprise"], [], [1, "text", {}]),
]
LINES = {
    r"InstallerConfig: installScope=(.*), showTermsStep=(.*), flavour=(.*)": ("installScope", "showTermsStep", "flavour"),
    r"InstallerConfig: downloadPageUrl=(.*), helpUrl=(.*), feedbackUrl=(.*), expiresOn online=(.*) offline=(.*)":
        ("downloadPageUrl", "helpUrl", "feedbackUrl", "online", "offline"),
    r"InstallerConfig: expectedSigningTeamId=(.*)": ("expectedSigningTeamId",),
    r"InstallerConfig: cdn dataCenter=(.*), base=(.*), roots=(.*)/(.*), release=(.*), releaseNotesEnabled=(.*)":
        ("dataCenter", "base", "distributionRoot", "appsRoot", "release", "releaseNotesEnabled"),
    r"refusing to fetch Kelo Rulo metadata .* trustedDownloadDomains (.*)": ("trustedDownloadDomains",),
}


@pytest.fixture(scope="module")
def reader(workshop, installer_of):
    """configuration -> the values that the engine reports, for an online installer whose CDN isn't trusted."""
    folder = workshop / "reader"
    folder.mkdir()
    machine = Installation(folder, installer_of("2.0"))
    for image in machine.packages.glob("*.dmg"):
        image.unlink()

    def read(configuration):
        (machine.resources / "installer_config.json").write_text(json.dumps(configuration))
        machine.log_file.unlink(missing_ok=True)
        (hello,) = machine.run("hello").of_type("hello")
        used = {"apps": [app["id"] for app in hello["apps"]], "web": {app["id"]: app["webUrl"] for app in hello["apps"]},
                "skip-terms": "skip-terms" in hello["capabilities"], "help": hello["helpUrl"]}
        if "trustedDownloadDomains" in configuration or configuration is BASE:
            machine.run("check-updates", "--apps", "rulo")
        log = machine.log
        used["entries"] = dict(re.findall(r"  (\w+): (primary=.*)", log))
        for pattern, names in LINES.items():
            found = re.search(pattern, log)
            used |= dict(zip(names, found.groups(), strict=True)) if found else {}
        return used

    yield read
    machine.remove()


@pytest.fixture(scope="module")
def untouched(reader):
    return reader(BASE)


# The engine logs a list of names as text.
def shown(value):
    if isinstance(value, bool):
        return str(value).lower()
    if isinstance(value, list):
        return "[" + ", ".join(f'"{item}"' for item in value) + "]"
    return value


EMPTY = {"expectedSigningTeamId": "(EMPTY — installed-app signature requirement checks are DISABLED)"}


def expected(path, value, untouched):
    """What the engine reports if it uses this value."""
    key = path[-1]
    change = {
        "appWebUrls": lambda: {"web": {**untouched["web"], **value}},
        "expiresOn": lambda: {"online": value["online"], "offline": value["offline"]},
        "showTermsStep": lambda: {"showTermsStep": shown(value), "skip-terms": not value},
        "helpUrl": lambda: {"helpUrl": value, "help": value},
        "tolvi": lambda: {"entries": {**untouched["entries"], "tolvi": entry(value)}},
        "primaryBundleIdentifier": lambda: {"entries": {"brenna": entry({key: value})}},
        "otherBundleIdentifiers": lambda: {"entries": {"brenna": entry({**BASE["apps"]["brenna"], key: value})}},
        "included": lambda: {} if value else without("brenna", untouched),
        "dataCenter": lambda: {"dataCenter": value, "base": BASE["cdn"]["domains"][value]},
        "domains": lambda: {"base": value["us"]},
        "cdn": lambda: {"base": value["domains"]["us"], "release": value["release"]},
    }.get(key, lambda: {key: shown(value) or EMPTY.get(key, "")})
    return {**untouched, **change()}


def entry(value):
    return f"primary={value['primaryBundleIdentifier']}, others={shown(value.get('otherBundleIdentifiers', []))}"


def without(app, untouched):
    return {"apps": [name for name in untouched["apps"] if name != app],
            "web": {name: page for name, page in untouched["web"].items() if name != app}}


def cases(rows, wanted):
    """(path, value) of the rows that the schema accepts, or refuses."""
    for path, good, bad in rows:
        refused = [value for value in bad if not (isinstance(value, tuple) and value[1] is TAKEN)]
        taken = [value[0] for value in bad if isinstance(value, tuple) and value[1] is TAKEN]
        for value in {"good": good, "bad": refused, "taken": taken}[wanted]:
            yield pytest.param(path, value, id=f"{'.'.join(path)}={json.dumps(value)}")


@pytest.mark.parametrize("path, value", cases(CONFIGURATION, "good"))
def test_what_the_schema_accepts_the_engine_uses(reader, untouched, path, value):
    document = put(BASE, path, value)
    assert list(file_validator("installer_config.json").iter_errors(document)) == []
    used = reader(document)
    if path != ["trustedDownloadDomains"]:
        used["trustedDownloadDomains"] = untouched["trustedDownloadDomains"]
    assert used == expected(path, value, untouched)


@pytest.mark.parametrize("path, value", cases(CONFIGURATION, "bad"))
def test_what_the_schema_refuses_the_engine_ignores(reader, untouched, path, value):
    document = put(BASE, path, value)
    assert not file_validator("installer_config.json").is_valid(document)
    used = {"trustedDownloadDomains": untouched["trustedDownloadDomains"], **reader(document)}
    if path in (["cdn"], ["cdn", "domains"]):
        untouched = {**untouched, "base": "(unset!)"}
    if path == ["apps", "brenna", "primaryBundleIdentifier"]:
        untouched = {**untouched, "entries": {}}
    assert used == untouched


@pytest.mark.parametrize("path, value", cases(CONFIGURATION, "taken"))
def test_where_the_engine_takes_more_it_is_a_known_case(reader, untouched, path, value):
    document = put(BASE, path, value)
    assert not file_validator("installer_config.json").is_valid(document)
    assert {"trustedDownloadDomains": untouched["trustedDownloadDomains"], **reader(document)} == \
        expected(path, value.lower() if path[-1] == "dataCenter" else value, untouched)


def test_every_key_of_the_configuration_has_its_cases():
    tried = {key for path, _, _ in CONFIGURATION for key in path} - {"surprise", "brenna", "tolvi"}
    assert tried == set(keys_of(schema("installer_config.json")))
    logged = {name for names in LINES.values() for name in names} - {"base"}
    assert logged <= tried


@pytest.mark.parametrize("document", [{}, [], {"apps": []}, {"cdn": BASE["cdn"], "flavour": "special"}], ids=json.dumps)
def test_without_apps_the_whole_file_counts_for_nothing(reader, document):
    assert not file_validator("installer_config.json").is_valid(document)
    used = reader(document)
    assert used["entries"] == {} and "flavour" not in used and used["apps"] == APPS


# packages.json: `hello` reports version and size, the log the number of keys.

DIGEST = "0" * 64
PACKAGE = {"destination": "brenna_installer.dmg", "version": "7.1", "size": 12345, "checksum": DIGEST}
PACKAGES = [
    ("version", ["7.2"], ["", 7.2], {"latestVersion": None}),
    ("size", [1, 2**40], [0, -4, "12345", 1.5], {"size": 0}),
    ("destination", [], ["", 5, "rulo_installer.dmgx", None], {"latestVersion": None, "size": 0, "checksum": 0}),
    ("checksum", ["A" * 64], ["", 5], {"checksum": 0}),
    ("sha256", ["A" * 64], ["", 5], {}),
    ("checksumAlgorithm", ["sha256"], ["md5"], {"checksum": 0}),
    ("alternateDownloadUrl", ["https://b.example/x.dmg"], ["", 5], {}),
    *[(key, ["text"], ["", 5], {}) for key in ("product", "flavour", "os", "arch", "format", "release", "mode")],
    ("surprise", [], [1], {}),
]


@pytest.fixture
def index(installation):
    """An entry of packages.json -> the values that the engine reads from it."""
    machine = installation("2.0")

    def read(package):
        (machine.packages / "packages.json").write_text(json.dumps({"any text": package}))
        machine.log_file.unlink(missing_ok=True)
        (hello,) = machine.run("hello").of_type("hello")
        brenna = hello["apps"][0]
        found = re.search(r"Loaded (\d) package\(s\) .* \((\d) with checksum, (\d) with version, (\d) with size\)", machine.log)
        return {"latestVersion": brenna["latestVersion"], "checksum": int(found[2]),
                "size": brenna["sizeBytes"] if (int(found[4]) and brenna["latestVersion"]) or found[4] == "1" else 0}

    return read


@pytest.mark.parametrize("key, good, bad, cost", PACKAGES, ids=[row[0] for row in PACKAGES])
def test_an_entry_of_packages_json_is_read_as_its_schema_says(index, key, good, bad, cost):
    validator = file_validator("packages.json")
    sound = {"latestVersion": "7.1", "size": 12345, "checksum": 1}
    for value in good:
        assert validator.is_valid({"x": {**PACKAGE, key: value}}), value
        assert index({**PACKAGE, key: value}) == {**sound, **({key: value} if key == "size" else {}),
                                                  **({"latestVersion": value} if key == "version" else {})}
    for value in bad:
        assert not validator.is_valid({"x": {**PACKAGE, key: value}}), value
        assert {**index({**PACKAGE, key: value}), **cost} == {**sound, **cost}, value


def test_every_key_of_a_package_has_its_cases_and_the_older_name_of_the_digest_serves(index):
    assert {row[0] for row in PACKAGES} - {"surprise"} == set(keys_of(schema("meta.json")["$defs"]["package"]))
    older = {**PACKAGE, "sha256": DIGEST}
    del older["checksum"]
    assert file_validator("packages.json").is_valid({"x": older}) and index(older)["checksum"] == 1
    del older["sha256"]
    assert not file_validator("packages.json").is_valid({"x": older}) and index(older)["checksum"] == 0


# meta.json and release-notes.json, over the CDN.


def checked(stage, meta):
    stage.cdn.on(META, {"text": json.dumps(meta)})
    return stage.machine.check_updates("brenna")[0]["apps"][0]


def test_meta_json_is_read_as_its_schema_says(stage, online_workshop):
    validator = file_validator("meta.json")
    sound = json.loads(online_workshop.meta()["text"])
    assert validator.is_valid(sound) and checked(stage, sound)["latestVersion"] == "2.1"
    for key, told, bad in [("version", "latestVersion", ["", 5]), ("size", "sizeBytes", [0, "5"])]:
        for value in bad:
            assert not validator.is_valid({**sound, key: value})
            assert told not in checked(stage, {**sound, key: value})
    for key, bad, code in [("destination", ["", 5, None], "METADATA_INVALID"), ("checksum", ["", None], "VERIFY_FAILED"),
                           ("checksumAlgorithm", ["md5"], "VERIFY_FAILED")]:
        for value in bad:
            assert not validator.is_valid({**sound, key: value})
            stage.cdn.on(META, {"text": json.dumps({**sound, key: value})})
            assert stage.fails_with(code).code == code and stage.transfers == []
    older = {**{key: value for key, value in sound.items() if key != "checksum"}, "sha256": sound["checksum"]}
    assert validator.is_valid(older)
    stage.cdn.on(META, {"text": json.dumps(older)})
    stage.installs()


NOTES = {"product": "p", "version": "v", "releases": [{"version": "1", "date": "d", "notes": ["n"]}]}
RELEASE = NOTES["releases"][0]


@pytest.mark.parametrize("notes, valid, read", [
    (NOTES, True, True), ({"releases": []}, True, True), ({"releases": [{"version": "1", "notes": []}]}, True, True),
    ({}, False, False), ([], False, False), ({"releases": {}}, False, False), ({**NOTES, "product": 5}, False, False),
    ({**NOTES, "version": 5}, False, False), ({"releases": [{"version": "1"}]}, False, False),
    ({"releases": [{"notes": []}]}, False, False), ({"releases": [RELEASE, {**RELEASE, "notes": ["n", 5]}]}, False, False),
    ({"releases": [{**RELEASE, "notes": "n"}]}, False, False), ({"releases": [{**RELEASE, "date": 5}]}, False, False),
    # The engine accepts these two.
    ({**NOTES, "surprise": 1}, False, True), ({**NOTES, "product": None}, False, True),
], ids=json.dumps)
def test_release_notes_are_read_as_their_schema_says(stage, notes, valid, read):
    assert file_validator("release-notes.json").is_valid(notes) is valid
    stage.machine.change_resource("installer_config.json", cdn={
        "domains": {"us": "https://cdn.kelo.example"}, "releaseNotesEnabled": True})
    stage.cdn.on(META.replace("meta.json", "release-notes.json"), {"text": json.dumps(notes)})
    assert ("releaseNotes" in stage.machine.check_updates("brenna")[0]["apps"][0]) is read


# The page.

EXAMPLES = dict(re.findall(r"^## ([a-z_-]+\.json).*?```json\n(.*?)```", PAGE, re.MULTILINE | re.DOTALL))


def test_the_page_knows_every_key_and_word_and_image():
    words = set()
    for name in EXAMPLES:
        words |= set(keys_of(schema(name)))
    words |= {"us", "cn", "local", *schema("packages.json")["additionalProperties"]["properties"]["destination"]["enum"]}
    assert sorted(word for word in words if f"`{word}`" not in PAGE) == []


def test_the_examples_are_what_their_schemas_accept():
    assert set(EXAMPLES) == {"installer_config.json", "packages.json", "meta.json", "release-notes.json"}
    for name, text in EXAMPLES.items():
        assert list(file_validator(name).iter_errors(json.loads(text))) == [], name


def test_the_defaults_are_those_on_the_page(reader):
    rows = dict(re.findall(r"^\| `(\w+)` \| [^|]* \| `([^`]*)` \|", PAGE, re.MULTILINE))
    used = reader({"apps": {}, "cdn": {}})
    known = {key: value for key, value in rows.items() if key in used}
    assert len(known) >= 10 and {key: used[key] for key in known} == known


def test_the_files_of_the_lab_are_what_the_schemas_accept(installation, online_workshop):
    machine = installation("2.0")
    for path in (machine.resources / "installer_config.json", machine.packages / "packages.json"):
        assert list(file_validator(path.name).iter_errors(json.loads(path.read_text()))) == []
    assert list(file_validator("meta.json").iter_errors(json.loads(online_workshop.meta()["text"]))) == []


def test_the_catalog_is_what_its_schema_accepts():
    catalog = json.loads((PROTOCOL / "catalog.json").read_text(encoding="utf-8"))
    assert list(file_validator("catalog.json").iter_errors(catalog)) == []
