#include "voice/linux_secret_store.h"

#include <libsecret/secret.h>

namespace SecretStore {
namespace {

const SecretSchema* schema() {
  static const SecretSchema s = {
      "app.vantler.ModelServerKey",
      SECRET_SCHEMA_NONE,
      {{"server", SECRET_SCHEMA_ATTRIBUTE_STRING}, {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
      0,
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      nullptr,
      nullptr};
  return &s;
}

template <typename Done>
gpointer box(Done done) {
  return new Done(std::move(done));
}

template <typename Done>
Done unbox(gpointer data) {
  auto* p = static_cast<Done*>(data);
  Done done = std::move(*p);
  delete p;
  return done;
}

using Found = std::function<void(std::string)>;
using Stored = std::function<void(bool)>;

}  // namespace

void lookup(const std::string& server, Found done) {
  secret_password_lookup(
      schema(), nullptr,
      +[](GObject*, GAsyncResult* result, gpointer data) {
        Found done = unbox<Found>(data);
        GError* error = nullptr;
        gchar* key = secret_password_lookup_finish(result, &error);
        if (error) g_error_free(error);
        std::string value = key ? key : "";
        if (key) secret_password_free(key);
        done(value);
      },
      box(std::move(done)), "server", server.c_str(), nullptr);
}

void store(const std::string& server, const std::string& key, Stored done) {
  auto finished = +[](GObject*, GAsyncResult* result, gpointer data) {
    Stored done = unbox<Stored>(data);
    GError* error = nullptr;
    gboolean ok = secret_password_store_finish(result, &error);
    if (error) g_error_free(error);
    done(ok);
  };
  std::string label = "Vantler: API key for " + server;
  if (key.empty()) {
    secret_password_clear(
        schema(), nullptr,
        +[](GObject*, GAsyncResult* result, gpointer data) {
          Stored done = unbox<Stored>(data);
          GError* error = nullptr;
          secret_password_clear_finish(result, &error);
          bool ok = !error;
          if (error) g_error_free(error);
          done(ok);
        },
        box(std::move(done)), "server", server.c_str(), nullptr);
    return;
  }
  secret_password_store(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), key.c_str(), nullptr,
                        finished, box(std::move(done)), "server", server.c_str(), nullptr);
}

}  // namespace SecretStore
