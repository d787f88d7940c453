// A client's configuration document from arbitrary bytes (gzip or plain JSON), then a change
// command applied to it: defaulted or logged, never a crash.
#include "model/HVDataHelpers.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto quiet = (havrel::setLogSink(std::make_shared<havrel::CaptureLogSink>()), 0);
    (void)quiet;
    havrel::ByteView input(data, size);
    havrel::Bytes text(input.begin(), input.end());
    if (havrel::isGzipData(input)) {
        auto inflated = havrel::gzipInflate(input, 1 << 20);
        if (!inflated) {
            return 0;
        }
        text = std::move(*inflated);
    }
    auto configuration = havrel::HVEncodedConfiguration::initWithData(text);
    // What was read writes back and reads again to the same document.
    auto form = configuration->dictionary();
    auto again = havrel::HVEncodedConfiguration::initFromDictionary(form);
    if (again->dictionary() != form) {
        __builtin_trap();
    }
    // The same bytes as a change command against the document just read.
    auto parsed = havrel::Dictionary::parse(text.begin(), text.end(), nullptr, false);
    if (!parsed.is_discarded()) {
        auto command = havrel::RNDataPackagerChangeCommandDataWrapper::initFromDictionary(parsed);
        configuration->processChangeCommand(*command);
        for (const auto& wrapper : configuration->dataWrappers) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                for (const auto& container : wrapper->allMIDIRanges()) {
                    (void)container->midiValueFromRange({0.5});
                    (void)container->midiValueFromRange({0.25, 0.75});
                }
                (void)wrapper->rangeContainersThatShouldBeBroadcastedForAxis(axis);
            }
        }
    }
    return 0;
}
