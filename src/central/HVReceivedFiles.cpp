#include "central/HVReceivedFiles.hpp"

#include "model/HVDataHelpers.hpp"
#include "platform/DurableWrite.hpp"
#include "platform/LocalTime.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SerialQueue.hpp"
#include "platform/SharedSlot.hpp"

#include <fmt/format.h>

#include <cstdio>

namespace havrel {

namespace {

SharedSlot<HVReceivedFiles>& sharedSlot() {
    static SharedSlot<HVReceivedFiles> slot([] { return std::make_shared<HVReceivedFiles>(); });
    return slot;
}

// The length of the well-formed UTF-8 sequence at the start of the text, or 0.
std::size_t utf8SequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    std::size_t length = 0;
    std::uint32_t lowest = 0;
    if (lead < 0x80) {
        return 1;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, lowest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, lowest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, lowest = 0x10000;
    } else {
        return 0;
    }
    if (text.size() < length) {
        return 0;
    }
    std::uint32_t code = lead & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
        code = (code << 6) | (byte(i) & 0x3F);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < lowest || surrogate || code > 0x10FFFF ? 0 : length;
}

// The text cut to at most `limit` bytes, at a character boundary.
std::string cutAtCharacter(const std::string& text, std::size_t limit) {
    if (text.size() <= limit) {
        return text;
    }
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end);
}

}  // namespace

std::shared_ptr<HVReceivedFiles> HVReceivedFiles::shared() {
    return sharedSlot().get();
}

void HVReceivedFiles::setShared(std::shared_ptr<HVReceivedFiles> files) {
    sharedSlot().set(std::move(files));
}

HVReceivedFiles::HVReceivedFiles() : queue_(SerialQueue::create("com.havrelapps.havrel.receivedFiles")) {}

HVReceivedFiles::~HVReceivedFiles() = default;

std::string HVReceivedFiles::plainFileName(std::string_view name) {
    if (const auto slash = name.find_last_of("/\\"); slash != std::string_view::npos) {
        name.remove_prefix(slash + 1);
    }
    std::string plain;
    while (!name.empty()) {
        const std::size_t length = utf8SequenceLength(name);
        const auto lead = static_cast<unsigned char>(name.front());
        if (length == 0 || lead < 0x20 || lead == 0x7F) {
            plain += '_';
            name.remove_prefix(1);
        } else {
            plain.append(name.substr(0, length));
            name.remove_prefix(length);
        }
        if (plain.size() > 4 * kMaximumNameLength) {
            break;  // enough to cut from below
        }
    }
    if (plain.empty() || plain == "." || plain == "..") {
        return "Untitled";
    }
    if (plain.size() <= kMaximumNameLength) {
        return plain;
    }
    const auto dot = plain.rfind('.');
    std::string extension = dot != std::string::npos && dot > 0 && plain.size() - dot <= 16 ? plain.substr(dot) : "";
    return cutAtCharacter(plain.substr(0, plain.size() - extension.size()), kMaximumNameLength - extension.size()) +
           extension;
}

HVReceivedFiles::Result HVReceivedFiles::writeWithoutReplacing(const std::filesystem::path& location, ByteView bytes) {
    return writeNewFile(location, bytes, kMaximumNameAttempts);
}

void HVReceivedFiles::write(std::shared_ptr<const Bytes> gzipData, const std::filesystem::path& location,
                            std::string client, Completion completion) {
    const std::size_t size = gzipData ? gzipData->size() : 0;
    if (!gzipData || bytesWaiting_ + size > kMaximumBytesWaiting) {
        MainQueue::shared().post([completion = std::move(completion)] {
            completion({std::nullopt, "too much received data waits to be written"});
        });
        return;
    }
    bytesWaiting_ += size;
    std::weak_ptr<HVReceivedFiles> weak = weak_from_this();
    queue_->post([weak, gzipData = std::move(gzipData), location, client = std::move(client),
                  completion = std::move(completion), size]() mutable {
        Result result{std::nullopt, "the file's data does not inflate"};
        std::uint64_t written = 0;
        if (auto inflated = gzipInflate(*gzipData)) {
            written = inflated->size();
            result = writeWithoutReplacing(location, *inflated);
        }
        gzipData.reset();
        MainQueue::shared().post([weak, result, client = std::move(client), completion = std::move(completion), size,
                                  written] {
            if (auto self = weak.lock()) {
                self->bytesWaiting_ -= size;
                if (result.written) {
                    self->recent_.push_back(
                        {result.written->filename().string(), written, client, localTimeOfDay(), *result.written});
                    if (self->recent_.size() > kFilesKept) {
                        self->recent_.pop_front();
                    }
                }
            }
            completion(result);
        });
    });
}

}  // namespace havrel
