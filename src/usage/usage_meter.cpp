#include "usage/usage_meter.h"

#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cmath>

#include "usage/pricing.h"

namespace {

constexpr std::string_view kAssistant = "\"assistant\"";
constexpr std::string_view kTimestampKey = "\"timestamp\"";

const char* search(const char* from, const char* end, std::string_view needle) {
  return static_cast<const char*>(
      memmem(from, static_cast<size_t>(end - from), needle.data(), needle.size()));
}

int64_t nanos(const struct timespec& t) {
  return static_cast<int64_t>(t.tv_sec) * 1'000'000'000 + t.tv_nsec;
}

// Local midnight of the day `days` after the one holding `t`.
time_t localMidnight(time_t t, int days) {
  struct tm parts;
  localtime_r(&t, &parts);
  parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  parts.tm_mday += days;
  parts.tm_isdst = -1;
  return mktime(&parts);
}

}  // namespace

UsageMeter::UsageMeter(Clock clock, std::string projects)
    : clock_(std::move(clock)), projects_(std::move(projects)) {}

UsageMeter::UsageMeter(const Loop& loop, std::string projects)
    : UsageMeter([&loop] { return loop.wall(); }, std::move(projects)) {}

void UsageMeter::startDay(WallTime now) {
  const time_t t = static_cast<time_t>(std::floor(now));
  dayStart_ = static_cast<WallTime>(localMidnight(t, 0));
  dayEnd_ = static_cast<WallTime>(localMidnight(t, 1));
  utcDates_.clear();
  // Timestamps are written in UTC: list every UTC date that today's local hours fall on.
  for (time_t at = static_cast<time_t>(dayStart_); at < static_cast<time_t>(dayEnd_);
       at = (at / 86400 + 1) * 86400) {
    struct tm utc;
    gmtime_r(&at, &utc);
    char date[16];
    strftime(date, sizeof date, "%Y-%m-%d", &utc);
    utcDates_.emplace_back(date);
  }
  files_.clear();
  ledger_.clear();
  byModel_.clear();
}

bool UsageMeter::mayCount(std::string_view line) const {
  auto today = [this](const ClaudeLines::Value& stamp) {
    if (!stamp.isString()) return false;
    const std::string_view date = stamp.raw.substr(0, 10);
    return std::find(utcDates_.begin(), utcDates_.end(), date) != utcDates_.end();
  };
  // Claude Code writes a line's type and time stamp last: most lines are decided at their end
  // without reading the rest, above all the long tool results.
  if (const auto tail = ClaudeLines::scanTail(line)) {
    const bool typeKnown = tail->type.kind != 0 || tail->whole;
    if (typeKnown && !tail->type.is("assistant")) return false;
    if (typeKnown && (tail->timestamp.kind != 0 || tail->whole)) return today(tail->timestamp);
  }
  const char* p = line.data();
  const char* end = p + line.size();
  if (!search(p, end, kAssistant)) return false;
  // Any "timestamp" key followed by one of today's dates; the scan finds the right one.
  while ((p = search(p, end, kTimestampKey))) {
    p += kTimestampKey.size();
    while (p < end && (*p == ' ' || *p == ':' || *p == '\t')) ++p;
    if (p >= end || *p != '"') continue;
    const std::string_view date(p + 1, std::min<size_t>(10, static_cast<size_t>(end - p - 1)));
    for (const std::string& today : utcDates_)
      if (date == today) return true;
  }
  return false;
}

void UsageMeter::read(std::string_view text) {
  if (!mayCount(text)) return;
  ClaudeLines::Line line;
  if (!ClaudeLines::scan(text, line) || !line.type.is("assistant")) return;
  const auto when = ClaudeLines::parseTime(line.timestamp.isString() ? line.timestamp.raw : "");
  if (!when || *when < dayStart_ || *when >= dayEnd_) return;
  ledger_.record(line);
}

void UsageMeter::scan(const std::string& path, const struct stat& info) {
  LineMark& mark = files_[path];
  if (mark.current(info)) return;
  // A file last changed before today began holds no message of today: only what is appended
  // to it later is read. A file that was replaced or rewritten shorter is read again; the
  // ledger keeps its messages from being counted twice.
  if (static_cast<double>(nanos(info.st_mtim)) / 1e9 < dayStart_) {
    mark.skipTo(info);
    return;
  }
  reader_.read(path, mark, LineReader::kUnlimited, [this](std::string_view l) { read(l); });
}

Json UsageMeter::snapshot() {
  const WallTime now = clock_();
  if (utcDates_.empty() || now < dayStart_ || now >= dayEnd_) startDay(now);

  ClaudeLines::forEachTranscript(projects_, [this](const std::string& path, std::string_view,
                                                   const struct stat& info) { scan(path, info); });
  ledger_.settle([this](const auto* before, const auto& after) {
    if (before) {
      Totals& old = byModel_[before->model];
      old.cost -= before->cost;
      old.tokens -= before->tokens;
    }
    Totals& totals = byModel_[after.model];
    totals.cost += after.cost;
    totals.tokens += after.tokens;
  });

  // Model ids that differ only in a date stamp share a label and one row.
  std::map<std::string, Totals> byLabel;
  for (const auto& [model, totals] : byModel_) {
    if (totals.tokens == 0 && totals.cost == 0) continue;
    Totals& row = byLabel[Pricing::label(model)];
    row.cost += totals.cost;
    row.tokens += totals.tokens;
  }
  std::vector<std::pair<std::string, Totals>> rows(byLabel.begin(), byLabel.end());
  std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
    if (a.second.cost != b.second.cost) return a.second.cost > b.second.cost;
    return a.second.tokens > b.second.tokens;
  });
  double today = 0;
  Json models = Json::array();
  for (const auto& [label, totals] : rows) {
    today += totals.cost;
    models.push_back({{"model", label}, {"cost", totals.cost}, {"tokens", totals.tokens}});
  }
  return {{"today", today}, {"models", models}};
}
