#pragma once
// The desktop's notification server (org.freedesktop.Notifications on the session bus),
// through GDBus. Calls are asynchronous; a notice withdrawn before the server gave it an id is
// closed as soon as the id comes.

#include <gio/gio.h>

#include <map>
#include <memory>
#include <string>

#include "app/panel_notices.h"

class LinuxNotifications final : public NoticeServer {
 public:
  LinuxNotifications();
  ~LinuxNotifications() override;
  LinuxNotifications(const LinuxNotifications&) = delete;
  LinuxNotifications& operator=(const LinuxNotifications&) = delete;

  bool hasActions() const override { return actions_; }
  void show(const std::string& key, const Notice& notice) override;
  void withdraw(const std::string& key) override;

 private:
  void signal(const char* name, GVariant* parameters);
  void close(uint32_t id);
  std::string keyOf(uint32_t id) const;

  GDBusConnection* bus_ = nullptr;
  guint subscription_ = 0;
  bool actions_ = false;
  std::map<std::string, uint32_t> ids_;  // by key; 0 until the server answers
  std::shared_ptr<LinuxNotifications*> self_;
};
