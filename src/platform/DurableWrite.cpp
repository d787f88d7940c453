#include "platform/DurableWrite.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace havrel {

namespace {

std::string errorText(const char* what) {
    return fmt::format("{}: {}", what, std::strerror(errno));
}

}  // namespace

std::optional<std::string> writeDurablyAndClose(int fd, std::span<const std::uint8_t> bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            const std::string error = n < 0 ? std::strerror(errno) : "short write";
            ::close(fd);
            return error;
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0) {
        const std::string error = std::strerror(errno);
        ::close(fd);
        return error;
    }
    if (::close(fd) != 0) {
        return std::strerror(errno);
    }
    return std::nullopt;
}

std::optional<std::string> replaceFileAtomically(const std::filesystem::path& file, std::string_view bytes) {
    const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return "cannot create " + folder.string() + ": " + error.message();
    }
    std::string temporary = (folder / ("." + file.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return errorText("cannot create a file");
    }
    if (auto failure = writeDurablyAndClose(fd, std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()))) {
        ::unlink(temporary.c_str());
        return *failure;
    }
    if (::rename(temporary.c_str(), file.c_str()) != 0) {
        const auto failure = errorText("cannot rename");
        ::unlink(temporary.c_str());
        return failure;
    }
    return std::nullopt;
}

NewFile writeNewFile(const std::filesystem::path& location, std::span<const std::uint8_t> bytes, int maximumNames) {
    const std::filesystem::path folder = location.has_parent_path() ? location.parent_path() : ".";
    const std::filesystem::path name = location.filename();
    if (name.empty() || name == "." || name == "..") {
        return {std::nullopt, "no file name"};
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return {std::nullopt, "cannot create " + folder.string() + ": " + error.message()};
    }
    std::string temporary = (folder / ".havrel-new-file-XXXXXX").string();
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return {std::nullopt, errorText("cannot create a file")};
    }
    if (auto failure = writeDurablyAndClose(fd, bytes)) {
        ::unlink(temporary.c_str());
        return {std::nullopt, "cannot write: " + *failure};
    }
    const std::string stem = name.stem().string();
    const std::string extension = name.extension().string();
    for (int attempt = 1; attempt <= maximumNames; ++attempt) {
        const auto candidate =
            folder / (attempt == 1 ? name.string() : fmt::format("{} ({}){}", stem, attempt, extension));
        if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, candidate.c_str(), RENAME_NOREPLACE) == 0) {
            return {candidate, {}};
        }
        if (errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) {
            // A file system that cannot rename without replacing: a hard link fails the same way
            // on a taken name.
            if (::link(temporary.c_str(), candidate.c_str()) == 0) {
                ::unlink(temporary.c_str());
                return {candidate, {}};
            }
        }
        if (errno != EEXIST) {
            NewFile failed{std::nullopt, errorText("cannot name the file")};
            ::unlink(temporary.c_str());
            return failed;
        }
    }
    ::unlink(temporary.c_str());
    return {std::nullopt, fmt::format("no free name for {} after {} tries", name.string(), maximumNames)};
}

}  // namespace havrel
