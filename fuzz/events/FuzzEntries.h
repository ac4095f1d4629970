// FuzzEntries.h - the body of the event centre's fuzz target, in a library so
// that the unit tests replay the seed corpus through exactly the same code.
#pragma once

#include <cstddef>
#include <cstdint>

namespace events_fuzz {

// The input is sent as it stands, as one connection's bytes, to an HTTP
// server that routes and answers as the event centre does (peer, method, URL,
// body); the body is also read as a Setup.xml text.
int FuzzEventRequest(const uint8_t* data, size_t size);

}  // namespace events_fuzz
