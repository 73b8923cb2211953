#include "app/panel_updates.h"

#include <glib.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include "core/text.h"

namespace UpdateFeed {
namespace {

struct Token {
  bool number = false;
  std::string text;  // digits without leading zeros, or a word in lower case
};

std::vector<Token> tokens(std::string_view v) {
  // "v1.2" is version 1.2.
  if (v.size() > 1 && (v[0] == 'v' || v[0] == 'V') &&
      std::isdigit(static_cast<unsigned char>(v[1])))
    v.remove_prefix(1);
  std::vector<Token> out;
  size_t i = 0;
  while (i < v.size()) {
    unsigned char c = static_cast<unsigned char>(v[i]);
    if (!std::isalnum(c)) {
      ++i;
      continue;
    }
    bool digit = std::isdigit(c);
    Token t{digit, {}};
    while (i < v.size() && std::isalnum(static_cast<unsigned char>(v[i])) &&
           bool(std::isdigit(static_cast<unsigned char>(v[i]))) == digit)
      t.text += static_cast<char>(std::tolower(static_cast<unsigned char>(v[i++])));
    if (digit) {
      t.text.erase(0, std::min(t.text.find_first_not_of('0'), t.text.size()));
    }
    out.push_back(std::move(t));
  }
  return out;
}

int compareTokens(const Token& a, const Token& b) {
  if (a.number != b.number) return a.number ? 1 : -1;  // 1.0.1 is newer than 1.0b1
  if (a.number && a.text.size() != b.text.size()) return a.text.size() < b.text.size() ? -1 : 1;
  int c = a.text.compare(b.text);
  return c < 0 ? -1 : c > 0 ? 1 : 0;
}

bool isHttp(std::string_view url) {
  return url.starts_with("https://") || url.starts_with("http://");
}

// What the appcast parser gathers while walking the elements.
struct Walk {
  std::vector<std::string> stack;
  bool inItem = false;
  std::string shortVersion, version, link, enclosureUrl;
  std::optional<Release> best;

  void endItem() {
    std::string v = !shortVersion.empty() ? shortVersion : version;
    if (!tokens(v).empty()) {
      std::string url = isHttp(link) ? link : isHttp(enclosureUrl) ? enclosureUrl : "";
      if (!best || compareVersions(v, best->version) > 0) best = Release{v, url};
    }
    shortVersion.clear(), version.clear(), link.clear(), enclosureUrl.clear();
  }
};

void onStart(GMarkupParseContext*, const char* name, const char** names, const char** values,
             gpointer data, GError**) {
  auto* w = static_cast<Walk*>(data);
  w->stack.push_back(name);
  if (std::strcmp(name, "item") == 0) w->inItem = true;
  if (!w->inItem || std::strcmp(name, "enclosure") != 0) return;
  for (size_t i = 0; names[i]; ++i) {
    std::string_view attr = names[i];
    if (attr == "url") w->enclosureUrl = Text::trimWhitespace(values[i]);
    if (attr == "sparkle:version" && w->version.empty())
      w->version = Text::trimWhitespace(values[i]);
    if (attr == "sparkle:shortVersionString" && w->shortVersion.empty())
      w->shortVersion = Text::trimWhitespace(values[i]);
  }
}

void onEnd(GMarkupParseContext*, const char* name, gpointer data, GError**) {
  auto* w = static_cast<Walk*>(data);
  if (!w->stack.empty()) w->stack.pop_back();
  if (std::strcmp(name, "item") == 0 && w->inItem) {
    w->inItem = false;
    w->endItem();
  }
}

void onText(GMarkupParseContext*, const char* text, gsize size, gpointer data, GError**) {
  auto* w = static_cast<Walk*>(data);
  if (!w->inItem || w->stack.empty()) return;
  const std::string& el = w->stack.back();
  std::string value = Text::trimWhitespace(std::string_view(text, size));
  if (el == "sparkle:shortVersionString") w->shortVersion = value;
  if (el == "sparkle:version") w->version = value;
  if (el == "link") w->link = value;
}

}  // namespace

int compareVersions(std::string_view a, std::string_view b) {
  std::vector<Token> x = tokens(a), y = tokens(b);
  size_t n = std::min(x.size(), y.size());
  for (size_t i = 0; i < n; ++i)
    if (int c = compareTokens(x[i], y[i])) return c;
  const std::vector<Token>& longer = x.size() > y.size() ? x : y;
  int sign = x.size() > y.size() ? 1 : -1;
  for (size_t i = n; i < longer.size(); ++i) {
    if (!longer[i].number) return -sign;  // a pre-release of the shorter one
    if (!longer[i].text.empty()) return sign;
  }
  return 0;
}

std::optional<Release> newest(std::string_view appcast) {
  Walk walk;
  GMarkupParser parser{onStart, onEnd, onText, nullptr, nullptr};
  GMarkupParseContext* context =
      g_markup_parse_context_new(&parser, GMarkupParseFlags(0), &walk, nullptr);
  bool ok = g_markup_parse_context_parse(context, appcast.data(),
                                         static_cast<gssize>(appcast.size()), nullptr) &&
            g_markup_parse_context_end_parse(context, nullptr);
  g_markup_parse_context_free(context);
  if (!ok) return std::nullopt;
  return walk.best;
}

}  // namespace UpdateFeed

Updater::Updater(Loop& loop, Defaults& defaults, FeedFetcher& fetcher, std::string feedUrl,
                 std::string currentVersion)
    : loop_(loop),
      defaults_(defaults),
      fetcher_(fetcher),
      feedUrl_(std::move(feedUrl)),
      current_(std::move(currentVersion)),
      self_(std::make_shared<Updater*>(this)) {
  if (!enabled()) state_ = "off";
}

Updater::~Updater() {
  if (timer_) loop_.cancel(*timer_);
}

void Updater::start() {
  if (!enabled()) return;
  double last = static_cast<double>(defaults_.integer(kLastCheckKey, 0));
  double wait = std::max(last + kDay - loop_.wall(), kFirstDelay);
  // A clock set back makes the last check look far in the future: a day at most.
  schedule(std::min(wait, kDay));
}

void Updater::checkNow() {
  if (!enabled()) {
    changed();
    return;
  }
  if (timer_) loop_.cancel(*timer_);
  timer_.reset();
  attempt();
}

void Updater::schedule(double seconds) {
  if (timer_) loop_.cancel(*timer_);
  std::weak_ptr<Updater*> weak = self_;
  timer_ = loop_.after(seconds, [weak] {
    if (auto self = weak.lock()) {
      (*self)->timer_.reset();
      (*self)->attempt();
    }
  });
}

void Updater::attempt() {
  if (fetching_) return;
  if (busy()) {
    if (state_ != "waiting") g_message("Vantler update check: put off while a request waits");
    setState("waiting");
    schedule(kBusyRetry);
    return;
  }
  fetching_ = true;
  setState("checking");
  std::weak_ptr<Updater*> weak = self_;
  fetcher_.fetch(feedUrl_, [weak](FeedFetcher::Result result) {
    if (auto self = weak.lock()) (*self)->finished(result);
  });
}

void Updater::finished(const FeedFetcher::Result& result) {
  fetching_ = false;
  defaults_.set(kLastCheckKey, static_cast<int64_t>(loop_.wall()));
  schedule(kDay);
  std::optional<UpdateFeed::Release> release;
  if (result.ok) release = UpdateFeed::newest(result.body);
  if (!release) {
    std::string error = result.ok ? "the update feed has no version in it" : result.error;
    g_message("Vantler update check: %s", error.c_str());
    setState("failed", error);
    return;
  }
  bool newer = UpdateFeed::compareVersions(release->version, current_) > 0;
  newer_ = newer ? *release : UpdateFeed::Release{};
  g_message("Vantler update check: %s",
            newer ? (release->version + " is available").c_str() : "Vantler is up to date");
  setState(newer ? "newer" : "current");
}

void Updater::setState(std::string state, std::string error) {
  state_ = std::move(state);
  error_ = std::move(error);
  changed();
}

Json Updater::status() const {
  return {{"state", state_}, {"version", newer_.version}, {"link", newer_.link}, {"error", error_}};
}
