#pragma once
// API keys for model servers, kept in the desktop's secret store (the Secret Service: GNOME
// Keyring, KWallet) under the server's address, never in the defaults file. The calls go
// over D-Bus asynchronously; results come back on the thread-default main context.

#include <functional>
#include <string>

namespace SecretStore {

// The key stored for `server`, or "" when there is none or the store cannot be reached.
void lookup(const std::string& server, std::function<void(std::string key)> done);
// Stores (or, for an empty key, removes) the key for `server`; `done` says whether it worked.
void store(const std::string& server, const std::string& key, std::function<void(bool)> done);

}  // namespace SecretStore
