#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "platform/Error.h"
#include "platform/Random.h"
#include "storage/EncStr.h"
#include "storage/Enkripcija.h"

namespace vq {
namespace {

// `length` bytes that run through all 256 codes, starting at a random one.
std::string AllCodes(size_t length, RandomSource& random) {
    std::string text(length, '\0');
    const uint8_t start = random.NextByte();
    for (size_t i = 0; i < length; ++i)
        text[i] = static_cast<char>(static_cast<uint8_t>(start + i * 7 + (i / 256)));
    return text;
}

int PlaceIn(int table, char c) {
    const size_t place = CodeTables()[static_cast<size_t>(table)].find(c);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

// The pad count of an encoded text, from its characters 1, 4 and 6 alone.
int PadOf(const std::string& encoded) {
    return ((PlaceIn(5, encoded[0]) & 12) | (PlaceIn(3, encoded[3]) & 3) |
            (PlaceIn(1, encoded[5]) & 48)) %
           5;
}

TEST(Enkripcija, HexEncodeAndDecode) {
    EXPECT_EQ(HexEncode("\n"), "0A");
    EXPECT_EQ(HexEncode(std::string("\x00\xFF", 2), ":"), "00:FF:");
    EXPECT_EQ(HexDecode("0A"), "\n");
    EXPECT_EQ(HexDecode("0a"), "");       // lower-case digits are skipped
    EXPECT_EQ(HexDecode("0-x A"), "\n");  // others don't break a pair under way
    EXPECT_EQ(HexDecode("0A4"), "\n");    // a last digit alone is dropped
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    EXPECT_EQ(HexDecode(HexEncode(all)), all);
}

TEST(Scrambling, ConstantsHaveTheirForms) {
    const std::string& positions = BlockPositions();
    ASSERT_GE(positions.size(), kBlockSize);
    std::set<int> seen;
    for (size_t i = 0; i < kBlockSize; ++i) seen.insert(static_cast<uint8_t>(positions[i]));
    EXPECT_EQ(seen.size(), kBlockSize);
    EXPECT_EQ(*seen.rbegin(), 39);
    ASSERT_EQ(BlockMask().size(), 15u);
    for (char c : BlockMask()) EXPECT_TRUE(c > 32 && c < 127);
    // The code tables hold 64 different printable characters, none of them markup.
    for (std::string_view table : CodeTables()) {
        ASSERT_EQ(table.size(), 64u);
        EXPECT_EQ(std::set<char>(table.begin(), table.end()).size(), 64u);
        for (char c : table) EXPECT_TRUE(c > 32 && c < 127 && c != '<' && c != '>' && c != '&') << c;
    }
}

TEST(Enkripcija, RotationsAreInversesAndKeep0And255) {
    EXPECT_EQ(RotateLeft(0), 0);
    EXPECT_EQ(RotateRight(255), 255);
    EXPECT_EQ(RotateLeft(0x81), 0x03);
    EXPECT_EQ(RotateRight(0x81), 0xC0);
    for (int c = 0; c < 256; ++c) EXPECT_EQ(RotateRight(RotateLeft(static_cast<uint8_t>(c))), c);
}

TEST(Enkripcija, XorTextTakesKeyCharactersByItsRule) {
    const std::string zeros(5, '\0');
    // Beyond the key's length, character i takes key character (i mod 3) + 1.
    EXPECT_EQ(XorText(zeros, "abc"), "abcbc");
    EXPECT_EQ(XorText("ab", "abc"), "");
    EXPECT_EQ(XorText(XorText("secret text", "key"), "key"), "secret text");
}

TEST(Enkripcija, BlocksRoundTripForEveryLengthUpTo39) {
    SeededRandom content(1);
    for (size_t length = 0; length <= 39; ++length) {
        for (const std::string& text : {AllCodes(length, content), RandomBytes(length, content)}) {
            const std::string block = ScrambleBlock("E", text);
            ASSERT_EQ(block.size(), kBlockSize) << length;
            EXPECT_EQ(ScrambleBlock("D", block), text) << length;
        }
    }
    EXPECT_EQ(ScrambleBlock("E", std::string(40, 'x')), "");
    EXPECT_EQ(ScrambleBlock("D", std::string(39, 'x')), "");
    EXPECT_EQ(ScrambleBlock("D", std::string(41, 'x')), "");
}

TEST(Scrambling, TwoScramblesDifferAndSeededOnesRepeat) {
    const std::string a = ScrambleBlock("E", "password"), b = ScrambleBlock("E", "password");
    EXPECT_NE(a, b);
    EXPECT_EQ(ScrambleBlock("D", a), "password");
    EXPECT_EQ(ScrambleBlock("D", b), "password");
    EXPECT_NE(EncodeEncStr("same text"), EncodeEncStr("same text"));
    SeededRandom first(7), second(7);
    EXPECT_EQ(ScrambleBlock("E", "password", first), ScrambleBlock("E", "password", second));
    EXPECT_EQ(EncodeEncStr("same text", first), EncodeEncStr("same text", second));
}

TEST(Enkripcija, DamagedLengthCharacterGivesNoText) {
    // Scrambled blocks of a random text decode to a length of 0 to 51; above 39 is refused.
    SeededRandom random(3);
    for (int i = 0; i < 500; ++i) {
        const std::string text = ScrambleBlock("D", RandomBytes(kBlockSize, random));
        EXPECT_LE(text.size(), 39u);
    }
}

TEST(EncStr, TextsRoundTripForEveryLengthUpTo2000) {
    SeededRandom content(11);
    for (size_t length = 0; length <= 2000; ++length) {
        for (const std::string& text : {AllCodes(length, content), RandomBytes(length, content)}) {
            const std::string encoded = EncodeEncStr(text);
            for (char c : encoded) ASSERT_TRUE(c > 32 && c < 127) << length;
            ASSERT_EQ(DecodeEncStr(encoded), text) << length;
        }
    }
}

TEST(EncStr, BodyLengthsAndPadComeFromTheFrame) {
    const size_t expectedBody[] = {1, 2, 3, 4, 6, 7, 8};
    std::set<int> pads;
    for (int round = 0; round < 200; ++round) {
        for (size_t length = 0; length < 7; ++length) {
            const std::string encoded = EncodeEncStr(std::string(length, 'q'));
            const int pad = PadOf(encoded);
            pads.insert(pad);
            EXPECT_EQ(encoded.size(), 12 + static_cast<size_t>(pad) + expectedBody[length])
                << length;
        }
    }
    EXPECT_EQ(pads, (std::set<int>{0, 1, 2, 3, 4}));
}

TEST(EncStr, FillerCharactersOfTheFrameDontMatter) {
    // Frame characters 7, 9 and 10 and the pad are random filler: only 1, 4 and 6 tell the pad.
    for (int round = 0; round < 100; ++round) {
        std::string encoded = EncodeEncStr("filler test");
        const size_t n = encoded.size(), pad = static_cast<size_t>(PadOf(encoded));
        const size_t f7 = n - pad - 6;  // frame characters 7 to 11 stand before the pad and K[1]
        encoded[f7] = CodeTables()[4][static_cast<size_t>(round % 64)];
        encoded[f7 + 2] = CodeTables()[2][static_cast<size_t>(round % 64)];
        encoded[f7 + 3] = CodeTables()[0][static_cast<size_t>(round % 64)];
        for (size_t p = 0; p < pad; ++p)
            encoded[f7 + 5 + p] = CodeTables()[3][static_cast<size_t>((round + p) % 64)];
        EXPECT_EQ(DecodeEncStr(encoded), "filler test");
    }
}

TEST(EncStr, KeysHaveHalvesOf1To14AndSurviveTheirText) {
    SeededRandom random(9);
    std::set<int> halves;
    for (int i = 0; i < 500; ++i) {
        const EncKey key = MakeKey(random);
        for (uint8_t byte : key) {
            halves.insert(byte >> 4);
            halves.insert(byte & 15);
        }
        const std::string text = KeyToText(key);
        ASSERT_EQ(text.size(), 6u);
        EXPECT_EQ(TextToKey(text), key);
        EXPECT_EQ(PlaceIn(0, text[0]) % 9, 8);  // places 9, 18, 27 or 36 counted from 1
    }
    EXPECT_EQ(*halves.begin(), 1);
    EXPECT_EQ(*halves.rbegin(), 14);
    EXPECT_EQ(halves.size(), 14u);
}

TEST(EncStr, NextKeySwapsBitGroupsAsWorkedOutByHand) {
    // C becomes 6, S = 171, a = 2, b = 2 -> 4, group c = 4 (mask 192): bytes 2 and 4 swap
    // their top bits, bytes 3 and 1 have none to swap.
    int counter = 5;
    const EncKey next = NextKey({0x11, 0x22, 0x33, 0x44}, counter);
    EXPECT_EQ(counter, 6);
    EXPECT_EQ(next, (EncKey{0x11, 0x62, 0x33, 0x04}));
}

TEST(EncStr, MaskTextIsItsOwnInverse) {
    const EncKey key{0x5A, 0x1E, 0xE1, 0x77};
    const std::string text = "a text longer than a few running keys";
    const std::string masked = MaskText(text, key);
    EXPECT_NE(masked, text);
    EXPECT_EQ(MaskText(masked, key), text);
}

TEST(EncStr, ToText64PlacesTheBitsInTheirTables) {
    const auto& t = CodeTables();
    // 0x41: low 1, high 1; 0xFF: low 63, high 3; 0x80: low 0, high 2.
    const std::string full = ToText64("\x41\xFF\x80");
    EXPECT_EQ(full, (std::string{t[1][1], t[2][63], t[3][1 * 16 + 2 * 4 + 3], t[4][0]}));
    EXPECT_EQ(ToText64("\x41\xFF"), (std::string{t[1][1], t[2][63], t[3][1 * 16 + 3]}));
    const std::string one = ToText64("\x41");
    ASSERT_EQ(one.size(), 2u);
    EXPECT_EQ(one[0], t[1][1]);
    EXPECT_EQ(PlaceIn(3, one[1]) >> 4, 1);
    ASSERT_EQ(ToText64("").size(), 1u);
    EXPECT_LT(PlaceIn(3, ToText64("")[0]), 16);
    EXPECT_EQ(FromText64(full), "\x41\xFF\x80");
    EXPECT_EQ(FromText64(one), "\x41");
}

TEST(EncStr, TextThatNoEncodingGaveRaisesAnError) {
    for (const std::string& bad : std::vector<std::string>{
             "", "short", "           ", "<<<<<<<<<<<<<<<<", std::string(40, '\0')}) {
        EXPECT_THROW(DecodeEncStr(bad), VqError) << bad;
    }
    std::string encoded = EncodeEncStr("some text");
    encoded[8] = ' ';
    EXPECT_THROW(DecodeEncStr(encoded), VqError);
}

TEST(EncStr, RandomTextStaysPrintableWhenAsked) {
    const std::string text = RandomText(2000, true);
    ASSERT_EQ(text.size(), 2000u);
    for (char c : text) EXPECT_GE(static_cast<uint8_t>(c), 32);
    EXPECT_EQ(RandomText(0, false), "");
}

TEST(Scrambling, StoredPasswordComesBackThroughBothRoutines) {
    // A password block, hex in the task file, stored with two random characters behind its
    // seventh character and text-scrambled, then read back.
    const std::string column = HexEncode(ScrambleBlock("E", "pass word"));
    std::string stored = HexDecode(column);
    stored.insert(7, RandomText(2, false));
    const std::string decoded = DecodeEncStr(EncodeEncStr(stored));
    EXPECT_EQ(HexEncode(decoded.substr(0, 7) + decoded.substr(9)), column);
    EXPECT_EQ(ScrambleBlock("D", HexDecode(column)), "pass word");
}

}  // namespace
}  // namespace vq
