#include "storage/Enkripcija.h"

namespace vq {
namespace {

// The order of the block's characters, as hex digits among characters that HexDecode skips.
constexpr std::string_view kBlockPositionsText =
    "psho0F.191Bj170403g0:C18081_C0iB~?q05271mx0000E200wD12250723z091uE2k1141A!1n1-v15021F261*3t0+"
    "r1220A1yDl240;616";
// The key of the XOR stage.
constexpr std::string_view kBlockMaskText = "+i+B(lm(}(X}iZ/";

int HexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

const std::string& BlockPositions() {
    static const std::string positions = HexDecode(kBlockPositionsText);
    return positions;
}

const std::string& BlockMask() {
    static const std::string mask(kBlockMaskText);
    return mask;
}

uint8_t RotateLeft(uint8_t code) { return static_cast<uint8_t>((code << 1) | (code >> 7)); }
uint8_t RotateRight(uint8_t code) { return static_cast<uint8_t>((code >> 1) | (code << 7)); }

std::string HexEncode(std::string_view text, std::string_view separator) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size() * (2 + separator.size()));
    for (char c : text) {
        const auto code = static_cast<unsigned char>(c);
        out += kDigits[code >> 4];
        out += kDigits[code & 15];
        out += separator;
    }
    return out;
}

std::string HexDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size() / 2);
    int high = -1;
    for (char c : text) {
        const int value = HexDigitValue(c);
        if (value < 0) continue;
        if (high < 0) {
            high = value;
        } else {
            out += static_cast<char>(high * 16 + value);
            high = -1;
        }
    }
    return out;
}

std::string XorText(std::string_view text, std::string_view key) {
    if (text.size() < key.size()) return {};
    if (key.empty()) return std::string(text);
    std::string out(text);
    for (size_t i = 1; i <= out.size(); ++i) {
        const char k = i <= key.size() ? key[i - 1] : key[i % key.size()];
        out[i - 1] = static_cast<char>(out[i - 1] ^ k);
    }
    return out;
}

std::string RandomBytes(size_t count, RandomSource& random) {
    std::string out(count, '\0');
    random.Fill(reinterpret_cast<uint8_t*>(out.data()), count);
    return out;
}

std::string ScrambleBlock(std::string_view mode, std::string_view text, RandomSource& random) {
    const std::string& positions = BlockPositions();
    if (mode == "E") {
        if (text.size() > kBlockSize - 1) return {};
        // 1. A random block; the length, times the factor, in its last character; the text
        //    just before it.
        std::string block = RandomBytes(kBlockSize, random);
        block[kBlockSize - 1] = static_cast<char>(text.size() * kLengthFactor);
        block.replace(kBlockSize - 1 - text.size(), text.size(), text);
        // 2. The XOR stage, then the characters in the order of the table, rotated.
        block = XorText(block, BlockMask());
        std::string out(kBlockSize, '\0');
        for (size_t i = 1; i <= kBlockSize; ++i) {
            const auto code = static_cast<uint8_t>(block[static_cast<uint8_t>(positions[i - 1])]);
            out[i - 1] = static_cast<char>(i % 2 == 1 ? RotateRight(code) : RotateLeft(code));
        }
        return out;
    }
    if (text.size() != kBlockSize) return {};
    std::string block(kBlockSize, '\0');
    for (size_t i = 1; i <= kBlockSize; ++i) {
        const auto code = static_cast<uint8_t>(text[i - 1]);
        block[static_cast<uint8_t>(positions[i - 1])] =
            static_cast<char>(i % 2 == 1 ? RotateLeft(code) : RotateRight(code));
    }
    block = XorText(block, BlockMask());
    const size_t length = static_cast<uint8_t>(block[kBlockSize - 1]) / kLengthFactor;
    if (length > kBlockSize - 1) return {};
    return block.substr(kBlockSize - 1 - length, length);
}

}  // namespace vq
