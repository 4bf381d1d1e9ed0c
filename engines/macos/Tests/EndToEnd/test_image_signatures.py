"""Images on the CDN with the right digest and a wrong signature."""

import hashlib
import json
import struct

import pytest

from online_machine import PACKAGE, PROGRAMS, TEAM, run

TRAILER = 512
SIGNATURE_FIELDS = slice(-TRAILER + 296, -TRAILER + 312)


def without_signature(image):
    offset, length = struct.unpack(">QQ", image[SIGNATURE_FIELDS])
    bare = bytearray(image[:offset] + image[offset + length:])
    bare[SIGNATURE_FIELDS] = bytes(16)
    return bytes(bare)


def changed(image, offset):
    other = bytearray(image)
    other[offset] ^= 1
    return bytes(other)


@pytest.fixture
def offer(stage):
    """Puts an image, signed as `variant`, on the CDN with matching metadata."""

    def make(image, variant=None):
        file = stage.folder / "offered.dmg"
        file.write_bytes(image)
        if variant:
            run(PROGRAMS / "lab-sign", "sign", "--authority", stage.workshop.signers, "--variant", variant, file)
        image = file.read_bytes()
        stage.cdn.on(PACKAGE, {"file": str(file)})
        stage.meta(checksum=hashlib.sha256(image).hexdigest(), size=len(image))

    return make


REJECTED = {
    "unstamped": "source=Developer ID without a secure timestamp",
    "expired-unstamped": "source=Developer ID without a secure timestamp",
    "expired": "source=a signing certificate had expired",
    "not-yet-valid": "source=a signing certificate wasn't valid yet",
    "self-signed": "source=the signer is self-signed and not trusted",
    "ad-hoc": "source=no usable signature (ad hoc)",
}


@pytest.mark.parametrize("variant", REJECTED)
def test_gatekeeper_rejects_an_image_whose_signer_cannot_be_proved(stage, offer, variant):
    offer(stage.workshop.image, variant)
    outcome = stage.fails_with("GATEKEEPER_FAILED")
    assert REJECTED[variant] in stage.machine.log, str(outcome)
    assert "Gatekeeper verification result: Failed" in stage.machine.log
    assert "Signature integrity output" not in stage.machine.log  # the first failure ends verification


def test_gatekeeper_rejects_an_unsigned_image(stage, offer):
    offer(without_signature(stage.workshop.image))
    stage.fails_with("GATEKEEPER_FAILED")
    assert "rejected\nsource=no usable signature" in stage.machine.log


@pytest.mark.parametrize("place", ["data", "signature", "trailer"])
def test_gatekeeper_rejects_a_tampered_image(stage, offer, place):
    image = stage.workshop.image
    signature = struct.unpack(">QQ", image[SIGNATURE_FIELDS])[0]
    offer(changed(image, {"data": signature // 2, "signature": signature + 200, "trailer": len(image) - 20}[place]))
    stage.fails_with("GATEKEEPER_FAILED")
    assert "Checksum verification PASSED" in stage.machine.log  # the digest matches


def test_an_image_of_another_team_is_no_package_of_ours(stage, offer):
    offer(stage.workshop.image, "wrong-team")
    stage.fails_with("SIGNATURE_FAILED")
    assert "Gatekeeper verification result: Passed" in stage.machine.log
    assert f"does not satisfy the signing requirement (team {TEAM}) — codesign exit 3" in stage.machine.log


@pytest.mark.parametrize("variant", ["valid", "expired-stamped"])
def test_an_image_that_was_signed_in_time_is_installed(stage, offer, variant):
    offer(stage.workshop.image, variant)
    stage.installs()
    assert stage.machine.log.count("Signature requirement output for ") == 3  # image, bundle in it, copy


def test_without_a_team_the_seals_are_still_checked(stage, offer):
    config = stage.machine.installer / "Contents/Resources/installer_config.json"
    values = json.loads(config.read_text())
    values["expectedSigningTeamId"] = ""
    config.unlink()
    config.write_text(json.dumps(values))
    offer(stage.workshop.image, "wrong-team")
    stage.installs()
    assert "Signature integrity output: " in stage.machine.log
    assert stage.machine.log.count("Signature requirement check SKIPPED for ") == 3


@pytest.mark.parametrize("program, code, says", [
    ("spctl", "GATEKEEPER_FAILED", "Error verifying Gatekeeper: "),
    ("codesign", "SIGNATURE_FAILED", "Error running codesign --verify: "),
])
def test_a_tool_that_cannot_be_started_is_a_no(stage, program, code, says):
    (stage.machine.installer / "Contents/Resources/programs" / program).unlink()
    stage.fails_with(code)
    assert says in stage.machine.log
