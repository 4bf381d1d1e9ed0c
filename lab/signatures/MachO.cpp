#include "MachO.h"

#include <algorithm>
#include <array>

namespace lab {

namespace {

constexpr std::uint32_t kUniversalMagic64 = 0xcafebabf;
constexpr std::uint32_t kMachOMagic = 0xfeedface;
// More slices than any real file has; a Java class file has the same magic and at least 45 here.
constexpr std::uint32_t kMostSlices = 32;

constexpr std::uint32_t kSegmentCommand = 0x1;

bool holdsCode(std::uint32_t fileType) {
  constexpr std::array<std::uint32_t, 6> types{2, 5, 6, 7, 8, 11};
  return std::ranges::find(types, fileType) != types.end();
}

bool isThinCode(ByteView slice) {
  const auto magic = le32(slice, 0);
  if (magic != kMachOMagic && magic != kMachOMagic64) return false;
  const auto type = le32(slice, 12);
  return type && holdsCode(*type);
}

struct FatEntry {
  std::uint32_t cpuType = 0;
  std::uint32_t cpuSubtype = 0;
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

struct FatTable {
  std::vector<FatEntry> entries;
  std::uint64_t end = 0;  // offset of the first byte after the table
};

std::optional<FatTable> readFatTable(ByteView file) {
  const auto magic = be32(file, 0);
  const auto count = be32(file, 4);
  if (!count || (magic != kUniversalMagic && magic != kUniversalMagic64)) return std::nullopt;
  if (*count == 0 || *count > kMostSlices) return std::nullopt;
  const bool wide = magic == kUniversalMagic64;
  const std::uint64_t entrySize = wide ? 32 : 20;
  const auto table = slice(file, 8, *count * entrySize);
  if (!table) return std::nullopt;
  FatTable fat{{}, 8 + table->size()};
  for (std::uint64_t at = 0; at < table->size(); at += entrySize) {
    FatEntry entry{*be32(*table, at), *be32(*table, at + 4), 0, 0};
    entry.offset = wide ? *be64(*table, at + 8) : *be32(*table, at + 8);
    entry.size = wide ? *be64(*table, at + 16) : *be32(*table, at + 12);
    fat.entries.push_back(entry);
  }
  return fat;
}

// Reads the load commands of one slice.
class SliceReader {
 public:
  explicit SliceReader(ByteView bytes) { slice_.bytes = bytes; }

  Outcome<MachOSlice> read() {
    if (auto header = readHeader(); !header) return handOn(header);
    std::uint64_t at = wide_ ? 32 : 28;
    const std::uint64_t end = at + commandBytes_;
    for (std::uint32_t i = 0; i < commandCount_; ++i) {
      const auto size = le32(slice_.bytes, at + 4);
      if (!size || *size < 8 || *size % 4 != 0 || *size > end - at)
        return refuse("Mach-O load command {} is malformed", i);
      const ByteView command = slice_.bytes.subspan(static_cast<std::size_t>(at), *size);
      if (auto read = readCommand(command); !read) return handOn(read);
      at += *size;
    }
    return finish();
  }

 private:
  Outcome<void> readHeader() {
    const auto magic = le32(slice_.bytes, 0);
    if (magic != kMachOMagic && magic != kMachOMagic64)
      return refuse("slice isn't a little-endian Mach-O file");
    wide_ = magic == kMachOMagic64;
    const std::uint64_t headerSize = wide_ ? 32 : 28;
    const auto header = slice(slice_.bytes, 0, headerSize);
    if (!header) return refuse("Mach-O header is truncated");
    slice_.cpuType = *le32(*header, 4);
    slice_.cpuSubtype = *le32(*header, 8);
    slice_.fileType = *le32(*header, 12);
    commandCount_ = *le32(*header, 16);
    commandBytes_ = *le32(*header, 20);
    if (!holdsCode(slice_.fileType))
      return refuse("Mach-O file type {} holds no code to sign", slice_.fileType);
    if (!slice(slice_.bytes, headerSize, commandBytes_)) return refuse("Mach-O load commands are truncated");
    if (commandCount_ > commandBytes_ / 8)
      return refuse("Mach-O header counts more load commands than it contains");
    return {};
  }

  Outcome<void> readCommand(ByteView command) {
    switch (*le32(command, 0)) {
      case kSegmentCommand: return readSegment(command, false);
      case kSegmentCommand64: return readSegment(command, true);
      case kCodeSignatureCommand: return readSignature(command);
      default: return {};
    }
  }

  Outcome<void> readSegment(ByteView command, bool wide) {
    const std::uint64_t headerSize = wide ? 72 : 56;
    if (command.size() < headerSize) return refuse("Mach-O segment command is truncated");
    const std::string name = paddedText(command.subspan(8, 16));
    if (name == "__LINKEDIT") {
      const std::uint64_t offset = wide ? *le64(command, 40) : *le32(command, 32);
      const std::uint64_t size = wide ? *le64(command, 48) : *le32(command, 36);
      if (!slice(slice_.bytes, offset, size)) return refuse("Mach-O segment __LINKEDIT is outside its slice");
      linkEditEnd_ = offset + size;
    }
    if (name == "__TEXT") return readSections(command, wide, headerSize);
    return {};
  }

  Outcome<void> readSections(ByteView command, bool wide, std::uint64_t headerSize) {
    const std::uint32_t count = wide ? *le32(command, 64) : *le32(command, 48);
    const std::uint64_t sectionSize = wide ? 80 : 68;
    if (count > (command.size() - headerSize) / sectionSize)
      return refuse("Mach-O segment __TEXT counts more sections than it holds");
    for (std::uint32_t i = 0; i < count; ++i) {
      const ByteView section = *slice(command, headerSize + i * sectionSize, sectionSize);
      const std::string name = paddedText(section.subspan(0, 16));
      if (name != "__info_plist") continue;
      const std::uint64_t size = wide ? *le64(section, 40) : *le32(section, 36);
      const std::uint64_t offset = wide ? *le32(section, 48) : *le32(section, 40);
      slice_.infoPlist = slice(slice_.bytes, offset, size);
      if (!slice_.infoPlist) return refuse("Mach-O section __info_plist is outside its slice");
    }
    return {};
  }

  Outcome<void> readSignature(ByteView command) {
    if (command.size() < 16) return refuse("Mach-O code signature command is truncated");
    if (slice_.signature) return refuse("Mach-O slice has more than one code signature command");
    slice_.signatureOffset = *le32(command, 8);
    slice_.signature = slice(slice_.bytes, slice_.signatureOffset, *le32(command, 12));
    if (!slice_.signature) return refuse("Mach-O code signature is outside its slice");
    return {};
  }

  Outcome<MachOSlice> finish() {
    if (!slice_.signature) {
      slice_.signatureOffset = slice_.bytes.size();
      return slice_;
    }
    const std::uint64_t end = slice_.signatureOffset + slice_.signature->size();
    if (end != slice_.bytes.size()) return refuse("Mach-O slice continues after its code signature");
    if (end != linkEditEnd_) return refuse("Mach-O code signature isn't the end of __LINKEDIT");
    return slice_;
  }

  MachOSlice slice_;
  bool wide_ = false;
  std::uint32_t commandCount_ = 0;
  std::uint64_t commandBytes_ = 0;
  std::optional<std::uint64_t> linkEditEnd_;
};

Outcome<MachOSlice> readFatSlice(ByteView file, const FatEntry& entry) {
  const auto bytes = slice(file, entry.offset, entry.size);
  if (!bytes) return refuse("universal slice is outside the file");
  auto read = SliceReader(*bytes).read();
  if (!read) return handOn(read);
  if (read->cpuType != entry.cpuType)
    return refuse("universal header names another processor than its slice");
  return read;
}

Outcome<std::vector<MachOSlice>> readFat(ByteView file, FatTable table) {
  std::ranges::sort(table.entries, {}, &FatEntry::offset);
  std::vector<MachOSlice> slices;
  std::uint64_t end = table.end;
  for (const FatEntry& entry : table.entries) {
    if (entry.offset < end) return refuse("universal slices overlap");
    const auto gap = slice(file, end, entry.offset - end);
    if (!gap) return refuse("universal slice is outside the file");
    if (!allZero(*gap)) return refuse("universal file has bytes between its slices");
    auto read = readFatSlice(file, entry);
    if (!read) return handOn(read);
    const auto same = [&](const MachOSlice& other) {
      return other.cpuType == read->cpuType && other.cpuSubtype == read->cpuSubtype;
    };
    if (std::ranges::any_of(slices, same)) return refuse("universal file has two slices for one processor");
    slices.push_back(*read);
    end = entry.offset + entry.size;
  }
  if (end != file.size()) return refuse("universal file continues after its last slice");
  return slices;
}

}  // namespace

bool isMachO(ByteView file) {
  if (isThinCode(file)) return true;
  const auto table = readFatTable(file);
  if (!table) return false;
  const auto first = slice(file, table->entries.front().offset, table->entries.front().size);
  return first && isThinCode(*first);
}

Outcome<std::vector<MachOSlice>> readMachO(ByteView file) {
  if (auto table = readFatTable(file)) return readFat(file, std::move(*table));
  auto slice = SliceReader(file).read();
  if (!slice) return handOn(slice);
  return std::vector{*slice};
}

std::string architectureName(const MachOSlice& slice) {
  switch (slice.cpuType) {
    case 7: return "i386";
    case 0x01000007: return "x86_64";
    case 12: return "arm";
    case 0x0100000c: return (slice.cpuSubtype & 0xffU) == 2 ? "arm64e" : "arm64";
    case 0x0200000c: return "arm64_32";
    default: return fmt::format("cpu {:#x}", slice.cpuType);
  }
}

}  // namespace lab
