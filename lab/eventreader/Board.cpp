#include "eventreader/Board.h"

#include <algorithm>
#include <fmt/format.h>

#include "Base/Text.h"

namespace lab {
namespace {

constexpr std::size_t barWidth = 24;

std::string bar(double percent, bool indeterminate) {
  if (indeterminate) return std::string(barWidth, '~');
  const double share = std::clamp(percent, 0.0, 100.0) / 100;
  const auto filled = static_cast<std::size_t>(share * barWidth);
  return std::string(filled, '#') + std::string(barWidth - filled, '.');
}

const char* colourOf(const std::string& status) {
  if (status.empty()) return "\033[36m";
  if (status.starts_with("failed")) return "\033[31m";
  if (status.starts_with("cancelled") || status.starts_with("skipped")) return "\033[33m";
  return "\033[32m";
}

}  // namespace

Board::Row& Board::rowOf(const std::string& app) {
  const auto found = std::ranges::find(rows_, app, &Row::app);
  if (found != rows_.end()) return *found;
  rows_.push_back(Row{app, "", "", "", 0, false});
  return rows_.back();
}

bool Board::apply(const AppStep& step) {
  Row& row = rowOf(step.app);
  if (step.percent) row.percent = *step.percent;
  row.indeterminate = step.indeterminate;
  row.detail = step.detail.value_or("");
  if (step.stage) {
    row.stage = *step.stage;
    row.status.clear();
    row.percent = 0;
  }
  if (step.status) {
    row.status = *step.status + (step.outcome ? " " + *step.outcome : "");
    row.percent = 100;
  }
  return step.stage.has_value() || step.status.has_value();
}

std::string Board::draw(const Row& row, std::size_t columns) const {
  const std::string tail =
      row.status.empty() ? fmt::format("{:3.0f}%  {}  {}", row.percent, row.stage, row.detail) : row.status;
  const std::string text =
      row.status.empty()
          ? fmt::format("{:<10} [{}] {}", row.app, bar(row.percent, row.indeterminate), tail)
          : fmt::format("{:<10} [{}] {}", row.app,
                        std::string(barWidth, row.status.starts_with("failed") ? '-' : '='), tail);
  const std::string visible{
      installer::firstCharacters(text.substr(0, text.find_last_not_of(' ') + 1), columns)};
  return colours_ == Colours::off ? visible : colourOf(row.status) + visible + "\033[0m";
}

std::string Board::line(const std::string& app, std::size_t columns) const {
  const auto found = std::ranges::find(rows_, app, &Row::app);
  return found == rows_.end() ? std::string{} : draw(*found, columns);
}

std::vector<std::string> Board::lines(std::size_t columns) const {
  std::vector<std::string> drawn;
  for (const Row& row : rows_) drawn.push_back(draw(row, columns));
  return drawn;
}

}  // namespace lab
