#pragma once
// The configuration document of one client: its wrappers, and the change commands that keep it
// in step with the client.

#include "model/HVMidiAxisDataWrapper.hpp"
#include "model/HVSerializeable.hpp"

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

using HVChangeType = std::uint8_t;
inline constexpr HVChangeType HVChangeTypeUpdate = 0;
inline constexpr HVChangeType HVChangeTypeDelete = 1;
inline constexpr HVChangeType HVChangeTypeAdd = 2;

// A set of wrappers and what to do with them.
class RNDataPackagerChangeCommandDataWrapper final : public HVSerializeable {
public:
    static std::shared_ptr<RNDataPackagerChangeCommandDataWrapper> create();
    static std::shared_ptr<RNDataPackagerChangeCommandDataWrapper> initFromDictionary(const Dictionary& dictionary);
    // "ComponentChangeCommand".
    static std::string commandTypeIdentifier();

    HVChangeType changeType = HVChangeTypeUpdate;
    std::vector<HVMidiAxisDataWrapperPtr> changedDataWrappers;

    // Logs "this shouldnt be!" for every wrapper without a number, and writes it all the same.
    Dictionary dictionary() const override;
    std::string className() const override { return "RNDataPackagerChangeCommandDataWrapper"; }
    std::string description() const;
};

// The general change command: a type and a string. Archivable.
class RNDataPackagerChangeCommandGeneral final : public HVSerializeable {
public:
    static std::shared_ptr<RNDataPackagerChangeCommandGeneral> create();
    static std::shared_ptr<RNDataPackagerChangeCommandGeneral> initFromDictionary(const Dictionary& dictionary);
    // "GeneralChangeCommand".
    static std::string commandTypeIdentifier();

    HVChangeType changeType = 0;
    std::optional<std::string> dataString;

    Dictionary dictionary() const override;
    std::string className() const override { return "RNDataPackagerChangeCommandGeneral"; }
    // The keyed-archive form: "ChangeType" as one raw byte, "ChangeData" as an object.
    Dictionary archiveDictionary() const override;
    static std::shared_ptr<RNDataPackagerChangeCommandGeneral> fromArchiveDictionary(const Dictionary& dictionary);
    // Makes the class restorable by HVUnarchiveObject.
    static void registerForArchiving();
};

class HVEncodedConfiguration final : public HVSerializeable {
public:
    static constexpr std::uint64_t kNoIndex = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

    static std::shared_ptr<HVEncodedConfiguration> create();
    static std::shared_ptr<HVEncodedConfiguration> initFromDictionary(const Dictionary& dictionary);
    // Uncompressed JSON text; a parse failure gives an empty document.
    static std::shared_ptr<HVEncodedConfiguration> initWithData(ByteView data);

    std::vector<HVMidiAxisDataWrapperPtr> dataWrappers;

    // Gzip-compressed JSON text of the document.
    std::optional<Bytes> zippedData() const;
    // The last wrapper with the number, or nothing.
    HVMidiAxisDataWrapperPtr dataWrapperWithNumericID(std::uint64_t numericID) const;
    // The index of the first wrapper with the number, or kNoIndex.
    std::uint64_t indexOfDataWrapperWithNumericID(std::uint64_t numericID) const;
    void processChangeCommand(const RNDataPackagerChangeCommandDataWrapper& command);

    Dictionary dictionary() const override;
    std::string className() const override { return "HVEncodedConfiguration"; }
    std::string description() const;
};

using HVEncodedConfigurationPtr = std::shared_ptr<HVEncodedConfiguration>;

}  // namespace havrel
