#pragma once
// HTTP POST requests to local model servers, made with libcurl on a thread of their own so
// the loop never waits; the answer comes back on the loop. Every request has a deadline and
// every answer a size cap.

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "voice/linux_handoff.h"

struct HttpRequest {
  struct Part {
    std::string name;
    std::string data;
    std::string filename;  // set for a file upload
    std::string type;      // its content type
  };
  std::string url;
  std::vector<std::string> headers;  // "Name: value"
  std::string body;                  // sent as application/json when `form` is empty
  std::vector<Part> form;            // multipart/form-data
  double timeout = 10;               // seconds, connection included
};

struct HttpResponse {
  long status = 0;    // 0 when no answer came (refused, timed out, cut off)
  std::string body;   // at most kMaxBody bytes
  std::string error;  // why no answer came
  bool ok() const { return status >= 200 && status < 300; }
};

class HttpClient {
 public:
  static constexpr size_t kMaxBody = 1 << 20;

  explicit HttpClient(GMainContext* context = nullptr);
  // Abandons requests still running without waiting for them; their callbacks never come.
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  using Done = std::function<void(const HttpResponse&)>;
  void post(HttpRequest request, Done done);
  size_t running() const { return threads_.size(); }

 private:
  Handoff handoff_;
  std::shared_ptr<std::atomic<bool>> abort_;
  uint64_t next_ = 1;
  std::map<uint64_t, std::thread> threads_;
};
