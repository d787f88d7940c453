#pragma once
// Array and dictionary utilities over JSON values, the whole of the serialisation layer.
//
// JSON values here are values, not shared objects: a copy is already deep, so the deep mutable
// copies of shared containers have no counterpart. "Not a JSON kind" is a binary value, the one
// kind a Dictionary can hold that has no JSON text form.

#include "platform/Types.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace havrel {

// Map and filter: the block gets element, index and a stop flag and returns the element for the
// result, or nothing to leave it out. Order is kept. Without a block the input is returned.
using HVArrayFilterBlock = std::function<std::optional<Dictionary>(const Dictionary& element, std::size_t index,
                                                                   bool& stop)>;
Dictionary filteredArrayFromArray(const Dictionary& array, const HVArrayFilterBlock& block);

// The elements of the given kind.
Dictionary filteredArrayWithObjectsOfClass(const Dictionary& array, Dictionary::value_t kind);

// Walks the elements: arrays recurse, dictionaries go through the block (a result replaces the
// element, nothing leaves it), other elements stay. Unchanged input is returned as it is.
using HVDictionaryBlock = std::function<std::optional<Dictionary>(const Dictionary& dictionary)>;
Dictionary arrayByRecursivlyCallingBlockOnDictionary(const Dictionary& array, const HVDictionaryBlock& block);

// The elements (or pairs) whose value is of a JSON kind; one level deep.
Dictionary filterOutNonJSON(const Dictionary& arrayOrDictionary);

// The elements, which must be arrays, joined one level deep; other elements are skipped.
Dictionary flattenedArray(const Dictionary& array);

// A new array without any element equal to the given one.
Dictionary arrayByRemovingObject(const Dictionary& array, const Dictionary& object);

// True when a string element equals the string; other kinds are skipped.
bool arrayContainsString(const Dictionary& array, const std::string& string);

// Shuffle: repeatedly draw a uniform index among what is left and move that element over.
template <typename T, typename Random = std::mt19937>
std::vector<T> randomOrderedArray(std::vector<T> items, Random&& random = Random{std::random_device{}()}) {
    std::vector<T> result;
    result.reserve(items.size());
    while (!items.empty()) {
        std::uniform_int_distribution<std::size_t> pick(0, items.size() - 1);
        std::size_t index = pick(random);
        result.push_back(std::move(items[index]));
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(index));
    }
    return result;
}
Dictionary randomOrderedArray(const Dictionary& array);

// Moves the element at `from`: removed, then inserted at `to`, minus one when `from` < `to`.
// Indices outside the array leave it unchanged.
template <typename Container>
void replaceObjectAtIndex(Container& items, std::size_t from, std::size_t to) {
    if (from >= items.size()) {
        return;
    }
    auto element = std::move(items[from]);
    items.erase(items.begin() + static_cast<std::ptrdiff_t>(from));
    std::size_t target = from < to ? to - 1 : to;
    if (target > items.size()) {
        target = items.size();
    }
    items.insert(items.begin() + static_cast<std::ptrdiff_t>(target), std::move(element));
}
void replaceObjectAtIndex(Dictionary& array, std::size_t from, std::size_t to);

// A copy without the listed keys. A key with "." reaches one level down: a.b removes b from the
// dictionary under a (components past the second are ignored).
Dictionary dictionaryWithExclodedValuesFromArray(const Dictionary& dictionary, const std::vector<std::string>& keys);
Dictionary dictionaryWithExclodedValuesFromDictionary(const Dictionary& dictionary, const Dictionary& keys);

// Map and filter over pairs: the block returns the new value, or nothing to drop the key.
using HVDictionaryFilterBlock = std::function<std::optional<Dictionary>(const std::string& key, const Dictionary& value)>;
Dictionary filteredDictionaryPassingBlock(const Dictionary& dictionary, const HVDictionaryFilterBlock& block);

// Removes the listed keys at every depth, through nested dictionaries and arrays.
Dictionary dictionaryFromJSONWithRecursivlyExclodingValuesFromArray(const Dictionary& dictionary,
                                                                   const std::vector<std::string>& keys);

// Differences: key -> [mine, theirs], null standing for a missing side. Shallow.
Dictionary diff(const Dictionary& mine, const Dictionary& theirs);

struct HVSize {
    double width = 0;
    double height = 0;
    bool operator==(const HVSize&) const = default;
};
struct HVPoint {
    double x = 0;
    double y = 0;
    bool operator==(const HVPoint&) const = default;
};
struct HVRect {
    HVPoint origin;
    HVSize size;
    bool operator==(const HVRect&) const = default;
};

Dictionary dictionaryFromRect(const HVRect& rect);
HVRect rectFromDictionary(const Dictionary& dictionary);
Dictionary dictionaryFromSize(const HVSize& size);
HVSize sizeFromDictionary(const Dictionary& dictionary);

}  // namespace havrel
