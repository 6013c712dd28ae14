#pragma once
// The operator of a server without a window: messages go to standard error and to a sink (the
// server log); every question is answered Yes; a beep is a bell on standard error.
#include <functional>
#include <string>

#include "platform/Operator.h"

namespace vq {

class HeadlessOperator final : public Operator {
public:
    using Sink = std::function<void(const std::string&)>;
    void SetLogSink(Sink sink) { sink_ = std::move(sink); }

    void Message(const std::string& text, MessageIcon icon, const std::string& title) override;
    bool AskYesNo(const std::string& text, const std::string& title, int autoYesMs = 0) override;
    void Beep() override;

private:
    Sink sink_;
};

}  // namespace vq
