#pragma once
// The task views: the tree of task groups, the task list and the step list that follow the
// working tables, the enabled state of the commands and the status bar texts. Plain C++: the
// window shows what this keeps, and tests drive it without widgets.
//
// The two lists are the engine's TaskView and StepView tables. Every change goes through the
// listener one row or one cell at a time, so that a widget over them keeps its selection and
// scroll position.
#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "access/DisplayedText.h"
#include "core/tables/VqTable.h"

namespace vq {

struct Server;

struct TreeNode {
    std::string key;
    std::string text;
    std::string image;
    std::string tag;  // Jobs, Status, Domain or User
    std::string parent;
    bool expanded = false;
};

enum class ViewList { Tasks, Steps };

// What a widget needs to hear to follow the views. Each Before call comes before the table
// changes and its After call right after.
class ViewListener {
public:
    virtual ~ViewListener() = default;
    virtual void NodeAdded(const TreeNode& node) {}
    virtual void NodeSelected(const std::string& key) {}
    virtual void BeforeInsert(ViewList list, size_t position) {}
    virtual void AfterInsert(ViewList list) {}
    virtual void BeforeRemove(ViewList list, size_t position) {}
    virtual void AfterRemove(ViewList list) {}
    // The whole list, rows or columns, is about to change.
    virtual void BeforeReset(ViewList list) {}
    virtual void AfterReset(ViewList list) {}
    virtual void CellChanged(ViewList list, size_t position, int column) {}
    virtual void SelectionChanged(ViewList list) {}
    virtual void CommandsChanged() {}
    virtual void StatusChanged() {}
};

// The enabled state of the commands, by menu entry; the toolbar buttons follow their entries.
struct CommandStates {
    bool ready = false;    // mnuControlsReady, Run
    bool hold = false;     // mnuControlsHold, Pause
    bool cancel = false;   // mnuControlsCancel, Stop
    bool stepWin = false;  // mnuViewStepWin, Prop
    bool refresh = true;   // mnuViewRefresh, Refresh
    bool previous = false;
    bool next = false;
    bool startQ = true;   // mnuFileStartQ, StartQ
    bool stopQ = false;   // mnuFileStopQ, StopQ: off until the queue is first switched
    bool operator==(const CommandStates&) const = default;
};

// The enabled state of Resume, Hold and Cancel for a task's Status.
struct TaskCommandStates {
    bool ready, hold, cancel;
};
TaskCommandStates CommandsForStatus(const std::string& status);

// A column width in the settings' twips and on the screen in pixels, at `dotsPerInch`.
int TwipsToPixels(int twips, double dotsPerInch);
int PixelsToTwips(int pixels, double dotsPerInch);

class TaskViews {
public:
    TaskViews(Server& server, ViewListener& listener);

    // The tree.
    const std::vector<TreeNode>& Nodes() const { return nodes_; }
    const TreeNode* FindNode(const std::string& key) const;
    const std::string& SelectedNode() const { return selectedNode_; }
    // Selects a node and, with `show`, shows it (a click on a node, a View menu entry).
    void SelectNode(const std::string& key, bool show = true);

    // The lists and their selected rows (empty key: none).
    VqTable& Tasks();
    VqTable& Steps();
    const std::string& SelectedTask() const { return selectedTask_; }
    const std::string& SelectedStep() const { return selectedStep_; }
    const CommandStates& Commands() const { return commands_; }
    // The four panels that RefBar writes.
    const std::array<std::string, 4>& StatusPanels() const { return panels_; }

    void LoadTree();
    void mnuViewRefresh_Click();
    void LoadListFromTree(const std::string& nodeKey, bool clear);
    void AddToList1(const std::string& key);
    void LoadSteps(const std::string& key);
    void AddStep(const std::string& key);
    void RefreshScreenData(bool stepsOnly);
    void MC();
    // The window's side of QSS: the queue commands and the status bar.
    void QueueSwitched(bool started);
    void RefBar();
    void BuildTaskColumns();
    void BuildStepColumns();

    // A click on a task row: selects it, loads its steps, then MC.
    void TaskRowClicked(const std::string& key);
    // The pop-up menu's row: selected, then MC; the steps stay as they are.
    void SelectTaskRow(const std::string& key);
    // The selected step follows the operator's click.
    void StepRowClicked(const std::string& key);
    // Previous and Next: the neighbouring row, as a row click. False when the move isn't made.
    bool SelectNeighbour(int direction);
    // A click on the header of a task list column: the sort of TaskTable and the rebuild.
    void SortOnColumn(int viewColumn);

    // The width setting of a column in twips; the settings' default when none is stored.
    int ColumnWidthSetting(const std::string& columnKey);
    // Writes the widths in twips, in column order of TaskView, then StepView.
    void SaveColumnWidths(const std::vector<int>& taskTwips, const std::vector<int>& stepTwips);

private:
    void AddNode(TreeNode node);
    bool NodeMatches(const TreeNode& node, const VqRow& task) const;
    void RemoveTaskRow(size_t position);
    void ClearList(ViewList list, VqTable& table);
    void SetSelected(ViewList list, const std::string& key);
    // A column of a list: the column of the working table it shows, and in what form.
    struct ShownColumn {
        int source;
        CellForm form;
    };
    void WriteDisplayedCells(ViewList list, VqTable& view, size_t position, const VqRow& source,
                             const std::vector<ShownColumn>& columns, std::string& columnKey);
    bool RefreshList(ViewList list);
    std::vector<ShownColumn> ShownColumns(ViewList list) const;
    void LogFailure(const std::string& text, const std::exception& error);

    Server& server_;
    ViewListener& listener_;
    std::vector<TreeNode> nodes_;
    std::unordered_map<std::string, size_t> nodeIndex_;
    std::string selectedNode_;
    std::string selectedTask_;
    std::string selectedStep_;
    CommandStates commands_;
    std::array<std::string, 4> panels_;
    // Until the operator's first header click no column counts as the present sort column.
    bool sortChosen_ = false;
};

}  // namespace vq
