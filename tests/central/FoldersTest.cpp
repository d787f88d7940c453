#include "central/HVFileManagerFolders.hpp"
#include "platform/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

namespace havrel {
namespace {

namespace fs = std::filesystem;

class Folders : public ::testing::Test {
protected:
    void TearDown() override {
        ::unsetenv("XDG_DOCUMENTS_DIR");
        ::unsetenv("XDG_CACHE_HOME");
    }
    testing::TemporaryFolder temporary_;
    const fs::path root_ = temporary_.path();
};

TEST_F(Folders, DocumentsAreKeptCachesAreLookedUpEachTime) {
    ::setenv("XDG_DOCUMENTS_DIR", (root_ / "docs").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (root_ / "cache-1").c_str(), 1);
    EXPECT_EQ(localDocumentsDirectoryURL(), root_ / "docs");
    EXPECT_EQ(arrangmentsURL(), root_ / "docs" / "Arrangements");
    EXPECT_EQ(macrosURL(), root_ / "docs" / "Macros");
    EXPECT_FALSE(fs::exists(arrangmentsURL()));
    EXPECT_EQ(cachesURL(), root_ / "cache-1");

    ::setenv("XDG_DOCUMENTS_DIR", (root_ / "elsewhere").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", (root_ / "cache-2").c_str(), 1);
    EXPECT_EQ(localDocumentsDirectoryURL(), root_ / "docs");
    EXPECT_EQ(cachesURL(), root_ / "cache-2");
}

TEST_F(Folders, CreatingAndRecognisingFolders) {
    const fs::path nested = root_ / "a" / "b" / "c";
    EXPECT_TRUE(checkForDictionaryAndCreateIfNeeded(nested));
    EXPECT_TRUE(fs::is_directory(nested));
    EXPECT_TRUE(checkForDictionaryAndCreateIfNeeded(nested));

    const fs::path file = root_ / "plain";
    std::ofstream(file) << "x";
    EXPECT_FALSE(checkForDictionaryAndCreateIfNeeded(file));
    EXPECT_FALSE(checkForDictionaryAndCreateIfNeeded(file / "below"));

    EXPECT_FALSE(isNotDirectoryAtURL(nested));
    EXPECT_TRUE(isNotDirectoryAtURL(file));
    EXPECT_TRUE(isNotDirectoryAtURL(root_ / "missing"));
    fs::create_directory_symlink(nested, root_ / "link");
    EXPECT_TRUE(isNotDirectoryAtURL(root_ / "link"));
}

}  // namespace
}  // namespace havrel
