#pragma once
// The interface of every model object: it persists and travels as a dictionary of JSON kinds,
// and a copy is a round trip through that dictionary. Each class also offers a static
// initFromDictionary(const Dictionary&) factory in which a missing key takes the class default.

#include "platform/Types.hpp"

#include <memory>
#include <string>
#include <vector>

namespace havrel {

class HVSerializeable {
public:
    virtual ~HVSerializeable() = default;

    // The object as a new dictionary of JSON kinds.
    virtual Dictionary dictionary() const = 0;

    // The class name, under which archives record the object.
    virtual std::string className() const = 0;

    // The form the keyed archiver stores; the dictionary form unless a class has its own.
    virtual Dictionary archiveDictionary() const { return dictionary(); }

    // Applies a dictionary to this object, leaving the named keys out. Optional: the default
    // does nothing.
    virtual void copyValuesFromDictionary(const Dictionary& dictionary,
                                          const std::vector<std::string>& excludeValues) {
        (void)dictionary;
        (void)excludeValues;
    }

    // The same, and with forceNewID set the object takes a new identity. Optional: the default
    // applies the values and ignores the flag.
    virtual void copyValuesFromDictionary(const Dictionary& dictionary,
                                          const std::vector<std::string>& excludeValues, bool forceNewID) {
        (void)forceNewID;
        copyValuesFromDictionary(dictionary, excludeValues);
    }
};

// The dictionary of each element.
template <typename Pointer>
Dictionary dictionaryArrayFromHVSeralizableArray(const std::vector<Pointer>& objects) {
    Dictionary array = Dictionary::array();
    for (const auto& object : objects) {
        if (object) {
            array.push_back(object->dictionary());
        }
    }
    return array;
}

}  // namespace havrel
