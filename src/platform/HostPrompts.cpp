#include "platform/HostPrompts.hpp"

#include "platform/Log.hpp"
#include "platform/LocalTime.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SharedSlot.hpp"
#include "platform/UserFolders.hpp"

#include <asio/posix/stream_descriptor.hpp>
#include <asio/read.hpp>

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

namespace havrel {

namespace {

SharedSlot<HostPrompts>& sharedSlot() {
    static SharedSlot<HostPrompts> slot([] { return std::make_shared<TerminalHostPrompts>(); });
    return slot;
}

// One log line, whatever line breaks the texts hold.
std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

std::shared_ptr<HostPrompts> HostPrompts::shared() {
    return sharedSlot().get();
}

void HostPrompts::setShared(std::shared_ptr<HostPrompts> prompts) {
    sharedSlot().set(std::move(prompts));
}

bool HostPrompts::alreadyShownFor(const std::shared_ptr<const void>& source, const std::string& key) {
    std::erase_if(shownForSource_, [](const auto& entry) { return entry.first.expired(); });
    const bool shown = std::any_of(shownForSource_.begin(), shownForSource_.end(), [&](const auto& entry) {
        return entry.second == key && !entry.first.owner_before(source) && !source.owner_before(entry.first);
    });
    if (!shown) {
        shownForSource_.emplace_back(source, key);
        if (shownForSource_.size() > kAlertSourcesKept) {
            shownForSource_.pop_front();
        }
    }
    return shown;
}

void HostPrompts::showAlert(const std::string& message, const std::string& informativeText,
                            const std::string& buttonTitle, const std::shared_ptr<const void>& source) {
    Alert alert{message, informativeText, buttonTitle};
    {
        std::lock_guard lock(mutex_);
        if (source && alreadyShownFor(source, message + '\n' + informativeText)) {
            return;
        }
        recent_.push_back({localTimeOfDay(), alert});
        if (recent_.size() > kRecentAlertsKept) {
            recent_.pop_front();
        }
    }
    logf("alert: {} \u2014 {}", oneLine(message), oneLine(informativeText));
    presentAlert(alert);
}

std::vector<HostPrompts::ShownAlert> HostPrompts::recentAlerts() const {
    std::lock_guard lock(mutex_);
    return {recent_.begin(), recent_.end()};
}

// --- The terminal ---

// The terminal as the main queue reads it, and what has arrived of the current line.
struct TerminalHostPrompts::Reader {
    explicit Reader(int descriptor) : stream(MainQueue::shared().context(), descriptor) {}
    asio::posix::stream_descriptor stream;
    std::array<char, 1024> buffer{};
    TerminalAnswerReader lines;
    bool reading = false;
};

TerminalHostPrompts::TerminalHostPrompts() : TerminalHostPrompts(Options{}) {}

TerminalHostPrompts::TerminalHostPrompts(Options options)
    : output_(options.output ? *options.output : std::cout),
      options_(options),
      saveFolder_(options.saveFolder.value_or(defaultReceiveFolder())) {}

TerminalHostPrompts::~TerminalHostPrompts() {
    if (reader_) {
        std::error_code ignored;
        reader_->stream.close(ignored);
    }
}

std::filesystem::path TerminalHostPrompts::defaultReceiveFolder() {
    return UserFolders::downloads() / "Havrel";
}

void TerminalHostPrompts::presentAlert(const Alert& alert) {
    output_ << alert.message << '\n' << alert.informativeText << "\n[" << alert.buttonTitle << "]" << std::endl;
}

bool TerminalHostPrompts::isInteractiveNow() const {
    if (options_.interactive) {
        return *options_.interactive;
    }
    return ::isatty(STDIN_FILENO) == 1 && ::tcgetpgrp(STDIN_FILENO) == ::getpgrp();
}

void TerminalHostPrompts::runSavePanel(const std::string& suggestedFileName, SaveCompletion completion) {
    Question question{suggestedFileName,
                      saveFolder_.empty() ? std::filesystem::path(suggestedFileName) : saveFolder_ / suggestedFileName,
                      std::move(completion)};
    if (!isInteractiveNow()) {
        answerWithoutTerminal(std::move(question));
        return;
    }
    if (questions_.size() >= kQuestionsWaiting) {
        output_ << "Save " << question.name << ": cancelled, " << kQuestionsWaiting << " questions wait already"
                << std::endl;
        MainQueue::shared().post([completion = std::move(question.completion)] { completion(std::nullopt); });
        return;
    }
    questions_.push_back(std::move(question));
    if (questions_.size() == 1) {
        ask(questions_.front());
    }
    readAnswers();
}

void TerminalHostPrompts::answerWithoutTerminal(Question question) {
    std::optional<std::filesystem::path> answer;
    if (saveFolder_.empty()) {
        output_ << "Save " << question.name << ": cancelled (no receive folder)" << std::endl;
    } else {
        output_ << "Save " << question.name << " to " << question.proposed.string() << std::endl;
        answer = question.proposed;
    }
    MainQueue::shared().post([completion = std::move(question.completion), answer] { completion(answer); });
}

void TerminalHostPrompts::ask(const Question& question) {
    output_ << "Save " << question.name << " as [" << question.proposed.string()
            << "] (Enter: there; a path; or \"cancel\"): " << std::flush;
}

void TerminalHostPrompts::readAnswers() {
    if (!reader_) {
        int descriptor = -1;
        if (options_.answerDescriptor >= 0) {
            descriptor = ::fcntl(options_.answerDescriptor, F_DUPFD_CLOEXEC, 0);
        } else if (const char* terminal = ::ttyname(STDIN_FILENO)) {
            // A description of its own: Asio makes the descriptor non-blocking, which must not
            // leak to the shell that shares standard input.
            descriptor = ::open(terminal, O_RDONLY | O_NOCTTY | O_CLOEXEC);
            std::signal(SIGTTIN, SIG_IGN);
        }
        if (descriptor < 0) {
            giveUpTerminal("the terminal cannot be read");
            return;
        }
        reader_ = std::make_shared<Reader>(descriptor);
    }
    if (reader_->reading) {
        return;
    }
    reader_->reading = true;
    std::weak_ptr<Reader> weak = reader_;
    reader_->stream.async_read_some(asio::buffer(reader_->buffer), [this, weak](std::error_code error,
                                                                               std::size_t size) {
        auto reader = weak.lock();
        if (!reader || reader != reader_) {
            return;  // closed meanwhile
        }
        reader->reading = false;
        if (error) {
            giveUpTerminal(error == asio::error::eof ? "end of input" : error.message());
            return;
        }
        for (const auto& line : reader->lines.feed(std::string_view(reader->buffer.data(), size))) {
            answer(line);
        }
        if (!questions_.empty()) {
            readAnswers();
        }
    });
}

void TerminalHostPrompts::answer(const TerminalAnswerReader::Line& line) {
    if (questions_.empty()) {
        return;  // typed while nothing was asked
    }
    Question question = std::move(questions_.front());
    questions_.pop_front();
    const auto reading = TerminalAnswerReader::interpret(line);
    std::optional<std::filesystem::path> chosen;
    if (reading.choice == TerminalAnswerReader::Choice::proposed) {
        chosen = question.proposed;
    } else if (reading.choice == TerminalAnswerReader::Choice::path) {
        chosen = reading.path;
    } else if (line.tooLong) {
        output_ << "(answer longer than " << TerminalAnswerReader::kMaximumLineLength << " characters: cancelled)"
                << std::endl;
    }
    MainQueue::shared().post([completion = std::move(question.completion), chosen] { completion(chosen); });
    if (!questions_.empty()) {
        ask(questions_.front());
    }
}

void TerminalHostPrompts::giveUpTerminal(const std::string& reason) {
    if (reader_) {
        std::error_code ignored;
        reader_->stream.close(ignored);
        reader_.reset();
    }
    if (!questions_.empty()) {
        output_ << "\n(no answer from the terminal: " << reason << ")" << std::endl;
    }
    auto waiting = std::move(questions_);
    questions_.clear();
    for (auto& question : waiting) {
        answerWithoutTerminal(std::move(question));
    }
}

// --- Scripted, for tests ---

void ScriptedHostPrompts::presentAlert(const Alert& alert) {
    std::lock_guard lock(mutex_);
    alerts_.push_back(alert);
}

void ScriptedHostPrompts::runSavePanel(const std::string& suggestedFileName, SaveCompletion completion) {
    std::optional<std::filesystem::path> answer;
    {
        std::lock_guard lock(mutex_);
        savePanels_.push_back(suggestedFileName);
        if (!answers_.empty()) {
            answer = std::move(answers_.front());
            answers_.pop_front();
        }
    }
    MainQueue::shared().post([completion = std::move(completion), answer] { completion(answer); });
}

void ScriptedHostPrompts::queueSaveAnswer(std::optional<std::filesystem::path> answer) {
    std::lock_guard lock(mutex_);
    answers_.push_back(std::move(answer));
}

std::vector<ScriptedHostPrompts::Alert> ScriptedHostPrompts::alerts() const {
    std::lock_guard lock(mutex_);
    return alerts_;
}

std::vector<std::string> ScriptedHostPrompts::savePanels() const {
    std::lock_guard lock(mutex_);
    return savePanels_;
}

}  // namespace havrel
