#include "voice/linux_http.h"

#include <curl/curl.h>

namespace {

struct Transfer {
  std::string body;
  bool tooLong = false;
  std::shared_ptr<std::atomic<bool>> abort;
};

size_t received(char* data, size_t size, size_t count, void* user) {
  auto* t = static_cast<Transfer*>(user);
  size_t n = size * count;
  if (t->body.size() + n > HttpClient::kMaxBody) {
    t->tooLong = true;
    return 0;
  }
  t->body.append(data, n);
  return n;
}

int progress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<Transfer*>(user)->abort->load() ? 1 : 0;
}

HttpResponse perform(const HttpRequest& request, std::shared_ptr<std::atomic<bool>> abort) {
  static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  HttpResponse response;
  CURL* curl = initialised ? curl_easy_init() : nullptr;
  if (!curl) {
    response.error = "no HTTP client";
    return response;
  }
  Transfer transfer{{}, false, std::move(abort)};
  curl_slist* headers = nullptr;
  for (const auto& h : request.headers) headers = curl_slist_append(headers, h.c_str());
  curl_mime* mime = nullptr;
  if (request.form.empty()) {
    headers = curl_slist_append(headers, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.c_str());
  } else {
    mime = curl_mime_init(curl);
    for (const auto& p : request.form) {
      curl_mimepart* part = curl_mime_addpart(mime);
      curl_mime_name(part, p.name.c_str());
      curl_mime_data(part, p.data.data(), p.data.size());
      if (!p.filename.empty()) curl_mime_filename(part, p.filename.c_str());
      if (!p.type.empty()) curl_mime_type(part, p.type.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, mime);
  }
  curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout * 1000));
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, received);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, progress);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
  CURLcode code = curl_easy_perform(curl);
  if (code == CURLE_OK) {
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
    response.body = std::move(transfer.body);
  } else {
    response.error = transfer.tooLong ? "answer too long" : curl_easy_strerror(code);
  }
  curl_mime_free(mime);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return response;
}

}  // namespace

HttpClient::HttpClient(GMainContext* context)
    : handoff_(context), abort_(std::make_shared<std::atomic<bool>>(false)) {}

HttpClient::~HttpClient() {
  // A request still running ends at its next progress check; its thread needs nothing from
  // this client by then, and its answer is dropped with the Handoff.
  abort_->store(true);
  for (auto& [id, thread] : threads_) thread.detach();
}

void HttpClient::post(HttpRequest request, Done done) {
  uint64_t id = next_++;
  Handoff::Sender send = handoff_.sender();
  // The thread itself touches nothing of this client: only the task it sends back does.
  threads_.emplace(id, std::thread([this, id, send, abort = abort_, request = std::move(request),
                                    done = std::move(done)] {
                     HttpResponse response = perform(request, abort);
                     // Runs only while this client lives (the Handoff is one of its members).
                     send([this, id, done, response = std::move(response)] {
                       auto node = threads_.extract(id);
                       if (node) node.mapped().join();
                       done(response);
                     });
                   }));
}
