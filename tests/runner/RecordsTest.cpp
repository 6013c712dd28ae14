// The records of the step runner link, byte by byte: every field at its offset, little-endian,
// text fields padded with blanks and cut at their width, and both directions agreeing.
#include "runner/records/Records.h"

#include <gtest/gtest.h>

#include "platform/Error.h"

namespace vq {
namespace {

int64_t IntAt(const std::string& bytes, size_t offset, int size) {
    uint64_t v = 0;
    for (int i = 0; i < size; ++i) v |= static_cast<uint64_t>(static_cast<uint8_t>(bytes.at(offset + i))) << (8 * i);
    if (size == 4) return static_cast<int32_t>(static_cast<uint32_t>(v));
    return static_cast<int64_t>(v);
}
int32_t LongAt(const std::string& bytes, size_t offset) { return static_cast<int32_t>(IntAt(bytes, offset, 4)); }
int64_t Int64At(const std::string& bytes, size_t offset) { return IntAt(bytes, offset, 8); }
std::string TextAt(const std::string& bytes, size_t offset, size_t width) { return bytes.substr(offset, width); }

TEST(FixedTextTest, PadsCutsAndKeepsEightBitCharacters) {
    EXPECT_EQ(FixedText("ab", 4), "ab  ");
    EXPECT_EQ(FixedText("abcdef", 4), "abcd");
    EXPECT_EQ(FixedText("\xE9t\xE9", 4), "\xE9t\xE9 ");
    EXPECT_EQ(FixedText(std::string("a\0b", 3), 4), std::string("a\0b ", 4));
}

// Negative numbers in two's complement are pinned by the acknowledgement and the reply.
TEST(CommandRecordTest, LayoutBothWays) {
    const std::string bytes = CommandRecord{"PRTY", 42}.Encode();
    EXPECT_EQ(bytes, std::string("PRTY\x2A\0\0\0", 8));
    EXPECT_EQ(CommandRecord::Decode(bytes).Encode(), bytes);
}

// Every number field of the start record with its offset and a value unlike its neighbours'.
const struct {
    int32_t StartRecord::*field;
    size_t offset;
    int32_t value;
} kStartNumbers[] = {
    {&StartRecord::ConsMode, 0, 7},          {&StartRecord::WindowX, 4, -1},
    {&StartRecord::WindowY, 8, -2},          {&StartRecord::WindowWidth, 12, -3},
    {&StartRecord::WindowHeight, 16, -4},    {&StartRecord::BufferWidth, 20, 600},
    {&StartRecord::BufferHeight, 24, 800},   {&StartRecord::TaskId, 28, 123456},
    {&StartRecord::StepNumber, 32, 3},       {&StartRecord::Priority, 36, 22},
    {&StartRecord::CommandLength, 224, 4097}, {&StartRecord::FileRcLength, 228, 0},
    {&StartRecord::EnvironLength, 232, 17},  {&StartRecord::TaskMaxRc, 1036, 1},
    {&StartRecord::TaskRc, 1040, 7},         {&StartRecord::StepMinRc, 1044, -5},
    {&StartRecord::StepMaxRc, 1048, 99},     {&StartRecord::RepeatCount, 1052, 12},
    {&StartRecord::Reserved2, 1056, 0},      {&StartRecord::Reserved3, 1060, 0},
    {&StartRecord::SearchBlockSize, 1064, 2048}, {&StartRecord::MaxSearchSegment, 1068, 1048576},
    {&StartRecord::MaxLineSize, 1072, 256},  {&StartRecord::CaptureDelay, 1076, -1},
    {&StartRecord::Reserved4, 1080, 0},
};
// Every text field with its offset, width and value; the work folder's is longer than its width.
const struct {
    std::string StartRecord::*field;
    size_t offset, width;
    std::string value;
} kStartTexts[] = {
    {&StartRecord::UserName, 40, 40, "$LOCALUSER$"},
    {&StartRecord::Password, 80, 40, std::string(40, '\x9C')},
    {&StartRecord::Reserved1, 120, 40, ""},
    {&StartRecord::TaskName, 160, 32, "Nightly backup"},
    {&StartRecord::SubmitTime, 192, 32, "2026-11-22 12:00:00"},
    {&StartRecord::WorkDir, 236, 256, "%VQS%/" + std::string(256, 'w')},
    {&StartRecord::OutputFile, 492, 256, "/q/$JobR/000123-Nightly backup/Step3.txt"},
    {&StartRecord::UserFolder, 748, 256, "/q/$LOCALS$/$LOCALUSER$/"},
    {&StartRecord::TaskIdText, 1004, 32, "123456"},
};

StartRecord FullStartRecord() {
    StartRecord s;
    for (const auto& f : kStartNumbers) s.*f.field = f.value;
    for (const auto& f : kStartTexts) s.*f.field = f.value;
    s.OsKind = 6;
    return s;
}

// Each field at its offset, texts padded or cut at their width; read back, the same bytes.
TEST(StartRecordTest, EveryFieldAtItsOffsetBothWays) {
    const std::string b = FullStartRecord().Encode();
    ASSERT_EQ(b.size(), 1085u);
    for (const auto& f : kStartNumbers) EXPECT_EQ(LongAt(b, f.offset), f.value) << f.offset;
    for (const auto& f : kStartTexts)
        EXPECT_EQ(TextAt(b, f.offset, f.width), FixedText(f.value, f.width)) << f.offset;
    EXPECT_EQ(static_cast<uint8_t>(b[1084]), 6);
    EXPECT_EQ(StartRecord::Decode(b).Encode(), b);
}

TEST(StartAckTest, LayoutBothWays) {
    StartAck ack;
    ack.AckTimes = "0123456789abcdefXYZ";
    ack.AckStage = "STARTED";
    ack.AckCode = -7;
    const std::string b = ack.Encode();
    EXPECT_EQ(b, "0123456789abcdefSTARTED " + std::string("\xF9\xFF\xFF\xFF", 4));
    EXPECT_EQ(StartAck::Decode(b).Encode(), b);
}

// Every 32-bit field of the reply with its offset and a value unlike its neighbours'.
const struct {
    int32_t ReplyRecord::*field;
    size_t offset;
    int32_t value;
} kReplyLongs[] = {{&ReplyRecord::ReplySpare1, 32, -9}, {&ReplyRecord::PeakMemory, 36, 204800},
                   {&ReplyRecord::WaitStatus, 56, 258}, {&ReplyRecord::ReplySpare2, 60, 11},
                   {&ReplyRecord::ReplySpare3, 64, 12}, {&ReplyRecord::StepRc, 68, 98},
                   {&ReplyRecord::ReplyTextLength, 76, -1}};

// Each field at its offset with its sign and width; read back, the same bytes.
TEST(ReplyRecordTest, EveryFieldAtItsOffsetBothWays) {
    ReplyRecord r;
    for (const auto& f : kReplyLongs) r.*f.field = f.value;
    r.ReplyTimes = "times";
    r.CpuTimeA = 0x0102030405060708LL;
    r.CpuTimeB = -36'000'000'000LL;
    r.IoCount = INT64_MAX;
    r.ReplyStage = "STAT";
    r.ReplyFlag1 = 'a';
    r.CountersValid = 1;
    r.RunnerState = 5;
    r.ReplyFlag2 = 'b';
    const std::string b = r.Encode();
    ASSERT_EQ(b.size(), 80u);
    EXPECT_EQ(TextAt(b, 0, 16), FixedText("times", 16));
    EXPECT_EQ(b.substr(16, 8), std::string("\x08\x07\x06\x05\x04\x03\x02\x01", 8));
    EXPECT_EQ(Int64At(b, 24), -36'000'000'000LL);
    EXPECT_EQ(Int64At(b, 40), INT64_MAX);
    EXPECT_EQ(TextAt(b, 48, 8), "STAT    ");
    EXPECT_EQ(b.substr(72, 4), "a\x01\x05" "b");
    for (const auto& f : kReplyLongs) EXPECT_EQ(LongAt(b, f.offset), f.value) << f.offset;
    EXPECT_EQ(ReplyRecord::Decode(b).Encode(), b);
}

TEST(Records, DecodeRefusesAnyOtherSize) {
    for (size_t size : {0u, 7u, 9u}) EXPECT_THROW(CommandRecord::Decode(std::string(size, ' ')), VqError);
    for (size_t size : {1084u, 1086u}) EXPECT_THROW(StartRecord::Decode(std::string(size, ' ')), VqError);
    EXPECT_THROW(StartAck::Decode(std::string(27, ' ')), VqError);
    for (size_t size : {79u, 81u}) EXPECT_THROW(ReplyRecord::Decode(std::string(size, ' ')), VqError);
}

}  // namespace
}  // namespace vq
