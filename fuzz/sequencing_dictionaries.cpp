// Step sequences, arpeggio settings and matrix sequence lists as clients send them: JSON text
// whose first byte chooses the reader. A reader either refuses the dictionary (nullptr, one log
// line) or builds an object whose written form reads back to the same form. Nothing may fault.
#include "FuzzCheck.hpp"
#include "DictionaryFuzzSupport.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/Log.hpp"
#include "sequencing/HVArpeggio.hpp"
#include "sequencing/HVMatrixSequence.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

using namespace havrel;

using fuzz::DiscardingSink;

using fuzz::withoutIdentifiers;

void checkSequence(const HVMIDISequencePtr& sequence) {
    FUZZ_CHECK(sequence->steps.size() == sequence->length());
    const auto form = sequence->dictionary();
    auto again = HVMIDISequence::initFromDictionary(form);
    FUZZ_CHECK(again != nullptr);
    FUZZ_CHECK(withoutIdentifiers(again->dictionary()) == withoutIdentifiers(form));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto quiet = (setLogSink(std::make_shared<DiscardingSink>()), 0);
    (void)quiet;
    if (size == 0) {
        return 0;
    }
    const auto json = parseJSONFromOutside(ByteView(data + 1, size - 1), "fuzz");
    if (json.is_discarded()) {
        return 0;
    }
    switch (data[0] % 3) {
        case 0:
            if (auto sequence = HVMIDISequence::initFromDictionary(json)) {
                checkSequence(sequence);
            }
            break;
        case 1:
            if (auto arpeggio = HVArpeggio::initFromDictionary(json)) {
                const auto form = arpeggio->dictionary();
                auto again = HVArpeggio::initFromDictionary(form);
                FUZZ_CHECK(again != nullptr);
                FUZZ_CHECK(again->dictionary() == form);
                FUZZ_CHECK(arpeggio->sequence() != nullptr);
                FUZZ_CHECK(arpeggio->sequence()->steps.size() == arpeggio->steps.size());
                FUZZ_CHECK(arpeggio->style() != HVArpeggioStyle::random || arpeggio->steps.size() % 100 == 0);
            }
            break;
        default: {
            auto list = HVMatrixSequences::initFromDictionary(json);
            const auto form = list->dictionary();
            auto again = HVMatrixSequences::initFromDictionary(form);
            FUZZ_CHECK(again->sequences.size() == list->sequences.size());
            FUZZ_CHECK(withoutIdentifiers(again->dictionary()) == withoutIdentifiers(form));
            for (const auto& matrix : list->sequences) {
                checkSequence(matrix->stepSequence);
            }
            break;
        }
    }
    return 0;
}
