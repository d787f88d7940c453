#include "platform/UserFolders.hpp"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <pwd.h>
#include <unistd.h>

namespace havrel {

namespace {

std::filesystem::path absoluteFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        return {};
    }
    std::filesystem::path path(value);
    return path.is_absolute() ? path : std::filesystem::path{};
}

std::filesystem::path fromEnvironmentOrHome(const char* name, const char* fallback) {
    auto path = absoluteFromEnvironment(name);
    return path.empty() ? UserFolders::home() / fallback : path;
}

}  // namespace

std::filesystem::path UserFolders::home() {
    if (auto path = absoluteFromEnvironment("HOME"); !path.empty()) {
        return path;
    }
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir) {
        return entry->pw_dir;
    }
    return "/";
}

std::filesystem::path UserFolders::documents() {
    return fromEnvironmentOrHome("XDG_DOCUMENTS_DIR", "Documents");
}

std::filesystem::path UserFolders::caches() {
    return fromEnvironmentOrHome("XDG_CACHE_HOME", ".cache");
}

std::filesystem::path UserFolders::config() {
    return fromEnvironmentOrHome("XDG_CONFIG_HOME", ".config");
}

std::filesystem::path UserFolders::downloads() {
    if (auto path = absoluteFromEnvironment("XDG_DOWNLOAD_DIR"); !path.empty()) {
        return path;
    }
    // The file is the user's, and small; more than this is not read.
    constexpr std::size_t kMaximumRead = 64 * 1024;
    std::ifstream file(config() / "user-dirs.dirs", std::ios::binary);
    std::string text(kMaximumRead, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    if (auto path = downloadsFromUserDirs(text, home()); !path.empty()) {
        return path;
    }
    return home() / "Downloads";
}

std::filesystem::path UserFolders::downloadsFromUserDirs(std::string_view text, const std::filesystem::path& home) {
    constexpr std::string_view key = "XDG_DOWNLOAD_DIR=\"";
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            line.remove_prefix(1);
        }
        if (!line.starts_with(key)) {
            continue;
        }
        line.remove_prefix(key.size());
        const auto close = line.find('"');
        if (close == std::string_view::npos) {
            return {};
        }
        std::string_view value = line.substr(0, close);
        if (value.find('\0') != std::string_view::npos) {
            return {};
        }
        if (value == "$HOME") {
            return home;
        }
        if (value.starts_with("$HOME/")) {
            return home / std::string(value.substr(6));
        }
        std::filesystem::path path{std::string(value)};
        return path.is_absolute() ? path : std::filesystem::path{};
    }
    return {};
}

}  // namespace havrel
