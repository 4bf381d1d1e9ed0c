// A removal that leaves all or nothing under an item's visible name, even when it is killed.
#pragma once

#include <functional>
#include <string>

namespace installer {

// Removes the entry of that name with everything beneath it, not through a link; false with errno set.
using RemoveEntry = std::function<bool(const char*)>;

// Removes the entry `name` of the open directory `parent` by `removeEntry`, in one or two steps: nothing is
// taken when permissions, flags or sticky folders would stop the removal half-way, and a folder with a
// visible name is put aside first. What can't be removed goes back, as far as it is still there. Clears the
// leftovers of `name` first. False with errno set: ENOENT when nothing is there.
bool removeStaged(int parent, const std::string& name, const RemoveEntry& removeEntry);

}  // namespace installer
