#pragma once
// The per-user folders, after the XDG conventions. An environment value counts only when it is
// an absolute path; otherwise the fallback under the home folder ($HOME, else the password
// database) applies.

#include <filesystem>
#include <string_view>

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
    // $XDG_DOWNLOAD_DIR, else its line in config()/user-dirs.dirs, else ~/Downloads.
    static std::filesystem::path downloads();

    // The folder that the XDG_DOWNLOAD_DIR line of a user-dirs.dirs text names ("$HOME/..." or
    // an absolute path, in double quotes), or an empty path.
    static std::filesystem::path downloadsFromUserDirs(std::string_view text, const std::filesystem::path& home);
};

}  // namespace havrel
