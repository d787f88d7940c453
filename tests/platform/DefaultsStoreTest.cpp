#include "platform/DefaultsStore.hpp"
#include "platform/Log.hpp"
#include "platform/UserFolders.hpp"

#include "platform/TemporaryFolder.hpp"  // tests/platform

#include <gtest/gtest.h>

#include <fstream>

namespace havrel {
namespace {

using havrel::testing::ScopedEnvironment;
using havrel::testing::TemporaryFolder;

void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

TEST(DefaultsStore, ValuesSurviveARestartAndFilesAreReplacedWhole) {
    TemporaryFolder folder;
    const auto file = folder.path() / "config" / "havrel" / "defaults.json";
    {
        ScopedLogCapture log;
        DefaultsStore store(file);
        EXPECT_EQ(log.lines().size(), 1u);  // no file yet: empty, one line
        EXPECT_FALSE(store.get("input").has_value());
        EXPECT_TRUE(store.set("input", 123456789));
        EXPECT_TRUE(store.set("com.havrelapps.handoff.lastConnectedAt", 1700000000.5));
        EXPECT_TRUE(store.set("name", "Havrel"));
        EXPECT_TRUE(store.set("gone", nlohmann::json::array({1, 2})));
        EXPECT_TRUE(store.remove("gone"));
        EXPECT_TRUE(store.remove("never there"));
    }
    // Only the file itself is left: the temporary files were renamed over it.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()),
                            std::filesystem::directory_iterator()),
              1);

    ScopedLogCapture log;
    DefaultsStore reopened(file);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(reopened.integer("input"), 123456789);
    EXPECT_EQ(reopened.get("com.havrelapps.handoff.lastConnectedAt"), 1700000000.5);
    EXPECT_EQ(reopened.string("name"), "Havrel");
    EXPECT_FALSE(reopened.contains("gone"));

    // Conveniences answer only for values of their kind.
    EXPECT_FALSE(reopened.integer("name").has_value());
    EXPECT_FALSE(reopened.integer("com.havrelapps.handoff.lastConnectedAt").has_value());
    EXPECT_FALSE(reopened.string("input").has_value());
    reopened.set("whole", 42.0);
    reopened.set("huge", 18446744073709551615u);
    reopened.set("negative", -5);
    EXPECT_EQ(reopened.integer("whole"), 42);
    EXPECT_FALSE(reopened.integer("huge").has_value());
    EXPECT_EQ(reopened.integer("negative"), -5);
}

TEST(DefaultsStore, CorruptFilesStartEmptyWithOneLogLineAndAreReplacedOnTheNextWrite) {
    TemporaryFolder folder;
    const auto file = folder.path() / "defaults.json";
    std::string deep = "{\"a\":" + std::string(5000, '[') + std::string(5000, ']') + "}";
    for (const std::string& bytes :
         {std::string("{\"input\": 12"), std::string("[1, 2, 3]"), std::string("\"text\""),
          std::string("\xff\xfe\x00garbage", 10), std::string(), deep}) {
        writeFile(file, bytes);
        ScopedLogCapture log;
        DefaultsStore store(file);
        EXPECT_EQ(log.lines().size(), 1u) << bytes.substr(0, 20);
        EXPECT_FALSE(store.contains("input"));
    }

    DefaultsStore store(file);
    ASSERT_TRUE(store.set("output", 7));
    EXPECT_EQ(DefaultsStore(file).integer("output"), 7);

    // An unwritable place keeps the value in memory and says so once.
    writeFile(folder.path() / "blocker", "a file where a folder should be");
    ScopedLogCapture log;
    DefaultsStore blocked(folder.path() / "blocker" / "defaults.json");
    log.clear();
    EXPECT_FALSE(blocked.set("input", 1));
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(blocked.integer("input"), 1);
}

TEST(DefaultsStore, StandardStoreFollowsTheConfigFolderAndCanBeReplaced) {
    TemporaryFolder folder;
    ScopedEnvironment config("XDG_CONFIG_HOME", folder.path().string());
    ScopedLogCapture log;
    DefaultsStore::setStandard(nullptr);
    EXPECT_EQ(DefaultsStore::standard()->file(), folder.path() / "havrel" / "defaults.json");
    DefaultsStore::standard()->set("input", 99);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "havrel" / "defaults.json"));

    auto replacement = std::make_shared<DefaultsStore>(folder.path() / "other.json");
    DefaultsStore::setStandard(replacement);
    EXPECT_EQ(DefaultsStore::standard(), replacement);
    DefaultsStore::setStandard(nullptr);
    EXPECT_EQ(DefaultsStore::standard()->integer("input"), 99);
    DefaultsStore::setStandard(nullptr);
}

TEST(UserFolders, FollowTheEnvironmentWithHomeFallbacks) {
    ScopedEnvironment home("HOME", "/home/tester");
    {
        ScopedEnvironment documents("XDG_DOCUMENTS_DIR", "/data/docs");
        ScopedEnvironment cache("XDG_CACHE_HOME", "/data/cache");
        ScopedEnvironment config("XDG_CONFIG_HOME", "/data/config");
        EXPECT_EQ(UserFolders::documents(), "/data/docs");
        EXPECT_EQ(UserFolders::caches(), "/data/cache");
        EXPECT_EQ(UserFolders::config(), "/data/config");
    }
    ScopedEnvironment documents("XDG_DOCUMENTS_DIR", std::nullopt);
    ScopedEnvironment cache("XDG_CACHE_HOME", "relative/ignored");
    ScopedEnvironment config("XDG_CONFIG_HOME", "");
    EXPECT_EQ(UserFolders::documents(), "/home/tester/Documents");
    EXPECT_EQ(UserFolders::caches(), "/home/tester/.cache");
    EXPECT_EQ(UserFolders::config(), "/home/tester/.config");
    ScopedEnvironment noHome("HOME", std::nullopt);
    EXPECT_TRUE(UserFolders::home().is_absolute());
}

}  // namespace
}  // namespace havrel
