// The changes of the simulated file system: copies, moves, removals, reading and writing.
#include <algorithm>
#include <utility>

#include "Support/SimulatedFileNode.h"
#include "Support/SimulatedFileSystem.h"

namespace installer::test {

namespace {

class Reader : public FileReader {
 public:
  Reader(SimulatedFileSystem& files, Path path, std::shared_ptr<const SimulatedFileSystem::Node> node)
      : files_{files}, path_{std::move(path)}, node_{std::move(node)} {}

  Result<std::string> read(std::size_t maximum) override {
    if (auto wanted = files_.injected(Operation::read, path_)) return std::unexpected(*wanted);
    auto bytes = node_->bytes.substr(std::min(at_, node_->bytes.size()), maximum);
    at_ += bytes.size();
    return bytes;
  }

 private:
  SimulatedFileSystem& files_;
  Path path_;
  std::shared_ptr<const SimulatedFileSystem::Node> node_;
  std::size_t at_ = 0;
};

class Appender : public FileAppender {
 public:
  Appender(SimulatedFileSystem& files, Path path, std::shared_ptr<SimulatedFileSystem::Node> node)
      : files_{files}, path_{std::move(path)}, node_{std::move(node)} {}

  Result<> write(std::string_view bytes) override {
    if (auto wanted = files_.injected(Operation::append, path_)) return std::unexpected(*wanted);
    node_->bytes.append(bytes);
    return {};
  }
  Result<FileAttributes> attributes() override { return files_.attributesOf(*node_); }

 private:
  SimulatedFileSystem& files_;
  Path path_;
  std::shared_ptr<SimulatedFileSystem::Node> node_;
};

class Lock : public FileLock {
 public:
  explicit Lock(std::shared_ptr<SimulatedFileSystem::Node> node) : node_{std::move(node)} {
    node_->locked = true;
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() override { node_->locked = false; }

 private:
  std::shared_ptr<SimulatedFileSystem::Node> node_;
};

}  // namespace

Result<std::unique_ptr<FileLock>> SimulatedFileSystem::tryLock(const Path& path) {
  if (auto wanted = injected(Operation::lock, path)) return std::unexpected(*wanted);
  const auto* const node = find(path);
  if (node == nullptr) return std::unexpected(error(CocoaError::fileReadNoSuchFile, path));
  if (!node->readable && !root_) return std::unexpected(error(CocoaError::fileReadNoPermission, path));
  if (node->locked || plan_.answersNo("lockIsFree", path)) return nullptr;
  return std::make_unique<Lock>(nodes_.at(resolved(path, LastLink::follow)));
}

Result<> SimulatedFileSystem::copyItem(const Path& source, const Path& destination) {
  if (auto wanted = injected(Operation::copy, source, destination)) return std::unexpected(*wanted);
  return copyTree(source, destination);
}

Result<> SimulatedFileSystem::copyTree(const Path& source, const Path& destination) {
  const auto from = resolved(source, LastLink::keep);
  const auto to = resolved(destination, LastLink::keep);
  const auto checkEnds = [&]() -> Result<> {
    if (!nodes_.contains(from)) return std::unexpected(error(CocoaError::fileReadNoSuchFile, source));
    return checkDestination(to);
  };
  if (auto checked = checkEnds(); !checked) return handOn(checked);
  (void)clearLeftovers(destination);
  if (auto checked = checkEnds(); !checked) return handOn(checked);  // another process may have changed them
  for (const auto& one : subtree(from)) {
    if (!nodes_.at(one)->readable && !root_) {
      return std::unexpected(error(CocoaError::fileReadNoPermission, one));
    }
  }
  const auto bytes = allocatedSize(from);
  if (auto checked = checkSpace(to, bytes); !checked) return handOn(checked);
  duplicate(from, to);
  volumeOf(to).free -= bytes;
  changes_.push_back("copy " + source + " -> " + destination);
  return {};
}

Result<> SimulatedFileSystem::moveItem(const Path& source, const Path& destination) {
  if (auto wanted = injected(Operation::move, source, destination)) return std::unexpected(*wanted);
  const auto from = resolved(source, LastLink::keep);
  const auto to = resolved(destination, LastLink::keep);
  if (!nodes_.contains(from)) return std::unexpected(error(CocoaError::fileNoSuchFile, source));
  if (auto checked = checkDestination(to); !checked) return handOn(checked);
  if (auto checked = checkTakingAway(from); !checked) return handOn(checked);
  const auto bytes = allocatedSize(from);
  if (&volumeOf(from) != &volumeOf(to)) {
    if (auto checked = checkSpace(to, bytes); !checked) return handOn(checked);
    volumeOf(to).free -= bytes;
    volumeOf(from).free += bytes;
  }
  rename(from, to);
  changes_.push_back("move " + source + " -> " + destination);
  return {};
}

Result<> SimulatedFileSystem::removeItem(const Path& path) {
  (void)clearLeftovers(path);
  const auto place = resolved(path, LastLink::keep);
  const auto count = subtree(place).size();
  auto removed = removeInPlace(path);
  const auto rest = subtree(place).size();
  const bool isHalf = rest > 0 && rest < count;
  if (!removed && isHalf && !lastPathComponent(place).starts_with('.')) {
    const auto hidden = leftoverName(place);
    rename(place, hidden);
    nodes_.at(hidden)->leftoverOf = place;
  }
  return removed;
}

Result<> SimulatedFileSystem::removeInPlace(const Path& path) {
  const auto place = resolved(path, LastLink::keep);
  if (!nodes_.contains(place)) {
    if (auto wanted = injected(Operation::remove, path)) return std::unexpected(*wanted);
    return std::unexpected(error(CocoaError::fileNoSuchFile, path));
  }
  for (const auto& one : subtree(place)) {
    if (auto checked = checkTakingAway(one); !checked) return handOn(checked);
  }
  auto removed = removeTree(place);
  if (removed) changes_.push_back("remove " + path);
  return removed;
}

bool SimulatedFileSystem::clearLeftovers(const Path& path) {
  if (plan_.answersNo("clearLeftovers", path)) return false;
  const auto place = resolved(path, LastLink::keep);
  bool cleared = false;
  for (const auto& sibling : children(parentFolder(place))) {
    if (nodes_.at(sibling)->leftoverOf != place) continue;
    erase(sibling);
    cleared = true;
  }
  return cleared;
}

// Removes children first. When one of them is made to fail, the earlier ones stay removed.
Result<> SimulatedFileSystem::removeTree(const Path& path) {
  if (auto wanted = injected(Operation::remove, path)) return std::unexpected(*wanted);
  if (!nodes_.contains(path)) return {};
  const auto node = nodes_.at(path);
  for (const auto& child : children(path)) {
    if (auto removed = removeTree(child); !removed) return handOn(removed);
    // Another process may have removed or replaced the folder.
    if (!nodes_.contains(path)) return {};
    if (nodes_.at(path) != node) return std::unexpected(error(CocoaError::fileWriteUnknown, path));
  }
  volumeOf(path).free += allocatedSize(path);
  nodes_.erase(path);
  return {};
}

Result<> SimulatedFileSystem::mergeTree(const Path& source, const Path& destination) {
  if (auto wanted = injected(Operation::copy, source, destination)) return std::unexpected(*wanted);
  const auto* const old = find(destination);
  if (old == nullptr || old->kind != Node::Kind::directory) return copyTree(source, destination);
  const auto from = resolved(source, LastLink::keep);
  const auto to = resolved(destination, LastLink::follow);
  for (const auto& one : subtree(from)) {
    const auto place = to + one.substr(from.size());
    const auto found = nodes_.find(place);
    const bool isKept = found != nodes_.end() && found->second->kind == Node::Kind::directory;
    if (!isKept) put(place, Node{*nodes_.at(one)});
  }
  changes_.push_back("copy " + source + " -> " + destination);
  return {};
}

Result<> SimulatedFileSystem::createDirectory(const Path& path, Intermediates intermediates) {
  if (auto wanted = injected(Operation::createDirectory, path)) return std::unexpected(*wanted);
  const auto place = resolved(path, LastLink::follow);
  if (const auto* const node = find(path)) {
    if (intermediates == Intermediates::create && node->kind == Node::Kind::directory) return {};
    return std::unexpected(error(CocoaError::fileWriteFileExists, path));
  }
  const auto folder = parentFolder(place);
  if (intermediates == Intermediates::create && !directoryExists(folder)) {
    if (auto created = createDirectory(folder, intermediates); !created) return handOn(created);
  }
  if (auto checked = checkDestination(place); !checked) return handOn(checked);
  put(place, Node::directory());
  changes_.push_back("create " + path);
  return {};
}

Result<std::string> SimulatedFileSystem::readFile(const Path& path) {
  if (auto wanted = injected(Operation::readFile, path)) return std::unexpected(*wanted);
  const auto* const node = find(path);
  if (node == nullptr) return std::unexpected(error(CocoaError::fileReadNoSuchFile, path));
  if (node->kind != Node::Kind::file) return std::unexpected(error(CocoaError::fileReadUnknown, path));
  if (!node->readable && !root_) return std::unexpected(error(CocoaError::fileReadNoPermission, path));
  return node->bytes;
}

Result<> SimulatedFileSystem::writeFile(const Path& path, std::string_view bytes) {
  if (auto wanted = injected(Operation::writeFile, path)) return std::unexpected(*wanted);
  const auto place = resolved(path, LastLink::follow);
  const auto* const old = find(path);
  if (old != nullptr && old->kind == Node::Kind::directory) {
    return std::unexpected(error(CocoaError::fileWriteUnknown, path));
  }
  if (auto checked = checkFolderForWriting(place); !checked) return handOn(checked);
  const auto needed = (static_cast<std::int64_t>(bytes.size()) + 4095) / 4096 * 4096;
  if (auto checked = checkSpace(place, needed); !checked) return handOn(checked);
  volumeOf(place).free += (old == nullptr ? 0 : allocatedSize(place)) - needed;
  put(place, Node::file(bytes));
  changes_.push_back("write " + path);
  return {};
}

Result<std::unique_ptr<FileReader>> SimulatedFileSystem::openForReading(const Path& path) {
  if (auto wanted = injected(Operation::openForReading, path)) return std::unexpected(*wanted);
  const auto* const node = find(path);
  if (node == nullptr) return std::unexpected(error(CocoaError::fileReadNoSuchFile, path));
  if (node->kind != Node::Kind::file) return std::unexpected(error(CocoaError::fileReadUnknown, path));
  if (!node->readable && !root_) return std::unexpected(error(CocoaError::fileReadNoPermission, path));
  return std::make_unique<Reader>(*this, path, nodes_.at(resolved(path, LastLink::follow)));
}

Result<std::unique_ptr<FileAppender>> SimulatedFileSystem::openForAppending(const Path& path) {
  if (auto wanted = injected(Operation::openForAppending, path)) return std::unexpected(*wanted);
  const auto* const node = find(path);
  if (node == nullptr) return std::unexpected(error(CocoaError::fileNoSuchFile, path));
  if (node->kind != Node::Kind::file) return std::unexpected(error(CocoaError::fileWriteUnknown, path));
  if (!node->writable && !root_) return std::unexpected(error(CocoaError::fileWriteNoPermission, path));
  return std::make_unique<Appender>(*this, path, nodes_.at(resolved(path, LastLink::follow)));
}

}  // namespace installer::test
