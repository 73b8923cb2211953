#pragma once
// Connections that follow the snapshot ({"_command": {"type": "subscribe"}}, what
// `vantler status --follow` sends): each gets the snapshot at once and again after every change
// of the hub, as one line of compact JSON, at most one line every kSpacing seconds however
// often the hub changes. A subscriber that has not yet taken its previous line gets none on top
// of it, only the newest snapshot once it has; one that takes nothing for kSlowLimit seconds
// is dropped, as is every connection beyond kMax.

#include <optional>
#include <unordered_map>

#include "bridge/router.h"

class Subscribers {
 public:
  static constexpr size_t kMax = 32;
  static constexpr double kSpacing = 0.05;
  static constexpr double kSlowLimit = 10.0;

  Subscribers(Hub& hub, Router::Transport& transport);
  ~Subscribers();
  Subscribers(const Subscribers&) = delete;
  Subscribers& operator=(const Subscribers&) = delete;

  // Sends the snapshot now and follows the hub; false when kMax connections already follow.
  bool add(Router::ConnId conn);
  void remove(Router::ConnId conn);
  size_t size() const { return subscribers_.size(); }

 private:
  struct Subscriber {
    bool due = true;                    // a snapshot newer than the last one sent is waiting
    std::optional<double> behindSince;  // uptime at which it was first found not reading
  };

  // Marks everyone due and publishes as soon as the spacing allows.
  void changed();
  void schedule(double delay);
  void publish();

  Hub& hub_;
  Router::Transport& transport_;
  std::unordered_map<Router::ConnId, Subscriber> subscribers_;
  Hub::Listener listener_;
  std::optional<Loop::TaskId> task_;
  double lastPublished_ = -1e9;
};
