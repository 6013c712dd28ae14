// The queue database readers on any bytes: Jobs.dat, Steps.dat and the journal of submissions,
// the three parts of the input separated by NUL bytes. A reader either reads its text or fails
// with a VqError; what was read is written again, and reading that must succeed and give the
// same rows when written and read once more (the first write may normalise line breaks). The
// journal's replay never fails.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "core/tables/WorkingTables.h"
#include "platform/Error.h"
#include "storage/QueueDatabase.h"
#include "storage/Registry.h"

namespace {

using namespace vq;

WorkingTables& Tables() {
    static WorkingTables* tables = [] {
        static Registry registry("/nonexistent/registry.db", "/nonexistent/autostart");
        auto* built = new WorkingTables;
        BuildColumns(*built, registry);
        return built;
    }();
    return *tables;
}

std::vector<std::vector<std::string>> Rows(const VqTable& table) {
    std::vector<std::vector<std::string>> rows;
    for (size_t i = 0; i < table.RowCount(); ++i) {
        rows.push_back(table.RowAt(i).cells);
        rows.back().push_back(table.RowAt(i).key);
    }
    return rows;
}

enum class Read { Done, Failed, DuplicateKey };

// Reads `text` into emptied tables; Failed when it fails as a reader may fail.
template <typename Reader>
Read ReadFresh(Reader read, const std::string& text) {
    Tables().TaskTable.ClearRows();
    Tables().StepTable.ClearRows();
    try {
        read(Tables(), text);
        return Read::Done;
    } catch (const VqError& e) {
        return e.Number() == 35602 ? Read::DuplicateKey : Read::Failed;
    }
}

template <typename Reader, typename Write>
void CheckReader(Reader read, Write write, VqTable WorkingTables::*table,
                 const std::string& input) {
    if (ReadFresh(read, input) != Read::Done) return;
    SeededRandom first(1), second(2);
    const std::string once = write(Tables(), first);
    // Keys that differ only in a lone CR or LF become one key, since every line break comes
    // back as CR LF; a real key starts with its own task number, so that never happens.
    const Read again = ReadFresh(read, once);
    if (again == Read::DuplicateKey) return;
    if (again != Read::Done) std::abort();
    const auto normalised = Rows(Tables().*table);
    const std::string twice = write(Tables(), second);
    if (ReadFresh(read, twice) != Read::Done || Rows(Tables().*table) != normalised) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    std::string parts[3];
    for (size_t i = 0, from = 0; i < 3 && from <= input.size(); ++i) {
        const size_t to = i == 2 ? input.size() : std::min(input.find('\0', from), input.size());
        parts[i] = std::string(input.substr(from, to - from));
        from = to + 1;
    }
    auto writeTasks = [](WorkingTables& t, RandomSource& r) { return TasksText(t, r); };
    auto writeSteps = [](WorkingTables& t, RandomSource& r) { return StepsText(t, r); };
    CheckReader(ReadTasksText, writeTasks, &WorkingTables::TaskTable, parts[0]);
    CheckReader(ReadStepsText, writeSteps, &WorkingTables::StepTable, parts[1]);
    ReadFresh([](WorkingTables&, const std::string&) {}, "");
    if (ReplayJournalText(Tables(), parts[2]) < 0) std::abort();
    return 0;
}
