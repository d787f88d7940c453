#pragma once
// The per-user folders, after the XDG conventions. An environment value counts only when it is
// an absolute path; otherwise the fallback under the home folder ($HOME, else the password
// database) applies.

#include <filesystem>

namespace havrel {

class UserFolders {
public:
    static std::filesystem::path home();
    // $XDG_DOCUMENTS_DIR, else ~/Documents.
    static std::filesystem::path documents();
    // $XDG_CACHE_HOME, else ~/.cache.
    static std::filesystem::path caches();
    // $XDG_CONFIG_HOME, else ~/.config.
    static std::filesystem::path config();
};

}  // namespace havrel
