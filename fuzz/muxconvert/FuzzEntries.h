// FuzzEntries.h - the libFuzzer entry functions of the repackager, kept in a
// library so the normal test suite replays the committed corpora through
// exactly the same code.
#pragma once

#include <cstddef>
#include <cstdint>

namespace muxc_fuzz {

// SDP text: the parser, then a whole session created from it.
int FuzzSdpParser(const uint8_t* data, size_t size);

// Byte 0 picks a canned SDP, byte 1 session options; the rest is a sequence of
// chunks [2-byte length][chunk]. A chunk whose first byte has the top bit set
// is fed as a raw packet (after that byte); otherwise that byte chooses
// payload type, marker, sequence step and timestamp step of a generated RTP
// header, so the fuzzer spends its effort on payloads.
int FuzzRepackager(const uint8_t* data, size_t size);

}  // namespace muxc_fuzz
