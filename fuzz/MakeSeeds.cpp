// Writes the seed corpus of each fuzz target into DIR/<target>/.
#include <cstdio>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "platform/Random.h"
#include "runner/records/Records.h"
#include "storage/Classes.h"
#include "storage/EncStr.h"
#include "storage/Enkripcija.h"
#include "storage/TaskFile.h"

namespace {

vq::TaskFileData SeedTask(int steps) {
    vq::TaskFileData t = vq::NewTaskFile("seed", "HOST", "user", "2026-11-22 12:00:00");
    for (int i = 1; i <= steps; ++i) {
        vq::TaskStep step = vq::NewTaskStep("echo a\r\necho b", i);
        step.Environment = "A=1";
        t.steps.push_back(step);
    }
    t.taskFiles.push_back({"/a", "/b", "1"});
    t.environ.push_back({"1", "c", "V", "T", "v", "h", "0", "9", "5", "f"});
    return t;
}

std::string Lf(std::string text) {
    for (size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at))
        text.replace(at, 2, "\n");
    return text;
}

void Put(const std::string& dir, const std::string& target, const std::string& name,
         const std::string& content) {
    vq::MakeFolders(dir + "/" + target);
    vq::WriteFileAtomic(dir + "/" + target + "/" + name, content);
}

// The runner's start: a start record and its Command, FileRC and Environ blocks in one stream.
std::string RunletStart(const std::string& user, const std::string& workDir, const std::string& command,
                        const std::string& fileRc, const std::string& environ) {
    vq::StartRecord start;
    start.UserName = user;
    start.WorkDir = workDir;
    start.OutputFile = "/q/$LOCALS$/ann/Build/000012/Step1.txt";
    start.TaskIdText = "000012";
    start.TaskName = "Build";
    start.StepNumber = 1;
    start.Priority = 22;
    start.CommandLength = static_cast<int32_t>(command.size());
    start.FileRcLength = static_cast<int32_t>(fileRc.size());
    start.EnvironLength = static_cast<int32_t>(environ.size());
    return start.Encode() + command + fileRc + environ;
}

void PutRunletSeeds(const std::string& dir) {
    const std::string target = "fuzz_runlet_start";
    Put(dir, target, "step", RunletStart("$LOCALUSER$", "%VQS%", "make all", "rc.txt\r\n",
                                         "A=1\r\nB=x=y\nNO EQUALS\r\n=v\nA=2"));
    Put(dir, target, "marker", RunletStart("$localuser$", "%vqs%/work/%VQS%", "", "", ""));
    Put(dir, target, "refused", RunletStart("somebody", "/tmp", "true", "/abs/rc", ""));
    std::string cut = RunletStart("$LOCALUSER$", "", "echo a very long command", "", "");
    Put(dir, target, "cut", cut.substr(0, cut.size() - 10));
    Put(dir, target, "stat", "4711 (a) (b c)) S 1 4711 4711 0 -1 4194560 10 0 0 0 15 5 0 0 20 0 1 0 100 2000 300\n");
    Put(dir, target, "status", "Name:\tsh\nVmHWM:\t  2048 kB\nVmRSS:\t 1024 kB\nsyscr: 5\nsyscw: 6\n");
    Put(dir, target, "filerc", " 42\r\n");
    Put(dir, target, "cmdline", std::string("sh\0-c\0make all\0", 15));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: fuzz_make_seeds DIR\n", stderr);
        return 2;
    }
    const std::string dir = argv[1];
    vq::SeededRandom random(2026);
    const std::string plain = vq::TaskFileText(SeedTask(2));
    const std::string encrypted = vq::EncryptedTaskFileText(SeedTask(1), random);
    Put(dir, "fuzz_task_file", "plain", plain);
    Put(dir, "fuzz_task_file", "plain_lf", Lf(plain));
    Put(dir, "fuzz_task_file", "encrypted", encrypted);
    std::string old = plain;
    old.replace(0, 8, "Belquinn");
    Put(dir, "fuzz_task_file", "belquinn", old);

    // Data lines only, after an even byte; a plain text to be scrambled, after an odd one.
    const size_t begin =
        encrypted.find("\r\n", encrypted.find(vq::EncryptedBeginMarker()) + 42) + 2;
    const size_t end = encrypted.find(vq::EncryptedEndMarker());
    Put(dir, "fuzz_encrypted_task_file", "lines", "\x02" + encrypted.substr(begin, end - begin));
    Put(dir, "fuzz_encrypted_task_file", "plain", "\x01" + vq::TaskFileText(SeedTask(1), true));

    Put(dir, "fuzz_tagged_stream", "task",
        std::string("\x10\x00", 2) +
            "\x00\x03\x0B\x13\x05\x2D\x06\x01\x04\x0C\x1C\x02\x07\x00\x03\x24" + plain);
    Put(dir, "fuzz_tagged_stream", "values",
        std::string("\x08\x01", 2) + "\x03\x04\x01\x01\x06\x05\x00\x02" +
            "\t<A>x</A>y</A>\n<STEP>\n\t<TASKNAME>a\x01"
            "b</TASKNAME>\n");

    vq::ClassData classes;
    Put(dir, "fuzz_classes_file", "defaults", vq::ClassesFileText(classes));
    classes.Ponders = {2, 0.5, 0.25, 100, 60, 0, 0};
    classes.ClassTable[1].MaxIo = 12345 * vq::kIoScale;
    classes.ClassTable[2].MaxMemory = 2147483647;
    Put(dir, "fuzz_classes_file", "changed", vq::ClassesFileText(classes));

    Put(dir, "fuzz_nonwork_file", "dates",
        std::string("\x00\x24", 2) + "\"2026-12-25\"\r\n\"2027-01-01\"\r\n\"12/31/26\"\r\n");
    Put(dir, "fuzz_nonwork_file", "leap",
        std::string("\x00\x26", 2) + "\"2028-12-31\"\n\n\"2029-02-28\"\n");

    Put(dir, "fuzz_scrambling", "short", vq::EncodeEncStr("pass", random));
    Put(dir, "fuzz_scrambling", "long", vq::EncodeEncStr(std::string(300, 'z'), random));
    Put(dir, "fuzz_scrambling", "block", vq::ScrambleBlock("E", "password", random));
    Put(dir, "fuzz_scrambling", "hex", vq::HexEncode(vq::ScrambleBlock("E", "password", random)));
    PutRunletSeeds(dir);

    // Now, the last run and the scheduled time in seconds from 2027-06-01 (little-endian), the
    // holidays' byte, then the repeat string.
    const auto schedule = [](int32_t now, int32_t current, int32_t scheduled,
                             const std::string& repeat) {
        std::string bytes;
        for (int32_t value : {now, current, scheduled})
            for (int i = 0; i < 4; ++i) bytes += static_cast<char>((value >> (8 * i)) & 0xff);
        return bytes + '\x03' + repeat;
    };
    Put(dir, "fuzz_repeat_schedule", "every10",
        schedule(3655, 3600, 3600, "0000" + std::string(38, ' ') + "0010ED"));
    Put(dir, "fuzz_repeat_schedule", "counted",
        schedule(86400 * 3 + 60, 0, 28800,
                 "0003" + std::string(14, ' ') + "X" + std::string(16, ' ') + " XXXXX 0200WDH"));
    return 0;
}
