// What every host asks of a volume, and each by a system call of its own.
#pragma once

namespace installer {

// Gives the entry `oldName` of the open directory `oldFolder` the name `newName` in `newFolder`, and never
// replaces anything. False with errno set: EEXIST when the new name is taken, even by a link that
// leads nowhere. On a volume that can't do that in one step the test comes right before the rename.
bool renameWithoutReplacing(int oldFolder, const char* oldName, int newFolder, const char* newName);

// Has the entry `name` of the open directory `folder` flags, or an access list, that keep it from being
// removed although the permission bits allow it? Not through a link.
bool isProtected(int folder, const char* name);

// What was written on the volume of the open directory `folder` is on the disk when this returns. False with
// errno set.
bool flushVolume(int folder);

// The same of the names in the open directory `folder`, as far as its volume can promise it.
void flushFolder(int folder);

}  // namespace installer
