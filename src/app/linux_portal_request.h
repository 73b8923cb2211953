#pragma once
// Calls to desktop portal methods that answer later, through the Response signal of a Request
// object (the portal's pattern for anything that may ask the user).

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

class PortalRequests {
 public:
  enum class Why { cancelled, refused, missing, failed };
  struct Failure {
    Why why;
    std::string message;  // the D-Bus error, for `missing` and `failed`
  };

  // `interface` of the portal object, e.g. "org.freedesktop.portal.RemoteDesktop".
  PortalRequests(GDBusConnection* bus, const char* interface);
  PortalRequests(const PortalRequests&) = delete;
  PortalRequests& operator=(const PortalRequests&) = delete;

  // Calls `method`: `parameters` builds its arguments around the options dictionary, which
  // carries the request's token. `done` gets the results of a success, `failed` the reason
  // otherwise; neither is called after `drop` or once this object is gone.
  void call(const char* method, std::function<GVariant*(GVariant* options)> parameters,
            std::function<void(GVariant* results)> done,
            std::function<void(const Failure&)> failed);
  // CreateSession: `done` gets the new session's handle, empty when the desktop named none.
  void createSession(std::function<void(const std::string& session)> done,
                     std::function<void(const Failure&)> failed);
  // Answers to the requests made so far are ignored.
  void drop() { ++generation_; }
  // A token unique in this connection, for handles the caller names itself.
  std::string token() { return "vantler" + std::to_string(++tokens_); }

  // `options` (floating or owned, consumed) with more entries added by `add`.
  static GVariant* extend(GVariant* options, const std::function<void(GVariantBuilder&)>& add);

 private:
  struct Call;

  GDBusConnection* bus_;
  const char* interface_;
  unsigned tokens_ = 0;
  unsigned generation_ = 0;
  std::shared_ptr<PortalRequests*> self_;
};
