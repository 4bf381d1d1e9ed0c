// Volume operations with a different system call on each host.
#pragma once

namespace installer {

// Renames the entry `oldName` of the open directory `oldFolder` to `newName` in `newFolder` and never
// replaces an entry. False with errno set: EEXIST when the new name exists, also as a dangling link. On a
// volume that can't do that in one step, the test comes just before the rename.
bool renameWithoutReplacing(int oldFolder, const char* oldName, int newFolder, const char* newName);

// True when flags or an access list of the entry `name` of the open directory `folder` prevent its removal
// although the permission bits allow it. Doesn't follow a link.
bool isProtected(int folder, const char* name);

// Flushes all writes on the volume of the open directory `folder` to the disk. False with errno set.
bool flushVolume(int folder);

// Flushes the names in the open directory `folder`, if its volume supports that.
void flushFolder(int folder);

}  // namespace installer
