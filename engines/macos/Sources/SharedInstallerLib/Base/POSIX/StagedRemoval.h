// A removal that leaves all or nothing under an item's visible name, also when it fails or is killed. Any
// thread.
#pragma once

#include <functional>
#include <string>

namespace installer {

// Removes the entry of that name with everything below it. Doesn't follow links; false with errno set.
using RemoveEntry = std::function<bool(const char*)>;

// Removes the entry `name` of the open directory `parent` with `removeEntry`. Nothing is removed when
// permissions, flags or sticky folders would stop the removal. A folder with a visible name is renamed to a
// hidden sibling first. After a failure it gets its name back if it is still complete; otherwise the rest
// stays hidden until leftovers are cleared. Clears the leftovers of `name` first. False with errno set:
// ENOENT when there is no such entry.
bool removeStaged(int parent, const std::string& name, const RemoveEntry& removeEntry);

}  // namespace installer
