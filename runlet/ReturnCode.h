#pragma once
// The step's return code: from the way its command ended, or from the FileRC file.
#include <optional>
#include <string_view>

namespace vq {

constexpr int kStepRcFailed = 98;  // ended by a signal, or could not run

// `how` and `status` as waitid gives them (CLD_EXITED with the exit status, CLD_KILLED or
// CLD_DUMPED with the signal): status s gives s + 1, at most 98; a signal gives 98.
int StepRcFromEnd(int how, int status);
// The number that a FileRC file holds, 0 to 99, blanks and line ends around it allowed.
std::optional<int> ParseFileRc(std::string_view text);

}  // namespace vq
