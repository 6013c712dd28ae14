#pragma once
// The operator seam: the engine reaches a person only through a message, a Yes/No question
// and a beep. The window answers with dialogs, the headless server with the log.
#include <string>

namespace vq {

enum class MessageIcon { None, Information, Exclamation, Critical, Question };

class Operator {
public:
    virtual ~Operator() = default;
    virtual void Message(const std::string& text, MessageIcon icon, const std::string& title) = 0;
    // True for Yes. With `autoYesMs` above 0 (a close by the system) an unanswered question
    // takes its default, Yes, after that many milliseconds.
    virtual bool AskYesNo(const std::string& text, const std::string& title, int autoYesMs = 0) = 0;
    virtual void Beep() = 0;
};

}  // namespace vq
