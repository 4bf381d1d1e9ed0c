#include "ResourceSealer.h"

#include <algorithm>
#include <chrono>
#include <map>

#include "Base/Text.h"
#include "CodeResources.h"
#include "DER.h"
#include "MachO.h"
#include "MappedFile.h"
#include "Verifier.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

constexpr const char* kRules = R"(	<key>rules2</key>
	<dict>
		<key>.*\.dSYM($|/)</key>
		<dict><key>weight</key><real>11</real></dict>
		<key>^(.*/)?\.DS_Store$</key>
		<dict><key>omit</key><true/><key>weight</key><real>2000</real></dict>
		<key>^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|Library/(Automator|Spotlight|LoginItems))/</key>
		<dict><key>nested</key><true/><key>weight</key><real>10</real></dict>
		<key>^.*</key>
		<true/>
		<key>^Info\.plist$</key>
		<dict><key>omit</key><true/><key>weight</key><real>20</real></dict>
		<key>^PkgInfo$</key>
		<dict><key>omit</key><true/><key>weight</key><real>20</real></dict>
		<key>^Resources/</key>
		<dict><key>weight</key><real>20</real></dict>
		<key>^Resources/.*\.lproj/</key>
		<dict><key>optional</key><true/><key>weight</key><real>1000</real></dict>
		<key>^Resources/.*\.lproj/locversion.plist$</key>
		<dict><key>omit</key><true/><key>weight</key><real>1100</real></dict>
		<key>^Resources/Base\.lproj/</key>
		<dict><key>weight</key><real>1010</real></dict>
		<key>^[^/]+$</key>
		<dict><key>nested</key><true/><key>weight</key><real>10</real></dict>
		<key>^embedded\.provisionprofile$</key>
		<dict><key>weight</key><real>20</real></dict>
		<key>^version\.plist$</key>
		<dict><key>weight</key><real>20</real></dict>
	</dict>
)";

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '&') result += "&amp;";
    if (c == '<') result += "&lt;";
    if (c == '>') result += "&gt;";
    if (c != '&' && c != '<' && c != '>') result += c;
  }
  return result;
}

std::string document(const std::string& seals) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist "
         "version=\"1.0\">\n<dict>\n\t<key>files2</key>\n\t<dict>\n" +
         seals + "\t</dict>\n" + kRules + "</dict>\n</plist>\n";
}

// The rules of the document, which also select the files for it.
const CodeResources& rules() {
  static const CodeResources kResources = [] {
    const std::string text = document("");
    return CodeResources::read(viewOf(text)).value();
  }();
  return kResources;
}

struct Item {
  fs::path path;
  std::string relative;
  fs::file_type type = fs::file_type::none;
  bool isNested = false;
};

bool holdsMachO(const fs::path& path) {
  const auto file = MappedFile::open(path);
  return file && isMachO(file->bytes());
}

// Everything below the base that needs a seal, in the order of the names.
class Inventory {
 public:
  explicit Inventory(const Bundle& bundle) : bundle_(&bundle) {}

  Outcome<std::map<std::string, Item>> take() {
    std::error_code error;
    for (fs::recursive_directory_iterator at(bundle_->base, error), end; !error && at != end;
         at.increment(error)) {
      const Item item = look(at->path());
      if (isPruned(item) || item.isNested) at.disable_recursion_pending();
      if (!isPruned(item) && (item.isNested || item.type != fs::file_type::directory))
        items_[item.relative] = item;
    }
    if (error)
      return std::unexpected(
          Failure{"can't list " + bundle_->base.string() + ": " + error.message(), FailureKind::unreadable});
    return std::move(items_);
  }

 private:
  Item look(const fs::path& path) const {
    std::error_code error;
    Item item{path, bundle_->relative(path), fs::symlink_status(path, error).type(), false};
    const ResourceRule* rule = rules().ruleFor(item.relative);
    if (rule == nullptr || !rule->nested) return item;
    if (item.type == fs::file_type::directory)
      item.isNested = path.filename().string().find('.') != std::string::npos;
    if (item.type == fs::file_type::regular) item.isNested = holdsMachO(path);
    return item;
  }

  bool isPruned(const Item& item) const {
    if (item.relative == "_CodeSignature" || item.relative == "CodeResources" ||
        item.relative == "_MASReceipt")
      return true;
    if (item.path == bundle_->mainExecutable) return true;
    const ResourceRule* rule = rules().ruleFor(item.relative);
    return item.type == fs::file_type::regular && rule != nullptr && rule->omit;
  }

  const Bundle* bundle_;
  std::map<std::string, Item> items_;
};

Outcome<std::string> nestedSeal(const Item& item) {
  const Verifier verifier(Anchors::platform(),
                          std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
  const auto report = verifier.inspect(item.path);
  if (!report) return handOn(report, "nested code " + item.relative);
  std::string requirement;
  for (const CodeFacts& slice : report->slices) {
    for (const Bytes& hash : slice.cdhashes)
      requirement +=
          (requirement.empty() ? "cdhash H\"" : " or cdhash H\"") + installer::hexadecimal(hash) + "\"";
  }
  return "<key>cdhash</key><data>" + base64(report->slices.front().cdhash()) +
         "</data><key>requirement</key><string>" + escaped(requirement) + "</string>";
}

Outcome<std::string> sealOf(const Item& item, HashType digest) {
  if (item.isNested) return nestedSeal(item);
  std::error_code error;
  if (item.type == fs::file_type::symlink)
    return "<key>symlink</key><string>" + escaped(fs::read_symlink(item.path, error).string()) + "</string>";
  const auto file = MappedFile::open(item.path);
  if (!file) return handOn(file);
  const std::string name = digest == HashType::sha1 ? "hash" : "hash2";
  std::string seal =
      "<key>" + name + "</key><data>" + base64(digestOf(digest, file->bytes()).bytes()) + "</data>";
  const ResourceRule* rule = rules().ruleFor(item.relative);
  if (rule != nullptr && rule->optional) seal += "<key>optional</key><true/>";
  return seal;
}

}  // namespace

Outcome<std::vector<fs::path>> findNestedCode(const Bundle& bundle) {
  const auto items = Inventory(bundle).take();
  if (!items) return handOn(items);
  std::vector<fs::path> nested;
  for (const auto& [relative, item] : *items) {
    if (item.isNested) nested.push_back(item.path);
  }
  return nested;
}

Outcome<std::string> makeCodeResources(const Bundle& bundle, HashType digest) {
  const auto items = Inventory(bundle).take();
  if (!items) return handOn(items);
  std::string seals;
  for (const auto& [relative, item] : *items) {
    const auto seal = sealOf(item, digest);
    if (!seal) return handOn(seal);
    seals += "\t\t<key>" + escaped(relative) + "</key>\n\t\t<dict>" + *seal + "</dict>\n";
  }
  return document(seals);
}

}  // namespace lab
