// Paths as text, the way every service of the seam takes them.
// A path is absolute UTF-8 with "/" between components. Nothing here touches the disk or resolves links.
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

// True for a name that stays in the folder it is joined to: not empty, no "/", no NUL, neither "." nor "..".
bool isPlainFileName(std::string_view name);

}  // namespace installer
