#pragma once
// The host's folders: documents (with its "Arrangements" and "Macros") and caches, and two
// checks on folders.

#include <filesystem>

namespace havrel {

// The user's document folder, looked up once per process and then kept.
const std::filesystem::path& localDocumentsDirectoryURL();
// The user's cache folder, looked up on each call.
std::filesystem::path cachesURL();
// "Arrangements" and "Macros" under the document folder; named only, not created.
std::filesystem::path arrangmentsURL();
std::filesystem::path macrosURL();

// Lists the folder; when that fails, creates it with its intermediate folders and returns
// whether that worked. True when the listing works.
bool checkForDictionaryAndCreateIfNeeded(const std::filesystem::path& folder);

// True unless the item itself (a link is not followed) is a directory; a missing item gives true.
bool isNotDirectoryAtURL(const std::filesystem::path& item);

}  // namespace havrel
