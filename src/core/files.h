#pragma once
// File-system helpers shared by every component that reads or writes the user's files.

#include <optional>
#include <string>
#include <string_view>

namespace Files {

// $HOME, or the password database's home directory when HOME is unset or empty.
std::string home();
// The environment variable's value, or "" when it is not set.
std::string environment(const char* name);
// $XDG_CONFIG_HOME when it is an absolute path, else home() + "/.config".
std::string configHome();

// The whole file, or nothing when it cannot be read.
std::optional<std::string> read(const std::string& path);
bool exists(const std::string& path);

// Creates the directory and its parents; true when it exists afterwards.
bool makeDirs(const std::string& path, unsigned mode = 0755);

// Replaces the file's contents all at once: the bytes go to a temporary file in the same
// directory, which is flushed to disk and renamed over the target, so a reader sees either
// the old file or the new one, never a half-written one. Parent directories are created.
// The new file gets `mode`, or the old file's mode when it existed. Returns an error message,
// or nothing on success.
std::optional<std::string> writeAtomic(const std::string& path, std::string_view bytes,
                                       std::optional<unsigned> mode = std::nullopt);

std::string parent(std::string_view path);

// The running executable's path, without the " (deleted)" the kernel adds once a package
// upgrade has replaced the file; empty when it cannot be read.
std::string executable();

}  // namespace Files
