#pragma once
// The sequences document: what the host plays without a client, kept in a JSON file the user
// edits (or the status page writes). It holds
//   "sequences":   matrix sequences in their dictionary form ("rangeContainer", "stepSequence",
//                  "color"), each with "isRunning" (default true);
//   "arpeggiator": the arpeggio's settings under its field names ("style", "playingStyle",
//                  "octaves", "numberOfPinkyNotes", "length", "noteDurationInPercentageFromLength",
//                  ...), plus "channel" (1 to 16, default 1) and "input", the MIDI input whose held
//                  notes it plays (default, and the only one offered, "<product> Input").
// Reading is all or nothing: the first problem refuses the whole document, so what plays is
// never half of an edit.

#include "platform/Types.hpp"
#include "sequencing/HVMatrixSequence.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace havrel {

struct HVSequencesDocument {
    static constexpr std::size_t kMaximumBytes = 1 << 20;
    static constexpr std::size_t kMaximumSequences = 64;

    struct Sequence {
        HVMatrixSequencePtr matrix;
        bool isRunning = true;
    };
    struct Arpeggiator {
        // The arpeggio's own dictionary form; pressed notes are not part of it.
        Dictionary settings = Dictionary::object();
        std::uint8_t channel = 1;
        std::string input;
    };

    std::vector<Sequence> sequences;
    std::optional<Arpeggiator> arpeggiator;

    // The document in the bytes, or the first problem found, as one line. inputName is the one
    // input an arpeggiator may listen to.
    static std::variant<HVSequencesDocument, std::string> read(ByteView bytes, std::string_view inputName);

    // The written form, which reads back to the same document.
    Dictionary dictionary() const;
};

}  // namespace havrel
