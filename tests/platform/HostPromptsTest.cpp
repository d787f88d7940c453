#include "platform/HostPrompts.hpp"

#include "platform/MainQueue.hpp"
#include "support/MainQueueWaiting.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <unistd.h>

namespace havrel {
namespace {

using Answers = std::vector<std::optional<std::filesystem::path>>;

class HostPromptsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(::pipe(pipe_), 0); }
    void TearDown() override {
        closeWriteEnd();
        ::close(pipe_[0]);
        HostPrompts::setShared(nullptr);
        MainQueue::shared().poll();
    }
    void type(const std::string& text) { ASSERT_EQ(::write(pipe_[1], text.data(), text.size()), ssize_t(text.size())); }
    void closeWriteEnd() {
        if (pipe_[1] >= 0) ::close(std::exchange(pipe_[1], -1));
    }
    HostPrompts::SaveCompletion into(Answers& answers) {
        return [&answers](std::optional<std::filesystem::path> answer) { answers.push_back(std::move(answer)); };
    }

    int pipe_[2] = {-1, -1};
};

TEST_F(HostPromptsTest, TerminalQuestionsAreAnsweredByTheMainLoopWithoutWaitingForThem) {
    std::ostringstream output;
    TerminalHostPrompts prompts({&output, true, pipe_[0], std::filesystem::path("/saves")});
    prompts.showAlert("Error recieving file.", "Central encountered the following error %@", "OK");
    EXPECT_NE(output.str().find("Error recieving file.\nCentral encountered the following error %@\n[OK]"),
              std::string::npos);
    ASSERT_EQ(prompts.recentAlerts().size(), 1u);
    EXPECT_EQ(prompts.recentAlerts()[0].alert.message, "Error recieving file.");

    // Five questions return at once; four may wait, the fifth is cancelled.
    Answers answers;
    for (int i = 0; i < 5; ++i) prompts.runSavePanel("song.mid", into(answers));
    ASSERT_TRUE(testing::runMainQueueUntil([&] { return answers.size() == 1; }));
    EXPECT_EQ(answers[0], std::nullopt);
    EXPECT_NE(output.str().find("Save song.mid as [/saves/song.mid]"), std::string::npos);

    // Enter, a path, "cancel", and a line too long to keep, in pieces.
    type("\n/tmp/cho");
    type("sen.mid\ncancel\n" + std::string(TerminalAnswerReader::kMaximumLineLength + 1, 'x'));
    type("\n");
    ASSERT_TRUE(testing::runMainQueueUntil([&] { return answers.size() == 5; }));
    EXPECT_EQ(answers, (Answers{std::nullopt, std::filesystem::path("/saves/song.mid"),
                                std::filesystem::path("/tmp/chosen.mid"), std::nullopt, std::nullopt}));

    // The end of input answers as when nobody is at the terminal.
    prompts.runSavePanel("b.mid", into(answers));
    closeWriteEnd();
    ASSERT_TRUE(testing::runMainQueueUntil([&] { return answers.size() == 6; }));
    EXPECT_EQ(answers.back(), std::filesystem::path("/saves/b.mid"));

    // Not interactive: the save folder, or a cancel without one.
    std::ostringstream printed;
    TerminalHostPrompts refusing({&printed, false, -1, std::filesystem::path()});
    refusing.runSavePanel("song.mid", into(answers));
    ASSERT_TRUE(testing::runMainQueueUntil([&] { return answers.size() == 7; }));
    EXPECT_EQ(answers.back(), std::nullopt);
}

TEST_F(HostPromptsTest, AnAlertWithASourceIsShownOnceWhileTheSourceLives) {
    auto scripted = std::make_shared<ScriptedHostPrompts>();
    HostPrompts::setShared(scripted);
    auto client = std::make_shared<int>(1);
    for (int i = 0; i < 3; ++i) HostPrompts::shared()->showAlert("Update required.", "text", "OK", client);
    HostPrompts::shared()->showAlert("Update required.", "other text", "OK", client);
    EXPECT_EQ(scripted->alerts().size(), 2u);
    client = std::make_shared<int>(2);
    HostPrompts::shared()->showAlert("Update required.", "text", "OK", client);
    EXPECT_EQ(scripted->alerts().size(), 3u);

    // Scripted save answers come in order through the main queue; nothing scripted cancels.
    scripted->queueSaveAnswer(std::filesystem::path("/tmp/a.json"));
    Answers answers;
    HostPrompts::shared()->runSavePanel("a.json", into(answers));
    HostPrompts::shared()->runSavePanel("b.json", into(answers));
    EXPECT_TRUE(answers.empty());
    ASSERT_TRUE(testing::runMainQueueUntil([&] { return answers.size() == 2; }));
    EXPECT_EQ(answers, (Answers{std::filesystem::path("/tmp/a.json"), std::nullopt}));

    HostPrompts::setShared(nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<TerminalHostPrompts>(HostPrompts::shared()), nullptr);
}

}  // namespace
}  // namespace havrel
