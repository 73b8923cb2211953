#pragma once
// Per-model token prices and display labels for Claude models.

#include <optional>
#include <string>
#include <string_view>

#include "core/json.h"
#include "core/ports.h"

namespace Pricing {

// US dollars per million tokens; `window` is the model's context window in tokens.
struct Rate {
  double input = 0;
  double output = 0;
  double cacheRead = 0;
  long window = 0;
};

// The figures of one transcript "usage" object that its price depends on; absent or non-number
// figures are 0.
struct Usage {
  double input = 0;
  double output = 0;
  double cacheRead = 0;
  double cacheCreation = 0;
  // The split of the cache writes, when the object carries "cache_creation".
  bool split = false;
  double oneHour = 0;
  std::optional<double> fiveMinute;

  static Usage of(const Json& usage);
};

std::optional<Rate> rate(std::string_view model);
// Dollars for one transcript "usage" object; 0 for a model without a rate.
double cost(std::string_view model, const Usage& usage);
double cost(std::string_view model, const Json& usage);
// "claude-opus-4-5-20251101" → "Opus 4.5".
std::string label(std::string_view model);

}  // namespace Pricing

// The price table as the hub's model catalog: Claude models get their short labels.
class PricingCatalog final : public ModelCatalog {
 public:
  std::string label(Agent agent, const std::string& model) const override;
  int64_t contextWindow(const std::string& model) const override;
};
