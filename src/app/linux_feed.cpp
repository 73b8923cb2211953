#include "app/linux_feed.h"

#include <curl/curl.h>

#include <mutex>

#include "version.h"

namespace {

struct Job {
  std::string url;
  std::function<void(FeedFetcher::Result)> done;
  FeedFetcher::Result result;
  GCancellable* cancellable;
  bool tooBig = false;
};

size_t received(char* data, size_t size, size_t count, void* user) {
  auto* job = static_cast<Job*>(user);
  size_t bytes = size * count;
  if (job->result.body.size() + bytes > CurlFeedFetcher::kMaxBytes) {
    job->tooBig = true;
    return 0;  // curl stops with a write error
  }
  job->result.body.append(data, bytes);
  return bytes;
}

int progress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return g_cancellable_is_cancelled(static_cast<Job*>(user)->cancellable) ? 1 : 0;
}

// Runs on a worker thread: touches nothing but the job.
void work(GTask* task, gpointer, gpointer data, GCancellable*) {
  auto* job = static_cast<Job*>(data);
  CURL* curl = curl_easy_init();
  if (!curl) {
    job->result.error = "libcurl could not start";
    g_task_return_boolean(task, TRUE);
    return;
  }
  const std::string agent = std::string("Vantler/") + Version::kVersion;
  curl_easy_setopt(curl, CURLOPT_URL, job->url.c_str());
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 3L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, CurlFeedFetcher::kTimeoutSeconds);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_USERAGENT, agent.c_str());
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, received);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, job);
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, progress);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, job);
  CURLcode code = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(curl);
  if (job->tooBig)
    job->result.error = "the update feed is larger than 1 MiB";
  else if (code != CURLE_OK)
    job->result.error =
        std::string("the update feed could not be read: ") + curl_easy_strerror(code);
  else if (status >= 400)
    job->result.error = "the update feed answered HTTP " + std::to_string(status);
  else
    job->result.ok = true;
  if (!job->result.ok) job->result.body.clear();
  g_task_return_boolean(task, TRUE);
}

}  // namespace

CurlFeedFetcher::CurlFeedFetcher() : cancellable_(g_cancellable_new()) {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

CurlFeedFetcher::~CurlFeedFetcher() {
  g_cancellable_cancel(cancellable_);
  g_object_unref(cancellable_);
}

void CurlFeedFetcher::fetch(const std::string& url, std::function<void(Result)> done) {
  auto* job = new Job{url, std::move(done), {}, G_CANCELLABLE(g_object_ref(cancellable_))};
  GTask* task = g_task_new(
      nullptr, nullptr,
      +[](GObject*, GAsyncResult* result, gpointer) {
        auto* job = static_cast<Job*>(g_task_get_task_data(G_TASK(result)));
        if (!g_cancellable_is_cancelled(job->cancellable)) job->done(std::move(job->result));
      },
      nullptr);
  g_task_set_task_data(
      task, job, +[](gpointer data) {
        auto* job = static_cast<Job*>(data);
        g_object_unref(job->cancellable);
        delete job;
      });
  g_task_run_in_thread(task, work);
  g_object_unref(task);
}
