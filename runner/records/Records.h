#pragma once
// The fixed records on the pipes between the server and the step runner. One definition
// serves both ends. Integers are little-endian, text fields are fixed-width 8-bit text padded
// on the right with blanks and cut at their width; no padding between fields.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vq {

// Server to runner: a command and its argument.
struct CommandRecord {
    static constexpr size_t kSize = 8;
    std::string Command;   // four characters: "STAT", "DIAG", "STOP", "STRT", "PRTY", "KILL", "END "
    int32_t Argument = 0;  // a value for "DIAG" and "PRTY" only

    std::string Encode() const;
    // Each Decode takes exactly kSize bytes and throws VqError for any other size. Text
    // fields come back as they stand on the wire, padding included.
    static CommandRecord Decode(std::string_view bytes);
};

// Server to runner, once per step, followed by the Command, FileRC and Environ blocks.
struct StartRecord {
    static constexpr size_t kSize = 1085;
    int32_t ConsMode = 7;
    int32_t WindowX = -1, WindowY = -1, WindowWidth = -1, WindowHeight = -1;
    int32_t BufferWidth = 0, BufferHeight = 0;
    int32_t TaskId = 0;
    int32_t StepNumber = 0;
    int32_t Priority = 0;
    std::string UserName;    // 40
    std::string Password;    // 40: the scrambled block, never unscrambled by the server
    std::string Reserved1;   // 40 blanks
    std::string TaskName;    // 32
    std::string SubmitTime;  // 32
    int32_t CommandLength = 0, FileRcLength = 0, EnvironLength = 0;
    std::string WorkDir;     // 256
    std::string OutputFile;  // 256
    std::string UserFolder;  // 256
    std::string TaskIdText;  // 32
    int32_t TaskMaxRc = 0, TaskRc = 0, StepMinRc = 0, StepMaxRc = 0, RepeatCount = 0;
    int32_t Reserved2 = 0, Reserved3 = 0;
    int32_t SearchBlockSize = 2048;
    int32_t MaxSearchSegment = 1024 * 1024;
    int32_t MaxLineSize = 256;
    int32_t CaptureDelay = 200;
    int32_t Reserved4 = 0;
    uint8_t OsKind = 0;

    std::string Encode() const;
    static StartRecord Decode(std::string_view bytes);
};

// Runner to server, once per step, after the text blocks. Not interpreted by the server.
struct StartAck {
    static constexpr size_t kSize = 28;
    std::string AckTimes;  // 16 bytes
    std::string AckStage;  // 8
    int32_t AckCode = 0;

    std::string Encode() const;
    static StartAck Decode(std::string_view bytes);
};

// Runner to server, once per command, followed by ReplyTextLength bytes of text when above 0.
struct ReplyRecord {
    static constexpr size_t kSize = 80;
    static constexpr int32_t kWaitPending = 258;
    std::string ReplyTimes;  // 16 bytes
    int64_t CpuTimeA = 0;    // 100-ns ticks
    int64_t CpuTimeB = 0;    // 100-ns ticks
    int32_t ReplySpare1 = 0;
    int32_t PeakMemory = 0;  // kilobytes
    int64_t IoCount = 0;     // fixed point, four decimal places: the value times 10,000
    std::string ReplyStage;  // 8
    int32_t WaitStatus = 0;
    int32_t ReplySpare2 = 0, ReplySpare3 = 0;
    int32_t StepRc = 0;
    char ReplyFlag1 = ' ';
    uint8_t CountersValid = 0;
    uint8_t RunnerState = 0;  // below 4 running; 4 or more ended; 5 the runner is ending
    char ReplyFlag2 = ' ';
    int32_t ReplyTextLength = 0;

    std::string Encode() const;
    static ReplyRecord Decode(std::string_view bytes);
};

// A text field: the value padded with blanks or cut to `width`.
std::string FixedText(std::string_view value, size_t width);

}  // namespace vq
