#pragma once
// What the application gives the MIDI library: the main queue as its main queue, a serial queue
// of the platform (following the main queue's clock, manual in tests) for each queue it asks
// for, the log sink for its lines, and the defaults store for the identifiers it keeps. Called
// where the application starts and wherever the application makes a MIDI manager; calling it
// again changes nothing.

namespace havrel {

void installMIDILibraryServices();

}  // namespace havrel
