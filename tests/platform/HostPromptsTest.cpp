#include "platform/HostPrompts.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace havrel {
namespace {

TEST(HostPrompts, TerminalPromptsAskWhenInteractiveAndAnswerFromOptionsOtherwise) {
    std::istringstream input("\n\n/tmp/chosen.mid\ncancel\n");
    std::ostringstream output;
    TerminalHostPrompts interactive({&input, &output, true, std::filesystem::path("/saves")});
    interactive.showAlert("Error recieving file.", "Central encountered the following error %@",
                          "OK");
    EXPECT_NE(output.str().find("Error recieving file.\nCentral encountered the following "
                                "error %@\n[OK]"),
              std::string::npos);
    EXPECT_EQ(interactive.runSavePanel("song.mid"), std::filesystem::path("/saves/song.mid"));
    EXPECT_EQ(interactive.runSavePanel("song.mid"), std::filesystem::path("/tmp/chosen.mid"));
    EXPECT_EQ(interactive.runSavePanel("song.mid"), std::nullopt);
    EXPECT_EQ(interactive.runSavePanel("song.mid"), std::nullopt);  // end of input

    std::istringstream none;
    std::ostringstream printed;
    TerminalHostPrompts batch({&none, &printed, false, std::filesystem::path("/saves")});
    batch.showAlert("Update required.", "text", "OK");
    // A name from a client cannot leave the save folder.
    EXPECT_EQ(batch.runSavePanel("../../etc/passwd"), std::filesystem::path("/saves/passwd"));
    EXPECT_EQ(batch.runSavePanel(".."), std::filesystem::path("/saves/Untitled"));
    EXPECT_NE(printed.str().find("Update required.\ntext\n[OK]"), std::string::npos);

    TerminalHostPrompts refusing({&none, &printed, false, std::filesystem::path()});
    EXPECT_EQ(refusing.runSavePanel("song.mid"), std::nullopt);
}

class HostPromptsSlot : public ::testing::Test {
protected:
    void TearDown() override { HostPrompts::setShared(nullptr); }
};

TEST_F(HostPromptsSlot, ScriptedPromptsRecordAndAnswerInOrderThroughTheSharedSlot) {
    auto scripted = std::make_shared<ScriptedHostPrompts>();
    HostPrompts::setShared(scripted);
    scripted->queueSaveAnswer(std::filesystem::path("/tmp/a.json"));
    scripted->queueSaveAnswer(std::nullopt);

    HostPrompts::shared()->showAlert("Update required.", "Central needs to be updated", "OK");
    EXPECT_EQ(HostPrompts::shared()->runSavePanel("a.json"), std::filesystem::path("/tmp/a.json"));
    EXPECT_EQ(HostPrompts::shared()->runSavePanel("b.json"), std::nullopt);
    EXPECT_EQ(HostPrompts::shared()->runSavePanel("c.json"), std::nullopt);  // nothing scripted

    EXPECT_EQ(scripted->alerts(), (std::vector<ScriptedHostPrompts::Alert>{
                                      {"Update required.", "Central needs to be updated", "OK"}}));
    EXPECT_EQ(scripted->savePanels(), (std::vector<std::string>{"a.json", "b.json", "c.json"}));

    HostPrompts::setShared(nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<TerminalHostPrompts>(HostPrompts::shared()), nullptr);
}

}  // namespace
}  // namespace havrel
