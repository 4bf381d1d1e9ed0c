#include "eventreader/Board.h"

#include <algorithm>
#include <fmt/format.h>

#include "Base/Text.h"

namespace lab {
namespace {

constexpr std::size_t kBarWidth = 24;
constexpr std::string_view kUnfinished = "not finished";

std::string repeated(std::string_view piece, std::size_t count) {
  std::string text;
  for (; count > 0; --count) text += piece;
  return text;
}

const char* colourOf(const std::string& status) {
  if (status.empty()) return "\033[36m";
  if (status.starts_with("failed")) return "\033[31m";
  if (status.starts_with("cancelled") || status.starts_with("skipped") || status == kUnfinished) {
    return "\033[33m";
  }
  return "\033[32m";
}

}  // namespace

Board::Row& Board::rowOf(const std::string& app) {
  const auto found = std::ranges::find(rows_, app, &Row::app);
  if (found != rows_.end()) return *found;
  rows_.emplace_back().app = app;
  return rows_.back();
}

// The rate is the average since the download was first measured, shown after half a second. An interrupted
// download falls back to 0 percent without bytes.
std::string Board::detailOf(Row& row, const AppStep& step, Moment now) {
  if (!step.downloadedBytes || !step.totalBytes) {
    if (row.stage != "download" || step.percent.value_or(row.percent) >= row.percent) return {};
    row.began.reset();
    return "connection interrupted, trying again";
  }
  if (!row.began) row.began = {now, *step.downloadedBytes};
  auto text = fmt::format("{} of {} MB", megabytes(*step.downloadedBytes), megabytes(*step.totalBytes));
  const double seconds = std::chrono::duration<double>(now - row.began->first).count();
  const double rate = (*step.downloadedBytes - row.began->second) / seconds;
  if (seconds >= 0.5 && rate >= 0) text += fmt::format(", {} MB/s", megabytes(rate));
  return text;
}

// Only a download is measured. A stage after a result belongs to another run.
void Board::enterStage(Row& row, const std::string& stage) {
  if (!row.status.empty()) row.percent = 0;
  row.status.clear();
  row.stage = stage;
  row.detail.clear();
  row.began.reset();
  row.indeterminate = stage != "download";
}

void Board::advance(Row& row, const AppStep& step, Moment now) {
  row.indeterminate = step.indeterminate;
  row.detail = detailOf(row, step, now);
  if (!step.indeterminate) row.percent = std::max(row.percent, step.percent.value_or(0));
}

bool Board::apply(const AppStep& step, Moment now) {
  Row& row = rowOf(step.app);
  if (step.stage) enterStage(row, *step.stage);
  if (step.status) row.status = *step.status;
  const bool news = step.stage || step.status;
  if (!news) advance(row, step, now);
  return news;
}

void Board::abandon() {
  for (Row& row : rows_) {
    if (row.status.empty()) row.status = kUnfinished;
  }
}

std::string Board::bar(const Row& row) const {
  const bool drawn = look_ == Look::terminal;
  if (row.status.starts_with("failed") || row.status == kUnfinished)
    return repeated(drawn ? "─" : "-", kBarWidth);
  if (!row.status.empty()) return repeated(drawn ? "█" : "=", kBarWidth);
  if (row.indeterminate) return repeated(drawn ? "▒" : "~", kBarWidth);
  const double share = std::clamp(row.percent, 0.0, 100.0) / 100;
  const auto filled = static_cast<std::size_t>(share * kBarWidth);
  return repeated(drawn ? "█" : "#", filled) + repeated(drawn ? "░" : ".", kBarWidth - filled);
}

std::string Board::draw(const Row& row, std::size_t columns) const {
  const std::string percent = row.indeterminate ? "    " : fmt::format("{:3.0f}%", row.percent);
  const std::string tail =
      row.status.empty() ? fmt::format("{}  {}  {}", percent, row.stage, row.detail) : row.status;
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
