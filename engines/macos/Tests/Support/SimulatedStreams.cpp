#include "Support/SimulatedStreams.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace installer::test {

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const auto end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
  }
  return lines;
}

std::string SimulatedStreams::output() const {
  const MutexLock lock{writing_};
  return output_;
}

std::string SimulatedStreams::error() const {
  const MutexLock lock{writing_};
  return error_;
}

std::vector<std::string> SimulatedStreams::outputLines() const {
  return linesOf(output());
}

std::vector<std::string> SimulatedStreams::errorLines() const {
  return linesOf(error());
}

std::vector<Json> SimulatedStreams::events() const {
  std::vector<Json> result;
  for (const auto& line : outputLines()) {
    auto event = Json::parse(line, nullptr, false);
    if (event.is_object()) result.push_back(std::move(event));
  }
  return result;
}

std::vector<Json> SimulatedStreams::events(std::string_view type) const {
  auto result = events();
  std::erase_if(result, [type](const Json& event) { return event.value("type", "") != type; });
  return result;
}

void SimulatedStreams::forgetOutput() {
  const MutexLock lock{writing_};
  output_.clear();
  error_.clear();
}

void SimulatedStreams::feedLine(std::string_view line) {
  input_.emplace_back(line.size() > kMaximumLineLength ? std::string_view{} : line);
  announce();
}

void SimulatedStreams::feedLineAt(Duration delay, std::string_view line) {
  dispatch_.schedule(delay, [this, text = std::string{line}] { feedLine(text); });
}

void SimulatedStreams::closeInput() {
  closed_ = true;
  announce();
}

void SimulatedStreams::closeInputAt(Duration delay) {
  dispatch_.schedule(delay, [this] { closeInput(); });
}

void SimulatedStreams::announce() {
  if (arrival_ != nullptr) std::exchange(arrival_, nullptr)->happen();
}

void SimulatedStreams::writeOutput(std::string_view bytes) {
  const MutexLock lock{writing_};
  if (!readerGone_) output_.append(bytes);
}

void SimulatedStreams::writeError(std::string_view bytes) {
  const MutexLock lock{writing_};
  if (!readerGone_) error_.append(bytes);
}

std::optional<std::string> SimulatedStreams::readLine() {
  while (input_.empty()) {
    if (closed_) return std::nullopt;
    const auto arrival = arrival_ = dispatch_.makeEvent("a line of standard input");
    arrival->wait();
  }
  auto line = std::move(input_.front());
  input_.pop_front();
  return line;
}

}  // namespace installer::test
