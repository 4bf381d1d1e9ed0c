#include "eventreader/Board.h"

#include <algorithm>
#include <fmt/format.h>

#include "Base/Text.h"

namespace lab {
namespace {

constexpr std::size_t kBarWidth = 24;

std::string repeated(std::string_view piece, std::size_t count) {
  std::string text;
  for (; count > 0; --count) text += piece;
  return text;
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
  rows_.emplace_back().app = app;
  return rows_.back();
}

// The rate is the average since the download was first measured, shown after half a second.
std::string Board::detailOf(Row& row, const AppStep& step, Moment now) {
  if (!step.downloadedBytes || !step.totalBytes) return {};
  if (!row.began) row.began = {now, *step.downloadedBytes};
  auto text = fmt::format("{} of {} MB", megabytes(*step.downloadedBytes), megabytes(*step.totalBytes));
  const double seconds = std::chrono::duration<double>(now - row.began->first).count();
  const double rate = (*step.downloadedBytes - row.began->second) / seconds;
  if (seconds >= 0.5 && rate >= 0) text += fmt::format(", {} MB/s", megabytes(rate));
  return text;
}

bool Board::apply(const AppStep& step, Moment now) {
  Row& row = rowOf(step.app);
  if (step.percent) row.percent = *step.percent;
  row.indeterminate = step.indeterminate;
  row.detail = detailOf(row, step, now);
  if (step.stage) {
    row.stage = *step.stage;
    row.status.clear();
    row.began.reset();
    row.percent = 0;
  }
  if (step.status) {
    row.status = *step.status + (step.outcome ? (*step.status == "failed" ? ": " : " ") + *step.outcome : "");
    row.percent = 100;
  }
  return step.stage.has_value() || step.status.has_value();
}

std::string Board::bar(const Row& row) const {
  const bool drawn = look_ == Look::terminal;
  if (row.status.starts_with("failed")) return repeated(drawn ? "─" : "-", kBarWidth);
  if (!row.status.empty()) return repeated(drawn ? "█" : "=", kBarWidth);
  if (row.indeterminate) return repeated(drawn ? "▒" : "~", kBarWidth);
  const double share = std::clamp(row.percent, 0.0, 100.0) / 100;
  const auto filled = static_cast<std::size_t>(share * kBarWidth);
  return repeated(drawn ? "█" : "#", filled) + repeated(drawn ? "░" : ".", kBarWidth - filled);
}

std::string Board::draw(const Row& row, std::size_t columns) const {
  const std::string tail =
      row.status.empty() ? fmt::format("{:3.0f}%  {}  {}", row.percent, row.stage, row.detail) : row.status;
  const std::string text = fmt::format("{:<10} [{}] {}", row.app, bar(row), tail);
  const std::string visible{
      installer::firstCharacters(text.substr(0, text.find_last_not_of(' ') + 1), columns)};
  return look_ == Look::plain ? visible : colourOf(row.status) + visible + "\033[0m";
}

std::string Board::words(const std::string& app) const {
  const auto found = std::ranges::find(rows_, app, &Row::app);
  if (found == rows_.end()) return {};
  return fmt::format("{}: {}", app, found->status.empty() ? found->stage : found->status);
}

std::vector<std::string> Board::lines(std::size_t columns) const {
  std::vector<std::string> drawn;
  for (const Row& row : rows_) drawn.push_back(draw(row, columns));
  return drawn;
}

}  // namespace lab
