#pragma once
// Desktop notifications for requests the user cannot see (a setting, off by default). When a
// permission request or a question arrives while the panel is out of sight (its screen shows
// a full-screen window, or the pointer is on another screen), one notification is sent whose
// buttons are the request's answers: Allow, Deny, and "Always allow" where the agent offers a
// standing rule. Choosing one answers exactly that request; once it is settled anywhere else
// the notification is withdrawn. A notification server without buttons gets a notification
// that only opens the panel.

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "core/defaults.h"
#include "core/hub.h"

// The desktop's notification server, addressed by our own keys.
class NoticeServer {
 public:
  struct Notice {
    std::string title;
    std::string body;
    // (action key, label); "default" is the click on the notification itself.
    std::vector<std::pair<std::string, std::string>> actions;
  };
  virtual ~NoticeServer() = default;
  // Whether the server shows buttons (the "actions" capability).
  virtual bool hasActions() const = 0;
  virtual void show(const std::string& key, const Notice& notice) = 0;
  virtual void withdraw(const std::string& key) = 0;

  // Set by the user of the server: a button (or the notification) was chosen.
  std::function<void(const std::string& key, const std::string& action)> onAction;
  // The server closed it (expired, dismissed by the user).
  std::function<void(const std::string& key)> onClosed;
};

class AnswerNotices {
 public:
  AnswerNotices(Hub& hub, Defaults& defaults, NoticeServer& server,
                std::function<bool()> outOfSight, std::function<void()> openPanel);
  ~AnswerNotices();
  AnswerNotices(const AnswerNotices&) = delete;
  AnswerNotices& operator=(const AnswerNotices&) = delete;

  // Brings the notifications in line with the open requests; run after every change.
  void update();

  size_t shown() const { return shown_.size(); }

 private:
  struct Shown {
    std::string session;
    std::string request;
  };
  void chosen(const std::string& key, const std::string& action);
  NoticeServer::Notice noticeFor(const Session& session) const;

  Hub& hub_;
  Defaults& defaults_;
  NoticeServer& server_;
  std::function<bool()> outOfSight_;
  std::function<void()> openPanel_;
  std::map<std::string, Shown> shown_;  // by notice key
};
