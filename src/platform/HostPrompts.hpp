#pragma once
// What the core asks of the user: an alert with a message, an informative text and one button,
// and a save panel that turns a suggested file name into a chosen path, or a cancel. The host
// implements the interface; the command-line host uses TerminalHostPrompts, tests use
// ScriptedHostPrompts. Called on the main queue; both calls block until answered.

#include <deque>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HostPrompts {
public:
    virtual ~HostPrompts() = default;

    virtual void showAlert(const std::string& message, const std::string& informativeText,
                           const std::string& buttonTitle) = 0;
    // nullopt: cancelled.
    virtual std::optional<std::filesystem::path> runSavePanel(
        const std::string& suggestedFileName) = 0;

    // The host's prompts; a TerminalHostPrompts on stdin and stdout until set. Settable.
    static std::shared_ptr<HostPrompts> shared();
    // nullptr restores the terminal default.
    static void setShared(std::shared_ptr<HostPrompts> prompts);

    // The suggested name reduced to a plain file name: it may come from a client, so folders,
    // "." and ".." are dropped; empty results become "Untitled".
    static std::string safeFileName(const std::string& suggestedFileName);
};

// Prints alerts to the output. When interactive, waits for Enter after an alert and asks for the
// save location on the input (empty answer: the default location, "cancel" or end of input:
// cancel). When not interactive, a save goes to the default location in the save folder, or is
// cancelled when there is no save folder.
class TerminalHostPrompts final : public HostPrompts {
public:
    struct Options {
        std::istream* input = nullptr;   // nullptr: std::cin
        std::ostream* output = nullptr;  // nullptr: std::cout
        // nullopt: interactive when standard input is a terminal.
        std::optional<bool> interactive;
        // nullopt: the documents folder. An empty path: saves are cancelled when not
        // interactive.
        std::optional<std::filesystem::path> saveFolder;
    };

    TerminalHostPrompts();
    explicit TerminalHostPrompts(Options options);

    void showAlert(const std::string& message, const std::string& informativeText,
                   const std::string& buttonTitle) override;
    std::optional<std::filesystem::path> runSavePanel(
        const std::string& suggestedFileName) override;

private:
    std::istream& input_;
    std::ostream& output_;
    bool interactive_;
    std::filesystem::path saveFolder_;
    std::mutex mutex_;
};

// Records every prompt and answers save panels from a queue of scripted answers (cancel when
// the queue is empty). Thread-safe.
class ScriptedHostPrompts final : public HostPrompts {
public:
    struct Alert {
        std::string message;
        std::string informativeText;
        std::string buttonTitle;
        bool operator==(const Alert&) const = default;
    };

    void showAlert(const std::string& message, const std::string& informativeText,
                   const std::string& buttonTitle) override;
    std::optional<std::filesystem::path> runSavePanel(
        const std::string& suggestedFileName) override;

    // The answer of the next save panel; nullopt scripts a cancel.
    void queueSaveAnswer(std::optional<std::filesystem::path> answer);

    std::vector<Alert> alerts() const;
    // The suggested file names of the save panels shown, in order.
    std::vector<std::string> savePanels() const;

private:
    mutable std::mutex mutex_;
    std::vector<Alert> alerts_;
    std::vector<std::string> savePanels_;
    std::deque<std::optional<std::filesystem::path>> answers_;
};

}  // namespace havrel
