#pragma once
// Reads the user's answers to questions asked on the terminal: the bytes read are split into
// lines of bounded length (a line that never ends cannot grow memory), and each line becomes an
// answer to a save question.

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace havrel {

class TerminalAnswerReader {
public:
    static constexpr std::size_t kMaximumLineLength = 4096;

    struct Line {
        std::string text;     // without its end of line; empty when tooLong
        bool tooLong = false; // the line passed kMaximumLineLength and was dropped
    };

    enum class Choice { proposed, cancel, path };
    struct Answer {
        Choice choice = Choice::cancel;
        std::filesystem::path path;  // for Choice::path
    };

    // The lines completed by these bytes, in order; the rest waits for more.
    std::vector<Line> feed(std::string_view bytes);

    // An empty line takes the proposed location, "cancel" cancels, any other text is the path;
    // an overlong line, or one with control characters, cancels. Surrounding blanks and a
    // carriage return are ignored.
    static Answer interpret(const Line& line);

private:
    std::string partial_;
    bool overflowing_ = false;
};

}  // namespace havrel
