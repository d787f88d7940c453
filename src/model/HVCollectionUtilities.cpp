#include "model/HVCollectionUtilities.hpp"

#include "model/HVDictionaryReading.hpp"

namespace havrel {

namespace {

bool isJSONKind(const Dictionary& value) {
    return !value.is_binary() && !value.is_discarded();
}

}  // namespace

Dictionary filteredArrayFromArray(const Dictionary& array, const HVArrayFilterBlock& block) {
    if (!block || !array.is_array()) {
        return array;
    }
    Dictionary result = Dictionary::array();
    bool stop = false;
    for (std::size_t i = 0; i < array.size() && !stop; ++i) {
        if (auto mapped = block(array[i], i, stop)) {
            result.push_back(std::move(*mapped));
        }
    }
    return result;
}

Dictionary filteredArrayWithObjectsOfClass(const Dictionary& array, Dictionary::value_t kind) {
    return filteredArrayFromArray(array, [kind](const Dictionary& element, std::size_t, bool&) {
        bool sameKind = element.type() == kind ||
                        (element.is_number() && (kind == Dictionary::value_t::number_integer ||
                                                 kind == Dictionary::value_t::number_unsigned ||
                                                 kind == Dictionary::value_t::number_float));
        return sameKind ? std::optional<Dictionary>(element) : std::nullopt;
    });
}

Dictionary arrayByRecursivlyCallingBlockOnDictionary(const Dictionary& array, const HVDictionaryBlock& block) {
    if (!array.is_array()) {
        return array;
    }
    std::optional<Dictionary> copy;  // made at the first replacement only
    for (std::size_t i = 0; i < array.size(); ++i) {
        const Dictionary& element = array[i];
        std::optional<Dictionary> replacement;
        if (element.is_array()) {
            Dictionary walked = arrayByRecursivlyCallingBlockOnDictionary(element, block);
            if (walked != element) {
                replacement = std::move(walked);
            }
        } else if (element.is_object() && block) {
            replacement = block(element);
        }
        if (replacement) {
            if (!copy) {
                copy = array;
            }
            (*copy)[i] = std::move(*replacement);
        }
    }
    return copy ? std::move(*copy) : array;
}

Dictionary filterOutNonJSON(const Dictionary& arrayOrDictionary) {
    if (arrayOrDictionary.is_array()) {
        Dictionary result = Dictionary::array();
        for (const auto& element : arrayOrDictionary) {
            if (isJSONKind(element)) {
                result.push_back(element);
            }
        }
        return result;
    }
    if (arrayOrDictionary.is_object()) {
        Dictionary result = Dictionary::object();
        for (const auto& [key, value] : arrayOrDictionary.items()) {
            if (isJSONKind(value)) {
                result[key] = value;
            }
        }
        return result;
    }
    return arrayOrDictionary;
}

Dictionary flattenedArray(const Dictionary& array) {
    Dictionary result = Dictionary::array();
    if (!array.is_array()) {
        return result;
    }
    for (const auto& element : array) {
        if (element.is_array()) {
            for (const auto& inner : element) {
                result.push_back(inner);
            }
        }
    }
    return result;
}

Dictionary arrayByRemovingObject(const Dictionary& array, const Dictionary& object) {
    return filteredArrayFromArray(array, [&object](const Dictionary& element, std::size_t, bool&) {
        return element == object ? std::nullopt : std::optional<Dictionary>(element);
    });
}

bool arrayContainsString(const Dictionary& array, const std::string& string) {
    if (!array.is_array()) {
        return false;
    }
    for (const auto& element : array) {
        if (element.is_string() && element.get_ref<const std::string&>() == string) {
            return true;
        }
    }
    return false;
}

Dictionary randomOrderedArray(const Dictionary& array) {
    if (!array.is_array()) {
        return array;
    }
    std::vector<Dictionary> items(array.begin(), array.end());
    Dictionary result = Dictionary::array();
    for (auto& item : randomOrderedArray(std::move(items))) {
        result.push_back(std::move(item));
    }
    return result;
}

void replaceObjectAtIndex(Dictionary& array, std::size_t from, std::size_t to) {
    if (!array.is_array()) {
        return;
    }
    replaceObjectAtIndex(array.get_ref<Dictionary::array_t&>(), from, to);
}

Dictionary dictionaryWithExclodedValuesFromArray(const Dictionary& dictionary, const std::vector<std::string>& keys) {
    if (!dictionary.is_object()) {
        return dictionary;
    }
    Dictionary result = dictionary;
    for (const auto& key : keys) {
        result.erase(key);
        auto dot = key.find('.');
        if (dot == std::string::npos) {
            continue;
        }
        std::string first = key.substr(0, dot);
        auto nextDot = key.find('.', dot + 1);
        std::string second = key.substr(dot + 1, nextDot == std::string::npos ? std::string::npos : nextDot - dot - 1);
        auto it = result.find(first);
        if (it != result.end() && it->is_object()) {
            it->erase(second);
        }
    }
    return result;
}

Dictionary dictionaryWithExclodedValuesFromDictionary(const Dictionary& dictionary, const Dictionary& keys) {
    std::vector<std::string> names;
    if (keys.is_object()) {
        for (const auto& [key, value] : keys.items()) {
            names.push_back(key);
        }
    }
    return dictionaryWithExclodedValuesFromArray(dictionary, names);
}

Dictionary filteredDictionaryPassingBlock(const Dictionary& dictionary, const HVDictionaryFilterBlock& block) {
    if (!block || !dictionary.is_object()) {
        return dictionary;
    }
    Dictionary result = Dictionary::object();
    for (const auto& [key, value] : dictionary.items()) {
        if (auto mapped = block(key, value)) {
            result[key] = std::move(*mapped);
        }
    }
    return result;
}

Dictionary dictionaryFromJSONWithRecursivlyExclodingValuesFromArray(const Dictionary& dictionary,
                                                                   const std::vector<std::string>& keys) {
    if (!dictionary.is_object()) {
        return dictionary;
    }
    std::optional<Dictionary> copy;  // made at the first change only
    auto target = [&]() -> Dictionary& {
        if (!copy) {
            copy = dictionary;
        }
        return *copy;
    };
    for (const auto& [key, value] : dictionary.items()) {
        if (std::find(keys.begin(), keys.end(), key) != keys.end()) {
            target().erase(key);
            continue;
        }
        if (value.is_array()) {
            Dictionary walked = arrayByRecursivlyCallingBlockOnDictionary(value, [&keys](const Dictionary& inner) {
                return std::optional<Dictionary>(dictionaryFromJSONWithRecursivlyExclodingValuesFromArray(inner, keys));
            });
            if (walked != value) {
                target()[key] = std::move(walked);
            }
        } else if (value.is_object()) {
            Dictionary reduced = dictionaryFromJSONWithRecursivlyExclodingValuesFromArray(value, keys);
            // Compared against the receiver, not the old value: the replacement nearly always
            // happens.
            if (reduced != dictionary) {
                target()[key] = std::move(reduced);
            }
        }
    }
    return copy ? std::move(*copy) : dictionary;
}

Dictionary diff(const Dictionary& mine, const Dictionary& theirs) {
    Dictionary result = Dictionary::object();
    const Dictionary empty = Dictionary::object();
    const Dictionary& a = mine.is_object() ? mine : empty;
    const Dictionary& b = theirs.is_object() ? theirs : empty;
    for (const auto& [key, value] : a.items()) {
        auto other = b.find(key);
        if (other == b.end()) {
            result[key] = Dictionary::array({value, nullptr});
        } else if (*other != value) {
            result[key] = Dictionary::array({value, *other});
        }
    }
    for (const auto& [key, value] : b.items()) {
        if (!a.contains(key)) {
            result[key] = Dictionary::array({nullptr, value});
        }
    }
    return result;
}

Dictionary dictionaryFromRect(const HVRect& rect) {
    return Dictionary{{"origin", {{"x", rect.origin.x}, {"y", rect.origin.y}}},
                      {"size", dictionaryFromSize(rect.size)}};
}

HVRect rectFromDictionary(const Dictionary& dictionary) {
    HVRect rect;
    if (const Dictionary* origin = objectValue(dictionary, "origin")) {
        rect.origin.x = doubleValue(*origin, "x").value_or(0.0);
        rect.origin.y = doubleValue(*origin, "y").value_or(0.0);
    }
    if (const Dictionary* size = objectValue(dictionary, "size")) {
        rect.size = sizeFromDictionary(*size);
    }
    return rect;
}

Dictionary dictionaryFromSize(const HVSize& size) {
    return Dictionary{{"width", size.width}, {"height", size.height}};
}

HVSize sizeFromDictionary(const Dictionary& dictionary) {
    return HVSize{doubleValue(dictionary, "width").value_or(0.0), doubleValue(dictionary, "height").value_or(0.0)};
}

}  // namespace havrel
