#pragma once
// The operator with a window: messages and questions in message boxes over the main window.
#include <QPointer>
#include <QWidget>

#include "platform/Operator.h"

namespace vq {

class DialogOperator final : public Operator {
public:
    // The window that the boxes stand over; none before it exists.
    void SetParent(QWidget* parent) { parent_ = parent; }
    void Message(const std::string& text, MessageIcon icon, const std::string& title) override;
    // Yes is the default button. With `autoYesMs` above 0 an unanswered box presses it then.
    bool AskYesNo(const std::string& text, const std::string& title, int autoYesMs = 0) override;
    void Beep() override;

private:
    QPointer<QWidget> parent_;
};

}  // namespace vq
