// The MIDI library's identifiers kept in the application's defaults file.

#include "platform/DefaultsKeyValueStore.hpp"
#include "platform/DefaultsStore.hpp"
#include "TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

class DefaultsKeyValueStoreTest : public ::testing::Test {
protected:
    void SetUp() override { DefaultsStore::setStandard(std::make_shared<DefaultsStore>(file())); }
    void TearDown() override { DefaultsStore::setStandard(nullptr); }
    std::filesystem::path file() const { return folder_.path() / "defaults.json"; }

    testing::TemporaryFolder folder_;
};

TEST_F(DefaultsKeyValueStoreTest, IntegersSurviveInTheFileAndOtherValuesReadAsAbsent) {
    DefaultsKeyValueStore store;
    EXPECT_FALSE(store.contains("output"));
    store.setInteger("output", -5);
    store.setInteger("input", std::int64_t{1} << 40);

    // The next run reads the file.
    DefaultsStore::setStandard(std::make_shared<DefaultsStore>(file()));
    EXPECT_EQ(store.integer("output"), -5);
    EXPECT_EQ(store.integer("input"), std::int64_t{1} << 40);

    DefaultsStore::standard()->set("output", nlohmann::json::array());
    EXPECT_TRUE(store.contains("output"));
    EXPECT_EQ(store.integer("output"), std::nullopt);
    store.remove("output");
    EXPECT_FALSE(store.contains("output"));
    EXPECT_FALSE(DefaultsStore(file()).contains("output"));
}

}  // namespace
}  // namespace havrel
