// Block scrambling and the scrambled text form: pinned samples, randomness, damaged input.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "platform/Error.h"
#include "platform/Random.h"
#include "storage/EncStr.h"
#include "storage/Enkripcija.h"

namespace vq {
namespace {

// Stored passwords and environments, and clients' encrypted files, must stay readable: the
// forms are pinned by texts scrambled with a seeded source.
TEST(Scrambling, KnownTextsScrambleAndUnscrambleExactly) {
    const std::string kHighCodes("\x00\x80\xff\x7f\x01", 5);
    const std::pair<std::string, const char*> blocks[] = {
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
    const std::pair<std::string, const char*> texts[] = {{"", "[[Rl-8]jE^XBA"},
                                                         {kHighCodes, "[[Rl-8R`}nc.1jE^XBA"}};
    for (const auto& [plain, encoded] : texts) {
        SeededRandom random(7);
        EXPECT_EQ(EncodeEncStr(plain, random), encoded) << plain;
        EXPECT_EQ(DecodeEncStr(encoded), plain) << encoded;
    }
}

TEST(Scrambling, TwoScramblesOfOneTextDiffer) {
    EXPECT_NE(ScrambleBlock("E", "password"), ScrambleBlock("E", "password"));
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

// The pinned samples share one pad; fresh keys and frames bring every pad from 0 to 4, each a
// character more in the frame of twelve and the body.
TEST(EncStr, EveryPadDecodesAndTheFrameHoldsTwelvePlusPadCharacters) {
    const size_t expectedBody[] = {1, 2, 3, 4, 6, 7, 8};
    for (size_t length = 0; length < 7; ++length) {
        std::set<size_t> sizes;
        for (int round = 0; round < 200; ++round) {
            const std::string text(length, static_cast<char>(round));
            const std::string encoded = EncodeEncStr(text);
            sizes.insert(encoded.size());
            EXPECT_EQ(DecodeEncStr(encoded), text);
        }
        const size_t least = 12 + expectedBody[length];
        EXPECT_EQ(sizes, (std::set<size_t>{least, least + 1, least + 2, least + 3, least + 4}));
    }
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

}  // namespace
}  // namespace vq
