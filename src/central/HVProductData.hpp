#pragma once
// Who the host product is, and which kinds of file a client accepts.

#include "model/HVSerializeable.hpp"

#include <memory>
#include <string>
#include <vector>

namespace havrel {

// The identity of the host product. One optional instance is shared; the host creates and sets
// it, nothing in the core does.
class HVProductData final {
public:
    static std::shared_ptr<HVProductData> create();

    std::string name;
    std::string fileVersion;
    std::string versionToSendOut;
    std::string apiVersionToSendOut;

    // The shared instance, or nullptr until the host sets one.
    static std::shared_ptr<HVProductData> sharedInstance();
    // Replaces the shared instance; nullptr clears it.
    static void setSharedInstance(std::shared_ptr<HVProductData> productData);
};

// A kind of file a client accepts: its extension and the versions it understands.
class HVFileType final : public HVSerializeable {
public:
    static std::shared_ptr<HVFileType> create();
    // Keys missing or not a string leave the field empty. A value that is not a dictionary
    // reads as an empty one.
    static std::shared_ptr<HVFileType> initFromDictionary(const Dictionary& dictionary);

    std::string fileExtension;
    std::string apiVersion;
    std::string version;

    // "fileExtension", "apiVersion" and "version", always.
    Dictionary dictionary() const override;
    std::string className() const override { return "HVFileType"; }

    // The reading step of initFromDictionary applied to this object: a key that is missing or
    // not a string leaves its field as it stands. The excluded keys and the flag have no effect.
    using HVSerializeable::copyValuesFromDictionary;
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues,
                                  bool forceNewID) override;
};

}  // namespace havrel
