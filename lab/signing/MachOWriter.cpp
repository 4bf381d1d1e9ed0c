#include "MachOWriter.h"

#include <algorithm>

#include "BlobWriter.h"
#include "MachO.h"

namespace lab {

namespace {

constexpr std::uint32_t kDylibIdentity = 0xd;
constexpr std::uint32_t kMainEntry = 0x80000028;
constexpr std::uint64_t kPage = 0x4000;
constexpr std::uint64_t kImageBase = 0x100000000;
// Space for a code signature command and later ones.
constexpr std::uint64_t kCommandRoom = 0x800;

std::uint64_t roundUp(std::uint64_t value, std::uint64_t to) {
  return (value + to - 1) / to * to;
}

void put32(Bytes& bytes, std::uint64_t at, std::uint32_t value) {
  for (unsigned i = 0; i < 4; ++i)
    bytes[static_cast<std::size_t>(at) + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void put64(Bytes& bytes, std::uint64_t at, std::uint64_t value) {
  put32(bytes, at, static_cast<std::uint32_t>(value));
  put32(bytes, at + 4, static_cast<std::uint32_t>(value >> 32U));
}

// Little-endian load commands.
class CommandWriter {
 public:
  void number(std::uint32_t value) {
    bytes_.resize(bytes_.size() + 4);
    put32(bytes_, bytes_.size() - 4, value);
  }
  void number64(std::uint64_t value) {
    number(static_cast<std::uint32_t>(value));
    number(static_cast<std::uint32_t>(value >> 32U));
  }
  void name(std::string text) {
    text.resize(16);
    append(viewOf(text));
  }
  void append(ByteView bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

  void segment(const std::string& segmentName, std::uint64_t offset, std::uint64_t size, std::uint64_t memory,
               std::uint32_t protection, std::uint32_t sections) {
    number(kSegmentCommand64);
    number(72 + sections * 80);
    name(segmentName);
    number64(kImageBase + offset);
    number64(memory);
    number64(offset);
    number64(size);
    number(protection);
    number(protection);
    number(sections);
    number(0);
    ++count;
  }

  void section(const std::string& sectionName, std::uint64_t offset, std::uint64_t size) {
    name(sectionName);
    name("__TEXT");
    number64(kImageBase + offset);
    number64(size);
    number(static_cast<std::uint32_t>(offset));
    for (int i = 0; i < 7; ++i) number(0);
  }

  const Bytes& bytes() const { return bytes_; }
  std::uint32_t count = 0;

 private:
  Bytes bytes_;
};

void identify(CommandWriter& commands, std::uint32_t fileType, std::uint64_t entry) {
  if (fileType == 2) {
    commands.number(kMainEntry);
    commands.number(24);
    commands.number64(entry);
    commands.number64(0);
    ++commands.count;
  }
  if (fileType == 6) {
    std::string name = "@rpath/fixture.dylib";
    name.resize(24);
    commands.number(kDylibIdentity);
    commands.number(48);
    commands.number(24);
    commands.number(1);
    commands.number(0x10000);
    commands.number(0x10000);
    commands.append(viewOf(name));
    ++commands.count;
  }
}

// The places of the load commands for signing in a 64-bit slice.
struct CommandPlaces {
  std::optional<std::uint64_t> linkEdit;
  std::optional<std::uint64_t> signature;
  std::uint64_t end = 0;
  std::uint64_t firstContent = UINT64_MAX;  // of the sections of __TEXT
};

Outcome<CommandPlaces> findCommands(ByteView slice) {
  if (le32(slice, 0) != kMachOMagic64) return refuse("only 64-bit Mach-O files can be signed here");
  CommandPlaces places;
  std::uint64_t at = 32;
  for (std::uint32_t i = 0; i < le32(slice, 16).value_or(0); ++i) {
    const std::uint32_t size = le32(slice, at + 4).value_or(0);
    if (size < 8) return refuse("Mach-O load command {} is malformed", i);
    if (le32(slice, at) == kCodeSignatureCommand) places.signature = at;
    if (le32(slice, at) == kSegmentCommand64) {
      const std::string name = paddedText(slice.subspan(static_cast<std::size_t>(at) + 8, 16));
      if (name == "__LINKEDIT") places.linkEdit = at;
      for (std::uint32_t k = 0; name == "__TEXT" && k < le32(slice, at + 64).value_or(0); ++k) {
        places.firstContent =
            std::min<std::uint64_t>(places.firstContent, le32(slice, at + 72 + k * 80 + 48).value_or(0));
      }
    }
    at += size;
  }
  places.end = at;
  if (!places.linkEdit) return refuse("Mach-O file has no segment __LINKEDIT to put a signature in");
  return places;
}

}  // namespace

Bytes makeMachO(const MachOPlan& plan) {
  const bool hasInfo = !plan.infoPlist.empty();
  const std::uint64_t textAt = kCommandRoom;
  const std::uint64_t infoAt = roundUp(textAt + plan.text.size(), 16);
  const std::uint64_t textEnd = roundUp(infoAt + plan.infoPlist.size(), kPage);
  constexpr std::uint64_t linkEditSize = 32;

  CommandWriter commands;
  commands.segment("__TEXT", 0, textEnd, textEnd, 5, hasInfo ? 2 : 1);
  commands.section("__text", textAt, plan.text.size());
  if (hasInfo) commands.section("__info_plist", infoAt, plan.infoPlist.size());
  commands.segment("__LINKEDIT", textEnd, linkEditSize, kPage, 1, 0);
  identify(commands, plan.fileType, textAt);

  Bytes file(static_cast<std::size_t>(textEnd + linkEditSize));
  const std::uint32_t header[] = {kMachOMagic64,   plan.cpuType,
                                  plan.cpuSubtype, plan.fileType,
                                  commands.count,  static_cast<std::uint32_t>(commands.bytes().size()),
                                  0x00200085U,     0};
  for (std::size_t i = 0; i < std::size(header); ++i) put32(file, i * 4, header[i]);
  std::ranges::copy(commands.bytes(), file.begin() + 32);
  std::ranges::copy(plan.text, file.begin() + static_cast<std::ptrdiff_t>(textAt));
  std::ranges::copy(plan.infoPlist, file.begin() + static_cast<std::ptrdiff_t>(infoAt));
  return file;
}

Bytes makeUniversal(const std::vector<Bytes>& slices) {
  BlobWriter header;
  header.number(kUniversalMagic);
  header.number(static_cast<std::uint32_t>(slices.size()));
  std::uint64_t offset = kPage;
  for (const Bytes& slice : slices) {
    header.number(le32(slice, 4).value_or(0));
    header.number(le32(slice, 8).value_or(0));
    header.number(static_cast<std::uint32_t>(offset));
    header.number(static_cast<std::uint32_t>(slice.size()));
    header.number(14);
    offset = roundUp(offset + slice.size(), kPage);
  }
  Bytes file = header.take();
  for (const Bytes& slice : slices) {
    file.resize(static_cast<std::size_t>(roundUp(file.size(), kPage)));
    file.insert(file.end(), slice.begin(), slice.end());
  }
  return file;
}

Outcome<std::uint64_t> signatureOffsetFor(ByteView slice) {
  const auto places = findCommands(slice);
  if (!places) return handOn(places);
  if (places->signature) return le32(slice, *places->signature + 8).value_or(0);
  const std::uint64_t end =
      le64(slice, *places->linkEdit + 40).value_or(0) + le64(slice, *places->linkEdit + 48).value_or(0);
  return roundUp(end, 16);
}

Outcome<Bytes> prepareForSignature(ByteView slice, std::uint64_t room) {
  const auto places = findCommands(slice);
  if (!places) return handOn(places);
  const auto offset = signatureOffsetFor(slice);
  if (!offset) return handOn(offset);
  Bytes prepared = copyOf(slice);
  prepared.resize(static_cast<std::size_t>(*offset));
  std::uint64_t command = places->signature.value_or(places->end);
  if (!places->signature) {
    if (command + 16 > places->firstContent)
      return refuse("Mach-O file has no space for a code signature command");
    put32(prepared, 16, *le32(prepared, 16) + 1);
    put32(prepared, 20, *le32(prepared, 20) + 16);
  }
  put32(prepared, command, kCodeSignatureCommand);
  put32(prepared, command + 4, 16);
  put32(prepared, command + 8, static_cast<std::uint32_t>(*offset));
  put32(prepared, command + 12, static_cast<std::uint32_t>(room));
  const std::uint64_t linkEditAt = le64(prepared, *places->linkEdit + 40).value_or(0);
  const std::uint64_t linkEditSize = *offset + room - linkEditAt;
  put64(prepared, *places->linkEdit + 48, linkEditSize);
  put64(prepared, *places->linkEdit + 32, roundUp(linkEditSize, kPage));
  return prepared;
}

std::uint64_t textSegmentSize(ByteView slice) {
  std::uint64_t at = 32;
  for (std::uint32_t i = 0; i < le32(slice, 16).value_or(0); ++i) {
    const std::uint32_t size = le32(slice, at + 4).value_or(0);
    const bool isText =
        le32(slice, at) == kSegmentCommand64 && zeroTerminated(slice, at + 8).value_or("") == "__TEXT";
    if (isText) return le64(slice, at + 48).value_or(0);
    if (size < 8) return 0;
    at += size;
  }
  return 0;
}

}  // namespace lab
