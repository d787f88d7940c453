#include "central/HVFileReceipt.hpp"

#include "central/HVFileRepresentation.hpp"
#include "central/HVReceivedFiles.hpp"
#include "central/RNClient.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"

namespace havrel {

namespace {

// Once per client and text: a client sending the same bad file again does not repeat the alert.
void showFileError(const std::shared_ptr<RNClient>& client, const std::string& informativeText) {
    HostPrompts::shared()->showAlert("Error recieving file.", informativeText, "OK", client);
}

// The error alert keeps its "%@": the reason is not put into the text.
void showFileReceiptError(const std::shared_ptr<RNClient>& client) {
    showFileError(client, "Central encountered the following error %@");
}

}  // namespace

void HVFileReceipt::receive(ByteView data, const std::shared_ptr<RNClient>& client) {
    std::string error;
    const Dictionary parsed = parseJSONFromOutside(data, "didReceiveFileRepData", &error);
    if (parsed.is_discarded()) {
        logf("didReceiveFileRepData: file representation does not read: {}", error);
        showFileReceiptError(client);
        return;
    }
    auto representation = HVFileRepresentation::initFromDictionary(parsed);
    std::shared_ptr<const Bytes> payload;
    if (representation->data) {
        payload = std::make_shared<const Bytes>(std::move(*representation->data));
    }
    std::weak_ptr<RNClient> weakClient = client;
    // The name comes from the device: only a plain, bounded file name is offered, so the file
    // lands in the folder the user picks.
    HostPrompts::shared()->runSavePanel(
        HVReceivedFiles::plainFileName(representation->filename.value_or(std::string())),
        [payload, weakClient](std::optional<std::filesystem::path> location) {
            if (!location) {
                return;
            }
            const auto sender = weakClient.lock();
            if (!payload || !isGzipData(*payload)) {
                log("error not a gzip data file");
                showFileError(sender, "Central encountered an invalid file format");
                return;
            }
            const std::string name = sender ? sender->connectionName.value_or("") : "";
            HVReceivedFiles::shared()->write(payload, *location, name, [weakClient](const HVReceivedFiles::Result& result) {
                if (result.written) {
                    logf("received file written to {}", result.written->string());
                    return;
                }
                logf("didReceiveFileRepData: nothing written: {}", result.error);
                showFileReceiptError(weakClient.lock());
            });
        });
}

}  // namespace havrel
