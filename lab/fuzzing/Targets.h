// The functions under fuzzing: one for each kind of input of the signature code. None may crash, hang, or use
// more memory than a small multiple of its input's size. The fuzzers and the bounded mutation test share
// them.
#pragma once

#include "Anchors.h"
#include "Bytes.h"
#include "CodeSignature.h"

namespace lab {

// Verifies a Mach-O file from memory, all slices; true when it is valid.
bool tryMachO(ByteView input, const Anchors& anchors);
// Verifies a disk image from memory; true when it is valid.
bool tryDiskImage(ByteView input, const Anchors& anchors);
void trySuperBlob(ByteView input);
void tryCMS(ByteView input, const Anchors& anchors);
void tryCodeResources(ByteView input);
void tryPropertyList(ByteView input);
void tryRequirementText(ByteView input);
void tryRequirementBlob(ByteView input);

}  // namespace lab
