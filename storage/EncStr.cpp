#include "storage/EncStr.h"

#include "platform/Error.h"

namespace vq {
namespace {

constexpr size_t kFrameSize = 11;  // frame characters before the pad
constexpr size_t kFrameHead = 6;   // frame characters before the body

// Six tables of 64 different printable characters: no blank, no quote, no backslash, no
// "<", ">" or "&", so that a scrambled text stands in a tagged line as it is.
constexpr std::array<std::string_view, 6> kCodeTables = {
    "dQLhunmpG%5b,KU~;_X*zR?wi+A'Fv.V7(kj!E]=@lB#N`o6P04ct}JH:aseS/$9",
    "'?ai$(F@PwXZ[Cf4Lko):#x*%O{lJ`S~,8qcU/H|QE1R+^hWDY}!]6u=tG7.r;AT",
    "#J/c]'eLTPEQFqa6?fNCt$^wAn*V1+5Y8~!79BxUsbk-h`.iM2D4=y0;pXj,I[or",
    "({!OZn-JYD^by6]FwL:3sN,9kX[R$Q.~z`1t}ToCquUIWVK2l'm?AvE*c7ifB+/j",
    "J#j4ZEW=I$8Bc5iD]`~){R+,Hy391n_qQ'aX(zfYxFUo.P/K!2gAV:MlNh%;ukr?",
    "t*;p/r1j[SsAV$}(#0KvkH=nTJ3cEq%CMl]xhbzBi{UP!X8^L,')o7+-W9?|DGmy",
};

// For each table, the 0-based place of each character, or -1.
struct ReverseTables {
    std::array<std::array<int8_t, 256>, 6> place{};
    ReverseTables() {
        for (size_t t = 0; t < kCodeTables.size(); ++t) {
            place[t].fill(-1);
            for (size_t i = 0; i < kCodeTables[t].size(); ++i)
                place[t][static_cast<unsigned char>(kCodeTables[t][i])] = static_cast<int8_t>(i);
        }
    }
};

[[noreturn]] void ThrowBadText() {
    throw VqError("Invalid procedure call or argument", 5, "DecodeEncStr");
}

// The 0-based place of `c` in table `table`.
int PlaceIn(int table, char c) {
    static const ReverseTables reverse;
    const int place = reverse.place[static_cast<size_t>(table)][static_cast<unsigned char>(c)];
    if (place < 0) ThrowBadText();
    return place;
}

char CodeAt(int table, unsigned place) {
    return kCodeTables[static_cast<size_t>(table)][place & 63];
}

// The pad count, from the bits that frame characters 1, 4 and 6 carry.
unsigned PadCount(unsigned r1, unsigned r2, unsigned r3) {
    return ((r1 & 12) | (r2 & 3) | (r3 & 48)) % 5;
}

void SwapBitGroup(uint8_t& x, uint8_t& y, uint8_t mask) {
    const uint8_t gx = x & mask, gy = y & mask;
    x = static_cast<uint8_t>((x & ~mask) | gy);
    y = static_cast<uint8_t>((y & ~mask) | gx);
}

uint8_t Low6(uint8_t b) { return b & 63; }
uint8_t High2(uint8_t b) { return b >> 6; }

}  // namespace

const std::array<std::string_view, 6>& CodeTables() { return kCodeTables; }

std::string RandomText(size_t length, bool printable, RandomSource& random) {
    std::string out(length, '\0');
    for (char& c : out) {
        unsigned code = random.Below(10000) % 256;
        if (printable && code < 32) code += 32;
        c = static_cast<char>(code);
    }
    return out;
}

EncKey MakeKey(RandomSource& random) {
    EncKey key{};
    for (uint8_t& byte : key) {
        const unsigned high = 1 + random.Below(14), low = 1 + random.Below(14);
        byte = static_cast<uint8_t>(high << 4 | low);
    }
    return key;
}

std::string KeyToText(const EncKey& key) {
    const uint32_t value = static_cast<uint32_t>(key[0] & 63) << 24 |
                           static_cast<uint32_t>(key[1]) << 16 |
                           static_cast<uint32_t>(key[2]) << 8 | key[3];
    std::string text(6, '\0');
    text[0] = CodeAt(0, (key[0] / 64u + 1) * 9 - 1);
    for (int i = 0; i < 5; ++i) text[1 + i] = CodeAt(1 + i, value >> (6 * (4 - i)));
    return text;
}

EncKey TextToKey(std::string_view keyText) {
    if (keyText.size() != 6) ThrowBadText();
    const unsigned top = static_cast<unsigned>(PlaceIn(0, keyText[0])) / 9;
    uint32_t value = 0;
    for (int i = 0; i < 5; ++i)
        value = value << 6 | static_cast<uint32_t>(PlaceIn(1 + i, keyText[1 + i]));
    return {static_cast<uint8_t>(top << 6 | (value >> 24 & 63)), static_cast<uint8_t>(value >> 16),
            static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

std::string WrapKey(std::string_view k, RandomSource& random) {
    const unsigned r1 = random.Below(64), r2 = random.Below(64), r3 = random.Below(64);
    std::string frame;
    frame.reserve(kFrameSize + 5);
    frame += CodeAt(5, r1);
    frame += k[3];
    frame += k[1];
    frame += CodeAt(3, r2);
    frame += k[2];
    frame += CodeAt(1, r3);
    frame += CodeAt(4, random.Below(64));
    frame += k[5];
    frame += CodeAt(2, random.Below(64));
    frame += CodeAt(0, random.Below(64));
    frame += k[4];
    for (unsigned pad = PadCount(r1, r2, r3); pad > 0; --pad) frame += CodeAt(3, random.Below(64));
    frame += k[0];
    return frame;
}

EncKey NextKey(const EncKey& key, int& counter) {
    ++counter;
    const unsigned c = static_cast<unsigned>(counter);
    const unsigned s = 1u + key[0] + key[1] + key[2] + key[3];
    const unsigned a = (c + s) % 4 + 1;
    unsigned b = (c % 3 + s % 5) % 4 + 1;
    if (b == a) b = a > 2 ? a - 2 : a + 2;
    const unsigned group = (c % 5 + a + b) % 4 + 1;
    const auto mask = static_cast<uint8_t>(3u << (2 * (group - 1)));
    EncKey next = key;
    SwapBitGroup(next[a - 1], next[b - 1], mask);
    SwapBitGroup(next[4 - a], next[4 - b], mask);
    return next;
}

std::string MaskText(std::string_view text, const EncKey& key) {
    std::string out(text);
    int counter = 5;
    EncKey running = NextKey(key, counter);
    for (size_t i = 0; i < out.size(); ++i) {
        const size_t j = i % 4;
        out[i] = static_cast<char>(out[i] ^ running[j]);
        if (j == 3) running = NextKey(running, counter);
    }
    return out;
}

std::string ToText64(std::string_view bytes, RandomSource& random) {
    std::string out;
    out.reserve(bytes.size() / 3 * 4 + 4);
    const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const uint8_t b0 = at(i), b1 = at(i + 1), b2 = at(i + 2);
        out += CodeAt(1, Low6(b0));
        out += CodeAt(2, Low6(b1));
        out += CodeAt(3, High2(b0) * 16u + High2(b2) * 4u + High2(b1));
        out += CodeAt(4, Low6(b2));
    }
    const size_t rest = bytes.size() - i;
    if (rest == 1) {
        const uint8_t b0 = at(i);
        out += CodeAt(1, Low6(b0));
        out += CodeAt(3, High2(b0) * 16u + random.Below(16));
    } else if (rest == 2) {
        const uint8_t b0 = at(i), b1 = at(i + 1);
        out += CodeAt(1, Low6(b0));
        out += CodeAt(2, Low6(b1));
        out += CodeAt(3, High2(b0) * 16u + High2(b1));
    } else if (bytes.empty()) {
        out += CodeAt(3, random.Below(16));
    }
    return out;
}

std::string FromText64(std::string_view text) {
    std::string out;
    out.reserve(text.size() / 4 * 3 + 2);
    const auto high = [](int place, int shift) {
        return static_cast<unsigned>(place >> shift & 3) << 6;
    };
    size_t i = 0;
    for (; i + 4 <= text.size(); i += 4) {
        const int h = PlaceIn(3, text[i + 2]);
        out += static_cast<char>(static_cast<unsigned>(PlaceIn(1, text[i])) | high(h, 4));
        out += static_cast<char>(static_cast<unsigned>(PlaceIn(2, text[i + 1])) | high(h, 0));
        out += static_cast<char>(static_cast<unsigned>(PlaceIn(4, text[i + 3])) | high(h, 2));
    }
    const size_t rest = text.size() - i;
    if (rest == 2) {
        const int h = PlaceIn(3, text[i + 1]);
        out += static_cast<char>(static_cast<unsigned>(PlaceIn(1, text[i])) | high(h, 4));
    } else if (rest == 3) {
        const int h = PlaceIn(3, text[i + 2]);
        out += static_cast<char>(static_cast<unsigned>(PlaceIn(1, text[i])) | high(h, 4));
        out += static_cast<char>(static_cast<unsigned>(PlaceIn(2, text[i + 1])) | high(h, 0));
    }
    return out;
}

std::string EncodeEncStr(std::string_view text, RandomSource& random) {
    const EncKey key = MakeKey(random);
    const std::string frame = WrapKey(KeyToText(key), random);
    const std::string body = ToText64(MaskText(text, key), random);
    std::string out;
    out.reserve(frame.size() + body.size());
    out.append(frame, 0, kFrameHead);
    out += body;
    out.append(frame, kFrameHead, std::string::npos);
    return out;
}

std::string DecodeEncStr(std::string_view text) {
    const size_t n = text.size();
    if (n < kFrameSize + 1) ThrowBadText();
    // 1. The pad count from frame characters 1, 4 and 6.
    const unsigned pad = PadCount(static_cast<unsigned>(PlaceIn(5, text[0])),
                                  static_cast<unsigned>(PlaceIn(3, text[3])),
                                  static_cast<unsigned>(PlaceIn(1, text[5])));
    if (n < kFrameSize + 1 + pad) ThrowBadText();
    // 2. The key's six characters from their places in the frame.
    std::string k(6, '\0');
    k[0] = text[n - 1];
    k[1] = text[2];
    k[2] = text[4];
    k[3] = text[1];
    k[4] = text[n - pad - 2];
    k[5] = text[n - pad - 5];
    const EncKey key = TextToKey(k);
    // 3. The body between frame character 6 and the rest of the frame.
    const std::string_view body = text.substr(kFrameHead, n - pad - kFrameSize - 1);
    return MaskText(FromText64(body), key);
}

}  // namespace vq
