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

}  // namespace vq
