#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "platform/Error.h"
#include "platform/Random.h"
#include "storage/EncStr.h"
#include "storage/Enkripcija.h"

namespace vq {
namespace {

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
    EXPECT_EQ(HexDecode("00FF7f"), std::string("\x00\xFF", 2));  // lower-case digits are skipped
    EXPECT_EQ(HexDecode("0-x A"), "\n");  // others don't break a pair under way
    EXPECT_EQ(HexDecode("0A4"), "\n");    // a last digit alone is dropped
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
        for (char c : table)
            EXPECT_TRUE(c > 32 && c < 127 && c != '<' && c != '>' && c != '&') << c;
    }
}

TEST(Enkripcija, RotationsAndXor) {
    EXPECT_EQ(RotateLeft(0), 0);
    EXPECT_EQ(RotateRight(255), 255);
    EXPECT_EQ(RotateLeft(0x81), 0x03);
    EXPECT_EQ(RotateRight(0x81), 0xC0);
    // Beyond the key's length, character i takes key character (i mod 3) + 1.
    EXPECT_EQ(XorText(std::string(5, '\0'), "abc"), "abcbc");
    EXPECT_EQ(XorText("ab", "abc"), "");
}

// Stored passwords and environments, and clients' encrypted files, must stay readable: the
// forms are pinned by texts scrambled with a seeded source.
TEST(Scrambling, KnownTextsScrambleAndUnscrambleExactly) {
    const std::string kHighCodes("\x00\x80\xff\x7f\x01", 5);
    const std::pair<std::string, const char*> blocks[] = {
        {"", "C82982AF791393D00ED0A8FA2C097E9345D48E106B8CA0227D84E90BF252C35E4AEAB6671BB0CDC1"},
        {"p", "C82982AF791393D00ED0A8FAAE097E9345D48E106B8CA0227D84E90BF252C3B04AEAB6671BB0CDC1"},
        {"pass word",
         "C82982AF791393D00ED0A8FABA097E9398D48E1E6B34A032AD84E90BF25225984AEA26671B8ECDC1"},
        {"123456789012345678901234567890123456789",
         "AF9631388EEC2DDA222CA7B4CD380D34B8DC888A08B60CB00EB82FF40D308C222EB6ACD28D3E2D9C"},
        {kHighCodes,
         "C82982AF791393D00ED0A8FAA0097E9345D48E046BDBA0227D84E90BF252C3524AEA36671BAFCDC1"}};
    for (const auto& [plain, hex] : blocks) {
        SeededRandom random(7);
        EXPECT_EQ(HexEncode(ScrambleBlock("E", plain, random)), hex) << plain;
        EXPECT_EQ(ScrambleBlock("D", HexDecode(hex)), plain) << hex;
    }
    EXPECT_EQ(ScrambleBlock("E", std::string(40, 'x')), "");
    EXPECT_EQ(ScrambleBlock("D", std::string(39, 'x')), "");
    EXPECT_EQ(ScrambleBlock("D", std::string(41, 'x')), "");
    const std::pair<std::string, const char*> texts[] = {{"", "[[Rl-8]jE^XBA"},
                                                         {"a", "[[Rl-8X/jE^XBA"},
                                                         {"ab", "[[Rl-8X6?jE^XBA"},
                                                         {"abc", "[[Rl-8X6j#jE^XBA"},
                                                         {"pass word", "[[Rl-8lFj`W6K_?!/BjE^XBA"},
                                                         {kHighCodes, "[[Rl-8R`}nc.1jE^XBA"}};
    for (const auto& [plain, encoded] : texts) {
        SeededRandom random(7);
        EXPECT_EQ(EncodeEncStr(plain, random), encoded) << plain;
        EXPECT_EQ(DecodeEncStr(encoded), plain) << encoded;
    }
}

TEST(Scrambling, TwoScramblesOfOneTextDiffer) {
    const std::string a = ScrambleBlock("E", "password"), b = ScrambleBlock("E", "password");
    EXPECT_NE(a, b);
    EXPECT_EQ(ScrambleBlock("D", b), "password");
    EXPECT_NE(EncodeEncStr("same text"), EncodeEncStr("same text"));
}

TEST(Enkripcija, DamagedLengthCharacterGivesNoText) {
    // Scrambled blocks of a random text decode to a length of 0 to 51; above 39 is refused.
    SeededRandom random(3);
    for (int i = 0; i < 500; ++i) {
        const std::string text = ScrambleBlock("D", RandomBytes(kBlockSize, random));
        EXPECT_LE(text.size(), 39u);
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

}  // namespace
}  // namespace vq
