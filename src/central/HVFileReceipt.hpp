#pragma once
// A file a client sends: its representation is read, the user picks where the file goes (only a
// plain name from the client is offered), and the gzip data is handed to HVReceivedFiles to be
// inflated and written. What goes wrong is logged and shown once per client as an alert.

#include "platform/Types.hpp"

#include <memory>

namespace havrel {

class RNClient;

class HVFileReceipt {
public:
    // A file representation as JSON from a client the dispatch already heard; on the main queue.
    static void receive(ByteView data, const std::shared_ptr<RNClient>& client);
};

}  // namespace havrel
