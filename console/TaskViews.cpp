#include "console/TaskViews.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <unordered_set>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "core/Server.h"
#include "core/tables/CpuTime.h"
#include "core/tables/Status.h"
#include "core/tables/WorkingTables.h"
#include "platform/Error.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"
#include "runner/Accounting.h"
#include "storage/Settings.h"

namespace vq {
namespace {

const std::string kSortingKey = "Sorting";
const std::string kNodeJobs = "Jobs";
const std::string kWidthSection = "Settings";
constexpr const char* kGroups[] = {"Running", "Ready", "Waiting", "Complete"};

// Position of a row in a list by its key; the row count when it isn't there.
size_t PositionOf(const VqTable& table, const std::string& key) {
    for (size_t i = table.RowCount(); i-- > 0;)
        if (table.RowAt(i).key == key) return i;
    return table.RowCount();
}

}  // namespace

TaskCommandStates CommandsForStatus(const std::string& status) {
    if (status.find(kHoldSuffix) != std::string::npos) return {true, false, false};
    if (status.find(kComplete) != std::string::npos) return {false, false, false};
    return {false, true, true};
}

int TwipsToPixels(int twips, double dotsPerInch) {
    return static_cast<int>(std::lround(twips * dotsPerInch / 1440.0));
}

int PixelsToTwips(int pixels, double dotsPerInch) {
    return static_cast<int>(std::lround(pixels * 1440.0 / dotsPerInch));
}

TaskViews::TaskViews(Server& server, ViewListener& listener)
    : server_(server), listener_(listener) {}

VqTable& TaskViews::Tasks() { return server_.tables.TaskView; }
VqTable& TaskViews::Steps() { return server_.tables.StepView; }

const TreeNode* TaskViews::FindNode(const std::string& key) const {
    const auto found = nodeIndex_.find(key);
    return found == nodeIndex_.end() ? nullptr : &nodes_[found->second];
}

void TaskViews::AddNode(TreeNode node) {
    nodeIndex_.emplace(node.key, nodes_.size());
    nodes_.push_back(std::move(node));
    listener_.NodeAdded(nodes_.back());
}

void TaskViews::LogFailure(const std::string& text, const std::exception& error) {
    WriteServerLog(server_, text + "\n" + error.what());
}

void TaskViews::LoadTree() {
    try {
        if (!FindNode(kNodeJobs)) AddNode({kNodeJobs, "Tasks", kNodeJobs, kNodeJobs, "", true});
        for (const char* group : kGroups)
            if (!FindNode(group)) AddNode({group, group, group, "Status", kNodeJobs, true});
        VqTable& tasks = server_.tables.TaskTable;
        const int status = tasks.ColumnIndex("Status");
        const int domain = tasks.ColumnIndex("Domain");
        const int user = tasks.ColumnIndex("UserName");
        for (size_t i = 0; i < tasks.RowCount(); ++i) {
            const VqRow& row = tasks.RowAt(i);
            const std::string group = BaseStatus(row.cells[status]);
            if (group == kRemoved) continue;
            const std::string domainKey = group + "\\" + row.cells[domain];
            if (!FindNode(domainKey))
                AddNode({domainKey, row.cells[domain], "Domain", "Domain", group, false});
            const std::string userKey = domainKey + "\\" + row.cells[user];
            if (!FindNode(userKey))
                AddNode({userKey, row.cells[user], "User", "User", domainKey, false});
        }
    } catch (const std::exception& e) {
        LogFailure("Error occurred while loading tree!", e);
        return;
    }
    mnuViewRefresh_Click();
}

void TaskViews::mnuViewRefresh_Click() {
    if (!selectedNode_.empty()) LoadListFromTree(selectedNode_, false);
}

void TaskViews::SelectNode(const std::string& key, bool show) {
    if (!FindNode(key)) return;
    selectedNode_ = key;
    listener_.NodeSelected(key);
    if (show) LoadListFromTree(key, false);
}

// Matching by the node's level: the group alone, the group and the domain, or all three.
bool TaskViews::NodeMatches(const TreeNode& node, const VqRow& task) const {
    VqTable& tasks = server_.tables.TaskTable;
    const std::string group = BaseStatus(task.cells[tasks.ColumnIndex("Status")]);
    if (node.tag == "Status") return group == node.text;
    const TreeNode* parent = FindNode(node.parent);
    if (!parent) return false;
    const std::string& domain = task.cells[tasks.ColumnIndex("Domain")];
    if (node.tag == "Domain") return group == parent->text && domain == node.text;
    const TreeNode* grandParent = FindNode(parent->parent);
    return grandParent && task.cells[tasks.ColumnIndex("UserName")] == node.text &&
           domain == parent->text && group == grandParent->text;
}

void TaskViews::LoadListFromTree(const std::string& nodeKey, bool clear) {
    try {
        VqTable& view = Tasks();
        if (clear)
            for (size_t i = view.RowCount(); i-- > 0;)
                if (view.RowAt(i).key != kSortingKey) RemoveTaskRow(i);
        const TreeNode* node = FindNode(nodeKey);
        if (!node) throw VqError("Element not found: " + nodeKey, 35601);
        VqTable& tasks = server_.tables.TaskTable;
        if (node->tag == kNodeJobs) {
            for (size_t i = 0; i < tasks.RowCount(); ++i) AddToList1(tasks.RowAt(i).key);
        } else {
            // The rows that leave go in one walk of the list afterwards, which ends as removing
            // each on the way would, without a search of the list for each.
            std::unordered_set<std::string_view> leaving;
            for (size_t i = tasks.RowCount(); i-- > 0;) {
                const VqRow& task = tasks.RowAt(i);
                if (NodeMatches(*node, task))
                    AddToList1(task.key);
                else if (view.FindRow(task.key))
                    leaving.insert(task.key);
            }
            for (size_t i = view.RowCount(); i-- > 0 && !leaving.empty();)
                if (leaving.erase(view.RowAt(i).key) > 0) RemoveTaskRow(i);
        }
        if (view.RowCount() > 0) {
            if (selectedTask_.empty()) {
                SetSelected(ViewList::Tasks, view.RowAt(0).key);
                LoadSteps(selectedTask_);
            } else if (Steps().RowCount() == 0) {
                LoadSteps(selectedTask_);
            }
        } else {
            ClearList(ViewList::Tasks, view);
            ClearList(ViewList::Steps, Steps());
        }
        RefreshScreenData(false);
    } catch (const std::exception& e) {
        LogFailure("Some Information From Tree Were Not Loaded!", e);
    }
}

void TaskViews::AddToList1(const std::string& key) {
    try {
        VqTable& view = Tasks();
        if (view.FindRow(key)) return;
        std::string text;
        if (!GetRowText(server_.tables, kTaskTable, key, text))
            throw VqError("Element not found: " + key, 35601);
        listener_.BeforeInsert(ViewList::Tasks, view.RowCount());
        view.AddRow(key, text);
        listener_.AfterInsert(ViewList::Tasks);
    } catch (const std::exception& e) {
        LogFailure("Error occurred while adding task to list (" + key + ")", e);
    }
}

void TaskViews::LoadSteps(const std::string& key) {
    try {
        ClearList(ViewList::Steps, Steps());
        VqTable& steps = server_.tables.StepTable;
        const int parent = steps.ColumnIndex("Parent");
        for (size_t i = 0; i < steps.RowCount(); ++i)
            if (steps.RowAt(i).cells[parent] == key) AddStep(steps.RowAt(i).key);
        if (Steps().RowCount() > 0) SetSelected(ViewList::Steps, Steps().RowAt(0).key);
        RefreshScreenData(true);
    } catch (const std::exception& e) {
        LogFailure("Error occurred while loading steps (" + key + ")", e);
    }
}

void TaskViews::AddStep(const std::string& key) {
    VqTable& view = Steps();
    listener_.BeforeInsert(ViewList::Steps, view.RowCount());
    view.AddRow(key, server_.tables.StepTable.Row(key).Text());
    listener_.AfterInsert(ViewList::Steps);
}

void TaskViews::RemoveTaskRow(size_t position) {
    VqTable& view = Tasks();
    const std::string key = view.RowAt(position).key;
    listener_.BeforeRemove(ViewList::Tasks, position);
    view.RemoveRow(key);
    listener_.AfterRemove(ViewList::Tasks);
    if (key == selectedTask_) SetSelected(ViewList::Tasks, "");
}

void TaskViews::ClearList(ViewList list, VqTable& table) {
    if (table.RowCount() > 0) {
        listener_.BeforeReset(list);
        table.ClearRows();
        listener_.AfterReset(list);
    }
    SetSelected(list, "");
}

void TaskViews::SetSelected(ViewList list, const std::string& key) {
    std::string& selected = list == ViewList::Tasks ? selectedTask_ : selectedStep_;
    if (selected == key) return;
    selected = key;
    listener_.SelectionChanged(list);
}

std::vector<TaskViews::ShownColumn> TaskViews::ShownColumns(ViewList list) const {
    const bool tasks = list == ViewList::Tasks;
    const VqTable& view = tasks ? server_.tables.TaskView : server_.tables.StepView;
    const VqTable& source = tasks ? server_.tables.TaskTable : server_.tables.StepTable;
    std::vector<ShownColumn> columns;
    for (const VqColumn& column : view.Columns())
        columns.push_back({source.ColumnIndex(column.key),
                           CellFormOf(tasks ? kTaskTable : kStepTable, column.key)});
    return columns;
}

void TaskViews::WriteDisplayedCells(ViewList list, VqTable& view, size_t position,
                                    const VqRow& source, const std::vector<ShownColumn>& columns,
                                    std::string& columnKey) {
    VqRow& row = view.RowAt(position);
    for (size_t c = 1; c < columns.size(); ++c) {
        columnKey = view.Columns()[c].key;
        const std::string& cell = source.cells[columns[c].source];
        std::string text = columns[c].form == CellForm::NextRun ? NextRunText(server_, row.key)
                                                                : FormatCell(columns[c].form, cell);
        if (row.cells[c] == text) continue;
        row.cells[c] = std::move(text);
        listener_.CellChanged(list, position, static_cast<int>(c));
    }
}

void TaskViews::RefreshScreenData(bool stepsOnly) {
    if (!stepsOnly && !RefreshList(ViewList::Tasks)) return;
    if (!RefreshList(ViewList::Steps)) return;
    MC();
    RefBar();
}

// From the last row to the first: a task that is gone leaves the list, a step that is gone
// empties it; the other rows get their displayed texts.
bool TaskViews::RefreshList(ViewList list) {
    const bool tasks = list == ViewList::Tasks;
    VqTable& view = tasks ? Tasks() : Steps();
    VqTable& source = tasks ? server_.tables.TaskTable : server_.tables.StepTable;
    std::string rowKey, columnKey;
    try {
        const std::vector<ShownColumn> columns = ShownColumns(list);
        for (size_t i = view.RowCount(); i-- > 0;) {
            rowKey = view.RowAt(i).key;
            if (const VqRow* row = source.FindRow(rowKey)) {
                WriteDisplayedCells(list, view, i, *row, columns, columnKey);
            } else if (tasks) {
                RemoveTaskRow(i);
            } else {
                ClearList(list, view);
                break;
            }
        }
        return true;
    } catch (const std::exception& e) {
        LogFailure("Error occurred while refreshing the screen data! (" + columnKey + " from " +
                       rowKey + ")",
                   e);
        return false;
    }
}

void TaskViews::MC() {
    CommandStates states = commands_;
    VqTable& view = Tasks();
    const size_t count = view.RowCount();
    const size_t position = selectedTask_.empty() ? count : PositionOf(view, selectedTask_);
    if (position >= count) {
        states.ready = states.hold = states.cancel = states.stepWin = false;
        states.previous = states.next = false;
    } else {
        states.previous = count >= 2 && position != 0;
        states.next = count >= 2 && position != count - 1;
        const VqRow* task = server_.tables.TaskTable.FindRow(selectedTask_);
        const TaskCommandStates task_states =
            task ? CommandsForStatus(task->cells[server_.tables.TaskTable.ColumnIndex("Status")])
                 : TaskCommandStates{false, false, false};
        states.ready = task_states.ready;
        states.hold = task_states.hold;
        states.cancel = task_states.cancel;
        states.stepWin = true;
    }
    states.refresh = true;
    if (states == commands_) return;
    commands_ = states;
    listener_.CommandsChanged();
}

void TaskViews::QueueSwitched(bool started) {
    commands_.startQ = !started;
    commands_.stopQ = started;
    listener_.CommandsChanged();
    RefBar();
}

void TaskViews::RefBar() {
    panels_ = {"All Tasks: " + std::to_string(server_.tables.TaskTable.RowCount()),
               "Visible Tasks: " + std::to_string(Tasks().RowCount()),
               "Task's Steps: " + std::to_string(Steps().RowCount()),
               server_.QueueStarted ? "Queue: Running" : "Queue: Stopped"};
    listener_.StatusChanged();
}

void TaskViews::BuildTaskColumns() {
    listener_.BeforeReset(ViewList::Tasks);
    Tasks().ClearRows();
    BuildViewColumns(server_.tables);
    listener_.AfterReset(ViewList::Tasks);
    SetSelected(ViewList::Tasks, "");
}

void TaskViews::BuildStepColumns() {
    VqTable& view = Steps();
    listener_.BeforeReset(ViewList::Steps);
    view.ClearRows();
    view.ClearColumns();
    for (const VqColumn& column : server_.tables.StepTable.Columns())
        if (column.viewFlag == "1") view.AddColumn(column);
    listener_.AfterReset(ViewList::Steps);
    SetSelected(ViewList::Steps, "");
}

void TaskViews::TaskRowClicked(const std::string& key) {
    if (!Tasks().FindRow(key)) return;
    SetSelected(ViewList::Tasks, key);
    LoadSteps(key);
    MC();
}

void TaskViews::SelectTaskRow(const std::string& key) {
    if (!Tasks().FindRow(key)) return;
    SetSelected(ViewList::Tasks, key);
    MC();
}

void TaskViews::StepRowClicked(const std::string& key) {
    if (Steps().FindRow(key)) SetSelected(ViewList::Steps, key);
}

bool TaskViews::SelectNeighbour(int direction) {
    VqTable& view = Tasks();
    const size_t count = view.RowCount();
    const size_t position = PositionOf(view, selectedTask_);
    if (count < 2 || position >= count) return false;
    if (direction < 0 ? position == 0 : position == count - 1) return false;
    TaskRowClicked(view.RowAt(direction < 0 ? position - 1 : position + 1).key);
    return true;
}

// Errors here are passed over: each step goes on as far as it can.
void TaskViews::SortOnColumn(int viewColumn) {
    VqTable& view = Tasks();
    if (viewColumn < 0 || static_cast<size_t>(viewColumn) >= view.Columns().size()) return;
    if (!view.FindRow(kSortingKey)) {
        listener_.BeforeInsert(ViewList::Tasks, view.RowCount());
        view.AddRow(kSortingKey, "");
        listener_.AfterInsert(ViewList::Tasks);
    }
    VqTable& tasks = server_.tables.TaskTable;
    try {
        const int column = tasks.ColumnIndex(view.Columns()[viewColumn].key);
        const bool descending = sortChosen_ && tasks.SortKey() == column && !tasks.SortDescending();
        sortChosen_ = true;
        tasks.SortOn(column, descending);
    } catch (const std::exception&) {
        // A column that TaskTable lacks leaves its order as it is; the list is rebuilt all the same.
    }
    LoadListFromTree(selectedNode_, true);
    if (view.FindRow(kSortingKey)) RemoveTaskRow(PositionOf(view, kSortingKey));
}

int TaskViews::ColumnWidthSetting(const std::string& columnKey) {
    // A key of both lists (MaxRC) has the same default in either.
    VqTable& tasks = server_.tables.TaskTable;
    VqTable& steps = server_.tables.StepTable;
    const bool taskView = tasks.HasColumn(columnKey);
    VqTable& table = taskView ? tasks : steps;
    const std::string caption =
        table.HasColumn(columnKey) ? table.Columns()[table.ColumnIndex(columnKey)].caption : "";
    const int fallback = DefaultColumnWidth(caption, taskView);
    const RegValue stored = GetRegSetting(server_.registry, kWidthSection, columnKey,
                                          RegValue::Integer(fallback));
    const int64_t twips = stored.AsNumber();
    return twips > 0 && twips <= INT16_MAX ? static_cast<int>(twips) : fallback;
}

void TaskViews::SaveColumnWidths(const std::vector<int>& taskTwips,
                                 const std::vector<int>& stepTwips) {
    // Every save of the queue database saves the widths too: a width that the store already
    // holds costs no write.
    auto save = [this](const VqTable& view, const std::vector<int>& widths) {
        for (size_t i = 0; i < view.Columns().size() && i < widths.size(); ++i) {
            const std::string& key = view.Columns()[i].key;
            const int twips = std::clamp(widths[i], 0, int{INT16_MAX});
            const std::optional<RegValue> stored =
                server_.registry.Read(Hive::CurrentUser, SectionKey(kWidthSection), key);
            if (stored && stored->form == kFormInteger && stored->number == twips) continue;
            SaveRegSetting(server_.registry, kWidthSection, key, std::to_string(twips),
                           kFormInteger);
        }
    };
    save(Tasks(), taskTwips);
    save(Steps(), stepTwips);
}

}  // namespace vq
