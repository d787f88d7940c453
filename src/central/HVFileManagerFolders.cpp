#include "central/HVFileManagerFolders.hpp"

#include "platform/UserFolders.hpp"

#include <system_error>

namespace havrel {

const std::filesystem::path& localDocumentsDirectoryURL() {
    static const std::filesystem::path documents = UserFolders::documents();
    return documents;
}

std::filesystem::path cachesURL() {
    return UserFolders::caches();
}

std::filesystem::path arrangmentsURL() {
    return localDocumentsDirectoryURL() / "Arrangements";
}

std::filesystem::path macrosURL() {
    return localDocumentsDirectoryURL() / "Macros";
}

bool checkForDictionaryAndCreateIfNeeded(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::directory_iterator listing(folder, error);
    if (!error) {
        return true;
    }
    error.clear();
    std::filesystem::create_directories(folder, error);
    return !error;
}

bool isNotDirectoryAtURL(const std::filesystem::path& item) {
    std::error_code error;
    return std::filesystem::symlink_status(item, error).type() != std::filesystem::file_type::directory;
}

}  // namespace havrel
