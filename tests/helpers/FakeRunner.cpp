// vqfakerunner: a step runner that misbehaves on request, for the tests of the server's side
// of the link. It reads the start record and its blocks like the real runner; lines of its
// Environ block choose what it does:
//
//   FAKE=noack         end at once, without an acknowledgement
//   FAKE=silent        acknowledge, then never answer (nor end at the end of its input)
//   FAKE=die           acknowledge, answer FAKE_POLLS "STAT", then end at the next command
//                      without an answer
//   FAKE=cut           acknowledge, then answer the first command with half a record and end
//   FAKE_DUMP=PATH     write the bytes received for the start to PATH
//   FAKE_POLLS=N       answer N "STAT" as running (counters valid), then as ended
//   FAKE_RC=N          the StepRc of the "END " reply (default 1)
//   FAKE_TEXT=T        the text of the "END " reply
//   FAKE_STATTEXT=T    the text of every "STAT" reply
//   FAKE_ARGS=PATH     write the arguments it was started with to PATH, one a line
//   FAKE_STOPWAIT=N    answer N "STOP" or "STRT" with text length -1 and wait status 258
//   FAKE_STOPSTATUS=S  the wait status of those answers instead of 258
//   FAKE_IDLE=1        report counters that stay at 0 (valid all the same)
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "runner/RunnerLink.h"

namespace {

// Waits for its input as long as a test may run.
constexpr int kForeverMs = 24 * 3600 * 1000;

bool ReadExact(size_t size, std::string& out) {
    out.clear();
    return vq::ReadRunnerText(STDIN_FILENO, static_cast<int32_t>(size), out, kForeverMs) ==
           static_cast<int32_t>(size);
}

void WriteAll(const std::string& bytes) {
    const auto size = static_cast<int32_t>(bytes.size());
    if (vq::WriteRunnerText(STDOUT_FILENO, size, bytes) != size) std::_Exit(3);
}

std::map<std::string, std::string> ParseEnviron(const std::string& text) {
    std::map<std::string, std::string> values;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const size_t eq = line.find('=');
        if (eq != std::string::npos) values[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return values;
}

int Number(const std::map<std::string, std::string>& values, const char* name, int fallback) {
    auto it = values.find(name);
    return it == values.end() ? fallback : std::atoi(it->second.c_str());
}

}  // namespace

void WriteFile(const std::string& path, const std::string& bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return;
    if (write(fd, bytes.data(), bytes.size()) < 0) std::_Exit(2);
    close(fd);
}

int main(int argc, char** argv) {
    std::string record;
    if (!ReadExact(vq::StartRecord::kSize, record)) return 2;
    const vq::StartRecord start = vq::StartRecord::Decode(record);
    std::string command, fileRc, environText;
    if (!ReadExact(start.CommandLength, command) || !ReadExact(start.FileRcLength, fileRc) ||
        !ReadExact(start.EnvironLength, environText))
        return 2;
    const auto values = ParseEnviron(environText);
    const std::string mode = values.count("FAKE") ? values.at("FAKE") : "";
    if (values.count("FAKE_DUMP"))
        WriteFile(values.at("FAKE_DUMP"), record + command + fileRc + environText);
    if (values.count("FAKE_ARGS")) {
        std::string lines;
        for (int i = 1; i < argc; ++i) lines += std::string(argv[i]) + "\n";
        WriteFile(values.at("FAKE_ARGS"), lines);
    }
    if (mode == "noack") return 0;
    vq::StartAck ack;
    ack.AckStage = "STARTED";
    WriteAll(ack.Encode());
    if (mode == "silent")
        for (;;) pause();

    int polls = Number(values, "FAKE_POLLS", 0);
    int stopWaits = Number(values, "FAKE_STOPWAIT", 0);
    const bool idle = Number(values, "FAKE_IDLE", 0) != 0;
    int64_t ticks = 0;
    std::string bytes;
    while (ReadExact(vq::CommandRecord::kSize, bytes)) {
        const vq::CommandRecord cmd = vq::CommandRecord::Decode(bytes);
        if (mode == "die" && polls == 0) return 0;
        vq::ReplyRecord reply;
        if (mode == "cut") {
            WriteAll(reply.Encode().substr(0, 40));
            return 0;
        }
        std::string text;
        if (!idle) {
            ticks += 10000000;
            reply.CpuTimeA = ticks;
            reply.PeakMemory = 1000;
            reply.IoCount = 50000;
        }
        reply.CountersValid = 1;
        reply.RunnerState = polls > 0 ? 1 : 4;
        if (cmd.Command == "STAT" && polls > 0) --polls;
        if ((cmd.Command == "STOP" || cmd.Command == "STRT") && stopWaits > 0) {
            --stopWaits;
            reply.ReplyTextLength = -1;
            reply.WaitStatus = Number(values, "FAKE_STOPSTATUS", vq::ReplyRecord::kWaitPending);
        }
        if (cmd.Command == "STAT" && values.count("FAKE_STATTEXT")) {
            text = values.at("FAKE_STATTEXT");
            reply.ReplyTextLength = static_cast<int32_t>(text.size());
        }
        if (cmd.Command == "END ") {
            reply.RunnerState = 5;
            reply.StepRc = Number(values, "FAKE_RC", 1);
            text = values.count("FAKE_TEXT") ? values.at("FAKE_TEXT") : "";
            reply.ReplyTextLength = static_cast<int32_t>(text.size());
        }
        WriteAll(reply.Encode() + text);
        if (cmd.Command == "END ") return 0;
    }
    return 0;
}
