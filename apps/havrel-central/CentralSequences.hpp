#pragma once
// What the Central plays on its own: the step sequences and the arpeggiator of the sequences
// document, heard through the step output in time with the musical clock.
//
// The document is read at start and again whenever its file is written or moved in (the
// folder is watched through inotify). A document that does not read is refused with one log
// line naming the first problem, and what plays stays as it was. The sequences are kept in
// slots registered once with the player: a new document copies its rows into them, so the new
// steps sound from the next grid position, and the player's list never grows past the most
// sequences one document held.
//
// The arpeggiator plays the notes held on "<product> Input" (note on adds, note off or velocity 0
// removes; every note at the velocity of the last one pressed); releasing them all stops it and
// ends its note. It too plays from one registered slot, which takes each rebuilt arpeggio's
// steps.
//
// MIDI Stop from any source stops the transport of the step output (what sounds ends); Start and
// Continue run it again. Main queue, except receivedEventsObserver's result.

#include "midi_service/HVMIDIManager.hpp"
#include "musical_output/HVSequencesDocument.hpp"
#include "musical_output/HVStepOutput.hpp"
#include "sequencing/HVArpeggio.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace havrel {

class FolderWatcher;
class HVMIDIHandOff;

class CentralSequences : public std::enable_shared_from_this<CentralSequences> {
public:
    static constexpr const char* kFileName = "sequences.json";

    struct Options {
        std::filesystem::path file;
        // The one input the arpeggiator listens to: "<product> Input".
        std::string inputName;
        std::shared_ptr<HVSequencePlayer> player;
        std::shared_ptr<HVStepOutput> output;
        // Watch the file's folder for changes (off in tests that reload by hand).
        bool watch = true;
        // Called when a document that plays something (a running sequence, an arpeggiator) is
        // applied: the host starts its clock there.
        std::function<void()> somethingToPlay;
    };

    // Reads the file (a missing one is no sequences, said in one line) and starts watching.
    static std::shared_ptr<CentralSequences> start(Options options);
    ~CentralSequences();
    CentralSequences(const CentralSequences&) = delete;
    CentralSequences& operator=(const CentralSequences&) = delete;

    // Reads the file again. False, after one log line, when it was refused or is unchanged.
    bool reload();
    void apply(const HVSequencesDocument& document);
    const HVSequencesDocument& document() const { return document_; }
    const std::filesystem::path& file() const { return options_.file; }

    // An edit from the status page, checked as a new document (the reader's checks, all of
    // them), applied, and written back to the file at once (temporary file + rename). Empty on
    // success, else why it was refused; nothing changes then. The edits ("action"):
    //   setStep {sequence, step, value?, note?}   setRunning {sequence, running}
    //   setLength {sequence, length}              setNoteLength {sequence, noteLength}
    //   add {}   remove {sequence}                setArpeggiator {settings}
    // Sequences and steps count from 0.
    std::string edit(const Dictionary& request);
    // The rows for the page: each sequence's steps, cursor and settings, and the arpeggiator's.
    Dictionary state() const;

    // The keyboard of the arpeggiator.
    void noteOn(std::uint8_t note, std::uint8_t velocity);
    void noteOff(std::uint8_t note);
    const std::vector<std::uint8_t>& heldNotes() const { return held_; }

    // What the MIDI service shows of what it receives: notes through the virtual input and the
    // transport from anywhere, handed to the main queue (bounded) and to this object there.
    HVMIDIManager::ReceivedEventsObserver receivedEventsObserver();

    // The slots that play the document's sequences, in its order, and the arpeggio's.
    std::vector<HVMIDISequencePtr> sequences() const;
    const HVMIDISequencePtr& arpeggioSequence() const { return arpeggioSlot_; }

    explicit CentralSequences(Options options);

private:
    void rebuildArpeggio();
    void stopWatching();

    Options options_;
    HVSequencesDocument document_;
    std::string lastText_;
    bool haveRead_ = false;
    std::vector<HVMIDISequencePtr> slots_;
    std::shared_ptr<HVArpeggio> arpeggio_;
    HVMIDISequencePtr arpeggioSlot_;
    std::vector<std::uint8_t> held_;
    std::uint8_t velocity_ = 100;
    std::shared_ptr<FolderWatcher> watcher_;
    std::shared_ptr<HVMIDIHandOff> handOff_;
};

}  // namespace havrel
