#include "usage/pricing.h"

#include <algorithm>
#include <array>
#include <vector>

#include "core/text.h"

namespace Pricing {
namespace {

constexpr long kWindow = 200000;

struct Row {
  std::string_view match;
  Rate rate;
};

// First match wins, so the more specific names come before "opus" and "sonnet". The cache
// read prices of the first three rows are not a tenth of their input prices.
constexpr std::array<Row, 7> kRows{{
    {"fable", {10.0, 50.0, 0.25, kWindow}},
    {"mythos", {10.0, 50.0, 0.25, kWindow}},
    {"opus-5-5", {4.0, 20.0, 0.2, kWindow}},
    {"opus", {5.0, 25.0, 0.5, kWindow}},
    {"sonnet-5", {2.0, 10.0, 0.2, kWindow}},
    {"sonnet", {3.0, 15.0, 0.3, kWindow}},
    {"haiku", {1.0, 5.0, 0.1, kWindow}},
}};

// Prompt-cache writes are priced from the input rate.
constexpr double kFiveMinuteWrite = 1.25;
constexpr double kOneHourWrite = 2.0;

bool allOf(std::string_view part, int (*test)(int)) {
  return !part.empty() && std::all_of(part.begin(), part.end(), [test](char c) {
    return static_cast<unsigned char>(c) < 0x80 && test(static_cast<unsigned char>(c));
  });
}

int isLetter(int c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
int isDigit(int c) {
  return c >= '0' && c <= '9';
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (size_t end; (end = text.find(separator, start)) != std::string_view::npos; start = end + 1)
    parts.push_back(text.substr(start, end - start));
  parts.push_back(text.substr(start));
  return parts;
}

}  // namespace

std::optional<Rate> rate(std::string_view model) {
  const std::string id = Text::lower(model);
  for (const Row& row : kRows)
    if (id.find(row.match) != std::string::npos) return row.rate;
  return std::nullopt;
}

Usage Usage::of(const Json& usage) {
  Usage u;
  u.input = JsonField::num(usage, "input_tokens");
  u.output = JsonField::num(usage, "output_tokens");
  u.cacheRead = JsonField::num(usage, "cache_read_input_tokens");
  u.cacheCreation = JsonField::num(usage, "cache_creation_input_tokens");
  if (const Json* creation = JsonField::find(usage, "cache_creation");
      creation && creation->is_object()) {
    u.split = true;
    u.oneHour = JsonField::num(*creation, "ephemeral_1h_input_tokens");
    if (const Json* given = JsonField::find(*creation, "ephemeral_5m_input_tokens");
        given && given->is_number())
      u.fiveMinute = given->get<double>();
  }
  return u;
}

double cost(std::string_view model, const Usage& u) {
  const auto r = rate(model);
  if (!r) return 0;
  double oneHour = 0;
  double fiveMinute = u.cacheCreation;
  if (u.split) {
    oneHour = u.oneHour;
    fiveMinute = u.fiveMinute.value_or(std::max(0.0, u.cacheCreation - oneHour));
  }
  const double input = u.input + kFiveMinuteWrite * fiveMinute + kOneHourWrite * oneHour;
  return (r->input * input + r->cacheRead * u.cacheRead + r->output * u.output) / 1'000'000;
}

double cost(std::string_view model, const Json& usage) {
  return cost(model, Usage::of(usage));
}

// The family is the first all-letter part after "claude-"; the version is the run of short
// (one or two digit) numeric parts right after it, so a date stamp such as "20251101" ends
// the version and is dropped. A model without a rate, or with no family, shows its id.
std::string label(std::string_view model) {
  std::string_view rest = model;
  if (rest.starts_with("claude-")) rest.remove_prefix(7);
  if (!rate(model)) return std::string(rest);
  const auto parts = split(rest, '-');
  const auto family = std::find_if(parts.begin(), parts.end(),
                                   [](std::string_view part) { return allOf(part, isLetter); });
  if (family == parts.end()) return std::string(rest);
  std::string out(*family);
  out[0] = static_cast<char>(out[0] - (out[0] >= 'a' && out[0] <= 'z' ? 'a' - 'A' : 0));
  std::string version;
  for (auto it = family + 1; it != parts.end() && allOf(*it, isDigit) && it->size() <= 2; ++it) {
    if (!version.empty()) version += '.';
    version += *it;
  }
  if (!version.empty()) out += " " + version;
  return out;
}

}  // namespace Pricing

std::string PricingCatalog::label(Agent agent, const std::string& model) const {
  return agent == Agent::claude ? Pricing::label(model) : model;
}

int64_t PricingCatalog::contextWindow(const std::string& model) const {
  auto rate = Pricing::rate(model);
  return rate ? rate->window : 0;
}
