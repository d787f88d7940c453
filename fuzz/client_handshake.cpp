// Reads arbitrary JSON text as the handshake dictionaries of a client and of a central, and as a
// file in transit. Nothing may crash, and what was read survives a round trip.
#include "FuzzCheck.hpp"
#include "central/HVFileRepresentation.hpp"
#include "central/RNCentral.hpp"
#include "central/RNClient.hpp"
#include "platform/Log.hpp"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet;
    const auto dictionary = nlohmann::json::parse(data, data + size, nullptr, false);
    if (dictionary.is_discarded()) {
        return 0;
    }

    auto client = havrel::RNClient::clientFromDictionary(dictionary);
    FUZZ_CHECK(client != nullptr);
    auto copy = client->copy();
    FUZZ_CHECK(copy->isEqualToClient(*client));
    FUZZ_CHECK(copy->className() == client->className());
    FUZZ_CHECK(copy->deviceIdentityKey() == client->deviceIdentityKey());
    (void)client->dictionary().dump();

    auto central = havrel::RNCentral::centralFromDictionary(dictionary);
    FUZZ_CHECK(havrel::RNCentral::initFromDictionary(central->dictionary())->dictionary() == central->dictionary());

    auto file = havrel::HVFileRepresentation::initFromDictionary(dictionary);
    if (file->filename && file->data) {
        auto again = havrel::HVFileRepresentation::initFromDictionary(file->dictionary());
        FUZZ_CHECK(again->data == file->data && again->filename == file->filename);
    }
    return 0;
}
