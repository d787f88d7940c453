#pragma once
// What the core asks of the user: an alert with a message, an informative text and one button,
// and a save panel that turns a suggested file name into a chosen path, or a cancel. The host
// implements the interface; the command-line host uses TerminalHostPrompts, tests use
// ScriptedHostPrompts.
//
// Neither call waits for the user: what a client sends can raise an alert, and the main queue
// must go on serving the other clients meanwhile. An alert is logged, kept in a short list the
// status page reads, and shown; the save panel hands its answer to a completion later. Called
// on the main queue.

#include "platform/TerminalAnswerReader.hpp"

#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HostPrompts {
public:
    struct Alert {
        std::string message;
        std::string informativeText;
        std::string buttonTitle;
        bool operator==(const Alert&) const = default;
    };
    struct ShownAlert {
        std::string time;  // local wall-clock time, HH:MM:SS
        Alert alert;
    };
    // nullopt: cancelled.
    using SaveCompletion = std::function<void(std::optional<std::filesystem::path>)>;

    static constexpr std::size_t kRecentAlertsKept = 20;
    // Sources remembered for showAlert's "once per source"; the oldest is forgotten beyond.
    static constexpr std::size_t kAlertSourcesKept = 256;

    virtual ~HostPrompts() = default;

    // Logs the alert, keeps it for recentAlerts() and shows it; returns at once. With a source
    // (a client record, a link), an alert with the same texts is shown only once while the
    // source lives, so a client repeating itself cannot repeat the alert.
    void showAlert(const std::string& message, const std::string& informativeText, const std::string& buttonTitle,
                   const std::shared_ptr<const void>& source = nullptr);
    // Asks where to save a file and returns at once. The completion runs once, later, on the
    // main queue.
    virtual void runSavePanel(const std::string& suggestedFileName, SaveCompletion completion) = 0;

    // The last kRecentAlertsKept alerts shown, oldest first. Any thread.
    std::vector<ShownAlert> recentAlerts() const;

    // The host's prompts; a TerminalHostPrompts on stdin and stdout until set. Settable.
    static std::shared_ptr<HostPrompts> shared();
    // nullptr restores the terminal default.
    static void setShared(std::shared_ptr<HostPrompts> prompts);

protected:
    virtual void presentAlert(const Alert& alert) = 0;

private:
    bool alreadyShownFor(const std::shared_ptr<const void>& source, const std::string& key);

    mutable std::mutex mutex_;
    std::deque<ShownAlert> recent_;
    std::deque<std::pair<std::weak_ptr<const void>, std::string>> shownForSource_;
};

// Prints alerts to the output. A save panel, when interactive, prints its question and takes
// the answer from a line on the terminal (empty: the proposed location; "cancel": cancel;
// anything else: that path), read by the main queue through an Asio descriptor so that nothing
// waits while the user thinks. Questions are answered in order; a few wait at most, later ones
// are cancelled. When not interactive, a save goes to the proposed location in the save
// folder, or is cancelled when there is no save folder.
//
// Interactive means: standard input is a terminal and this process is in its foreground
// process group, checked at each question. A program in the background of a shell therefore
// never reads the terminal; SIGTTIN is ignored while the terminal is read, so a read that races
// a move to the background fails with EIO, which answers as when not interactive.
class TerminalHostPrompts final : public HostPrompts {
public:
    static constexpr std::size_t kQuestionsWaiting = 4;

    struct Options {
        std::ostream* output = nullptr;  // nullptr: std::cout
        // nullopt: decided at each question as above.
        std::optional<bool> interactive;
        // Where answers are read when interactive; -1: a descriptor of its own on the terminal
        // of standard input. A given descriptor is duplicated, the caller keeps its own.
        int answerDescriptor = -1;
        // nullopt: the receive folder (the XDG download folder's "Havrel"). An empty path: saves
        // are cancelled when not interactive.
        std::optional<std::filesystem::path> saveFolder;
    };

    TerminalHostPrompts();
    explicit TerminalHostPrompts(Options options);
    ~TerminalHostPrompts() override;

    void runSavePanel(const std::string& suggestedFileName, SaveCompletion completion) override;

    const std::filesystem::path& saveFolder() const { return saveFolder_; }

    // The default receive folder: $XDG_DOWNLOAD_DIR (or user-dirs.dirs, else ~/Downloads) + "/Havrel".
    static std::filesystem::path defaultReceiveFolder();

protected:
    void presentAlert(const Alert& alert) override;

private:
    struct Question {
        std::string name;
        std::filesystem::path proposed;
        SaveCompletion completion;
    };
    struct Reader;

    bool isInteractiveNow() const;
    void ask(const Question& question);
    void readAnswers();
    void answer(const TerminalAnswerReader::Line& line);
    // Answers every waiting question as when not interactive, and lets the terminal go.
    void giveUpTerminal(const std::string& reason);
    void answerWithoutTerminal(Question question);

    std::ostream& output_;
    const Options options_;
    std::filesystem::path saveFolder_;
    std::deque<Question> questions_;
    std::shared_ptr<Reader> reader_;
};

// Records every prompt and answers save panels from a queue of scripted answers (cancel when
// the queue is empty), each completion posted to the main queue. Thread-safe.
class ScriptedHostPrompts final : public HostPrompts {
public:
    using Alert = HostPrompts::Alert;

    void runSavePanel(const std::string& suggestedFileName, SaveCompletion completion) override;

    // The answer of the next save panel; nullopt scripts a cancel.
    void queueSaveAnswer(std::optional<std::filesystem::path> answer);

    std::vector<Alert> alerts() const;
    // The suggested file names of the save panels shown, in order.
    std::vector<std::string> savePanels() const;

protected:
    void presentAlert(const Alert& alert) override;

private:
    mutable std::mutex mutex_;
    std::vector<Alert> alerts_;
    std::vector<std::string> savePanels_;
    std::deque<std::optional<std::filesystem::path>> answers_;
};

}  // namespace havrel
