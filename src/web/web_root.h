#pragma once
// Where the panel page comes from and how its files are served under vantler://app/: the
// search for the page's directory, the mapping of a request path onto a file inside it, and
// the content type by extension. No window-system code: the web stage calls these.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace WebRoot {

// The scheme and host every page file is served under; the page is "vantler://app/index.html".
inline constexpr const char* kScheme = "vantler";
inline constexpr const char* kHost = "app";
inline constexpr const char* kIndexUri = "vantler://app/index.html";
// The largest page file served; anything bigger is refused.
inline constexpr size_t kMaxFileBytes = 32u << 20;

// Shown when no directory holds the page.
extern const char* const kFallbackPage;

// Content type by the path's extension, compared exactly ("application/octet-stream" when
// unknown or absent).
std::string mimeType(std::string_view path);

// Directories that may hold the page, in the order they are tried: $VANTLER_WEB_DIR (when
// set), the installed share directory beside the executable's directory, the build tree's
// copy beside the executable, and web/dist under the working directory.
std::vector<std::string> candidates(const char* webDirEnv, const std::string& executableDir,
                                    const std::string& workingDir);

// The canonical path of the first candidate holding a regular file "index.html".
std::optional<std::string> find(const std::vector<std::string>& dirs);

// The canonical path of the regular file a request path names below `root` (itself
// canonical), or nothing when the path is malformed, missing, not a regular file, or leaves
// the root (through ".." or a symbolic link pointing outside).
std::optional<std::string> resolve(const std::string& root, std::string_view requestPath);

// The file's bytes, or nothing when it is not a regular file or larger than kMaxFileBytes.
std::optional<std::string> readFile(const std::string& path);

}  // namespace WebRoot
