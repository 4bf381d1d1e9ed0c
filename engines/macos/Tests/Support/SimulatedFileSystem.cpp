#include "Support/SimulatedFileSystem.h"

#include <algorithm>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <utility>

#include "Support/SimulatedFileNode.h"

namespace installer::test {

namespace {

constexpr std::int64_t kBlock = 4096;
constexpr int kMaximumLinks = 32;

// What a fault plan calls each operation, and the codes with which a host can fail it.
struct Faults {
  const char* name;
  std::vector<std::int64_t> codes;
};
const std::map<Operation, Faults> kFaults{
    {Operation::list, {"list", {257, 256}}},
    {Operation::attributes, {"attributes", {257}}},
    {Operation::copy, {"copy", {513, 516, 640, 260, 512}}},
    {Operation::move, {"move", {513, 516, 640, 4, 512}}},
    {Operation::remove, {"remove", {513, 4, 512}}},
    {Operation::createDirectory, {"createDirectory", {513, 640}}},
    {Operation::readFile, {"readFile", {257, 260, 256}}},
    {Operation::writeFile, {"writeFile", {513, 640, 512}}},
    {Operation::openForReading, {"openForReading", {257, 260}}},
    {Operation::openForAppending, {"openForAppending", {513, 4}}},
    {Operation::read, {"read", {256}}},
    {Operation::append, {"append", {640, 512}}},
    {Operation::lock, {"lock", {257, 256}}},
    {Operation::enumerate, {"enumerate", {257}}},
};

bool isBelow(const Path& path, const Path& top) {
  if (top == "/") return path.size() > 1;
  return path.size() > top.size() && path.starts_with(top) && path[top.size()] == '/';
}

// Without doubled or trailing slashes and "." components; ".." is resolved lexically.
Path tidy(const Path& path) {
  Path result;
  std::size_t at = 0;
  while (at < path.size()) {
    const auto slash = std::min(path.find('/', at), path.size());
    const auto component = path.substr(at, slash - at);
    at = slash + 1;
    if (component.empty() || component == ".") continue;
    if (component == "..") {
      result.resize(result.rfind('/') == Path::npos ? 0 : result.rfind('/'));
      continue;
    }
    result.append("/").append(component);
  }
  return result.empty() ? "/" : result;
}

std::string relative(const Path& path, const Path& top) {
  return path.substr(top == "/" ? 1 : top.size() + 1);
}

std::int64_t allocatedSizeOf(const SimulatedFileSystem::Node& node) {
  if (node.kind != SimulatedFileSystem::Node::Kind::file) return 0;
  if (node.allocated) return *node.allocated;
  return (static_cast<std::int64_t>(node.bytes.size()) + kBlock - 1) / kBlock * kBlock;
}

}  // namespace

struct SimulatedFileSystem::Failures {
  struct Entry {
    Operation operation;
    Path path;
    Error error;
    bool always;
    int callsBefore = 0;  // calls that succeed before
  };
  std::vector<Entry> entries;
};

SimulatedFileSystem::SimulatedFileSystem(FaultPlan& plan)
    : plan_{plan}, failures_{std::make_unique<Failures>()} {
  nodes_["/"] = std::make_shared<Node>(Node::directory());
  volumes_["/"] = Volume{};
}

SimulatedFileSystem::~SimulatedFileSystem() = default;

// Preparation by tests.

void SimulatedFileSystem::addDirectory(const Path& path) {
  const auto place = resolved(tidy(path), LastLink::follow);
  if (nodes_.contains(place)) return;
  addDirectory(parentFolder(place));
  put(place, Node::directory());
}

void SimulatedFileSystem::addFile(const Path& path, std::string_view bytes) {
  const auto place = resolved(tidy(path), LastLink::follow);
  addDirectory(parentFolder(place));
  put(place, Node::file(bytes));
}

void SimulatedFileSystem::addProgram(const Path& path) {
  addFile(path, "program");
  setExecutable(path, true);
}

void SimulatedFileSystem::addSymlink(const Path& path, const Path& target) {
  const auto place = resolved(tidy(path), LastLink::keep);
  addDirectory(parentFolder(place));
  put(place, Node::link(target));
}

void SimulatedFileSystem::erase(const Path& path) {
  for (const auto& one : subtree(resolved(tidy(path), LastLink::keep))) nodes_.erase(one);
}

void SimulatedFileSystem::addVolume(const Path& path, std::optional<std::int64_t> capacity) {
  addDirectory(path);
  auto& volume = volumes_[tidy(path)] = Volume{};
  volume.free = capacity.value_or(volume.free);
  volume.saysCapacity = capacity.has_value();
}

void SimulatedFileSystem::removeVolume(const Path& path) {
  erase(path);
  volumes_.erase(tidy(path));
}

void SimulatedFileSystem::setCapacity(const Path& path, std::int64_t bytes) {
  auto& volume = volumeOf(resolved(tidy(path), LastLink::follow));
  volume.free = bytes;
  volume.saysCapacity = true;
}

void SimulatedFileSystem::setCapacityUnknown(const Path& path, std::optional<std::int64_t> older) {
  auto& volume = volumeOf(resolved(tidy(path), LastLink::follow));
  volume.saysCapacity = false;
  volume.older = older;
}

void SimulatedFileSystem::hideVolume(const Path& path) {
  volumes_.at(tidy(path)).hidden = true;
}

void SimulatedFileSystem::setVolumeReadOnly(const Path& path, bool readOnly) {
  volumeOf(resolved(tidy(path), LastLink::follow)).readOnly = readOnly;
}

void SimulatedFileSystem::setWritable(const Path& path, bool writable) {
  existing(path).writable = writable;
}

void SimulatedFileSystem::setReadable(const Path& path, bool readable) {
  existing(path).readable = readable;
}

void SimulatedFileSystem::setExecutable(const Path& path, bool executable) {
  existing(path).executable = executable;
}

void SimulatedFileSystem::setImmutable(const Path& path, bool immutable) {
  existing(path).immutable = immutable;
}

void SimulatedFileSystem::setSticky(const Path& path) {
  existing(path).sticky = true;
}

void SimulatedFileSystem::setOwnedByAnother(const Path& path) {
  existing(path).others = true;
}

void SimulatedFileSystem::setLockedByAnother(const Path& path, bool locked) {
  existing(path).locked = locked;
}

void SimulatedFileSystem::addLeftover(const Path& path) {
  const auto hidden = leftoverName(path);
  addFile(joined(hidden, "Contents/file"));
  existing(hidden).leftoverOf = tidy(path);
}

void SimulatedFileSystem::setRunsAsRoot(bool root) {
  root_ = root;
}

bool SimulatedFileSystem::runsAsRoot() const {
  return root_;
}

void SimulatedFileSystem::setAllocatedSize(const Path& path, std::int64_t bytes) {
  existing(path).allocated = bytes;
}

void SimulatedFileSystem::setAllocatedSizeUnknown(const Path& path) {
  existing(path).allocatedUnknown = true;
}

void SimulatedFileSystem::failNext(Operation operation, const Path& path, Error error) {
  failures_->entries.push_back({operation, tidy(path), std::move(error), false});
}

void SimulatedFileSystem::failAfter(int calls, Operation operation, const Path& path, Error error) {
  failures_->entries.push_back({operation, tidy(path), std::move(error), false, calls});
}

void SimulatedFileSystem::failAlways(Operation operation, const Path& path, Error error) {
  failures_->entries.push_back({operation, tidy(path), std::move(error), true});
}

void SimulatedFileSystem::stopFailing(Operation operation, const Path& path) {
  std::erase_if(failures_->entries, [&](const Failures::Entry& entry) {
    return entry.operation == operation && entry.path == tidy(path);
  });
}

std::optional<Error> SimulatedFileSystem::injected(Operation operation, const Path& path, const Path& other) {
  if (auto planned = plannedFailure(operation, path, other)) return planned;
  auto& entries = failures_->entries;
  const auto found = std::ranges::find_if(entries, [&](const Failures::Entry& entry) {
    return entry.operation == operation &&
           (entry.path == tidy(path) || (!other.empty() && entry.path == tidy(other)));
  });
  if (found == entries.end()) return std::nullopt;
  if (found->callsBefore-- > 0) return std::nullopt;
  auto failure = found->error;
  if (!found->always) entries.erase(found);
  return failure;
}

std::optional<Error> SimulatedFileSystem::plannedFailure(Operation operation, const Path& path,
                                                         const Path& other) {
  const auto& [name, codes] = kFaults.at(operation);
  std::vector<std::string> faults;
  for (const auto code : codes) faults.push_back(std::to_string(code));
  const auto fault = plan_.faultOf(root_ ? fmt::format("root's {}", name) : name,
                                   other.empty() ? path : path + " -> " + other, std::move(faults));
  return fault ? std::optional{error(codes.at(*fault), other.empty() ? path : other)} : std::nullopt;
}

// Inspection by tests.

bool SimulatedFileSystem::exists(const Path& path) const {
  return find(path, LastLink::keep) != nullptr;
}

std::string SimulatedFileSystem::read(const Path& path) const {
  const auto* const node = find(path);
  if (node != nullptr && node->kind == Node::Kind::file) return node->bytes;
  ADD_FAILURE() << "there is no file at " << path;
  return {};
}

std::vector<std::string> SimulatedFileSystem::tree(const Path& path) const {
  std::vector<std::string> lines;
  const auto top = resolved(tidy(path), LastLink::follow);
  for (const auto& one : subtree(top)) {
    if (one == top) continue;
    const auto& node = *nodes_.at(one);
    const auto suffix = node.kind == Node::Kind::directory ? "/"
                        : node.kind == Node::Kind::link    ? " -> " + node.target
                                                           : "";
    lines.push_back(relative(one, top) + suffix);
  }
  std::ranges::sort(lines);
  return lines;
}

std::map<std::string, std::string> SimulatedFileSystem::snapshot(const Path& path) const {
  std::map<std::string, std::string> result;
  const auto top = resolved(tidy(path), LastLink::follow);
  for (const auto& one : subtree(top)) {
    const auto& node = *nodes_.at(one);
    const auto name = one == top ? "." : relative(one, top);
    result[name] = node.kind == Node::Kind::directory ? "directory"
                   : node.kind == Node::Kind::link    ? "link to " + node.target
                                                      : "file " + node.bytes;
  }
  return result;
}

// The tree itself.

Path SimulatedFileSystem::resolved(const Path& path, LastLink last) const {
  Path whole = tidy(path);
  for (int links = 0; links < kMaximumLinks; ++links) {
    bool replaced = false;
    for (auto slash = whole.find('/', 1); !replaced; slash = whole.find('/', slash + 1)) {
      const auto prefix = whole.substr(0, slash);
      const auto found = nodes_.find(prefix);
      const bool isLast = slash == Path::npos;
      const bool follow = !isLast || last == LastLink::follow;
      if (follow && found != nodes_.end() && found->second->kind == Node::Kind::link) {
        const auto& target = found->second->target;
        const auto base = target.starts_with('/') ? target : joined(parentFolder(prefix), target);
        whole = tidy(isLast ? base : base + whole.substr(slash));
        replaced = true;
      }
      if (isLast) break;
    }
    if (!replaced) return whole;
  }
  return {};  // links in a loop have no target
}

SimulatedFileSystem::Node* SimulatedFileSystem::find(const Path& path, LastLink last) const {
  if (path.empty()) return nullptr;
  const auto found = nodes_.find(resolved(path, last));
  return found == nodes_.end() ? nullptr : found->second.get();
}

SimulatedFileSystem::Node& SimulatedFileSystem::existing(const Path& path) const {
  auto* const node = find(path, LastLink::keep);
  if (node == nullptr) throw std::invalid_argument{"the test uses a missing file: " + path};
  return *node;
}

std::vector<Path> SimulatedFileSystem::children(const Path& directory) const {
  std::vector<Path> result;
  for (const auto& one : subtree(directory)) {
    if (one != directory && parentFolder(one) == directory) result.push_back(one);
  }
  std::ranges::sort(result, {}, [this](const Path& one) { return nodes_.at(one)->order; });
  return result;
}

// `top` and everything below it, parents before children.
std::vector<Path> SimulatedFileSystem::subtree(const Path& top) const {
  std::vector<Path> result;
  if (nodes_.contains(top)) result.push_back(top);
  for (auto at = nodes_.upper_bound(top == "/" ? top : top + "/"); at != nodes_.end(); ++at) {
    if (!isBelow(at->first, top)) break;
    result.push_back(at->first);
  }
  return result;
}

SimulatedFileSystem::Volume& SimulatedFileSystem::volumeOf(const Path& path) {
  auto* best = &volumes_.at("/");
  std::size_t length = 0;
  for (auto& [mountPoint, volume] : volumes_) {
    if (mountPoint.size() < length || (path != mountPoint && !isBelow(path, mountPoint))) continue;
    best = &volume;
    length = mountPoint.size();
  }
  return *best;
}

std::int64_t SimulatedFileSystem::allocatedSize(const Path& top) const {
  std::int64_t sum = 0;
  for (const auto& one : subtree(top)) sum += allocatedSizeOf(*nodes_.at(one));
  return sum;
}

std::shared_ptr<SimulatedFileSystem::Node> SimulatedFileSystem::put(const Path& path, Node node) {
  node.order = node.number = nextOrder_++;
  return nodes_[path] = std::make_shared<Node>(std::move(node));
}

void SimulatedFileSystem::rename(const Path& source, const Path& destination) {
  for (const auto& one : subtree(source)) {
    auto entry = nodes_.extract(one);
    entry.key() = destination + one.substr(source.size());
    nodes_.insert(std::move(entry));
  }
  nodes_.at(destination)->order = nextOrder_++;
}

void SimulatedFileSystem::duplicate(const Path& source, const Path& destination) {
  const auto from = subtree(source);
  std::vector<std::pair<std::uint64_t, Path>> ordered;
  for (const auto& one : from) ordered.emplace_back(nodes_.at(one)->order, one);
  std::ranges::sort(ordered);
  for (const auto& [order, one] : ordered) {
    Node copy = *nodes_.at(one);
    copy.immutable = copy.sticky = copy.others = copy.locked = false;
    put(destination + one.substr(source.size()), std::move(copy));
  }
}

Path SimulatedFileSystem::leftoverName(const Path& path) {
  return joined(parentFolder(path), "." + lastPathComponent(path) + ".kelo-copy-7");
}

// Failures with the texts of the platform.

std::string SimulatedFileSystem::nameInQuotes(const Path& path) {
  return "“" + lastPathComponent(path) + "”";
}

Error SimulatedFileSystem::error(std::int64_t code, const Path& path) const {
  const auto name = nameInQuotes(path);
  std::string text;
  switch (code) {
    case CocoaError::fileNoSuchFile: text = name + " couldn’t be found."; break;
    case CocoaError::fileReadNoPermission:
      text = "The file " + name + " couldn’t be opened because you don’t have permission to view it.";
      break;
    case CocoaError::fileReadNoSuchFile:
      text = "The file " + name + " couldn’t be opened because there is no such file.";
      break;
    case CocoaError::fileWriteNoPermission: text = "You don’t have permission to change " + name + "."; break;
    case CocoaError::fileWriteFileExists: text = "An item named " + name + " already exists."; break;
    case CocoaError::fileWriteOutOfSpace:
      text = name + " couldn’t be written because there isn’t enough space.";
      break;
    case CocoaError::fileWriteVolumeReadOnly:
      text = name + " couldn’t be written because the volume is read only.";
      break;
    default: text = "The operation on " + name + " couldn’t be completed.";
  }
  return {std::string{ErrorDomain::cocoa}, code, text, nullptr};
}

// Fails unless entries of the folder of `path` may be made, removed or renamed.
Result<> SimulatedFileSystem::checkFolderForWriting(const Path& path) {
  const auto folder = parentFolder(path);
  const auto* const node = find(folder);
  if (node == nullptr || node->kind != Node::Kind::directory) {
    return std::unexpected(error(CocoaError::fileNoSuchFile, path));
  }
  if (volumeOf(folder).readOnly) return std::unexpected(error(CocoaError::fileWriteVolumeReadOnly, path));
  if (node->immutable || (!node->writable && !root_)) {
    return std::unexpected(error(CocoaError::fileWriteNoPermission, path));
  }
  return {};
}

// Fails unless the entry may be removed from its folder.
Result<> SimulatedFileSystem::checkTakingAway(const Path& path) {
  if (auto checked = checkFolderForWriting(path); !checked) return handOn(checked);
  const auto& entry = *nodes_.at(path);
  const auto& folder = *find(parentFolder(path));
  const bool isStuck = folder.sticky && folder.others && entry.others && !root_;
  if (isStuck || entry.immutable) return std::unexpected(error(CocoaError::fileWriteNoPermission, path));
  return {};
}

Result<> SimulatedFileSystem::checkDestination(const Path& destination) {
  if (nodes_.contains(destination)) {
    return std::unexpected(error(CocoaError::fileWriteFileExists, destination));
  }
  return checkFolderForWriting(destination);
}

Result<> SimulatedFileSystem::checkSpace(const Path& destination, std::int64_t bytes) {
  if (bytes <= volumeOf(destination).free) return {};
  return std::unexpected(error(CocoaError::fileWriteOutOfSpace, destination));
}

// The seam: queries.

bool SimulatedFileSystem::fileExists(const Path& path) {
  if (plan_.answersNo("fileExists", path)) return false;
  return find(path) != nullptr;
}

bool SimulatedFileSystem::directoryExists(const Path& path) {
  if (plan_.answersNo("directoryExists", path)) return false;
  const auto* const node = find(path);
  return node != nullptr && node->kind == Node::Kind::directory;
}

bool SimulatedFileSystem::isWritable(const Path& path) {
  if (plan_.answersNo("isWritable", path)) return false;
  const auto* const node = find(path);
  if (node == nullptr || volumeOf(resolved(path, LastLink::follow)).readOnly) return false;
  return !node->immutable && (root_ || node->writable);
}

bool SimulatedFileSystem::isExecutable(const Path& path) {
  if (plan_.answersNo("isExecutable", path)) return false;
  const auto* const node = find(path);
  return node != nullptr && node->executable;
}

bool SimulatedFileSystem::isHiddenVolume(const Path& path) {
  if (plan_.answersNo("isHiddenVolume", path)) return false;
  const auto found = volumes_.find(tidy(path));
  return found != volumes_.end() && found->second.hidden;
}

Result<std::vector<std::string>> SimulatedFileSystem::contentsOfDirectory(const Path& path) {
  if (auto wanted = injected(Operation::list, path)) return std::unexpected(*wanted);
  const auto* const node = find(path);
  if (node == nullptr) return std::unexpected(error(CocoaError::fileReadNoSuchFile, path));
  if (node->kind != Node::Kind::directory) return std::unexpected(error(CocoaError::fileReadUnknown, path));
  if (!node->readable && !root_) return std::unexpected(error(CocoaError::fileReadNoPermission, path));
  std::vector<std::string> names;
  for (const auto& child : children(resolved(path, LastLink::follow))) {
    names.push_back(lastPathComponent(child));
  }
  return names;
}

Result<FileAttributes> SimulatedFileSystem::attributes(const Path& path) {
  if (auto wanted = injected(Operation::attributes, path)) return std::unexpected(*wanted);
  const auto* const node = find(path, LastLink::keep);
  if (node == nullptr) return std::unexpected(error(CocoaError::fileReadNoSuchFile, path));
  return attributesOf(*node);
}

FileAttributes SimulatedFileSystem::attributesOf(const Node& node) {
  const bool isLink = node.kind == Node::Kind::link;
  return FileAttributes{.size = static_cast<std::int64_t>(isLink ? node.target.size() : node.bytes.size()),
                        .isSymbolicLink = isLink,
                        .identity = {.volume = 1, .number = node.number}};
}

std::optional<std::int64_t> SimulatedFileSystem::volumeAvailableCapacity(const Path& path) {
  if (plan_.answersNo("volumeAvailableCapacity", path) || find(path) == nullptr) return std::nullopt;
  const auto& volume = volumeOf(resolved(path, LastLink::follow));
  return volume.saysCapacity ? std::optional{volume.free} : std::nullopt;
}

std::optional<std::int64_t> SimulatedFileSystem::fileSystemFreeSize(const Path& path) {
  if (plan_.answersNo("fileSystemFreeSize", path) || find(path) == nullptr) return std::nullopt;
  const auto& volume = volumeOf(resolved(path, LastLink::follow));
  return volume.saysCapacity ? std::optional{volume.free} : volume.older;
}

bool SimulatedFileSystem::enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                                    const ErrorHandler& onError) {
  const auto* const node = find(top);
  if (node == nullptr || node->kind != Node::Kind::directory || (!node->readable && !root_)) return false;
  if (injected(Operation::enumerate, top)) return false;
  return visitBelow(top, resolved(top, LastLink::follow), hidden, visit, onError);
}

bool SimulatedFileSystem::visitBelow(const Path& shown, const Path& directory, HiddenEntries hidden,
                                     const Visitor& visit, const ErrorHandler& onError) {
  for (const auto& path : children(directory)) {
    const auto name = lastPathComponent(path);
    const bool isGone = !nodes_.contains(path);
    if (isGone || (hidden == HiddenEntries::skip && name.starts_with('.'))) continue;
    const auto node = nodes_.at(path);
    DirectoryEntry entry{.path = joined(shown, name),
                         .isDirectory = node->kind == Node::Kind::directory,
                         .isSymbolicLink = node->kind == Node::Kind::link,
                         .isRegularFile = node->kind == Node::Kind::file,
                         .totalFileAllocatedSize = std::nullopt,
                         .fileAllocatedSize = std::nullopt};
    if (!node->allocatedUnknown)
      entry.totalFileAllocatedSize = entry.fileAllocatedSize = allocatedSizeOf(*node);
    if (visit(entry) == Descend::no || !entry.isDirectory) continue;
    auto refused = injected(Operation::enumerate, entry.path);
    if (!refused && !node->readable && !root_) refused = error(CocoaError::fileReadNoPermission, entry.path);
    if (refused) {
      if (onError) onError(entry.path, *refused);
      continue;
    }
    visitBelow(entry.path, path, hidden, visit, onError);
  }
  return true;
}

}  // namespace installer::test
