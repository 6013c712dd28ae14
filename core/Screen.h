#pragma once
// What the engine asks of the screen: refresh the tree and lists, save the view widths, and
// follow the queue's start and stop. The headless server has no screen and does nothing.
namespace vq {

class Screen {
public:
    virtual ~Screen() = default;
    // Refills the tree and the task list from TaskTable.
    virtual void LoadTree() {}
    // Stores the column widths of both views.
    virtual void SaveColumnWidths() {}
    // The queue was started (Timer1 on) or stopped.
    virtual void QueueSwitched(bool started) {}
};

// Passes every call on to a screen that is made after the server (the window needs the
// server to exist first); does nothing while there is none.
class ScreenRelay : public Screen {
public:
    void SetTarget(Screen* target) { target_ = target; }
    void LoadTree() override {
        if (target_) target_->LoadTree();
    }
    void SaveColumnWidths() override {
        if (target_) target_->SaveColumnWidths();
    }
    void QueueSwitched(bool started) override {
        if (target_) target_->QueueSwitched(started);
    }

private:
    Screen* target_ = nullptr;
};

}  // namespace vq
