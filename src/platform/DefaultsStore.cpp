#include "platform/DefaultsStore.hpp"

#include "platform/DurableWrite.hpp"
#include "platform/Log.hpp"
#include "platform/SharedSlot.hpp"
#include "platform/UserFolders.hpp"

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <system_error>
#include <fcntl.h>
#include <unistd.h>

namespace havrel {

namespace {

SharedSlot<DefaultsStore>& standardSlot() {
    static SharedSlot<DefaultsStore> slot(
        [] { return std::make_shared<DefaultsStore>(DefaultsStore::standardFile()); });
    return slot;
}

// Writes all bytes to a new file and flushes them to the disk; an error text on failure.
std::optional<std::string> writeDurably(const std::filesystem::path& path,
                                        const std::string& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        return std::strerror(errno);
    }
    return writeDurablyAndClose(fd, std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

}  // namespace

DefaultsStore::DefaultsStore(std::filesystem::path file) : file_(std::move(file)) {
    load();
}

std::filesystem::path DefaultsStore::standardFile() {
    return UserFolders::config() / "havrel" / "defaults.json";
}

std::shared_ptr<DefaultsStore> DefaultsStore::standard() {
    return standardSlot().get();
}

void DefaultsStore::setStandard(std::shared_ptr<DefaultsStore> store) {
    standardSlot().set(std::move(store));
}

void DefaultsStore::load() {
    std::error_code error;
    const auto size = std::filesystem::file_size(file_, error);
    if (error) {
        if (error == std::errc::no_such_file_or_directory) {
            logf("defaults: no file at {}, starting empty", file_.string());
        } else {
            logf("defaults: cannot read {} ({}), starting empty", file_.string(), error.message());
        }
        return;
    }
    if (size > kMaximumFileSize) {
        logf("defaults: {} is larger than {} bytes, starting empty", file_.string(),
             kMaximumFileSize);
        return;
    }
    std::ifstream in(file_, std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    if (!in.good() && !in.eof()) {
        logf("defaults: cannot read {}, starting empty", file_.string());
        return;
    }
    // Nesting is bounded: writing the file back walks it recursively.
    bool tooDeep = false;
    auto parsed = nlohmann::json::parse(
        bytes,
        [&tooDeep](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
            tooDeep = tooDeep || depth > kMaximumDepth;
            return !tooDeep;
        },
        false);
    if (tooDeep) {
        logf("defaults: {} is nested deeper than {} levels, starting empty", file_.string(),
             kMaximumDepth);
        return;
    }
    if (parsed.is_discarded() || !parsed.is_object()) {
        logf("defaults: {} is not a JSON object, starting empty", file_.string());
        return;
    }
    values_ = std::move(parsed);
}

bool DefaultsStore::write() const {
    std::error_code error;
    std::filesystem::create_directories(file_.parent_path(), error);
    if (error) {
        logf("defaults: cannot write {}: {}", file_.string(), error.message());
        return false;
    }
    static std::atomic<unsigned> counter{0};
    auto temporary = file_;
    temporary += fmt::format(".{}.{}.tmp", ::getpid(), counter++);
    if (auto failure = writeDurably(temporary, values_.dump(2) + "\n")) {
        std::filesystem::remove(temporary, error);
        logf("defaults: cannot write {}: {}", file_.string(), *failure);
        return false;
    }
    std::filesystem::rename(temporary, file_, error);
    if (error) {
        std::filesystem::remove(temporary, error);
        logf("defaults: cannot write {}: {}", file_.string(), error.message());
        return false;
    }
    return true;
}

std::optional<nlohmann::json> DefaultsStore::get(const std::string& key) const {
    std::lock_guard lock(mutex_);
    auto found = values_.find(key);
    if (found == values_.end()) {
        return std::nullopt;
    }
    return *found;
}

bool DefaultsStore::contains(const std::string& key) const {
    std::lock_guard lock(mutex_);
    return values_.contains(key);
}

bool DefaultsStore::set(const std::string& key, nlohmann::json value) {
    std::lock_guard lock(mutex_);
    values_[key] = std::move(value);
    return write();
}

bool DefaultsStore::remove(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (values_.erase(key) == 0) {
        return true;
    }
    return write();
}

std::optional<std::int64_t> DefaultsStore::integer(const std::string& key) const {
    auto value = get(key);
    if (!value) {
        return std::nullopt;
    }
    if (value->is_number_integer() && !value->is_number_unsigned()) {
        return value->get<std::int64_t>();
    }
    if (value->is_number_unsigned()) {
        const auto number = value->get<std::uint64_t>();
        if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return static_cast<std::int64_t>(number);
        }
        return std::nullopt;
    }
    if (value->is_number_float()) {
        const double number = value->get<double>();
        // 2^63 is exactly representable; anything below it with no fraction fits.
        if (std::isfinite(number) && std::trunc(number) == number && number >= -0x1p63 &&
            number < 0x1p63) {
            return static_cast<std::int64_t>(number);
        }
    }
    return std::nullopt;
}

std::optional<std::string> DefaultsStore::string(const std::string& key) const {
    auto value = get(key);
    if (value && value->is_string()) {
        return value->get<std::string>();
    }
    return std::nullopt;
}

}  // namespace havrel
