// Files and volumes in memory: links, permissions, capacity, and failures on request.
//
// Paths are case-sensitive. Directories list their entries in the order of their creation. A test prepares
// the files with the verbs, which ignore permissions, never fail and create missing folders. The engine's
// calls obey permissions, capacity and the injected failures, and are recorded as `changes`.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/FileSystem.h"
#include "Support/FaultPlan.h"

namespace installer::test {

enum class Operation {
  list,
  attributes,
  copy,    // selected by the path of the source or of the destination
  move,    // the same
  remove,  // a path inside a tree stops the removal of the tree there
  createDirectory,
  readFile,
  writeFile,
  openForReading,
  openForAppending,
  read,    // of an open file
  append,  // to an open file
  lock,
  enumerate,
};

class SimulatedFileSystem : public FileSystem {
 public:
  explicit SimulatedFileSystem(FaultPlan& plan);
  SimulatedFileSystem(const SimulatedFileSystem&) = delete;
  SimulatedFileSystem& operator=(const SimulatedFileSystem&) = delete;
  ~SimulatedFileSystem() override;

  // Preparation.
  void addDirectory(const Path& path);
  void addFile(const Path& path, std::string_view bytes = {});  // replaces an existing item
  void addProgram(const Path& path);                            // an executable file
  void addSymlink(const Path& path, const Path& target);
  void erase(const Path& path);  // a tree; does nothing when there is none

  // A new volume, mounted at `path`, with `capacity` free bytes; absent when unknown.
  void addVolume(const Path& path, std::optional<std::int64_t> capacity = std::int64_t{1} << 40);
  void removeVolume(const Path& path);  // with its content
  // Sets the free bytes of the volume of `path`. The engine's copies, writes and removals change the figure;
  // the verbs of a test don't.
  void setCapacity(const Path& path, std::int64_t bytes);
  // Makes `volumeAvailableCapacity` absent, and `older` the result of `fileSystemFreeSize`.
  void setCapacityUnknown(const Path& path, std::optional<std::int64_t> older = std::nullopt);
  void hideVolume(const Path& path);
  void setVolumeReadOnly(const Path& path, bool readOnly = true);  // writes fail with 642

  // Permissions of one file or directory. A directory that isn't writable refuses changes of its entries
  // (513); an item that isn't readable can't be listed or read (257).
  void setWritable(const Path& path, bool writable);
  void setReadable(const Path& path, bool readable);
  void setExecutable(const Path& path, bool executable);
  // An immutable item can't be removed or renamed, and the entries of an immutable directory can't be
  // changed: 513, also for root.
  void setImmutable(const Path& path, bool immutable = true);
  // In a sticky directory of another user, only the owner of an entry may remove or rename it.
  void setSticky(const Path& path);
  void setOwnedByAnother(const Path& path);
  // Another process takes or releases the lock of the item.
  void setLockedByAnother(const Path& path, bool locked = true);
  // Adds the hidden sibling that a killed copy to `path` leaves.
  void addLeftover(const Path& path);
  // Permissions don't apply to root; injected failures do.
  void setRunsAsRoot(bool root);
  bool runsAsRoot() const;

  // Bytes on disk; by default the length rounded up to blocks of 4096.
  void setAllocatedSize(const Path& path, std::int64_t bytes);
  // Makes both figures of `enumerate` absent.
  void setAllocatedSizeUnknown(const Path& path);

  // Makes the engine's next call of that kind on `path` fail; or every one until `stopFailing`.
  void failNext(Operation operation, const Path& path, Error error);
  // The call after `calls` calls that aren't made to fail.
  void failAfter(int calls, Operation operation, const Path& path, Error error);
  void failAlways(Operation operation, const Path& path, Error error);
  void stopFailing(Operation operation, const Path& path);

  // Inspection.
  bool exists(const Path& path) const;       // true for a link, also a dangling one
  std::string read(const Path& path) const;  // fails the test when there is no such file
  // Everything below `path`, sorted, relative to it: "Contents/", "Contents/Info.plist", "link -> target".
  std::vector<std::string> tree(const Path& path) const;
  // The same with the bytes of the files: equal for equal trees.
  std::map<std::string, std::string> snapshot(const Path& path) const;
  // Like `rm -rf`: what a failure leaves keeps its name.
  Result<> removeInPlace(const Path& path);
  // Like `ditto`: copies into an existing folder, also into that of a link.
  Result<> mergeTree(const Path& source, const Path& destination);
  // The engine's successful changes in order: "move /a -> /b", "copy /a -> /b", "remove /a", "create /a",
  // "write /a". Appends to open files aren't included.
  const std::vector<std::string>& changes() const { return changes_; }
  void forgetChanges() { changes_.clear(); }

  // The seam.
  bool fileExists(const Path& path) override;
  bool directoryExists(const Path& path) override;
  bool isWritable(const Path& path) override;
  bool isExecutable(const Path& path) override;
  bool isHiddenVolume(const Path& path) override;
  Result<std::vector<std::string>> contentsOfDirectory(const Path& path) override;
  Result<FileAttributes> attributes(const Path& path) override;
  Result<> copyItem(const Path& source, const Path& destination) override;
  Result<> moveItem(const Path& source, const Path& destination) override;
  Result<> removeItem(const Path& path) override;
  Result<std::unique_ptr<FileLock>> tryLock(const Path& path) override;
  bool clearLeftovers(const Path& path) override;
  Result<> createDirectory(const Path& path, Intermediates intermediates) override;
  Result<std::string> readFile(const Path& path) override;
  Result<> writeFile(const Path& path, std::string_view bytes) override;
  Result<std::unique_ptr<FileReader>> openForReading(const Path& path) override;
  Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) override;
  bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                 const ErrorHandler& onError) override;
  std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) override;
  std::optional<std::int64_t> fileSystemFreeSize(const Path& path) override;

  struct Node;  // one file, directory or link
  struct Volume;
  struct Failures;
  // The injected failure of an operation on one path or two, if any. For the handles of open files.
  std::optional<Error> injected(Operation operation, const Path& path, const Path& other = {});
  static FileAttributes attributesOf(const Node& node);

 private:
  std::map<Path, std::shared_ptr<Node>> nodes_;
  std::map<Path, Volume> volumes_;
  FaultPlan& plan_;
  std::unique_ptr<Failures> failures_;
  std::vector<std::string> changes_;
  std::uint64_t nextOrder_ = 1;
  bool root_ = false;

  enum class LastLink { follow, keep };
  Path resolved(const Path& path, LastLink last) const;
  Node* find(const Path& path, LastLink last = LastLink::follow) const;
  Node& existing(const Path& path) const;
  std::vector<Path> children(const Path& directory) const;
  std::vector<Path> subtree(const Path& top) const;
  Volume& volumeOf(const Path& path);
  std::int64_t allocatedSize(const Path& top) const;
  std::shared_ptr<Node> put(const Path& path, Node node);
  void rename(const Path& source, const Path& destination);
  void duplicate(const Path& source, const Path& destination);
  Result<> copyTree(const Path& source, const Path& destination);
  Result<> removeTree(const Path& path);
  Result<> checkFolderForWriting(const Path& path);
  Result<> checkTakingAway(const Path& path);
  Result<> checkDestination(const Path& destination);
  Result<> checkSpace(const Path& destination, std::int64_t bytes);
  bool visitBelow(const Path& shown, const Path& directory, HiddenEntries hidden, const Visitor& visit,
                  const ErrorHandler& onError);
  std::optional<Error> plannedFailure(Operation operation, const Path& path, const Path& other);
  static Path leftoverName(const Path& path);
  static std::string nameInQuotes(const Path& path);
  Error error(std::int64_t code, const Path& path) const;
};

}  // namespace installer::test
