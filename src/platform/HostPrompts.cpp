#include "platform/HostPrompts.hpp"

#include "platform/SharedSlot.hpp"
#include "platform/UserFolders.hpp"

#include <iostream>
#include <unistd.h>

namespace havrel {

namespace {

SharedSlot<HostPrompts>& sharedSlot() {
    static SharedSlot<HostPrompts> slot([] { return std::make_shared<TerminalHostPrompts>(); });
    return slot;
}

}  // namespace

std::shared_ptr<HostPrompts> HostPrompts::shared() {
    return sharedSlot().get();
}

void HostPrompts::setShared(std::shared_ptr<HostPrompts> prompts) {
    sharedSlot().set(std::move(prompts));
}

std::string HostPrompts::safeFileName(const std::string& suggestedFileName) {
    std::string name = std::filesystem::path(suggestedFileName).filename().string();
    if (name.empty() || name == "." || name == "..") {
        return "Untitled";
    }
    return name;
}

TerminalHostPrompts::TerminalHostPrompts() : TerminalHostPrompts(Options{}) {}

TerminalHostPrompts::TerminalHostPrompts(Options options)
    : input_(options.input ? *options.input : std::cin),
      output_(options.output ? *options.output : std::cout),
      interactive_(options.interactive.value_or(::isatty(STDIN_FILENO) == 1)),
      saveFolder_(options.saveFolder.value_or(UserFolders::documents())) {}

void TerminalHostPrompts::showAlert(const std::string& message,
                                    const std::string& informativeText,
                                    const std::string& buttonTitle) {
    std::lock_guard lock(mutex_);
    output_ << message << '\n' << informativeText << '\n';
    if (interactive_) {
        output_ << "[" << buttonTitle << "] press Enter" << std::endl;
        std::string ignored;
        std::getline(input_, ignored);
    } else {
        output_ << "[" << buttonTitle << "]" << std::endl;
    }
}

std::optional<std::filesystem::path> TerminalHostPrompts::runSavePanel(
    const std::string& suggestedFileName) {
    std::lock_guard lock(mutex_);
    const std::string name = safeFileName(suggestedFileName);
    const auto proposed = saveFolder_.empty() ? std::filesystem::path(name) : saveFolder_ / name;
    if (!interactive_) {
        if (saveFolder_.empty()) {
            output_ << "Save " << name << ": cancelled" << std::endl;
            return std::nullopt;
        }
        output_ << "Save " << name << " to " << proposed.string() << std::endl;
        return proposed;
    }
    output_ << "Save " << name << " as [" << proposed.string() << "] (or \"cancel\"): "
            << std::flush;
    std::string answer;
    if (!std::getline(input_, answer) || answer == "cancel") {
        return std::nullopt;
    }
    return answer.empty() ? proposed : std::filesystem::path(answer);
}

void ScriptedHostPrompts::showAlert(const std::string& message,
                                    const std::string& informativeText,
                                    const std::string& buttonTitle) {
    std::lock_guard lock(mutex_);
    alerts_.push_back(Alert{message, informativeText, buttonTitle});
}

std::optional<std::filesystem::path> ScriptedHostPrompts::runSavePanel(
    const std::string& suggestedFileName) {
    std::lock_guard lock(mutex_);
    savePanels_.push_back(suggestedFileName);
    if (answers_.empty()) {
        return std::nullopt;
    }
    auto answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
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
