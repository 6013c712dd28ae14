#pragma once
// Block scrambling: a text of up to 39 characters becomes a block of exactly 40 characters,
// different every time, and back. Characters are bytes; positions in comments count from 1.
// Not a published cipher: it keeps passwords and settings out of plain sight.
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Random.h"

namespace vq {

inline constexpr size_t kBlockSize = 40;
inline constexpr int kLengthFactor = 5;

// Mode "E" scrambles a text of at most 39 characters into a block; any other mode unscrambles
// a block of 40 characters. A text that doesn't fit gives the empty text.
std::string ScrambleBlock(std::string_view mode, std::string_view text,
                          RandomSource& random = SystemRandom());
// Each character as two upper-case hex digits followed by `separator`.
std::string HexEncode(std::string_view text, std::string_view separator = {});
// Pairs of the digits 0-9 and A-F give one character each; any other character is skipped
// without breaking a pair; a last digit without partner is dropped.
std::string HexDecode(std::string_view text);
// Each character XORed with a character of `key`: key character i up to the key's length, then
// key character (i mod key length) + 1. Empty when `text` is shorter than `key`.
std::string XorText(std::string_view text, std::string_view key);
uint8_t RotateLeft(uint8_t code);
uint8_t RotateRight(uint8_t code);
std::string RandomBytes(size_t count, RandomSource& random = SystemRandom());

// The block order: byte i + 1 is the block position that becomes character i of a scramble.
const std::string& BlockPositions();
const std::string& BlockMask();

}  // namespace vq
