#pragma once
// The step's return code: from the way its command ended, or from the FileRC file.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vq {

constexpr int kStepRcFailed = 98;  // ended by a signal, or could not run
// A FileRC file holds a number and some blanks: the runner reads no more of it than this.
constexpr size_t kFileRcReadLimit = 4096;

// `how` and `status` as waitid gives them (CLD_EXITED with the exit status, CLD_KILLED or
// CLD_DUMPED with the signal): status s gives s + 1, at most 98; a signal gives 98.
int StepRcFromEnd(int how, int status);
// The number that a FileRC file holds, 0 to 99, blanks and line ends around it allowed.
std::optional<int> ParseFileRc(std::string_view text);

// What the FileRC file at `path` gives: its number, or why it gives none (for the sentence
// "FileRC file "path" ..."). Never blocks and never reads more than kFileRcReadLimit bytes:
// a FIFO, a device or a folder is no regular file, and a longer file holds no number.
struct FileRcReading {
    std::optional<int> rc;
    std::string problem;
};
FileRcReading ReadFileRc(const std::string& path);
// The return code that the FileRC file at `path` gives after the step's end; nothing when
// there is no FileRC (empty `path`) or it gives none, which a line of `notes` then tells.
std::optional<int> StepRcFromFileRc(const std::string& path, std::vector<std::string>& notes);

}  // namespace vq
