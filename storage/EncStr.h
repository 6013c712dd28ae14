#pragma once
// Text scrambling: any text becomes printable text with a fresh random key hidden in a frame
// around it, and back. Not a published cipher: it keeps environments, passwords and the data
// lines of encrypted task files out of plain sight.
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Random.h"

namespace vq {

using EncKey = std::array<uint8_t, 4>;

// The text, scrambled under a fresh key: frame characters 1 to 6, the body, the rest of the frame.
std::string EncodeEncStr(std::string_view text, RandomSource& random = SystemRandom());
// The text that was encoded. A text that no encoding can have given raises VqError 5
// "Invalid procedure call or argument" (source "DecodeEncStr").
std::string DecodeEncStr(std::string_view text);
// `length` characters, each a random number below 10000 modulo 256; with `printable` a code
// below 32 has 32 added.
std::string RandomText(size_t length, bool printable, RandomSource& random = SystemRandom());

// The steps of the encoding, for tests and for the decoder.
// Four bytes, each of two 4-bit halves from 1 to 14.
EncKey MakeKey(RandomSource& random = SystemRandom());
// The six-character text of a key.
std::string KeyToText(const EncKey& key);
// The key back from its six characters; VqError 5 when one isn't in its code table.
EncKey TextToKey(std::string_view keyText);
// The frame of 11 characters, the pad and K[1], around a key text.
std::string WrapKey(std::string_view keyText, RandomSource& random = SystemRandom());
// The text XORed with a running key that starts from `key`; its own inverse.
std::string MaskText(std::string_view text, const EncKey& key);
// A changed copy of `key`; `counter` grows by 1 first.
EncKey NextKey(const EncKey& key, int& counter);
// Three bytes to four printable characters.
std::string ToText64(std::string_view bytes, RandomSource& random = SystemRandom());
// Four characters to three bytes; VqError 5 when a character isn't in its code table.
std::string FromText64(std::string_view text);

// The six code tables, each 64 different printable characters.
const std::array<std::string_view, 6>& CodeTables();

}  // namespace vq
