// xattr: lists, shows, sets and removes extended attributes.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/Attributes.h"
#include "support/Files.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    R"(usage: xattr [-l] [-r] FILE...              the names, with -l the values too
       xattr -p [-r] NAME FILE...           the value
       xattr -w [-r] NAME VALUE FILE...     set
       xattr -d [-r] NAME FILE...           remove
       xattr -c [-r] FILE...                remove all
-r also processes a folder's content. Links are ignored. On Linux the attributes are in the user namespace.
)";

struct Request {
  char action = 'L';  // one of L, p, w, d, c
  bool recursive = false;
  bool values = false;
  std::string name;
  std::string value;
  std::vector<std::string> files;
};

bool takeFlags(const std::string& word, Request& request) {
  for (const char flag : word.substr(1)) {
    if (flag == 'r')
      request.recursive = true;
    else if (flag == 'l')
      request.values = true;
    else if (flag == 'p' || flag == 'w' || flag == 'd' || flag == 'c')
      request.action = flag;
    else if (flag != 's' && flag != 'v')
      return false;
  }
  return true;
}

lab::OrReason<Request> parse(std::vector<std::string> words) {
  Request request;
  while (!words.empty() && words.front().size() > 1 && words.front().starts_with('-')) {
    if (!takeFlags(words.front(), request)) return lab::because("option {} not recognized", words.front());
    words.erase(words.begin());
  }
  const bool named = request.action == 'p' || request.action == 'w' || request.action == 'd';
  for (std::string* operand :
       {named ? &request.name : nullptr, request.action == 'w' ? &request.value : nullptr}) {
    if (operand == nullptr) continue;
    if (words.empty()) return lab::because("not enough arguments");
    *operand = words.front();
    words.erase(words.begin());
  }
  if (words.empty()) return lab::because("not enough arguments");
  request.files = std::move(words);
  return request;
}

// Executes the action for each path and records whether one failed.
class Run {
 public:
  explicit Run(const Request& request) : request_(request) {}

  int all() {
    for (const std::string& file : request_.files) {
      if (lab::itemExists(file))
        visit(file);
      else
        complain("No such file: " + file);
    }
    return status_;
  }

 private:
  void visit(const fs::path& path) {
    const auto type = fs::symlink_status(path).type();
    if (type != fs::file_type::symlink) obey(path);
    if (!request_.recursive || type != fs::file_type::directory) return;
    std::error_code error;
    std::vector<fs::path> entries;
    for (const auto& entry : fs::directory_iterator(path, error)) entries.push_back(entry.path());
    if (error) complain(path.string() + ": " + error.message());
    std::ranges::sort(entries);
    for (const fs::path& entry : entries) visit(entry);
  }

  void obey(const fs::path& path) {
    switch (request_.action) {
      case 'p': return show(path, request_.name);
      case 'w': return check(lab::setAttribute(path, request_.name, request_.value));
      case 'd': return remove(path);
      default: return forEachName(path);
    }
  }

  // For -c and for the listings with and without values.
  void forEachName(const fs::path& path) {
    const auto names = lab::attributeNames(path);
    if (!names) return complain(names.error());
    for (const std::string& name : *names) {
      if (request_.action == 'c')
        check(lab::removeAttribute(path, name));
      else if (request_.values)
        show(path, name);
      else
        fmt::print("{}{}\n", prefix(path), name);
    }
  }

  void show(const fs::path& path, const std::string& name) {
    const auto value = lab::attribute(path, name);
    if (!value) return complain(value.error());
    if (!value->has_value()) return missing(path, name);
    fmt::print("{}{}{}\n", prefix(path), request_.values ? name + ": " : "", **value);
  }

  void remove(const fs::path& path) {
    const auto removed = lab::removeAttribute(path, request_.name);
    if (!removed)
      complain(removed.error());
    else if (!*removed)
      missing(path, request_.name);
  }

  void missing(const fs::path& path, const std::string& name) {
    if (!request_.recursive) complain(path.string() + ": No such xattr: " + name);
  }

  template <class Value>
  void check(const lab::OrReason<Value>& result) {
    if (!result) complain(result.error());
  }

  void complain(const std::string& text) {
    fmt::print(stderr, "xattr: {}\n", text);
    status_ = 1;
  }

  std::string prefix(const fs::path& path) const {
    return request_.recursive || request_.files.size() > 1 ? path.string() + ": " : std::string{};
  }

  const Request& request_;
  int status_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h")) {
    fmt::print("{}", kUsage);
    return 0;
  }
  const auto request = parse(words);
  if (!request) {
    fmt::print(stderr, "xattr: {}\n{}", request.error(), kUsage);
    return 1;
  }
  return Run{*request}.all();
}
