// A MIDI entity's property dictionary from arbitrary JSON text, read for network session data:
// none or a well-formed result, never a crash.

#include "FuzzCheck.hpp"
#include "midi_service/HVPeerData.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/Log.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto quiet = (havrel::setLogSink(std::make_shared<havrel::CaptureLogSink>()), 0);
    (void)quiet;
    if (size > (1u << 20)) {
        return 0;
    }
    const auto properties = havrel::parseJSONFromOutside(havrel::ByteView(data, size), "midi_session_properties");
    if (properties.is_discarded()) {
        return 0;
    }
    auto result = havrel::HVPeerDataFromProperties(properties);
    if (!result) {
        FUZZ_CHECK(!properties.is_object() || !properties.contains("apple.midirtp.session") ||
                   !properties["apple.midirtp.session"].is_object());
        return 0;
    }
    const auto& session = properties["apple.midirtp.session"];
    FUZZ_CHECK(session.is_object());
    FUZZ_CHECK(result->name.has_value() == (session.contains("dns-sd-name") && session["dns-sd-name"].is_string()));
    if (!result->peers.empty()) {
        const auto& peers = session["peers"];
        FUZZ_CHECK(peers.is_array() && peers.size() == result->peers.size());
        for (std::size_t i = 0; i < peers.size(); ++i) {
            FUZZ_CHECK(result->peers[i].address.has_value() ==
                       (peers[i].contains("address") && peers[i]["address"].is_string()));
        }
    }
    return 0;
}
