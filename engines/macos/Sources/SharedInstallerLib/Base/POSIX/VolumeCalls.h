// Volume operations with a different system call on each host. Stateless; any thread.
#pragma once

#include <optional>
#include <sys/types.h>

namespace installer {

// Renames the entry `oldName` of the open directory `oldFolder` to `newName` in `newFolder` and never
// replaces an entry. False with errno set: EEXIST when the new name exists, also as a dangling link. On a
// volume that can't do that in one step, the test comes just before the rename.
bool renameWithoutReplacing(int oldFolder, const char* oldName, int newFolder, const char* newName);

// What the removal of an entry depends on besides the permissions of its folder.
struct RemovalFacts {
  mode_t mode = 0;
  uid_t owner = 0;
  // Flags or an access list prevent the removal although the permission bits allow it.
  bool isProtected = false;
};

// The facts of the entry `name` of the open directory `folder`; absent with errno set. Doesn't follow a link.
std::optional<RemovalFacts> removalFacts(int folder, const char* name);

// Flushes the item `name` of the open directory `folder`, with all its contents, to the disk, but not its
// name. False with errno set.
bool flushTree(int folder, const char* name);

// Flushes the names in the open directory `folder`, if its volume supports that.
void flushFolder(int folder);

// True when a volume is mounted at `path` that `hdiutil attach -nobrowse` hides from the user.
bool isHiddenVolume(const char* path);

}  // namespace installer
