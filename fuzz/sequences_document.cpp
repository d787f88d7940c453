// The sequences document as a user (or anything that writes the file) leaves it: either refused
// with a reason, or read into sequences whose written form reads back to the same form. Nothing
// may fault.
#include "FuzzCheck.hpp"
#include "DictionaryFuzzSupport.hpp"
#include "musical_output/HVSequencesDocument.hpp"
#include "platform/Log.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <variant>

namespace {

using namespace havrel;

using fuzz::DiscardingSink;

using fuzz::withoutIdentifiers;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto quiet = (setLogSink(std::make_shared<DiscardingSink>()), 0);
    (void)quiet;
    const auto read = HVSequencesDocument::read(ByteView(data, size), "Havrel Input");
    if (const auto* problem = std::get_if<std::string>(&read)) {
        FUZZ_CHECK(!problem->empty());
        return 0;
    }
    const auto& document = std::get<HVSequencesDocument>(read);
    FUZZ_CHECK(document.sequences.size() <= HVSequencesDocument::kMaximumSequences);
    for (const auto& sequence : document.sequences) {
        FUZZ_CHECK(sequence.matrix->stepSequence->steps.size() == sequence.matrix->stepSequence->length());
        FUZZ_CHECK(sequence.matrix->stepSequence->playTickLength() > 0);
    }
    const auto text = document.dictionary().dump();
    const auto again = HVSequencesDocument::read(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
                                                 "Havrel Input");
    FUZZ_CHECK(std::holds_alternative<HVSequencesDocument>(again));
    FUZZ_CHECK(withoutIdentifiers(std::get<HVSequencesDocument>(again).dictionary()) ==
               withoutIdentifiers(document.dictionary()));
    return 0;
}
