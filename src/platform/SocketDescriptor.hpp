#pragma once
// What a descriptor handed in from elsewhere is, before a socket object takes it over.

#include <optional>

namespace havrel {

// The domain of a stream socket; nothing when the descriptor is none, with the error number
// that says why (EBADF, EPROTOTYPE for another kind of socket, or what the system said).
std::optional<int> streamSocketDomain(int fileDescriptor, int& errorNumber);
// Closes the descriptor; the result is of no use to a caller giving up on it.
void closeDescriptor(int fileDescriptor);

}  // namespace havrel
