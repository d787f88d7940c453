#include "platform/TerminalAnswerReader.hpp"

#include <algorithm>

namespace havrel {

std::vector<TerminalAnswerReader::Line> TerminalAnswerReader::feed(std::string_view bytes) {
    std::vector<Line> lines;
    while (!bytes.empty()) {
        const auto end = bytes.find('\n');
        const std::string_view piece = bytes.substr(0, end);
        if (!overflowing_) {
            if (partial_.size() + piece.size() > kMaximumLineLength) {
                overflowing_ = true;
                partial_.clear();
                partial_.shrink_to_fit();
            } else {
                partial_.append(piece);
            }
        }
        if (end == std::string_view::npos) {
            break;
        }
        lines.push_back(overflowing_ ? Line{{}, true} : Line{std::move(partial_), false});
        partial_.clear();
        overflowing_ = false;
        bytes.remove_prefix(end + 1);
    }
    return lines;
}

TerminalAnswerReader::Answer TerminalAnswerReader::interpret(const Line& line) {
    if (line.tooLong) {
        return {Choice::cancel, {}};
    }
    std::string_view text = line.text;
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && blank(text.back())) {
        text.remove_suffix(1);
    }
    if (text.empty()) {
        return {Choice::proposed, {}};
    }
    const bool control = std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
    if (control || text == "cancel") {
        return {Choice::cancel, {}};
    }
    return {Choice::path, std::filesystem::path(std::string(text))};
}

}  // namespace havrel
