#include "platform/UserFolders.hpp"

#include <cstdlib>
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

}  // namespace havrel
