#include "runner/records/Records.h"

#include <cassert>

#include "platform/Error.h"

namespace vq {
namespace {

// Appends fields in order; the offsets follow from the sizes.
class Writer {
public:
    explicit Writer(size_t size) { bytes_.reserve(size); }
    void Long(int32_t v) { Int(static_cast<uint64_t>(static_cast<uint32_t>(v)), 4); }
    void Int64(int64_t v) { Int(static_cast<uint64_t>(v), 8); }
    void Byte(uint8_t v) { bytes_.push_back(static_cast<char>(v)); }
    void Text(std::string_view v, size_t width) { bytes_ += FixedText(v, width); }
    std::string Take() { return std::move(bytes_); }

private:
    void Int(uint64_t v, int size) {
        for (int i = 0; i < size; ++i) bytes_.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    }
    std::string bytes_;
};

class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}
    int32_t Long() { return static_cast<int32_t>(static_cast<uint32_t>(Int(4))); }
    int64_t Int64() { return static_cast<int64_t>(Int(8)); }
    uint8_t Byte() { return static_cast<uint8_t>(bytes_.at(at_++)); }
    std::string Text(size_t width) {
        std::string value(bytes_.substr(at_, width));
        at_ += width;
        return value;
    }

private:
    uint64_t Int(int size) {
        uint64_t v = 0;
        for (int i = 0; i < size; ++i) v |= static_cast<uint64_t>(static_cast<uint8_t>(bytes_.at(at_ + i))) << (8 * i);
        at_ += size;
        return v;
    }
    std::string_view bytes_;
    size_t at_ = 0;
};

// A record is read only from exactly its own number of bytes.
void CheckSize(std::string_view bytes, size_t size, const char* record) {
    if (bytes.size() != size)
        throw VqError(std::string(record) + " of " + std::to_string(bytes.size()) + " bytes; " +
                      std::to_string(size) + " expected");
}

}  // namespace

std::string FixedText(std::string_view value, size_t width) {
    std::string text(value.substr(0, width));
    text.resize(width, ' ');
    return text;
}

std::string CommandRecord::Encode() const {
    Writer w(kSize);
    w.Text(Command, 4);
    w.Long(Argument);
    return w.Take();
}

CommandRecord CommandRecord::Decode(std::string_view bytes) {
    CheckSize(bytes, kSize, "CommandRecord");
    Reader r(bytes);
    CommandRecord c;
    c.Command = r.Text(4);
    c.Argument = r.Long();
    return c;
}

std::string StartRecord::Encode() const {
    Writer w(kSize);
    for (int32_t v : {ConsMode, WindowX, WindowY, WindowWidth, WindowHeight, BufferWidth,
                      BufferHeight, TaskId, StepNumber, Priority})
        w.Long(v);
    w.Text(UserName, 40);
    w.Text(Password, 40);
    w.Text(Reserved1, 40);
    w.Text(TaskName, 32);
    w.Text(SubmitTime, 32);
    w.Long(CommandLength);
    w.Long(FileRcLength);
    w.Long(EnvironLength);
    w.Text(WorkDir, 256);
    w.Text(OutputFile, 256);
    w.Text(UserFolder, 256);
    w.Text(TaskIdText, 32);
    for (int32_t v : {TaskMaxRc, TaskRc, StepMinRc, StepMaxRc, RepeatCount, Reserved2, Reserved3,
                      SearchBlockSize, MaxSearchSegment, MaxLineSize, CaptureDelay, Reserved4})
        w.Long(v);
    w.Byte(OsKind);
    std::string bytes = w.Take();
    assert(bytes.size() == kSize);
    return bytes;
}

StartRecord StartRecord::Decode(std::string_view bytes) {
    CheckSize(bytes, kSize, "StartRecord");
    Reader r(bytes);
    StartRecord s;
    for (int32_t* v : {&s.ConsMode, &s.WindowX, &s.WindowY, &s.WindowWidth, &s.WindowHeight,
                       &s.BufferWidth, &s.BufferHeight, &s.TaskId, &s.StepNumber, &s.Priority})
        *v = r.Long();
    s.UserName = r.Text(40);
    s.Password = r.Text(40);
    s.Reserved1 = r.Text(40);
    s.TaskName = r.Text(32);
    s.SubmitTime = r.Text(32);
    s.CommandLength = r.Long();
    s.FileRcLength = r.Long();
    s.EnvironLength = r.Long();
    s.WorkDir = r.Text(256);
    s.OutputFile = r.Text(256);
    s.UserFolder = r.Text(256);
    s.TaskIdText = r.Text(32);
    for (int32_t* v : {&s.TaskMaxRc, &s.TaskRc, &s.StepMinRc, &s.StepMaxRc, &s.RepeatCount,
                       &s.Reserved2, &s.Reserved3, &s.SearchBlockSize, &s.MaxSearchSegment,
                       &s.MaxLineSize, &s.CaptureDelay, &s.Reserved4})
        *v = r.Long();
    s.OsKind = r.Byte();
    return s;
}

std::string StartAck::Encode() const {
    Writer w(kSize);
    w.Text(AckTimes, 16);
    w.Text(AckStage, 8);
    w.Long(AckCode);
    return w.Take();
}

StartAck StartAck::Decode(std::string_view bytes) {
    CheckSize(bytes, kSize, "StartAck");
    Reader r(bytes);
    StartAck a;
    a.AckTimes = r.Text(16);
    a.AckStage = r.Text(8);
    a.AckCode = r.Long();
    return a;
}

std::string ReplyRecord::Encode() const {
    Writer w(kSize);
    w.Text(ReplyTimes, 16);
    w.Int64(CpuTimeA);
    w.Int64(CpuTimeB);
    w.Long(ReplySpare1);
    w.Long(PeakMemory);
    w.Int64(IoCount);
    w.Text(ReplyStage, 8);
    w.Long(WaitStatus);
    w.Long(ReplySpare2);
    w.Long(ReplySpare3);
    w.Long(StepRc);
    w.Byte(static_cast<uint8_t>(ReplyFlag1));
    w.Byte(CountersValid);
    w.Byte(RunnerState);
    w.Byte(static_cast<uint8_t>(ReplyFlag2));
    w.Long(ReplyTextLength);
    return w.Take();
}

ReplyRecord ReplyRecord::Decode(std::string_view bytes) {
    CheckSize(bytes, kSize, "ReplyRecord");
    Reader r(bytes);
    ReplyRecord p;
    p.ReplyTimes = r.Text(16);
    p.CpuTimeA = r.Int64();
    p.CpuTimeB = r.Int64();
    p.ReplySpare1 = r.Long();
    p.PeakMemory = r.Long();
    p.IoCount = r.Int64();
    p.ReplyStage = r.Text(8);
    p.WaitStatus = r.Long();
    p.ReplySpare2 = r.Long();
    p.ReplySpare3 = r.Long();
    p.StepRc = r.Long();
    p.ReplyFlag1 = static_cast<char>(r.Byte());
    p.CountersValid = r.Byte();
    p.RunnerState = r.Byte();
    p.ReplyFlag2 = static_cast<char>(r.Byte());
    p.ReplyTextLength = r.Long();
    return p;
}

}  // namespace vq
