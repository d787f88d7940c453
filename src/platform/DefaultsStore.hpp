#pragma once
// The user-defaults store: JSON values by key, kept in one JSON object file and rewritten
// atomically (a temporary file beside it, then a rename) on every change, so a crash leaves the
// old or the new file, never half of one. A missing, unreadable, oversized or corrupt file
// starts the store empty with one log line. Thread-safe.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace havrel {

class DefaultsStore {
public:
    // Files larger than this are refused as corrupt.
    static constexpr std::uintmax_t kMaximumFileSize = 16u * 1024 * 1024;
    // Files nested deeper than this are refused as corrupt.
    static constexpr int kMaximumDepth = 256;

    // Reads the file now; writes create its folder when needed.
    explicit DefaultsStore(std::filesystem::path file);

    // The process's store, at UserFolders::config()/havrel/defaults.json, made on first use.
    static std::shared_ptr<DefaultsStore> standard();
    // Replaces the process's store (tests point it at a temporary folder); nullptr makes the
    // next standard() read the file named by the environment again.
    static void setStandard(std::shared_ptr<DefaultsStore> store);
    static std::filesystem::path standardFile();

    std::optional<nlohmann::json> get(const std::string& key) const;
    // Stores the value and writes the file. Returns false (after a log line) when the file
    // could not be written; the value is kept in memory all the same.
    bool set(const std::string& key, nlohmann::json value);
    bool remove(const std::string& key);
    bool contains(const std::string& key) const;

    // The value as an integer (numbers with no fraction that fit 64 bits) or a string.
    std::optional<std::int64_t> integer(const std::string& key) const;
    std::optional<std::string> string(const std::string& key) const;

    const std::filesystem::path& file() const { return file_; }

private:
    void load();
    bool write() const;  // with the mutex held

    const std::filesystem::path file_;
    mutable std::mutex mutex_;
    nlohmann::json values_ = nlohmann::json::object();
};

}  // namespace havrel
