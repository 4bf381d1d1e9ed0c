// Paths as text, as all services of the seam use them. A path is absolute UTF-8 with "/" between components.
// These functions don't access the disk or resolve links.
#pragma once

#include <string>
#include <string_view>

namespace installer {

using Path = std::string;

// `folder` + "/" + `name`, with exactly one slash between. An absolute `name` doesn't replace `folder`.
Path joined(std::string_view folder, std::string_view name);

// "/a/b.app/" -> "b.app"; "/" -> "/"; "" -> "".
std::string lastPathComponent(std::string_view path);

// "/a/b" -> "/a"; "/a" -> "/"; "/" -> "/"; "a" -> "".
Path parentFolder(std::string_view path);

// True for a name of an entry in the folder that it is joined to: not empty, no "/", no NUL, not "." or "..".
bool isPlainFileName(std::string_view name);

}  // namespace installer
