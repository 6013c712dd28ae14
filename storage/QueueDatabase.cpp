#include "storage/QueueDatabase.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <vector>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "platform/UniqueFd.h"
#include "reports/ServerLog.h"
#include "storage/EncStr.h"
#include "storage/Enkripcija.h"
#include "storage/Settings.h"
#include "storage/TaggedStream.h"

namespace vq {
namespace {

const char* const kSource = "LoadQueueDatabase";
const std::string kSaveFailed =
    "Error occurred while saving the Orvantis Server Queue Database!\n\n";
const std::string kLoadFailed =
    "Error occurred while loading the Orvantis Server Queue Database!\n\n";
const std::string kNoBackups =
    "There are no backup files to restore the database.\n\n"
    "Orvantis Server Queue was deleted.\n\n"
    "Old database files can be found under *.bd1.\n\n"
    "Orvantis Server Queue will be stopped.";
const std::string kLoadBackupQuestion =
    "Do you want to load a backup copy of Orvantis Server Queue Database?\n\n"
    "If you choose NO the database will be deleted!\n\n"
    "If you choose YES Orvantis Server Queue will be stopped.\n\n"
    "NOTE: A backup copy may not be an exact copy of original database!!!";

// A save in progress: both new files are written whole before this mark appears, so a load
// that finds it finishes the save; a load that doesn't discards the new files.
const std::string kSaveMark = "Database.commit";
const std::string kNewSuffix = ".new";
const std::string kJournalEntryTag = "SUBMIT";

// The two random characters of EPASS stand behind the block's seventh character.
constexpr size_t kPasswordPadAt = 7;
constexpr size_t kPasswordPadLength = 2;
const std::string kEnvironPrefix = "$E$";

std::string ScramblePassword(const std::string& hex, RandomSource& random) {
    std::string block = HexDecode(hex);
    block.insert(std::min(kPasswordPadAt, block.size()),
                 RandomText(kPasswordPadLength, false, random));
    return EncodeEncStr(block, random);
}

std::string UnscramblePassword(const std::string& stored) {
    std::string block = DecodeEncStr(stored);
    if (block.size() < kPasswordPadLength) throw VqError("Invalid Data: EPASS", 5, kSource);
    block.erase(std::min(kPasswordPadAt, block.size() - kPasswordPadLength), kPasswordPadLength);
    return HexEncode(block);
}

std::string ScrambleEnviron(const std::string& environ, RandomSource& random) {
    return EncodeEncStr(kEnvironPrefix + environ, random);
}

std::string UnscrambleEnviron(const std::string& stored) {
    const std::string text = DecodeEncStr(stored);
    return text.substr(std::min(kEnvironPrefix.size(), text.size()));
}

// How the rows of one table stand in its file: the section tag of a block, the tag of the row
// text, and the one column that is stored scrambled under a tag of its own.
struct BlockLayout {
    const char* section;
    const char* nameTag;
    const char* scrambledColumn;
    const char* scrambledTag;
    std::string (*scramble)(const std::string& cell, RandomSource& random);
    std::string (*unscramble)(const std::string& stored);
};

const BlockLayout kTaskLayout{"TASK",  "TASKNAME",       "Password",
                              "EPASS", ScramblePassword, UnscramblePassword};
const BlockLayout kStepLayout{"STEP", "STEPNAME",      "Environ",
                              "EENV", ScrambleEnviron, UnscrambleEnviron};

// The stream form written straight into one text and read where it stands: a large queue
// has a million lines, too many for an element or a copy each. The lines are those that
// OutputZkStreamTag and OutputZkStreamC write, read as InputZkStreamTag and InputZkStreamC
// read them; every line ends in CR LF, so an empty table is an empty text.
void PutSection(std::string& out, std::string_view tag) {
    out += '<';
    out += tag;
    out += ">\r\n";
}

void PutValue(std::string& out, std::string_view tag, std::string_view value) {
    out += "\t<";
    out += tag;
    out += '>';
    // Only a value that holds a line break or code 26 needs the conversion.
    const bool plain = std::none_of(value.begin(), value.end(),
                                    [](char c) { return c == '\r' || c == '\n' || c == '\x1a'; });
    out += plain ? value : ConvertTagValue(value, TagValueDirection::ForWriting);
    out += "</";
    out += tag;
    out += ">\r\n";
}

// A value line's tag with its opening and closing text, built once for all rows.
struct ValueTag {
    explicit ValueTag(std::string tag)
        : name(std::move(tag)), open("<" + name + ">"), close("</" + name + ">") {}
    std::string name, open, close;
};

class StreamReader {
  public:
    explicit StreamReader(std::string_view text) : text_(text) {}
    bool AtEnd() const { return next_ >= text_.size(); }

    // The next line without its CR LF; the empty text at the end.
    std::string_view Line() {
        lineStart_ = next_;
        if (AtEnd()) return {};
        const size_t end = text_.find(kCrLf, next_);
        next_ = end == std::string_view::npos ? text_.size() : end + kCrLf.size();
        return text_.substr(lineStart_,
                            (end == std::string_view::npos ? text_.size() : end) - lineStart_);
    }

    // The next line, trimmed, is "<tag>"; the line is consumed either way.
    bool Section(std::string_view tag) {
        const std::string_view line = Trimmed(Line());
        return line.size() == tag.size() + 2 && line.front() == '<' && line.back() == '>' &&
               line.substr(1, tag.size()) == tag;
    }

    // The text between the first opening and the last closing tag of the next line. Without
    // them: with `optional` the line stays for the next field, else the failure of the stream.
    std::string Value(const ValueTag& tag, bool optional = false) {
        const std::string_view line = Line();
        const size_t from = line.find(tag.open);
        const size_t to = from == std::string_view::npos ? from : line.rfind(tag.close);
        if (to != std::string_view::npos && to >= from + tag.open.size()) {
            const std::string_view value =
                line.substr(from + tag.open.size(), to - from - tag.open.size());
            return value.find('\x01') == std::string_view::npos
                       ? std::string(value)
                       : ConvertTagValue(value, TagValueDirection::ForReading);
        }
        if (!optional) throw VqError("Invalid Data: " + tag.name, 5, "InputZkStreamC");
        next_ = lineStart_;
        return {};
    }

    static std::string_view Trimmed(std::string_view text) {
        while (!text.empty() && static_cast<unsigned char>(text.front()) <= 32)
            text.remove_prefix(1);
        while (!text.empty() && static_cast<unsigned char>(text.back()) <= 32)
            text.remove_suffix(1);
        return text;
    }

  private:
    std::string_view text_;
    size_t next_ = 0;
    size_t lineStart_ = 0;
};

// Writes and reads the blocks of one table, with the tags worked out once: the column keys in
// upper case, the same in every locale.
class BlockCodec {
  public:
    BlockCodec(const VqTable& table, const BlockLayout& layout)
        : layout_(layout),
          scrambled_(static_cast<size_t>(table.ColumnIndex(layout.scrambledColumn))),
          name_(layout.nameTag),
          scrambledTag_(layout.scrambledTag) {
        for (const VqColumn& column : table.Columns()) {
            std::string tag = column.key;
            for (char& c : tag)
                if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
            tags_.emplace_back(std::move(tag));
        }
    }

    void Write(std::string& out, const VqRow& row, RandomSource& random) const {
        PutSection(out, layout_.section);
        PutValue(out, "KEY", row.key);
        PutValue(out, layout_.nameTag, row.Text());
        for (size_t i = 1; i < tags_.size(); ++i) {
            if (i == scrambled_)
                PutValue(out, layout_.scrambledTag, layout_.scramble(row.cells[i], random));
            else
                PutValue(out, tags_[i].name, row.cells[i]);
        }
        PutSection(out, std::string("/") + layout_.section);
    }

    // One block, strictly in column order; only the scrambled tag may give way to the plain one.
    VqRow Read(StreamReader& in) const {
        if (!in.Section(layout_.section)) throw VqError("Invalid database entry.", 76, kSource);
        VqRow row;
        row.key = in.Value(key_);
        row.cells.resize(tags_.size());
        row.cells[0] = in.Value(name_);
        for (size_t i = 1; i < tags_.size(); ++i) {
            if (i != scrambled_) {
                row.cells[i] = in.Value(tags_[i]);
                continue;
            }
            const std::string stored = in.Value(scrambledTag_, true);
            row.cells[i] = stored.empty() ? in.Value(tags_[i]) : layout_.unscramble(stored);
        }
        in.Line();  // the closing tag, not compared
        return row;
    }

  private:
    const BlockLayout& layout_;
    std::vector<ValueTag> tags_;
    size_t scrambled_;
    ValueTag key_{"KEY"}, name_, scrambledTag_;
};

void AddRow(VqTable& table, VqRow&& row) {
    table.AddRow(row.key, row.cells[0]).cells = std::move(row.cells);
}

std::string TableText(const VqTable& table, const BlockLayout& layout, RandomSource& random) {
    const BlockCodec codec(table, layout);
    std::string out;
    for (size_t i = 0; i < table.RowCount(); ++i) {
        codec.Write(out, table.RowAt(i), random);
        // Room for all blocks at once, by the size of the first.
        if (i == 0) out.reserve(out.size() * table.RowCount() * 9 / 8);
    }
    return out;
}

void ReadTableText(VqTable& table, const BlockLayout& layout, std::string_view text) {
    const BlockCodec codec(table, layout);
    StreamReader in(text);
    while (!in.AtEnd()) AddRow(table, codec.Read(in));
}

void ClearAllTables(WorkingTables& tables) {
    for (VqTable* table :
         {&tables.TaskTable, &tables.StepTable, &tables.TaskView, &tables.StepView})
        table->ClearRows();
}

[[noreturn]] void ThrowFileError(const std::string& path) {
    throw VqError(path + ": " + ErrnoText(errno));
}

void WriteWholeOrFail(const std::string& path, const std::string& content) {
    std::string error;
    if (!WriteFileAtomic(path, content, &error)) throw VqError(error);
}

void ReadWholeOrFail(const std::string& path, std::string& content) {
    if (!ReadWholeFile(path, content)) ThrowFileError(path);
}

// Makes the renames in a folder durable, so that they survive a power loss in their order.
void SyncFolder(const std::string& folder) {
    UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.Valid()) ::fsync(fd.Get());
}

// Finishes a save that a crash stopped after its mark, or discards one stopped before it.
void FinishInterruptedSave(const std::string& dataPath) {
    const std::string mark = dataPath + kSaveMark;
    const bool marked = PathExists(mark);
    for (const std::string* name : {&kJobsFile, &kStepsFile}) {
        const std::string target = dataPath + *name;
        const std::string fresh = target + kNewSuffix;
        if (!marked) {
            ::unlink(fresh.c_str());
        } else if (PathExists(fresh) && ::rename(fresh.c_str(), target.c_str()) != 0) {
            ThrowFileError(target);
        }
    }
    if (!marked) return;
    SyncFolder(dataPath);
    ::unlink(mark.c_str());
}

// The temporary files that a crash left behind a whole-file write of the database.
void RemoveStrayTemporaries(const std::string& dataPath) {
    DIR* dir = ::opendir(dataPath.c_str());
    if (!dir) return;
    std::vector<std::string> stray;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        const bool ours = name.rfind("Jobs.", 0) == 0 || name.rfind("Steps.", 0) == 0 ||
                          name.rfind(kSaveMark, 0) == 0 || name.rfind(kTaskNumberFile, 0) == 0;
        const size_t temp = name.rfind(".tmp");
        if (ours && temp != std::string::npos && name.size() == temp + 4 + 6) stray.push_back(name);
    }
    ::closedir(dir);
    for (const std::string& name : stray) ::unlink((dataPath + name).c_str());
}

// Both files change as one: a crash before step 3 leaves the old pair, after it the new one.
void WriteDatabasePair(const std::string& dataPath, const std::string& jobs,
                       const std::string& steps) {
    // 1.-2. Each new file whole beside the old one, through a temporary file, flushed, renamed.
    WriteWholeOrFail(dataPath + kJobsFile + kNewSuffix, jobs);
    WriteWholeOrFail(dataPath + kStepsFile + kNewSuffix, steps);
    // 3. The mark that both are complete.
    WriteWholeOrFail(dataPath + kSaveMark, "");
    SyncFolder(dataPath);
    // 4. Both renamed over the old files, then the mark removed.
    FinishInterruptedSave(dataPath);
}

bool NextBackupIsSecond(Server& server) {
    if (server.BackupSlotKnown) {
        server.BackupSlotTwo = !server.BackupSlotTwo;
    } else {
        server.BackupSlotTwo = ChooseBackup(server, true) == 2;
        server.BackupSlotKnown = true;
    }
    return server.BackupSlotTwo;
}

void ReadDatabaseFiles(Server& server) {
    const std::string jobsPath = server.DataPath + kJobsFile;
    const std::string stepsPath = server.DataPath + kStepsFile;
    if (!PathExists(jobsPath)) {
        if (PathExists(stepsPath)) throw VqError("Part of database is missing.", 77, kSource);
        return;  // a first start: an empty queue
    }
    std::string text;
    ReadWholeOrFail(jobsPath, text);
    ReadTasksText(server.tables, text);
    if (!PathExists(stepsPath)) throw VqError("Part of database is missing.", 77, kSource);
    ReadWholeOrFail(stepsPath, text);
    ReadStepsText(server.tables, text);
    if (server.tables.StepTable.RowCount() < server.tables.TaskTable.RowCount())
        throw VqError("Part of database is missing.", 77, kSource);
}

// Adds the rows of one journal entry that the tables don't hold yet; false, with nothing
// added, when the entry doesn't read.
bool AddJournalEntry(WorkingTables& tables, const std::string& entry) {
    std::vector<VqRow> tasks, steps;
    try {
        StreamReader in(entry);
        tasks.push_back(BlockCodec(tables.TaskTable, kTaskLayout).Read(in));
        const BlockCodec stepCodec(tables.StepTable, kStepLayout);
        while (!in.AtEnd()) steps.push_back(stepCodec.Read(in));
    } catch (const std::exception&) {
        return false;
    }
    // A save that a crash stopped before it emptied the journal holds some of these rows.
    for (VqRow& row : tasks)
        if (!tables.TaskTable.FindRow(row.key)) AddRow(tables.TaskTable, std::move(row));
    for (VqRow& row : steps)
        if (!tables.StepTable.FindRow(row.key)) AddRow(tables.StepTable, std::move(row));
    return true;
}

void ReplayJournal(Server& server) {
    std::string text;
    if (!ReadWholeFile(server.DataPath + kJournalFile, text))
        return;  // nothing since the last save
    const int leftOut = ReplayJournalText(server.tables, text);
    if (leftOut > 0)
        WriteServerLog(server,
                       "Entries of the journal of submitted tasks that were cut short by a crash "
                       "were left out: " +
                           std::to_string(leftOut));
}

void EnsureFoldersOfAllTasks(Server& server) {
    const TaskFolderBatch batch(server);
    VqTable& tasks = server.tables.TaskTable;
    for (size_t i = 0; i < tasks.RowCount(); ++i) {
        const std::string key = tasks.RowAt(i).key;
        if (!EnsureTaskFolders(server, key))
            throw VqError("Data in database or directory structure is not valid (" + key + ").", 78,
                          kSource);
    }
}

std::string JournalEntry(WorkingTables& tables, const std::string& taskKey) {
    // An empty first line ends a line that a crash cut short in the middle of an earlier entry.
    std::string out = kCrLf;
    PutSection(out, kJournalEntryTag);
    BlockCodec(tables.TaskTable, kTaskLayout)
        .Write(out, tables.TaskTable.Row(taskKey), SystemRandom());
    const BlockCodec stepCodec(tables.StepTable, kStepLayout);
    for (int i = 1; const VqRow* step = tables.StepTable.FindRow(MakeStepKey(taskKey, i)); ++i)
        stepCodec.Write(out, *step, SystemRandom());
    PutSection(out, "/" + kJournalEntryTag);
    return out;
}

// Appends and flushes to disk before returning, so that the entry outlives any crash.
void AppendFlushed(const std::string& path, const std::string& text) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (!fd.Valid()) ThrowFileError(path);
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(fd.Get(), text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR) ThrowFileError(path);
        if (n > 0) done += static_cast<size_t>(n);
    }
    if (::fdatasync(fd.Get()) != 0) ThrowFileError(path);
}

void SetDatabaseAside(const std::string& dataPath, int attempt) {
    for (const std::string* name : {&kJobsFile, &kStepsFile}) {
        const std::string path = dataPath + *name;
        const std::string aside = path + ".bd" + std::to_string(attempt);
        ::unlink(aside.c_str());
        ::rename(path.c_str(), aside.c_str());  // a missing file does no harm
    }
}

// Moves a backup pair into the place of the database; the pair is used up.
bool RestoreBackupPair(Server& server, bool second) {
    return ::rename(BackupName(server, true, second).c_str(),
                    (server.DataPath + kJobsFile).c_str()) == 0 &&
           ::rename(BackupName(server, false, second).c_str(),
                    (server.DataPath + kStepsFile).c_str()) == 0;
}

int CompareTimes(const timespec& a, const timespec& b) {
    if (a.tv_sec != b.tv_sec) return a.tv_sec < b.tv_sec ? -1 : 1;
    if (a.tv_nsec != b.tv_nsec) return a.tv_nsec < b.tv_nsec ? -1 : 1;
    return 0;
}

}  // namespace

std::string TasksText(WorkingTables& tables, RandomSource& random) {
    return TableText(tables.TaskTable, kTaskLayout, random);
}

std::string StepsText(WorkingTables& tables, RandomSource& random) {
    return TableText(tables.StepTable, kStepLayout, random);
}

void ReadTasksText(WorkingTables& tables, const std::string& text) {
    ReadTableText(tables.TaskTable, kTaskLayout, text);
}

void ReadStepsText(WorkingTables& tables, const std::string& text) {
    ReadTableText(tables.StepTable, kStepLayout, text);
}

int ReplayJournalText(WorkingTables& tables, std::string_view text) {
    const std::string opening = "<" + kJournalEntryTag + ">";
    const std::string closing = "</" + kJournalEntryTag + ">";
    StreamReader in(text);
    std::string entry;
    bool inEntry = false;
    int leftOut = 0;
    while (!in.AtEnd()) {
        const std::string_view line = in.Line();
        const std::string_view trimmed = StreamReader::Trimmed(line);
        if (trimmed == opening) {
            leftOut += inEntry ? 1 : 0;  // the entry before was cut short
            entry.clear();
            inEntry = true;
        } else if (inEntry && trimmed == closing) {
            leftOut += AddJournalEntry(tables, entry) ? 0 : 1;
            entry.clear();
            inEntry = false;
        } else if (inEntry) {
            entry += line;
            entry += kCrLf;
        }
    }
    return leftOut + (inEntry ? 1 : 0);
}

bool SaveQueueDatabase(Server& server) {
    try {
        JobNumberStore(server, true);
        server.screen.SaveColumnWidths();
        const std::string jobs = TasksText(server.tables);
        const std::string steps = StepsText(server.tables);
        WriteDatabasePair(server.DataPath, jobs, steps);
        const bool second = NextBackupIsSecond(server);
        // A copy of its own, so that damage to a database file never reaches its backup.
        WriteWholeOrFail(BackupName(server, true, second), jobs);
        WriteWholeOrFail(BackupName(server, false, second), steps);
        // What the journal held is in the database now.
        ::unlink((server.DataPath + kJournalFile).c_str());
        return true;
    } catch (const std::exception& e) {
        const std::string text = kSaveFailed + e.what();
        server.op.Message(text, MessageIcon::Exclamation, kAppTitle);
        WriteServerLog(server, text);
        return false;
    }
}

bool LoadQueueDatabase(Server& server) {
    ClearAllTables(server.tables);
    try {
        FinishInterruptedSave(server.DataPath);
        RemoveStrayTemporaries(server.DataPath);
        ReadDatabaseFiles(server);
        ReplayJournal(server);
        EnsureFoldersOfAllTasks(server);
        return true;
    } catch (const std::exception& e) {
        ClearAllTables(server.tables);
        const std::string text = kLoadFailed + e.what();
        server.op.Message(text, MessageIcon::Exclamation, kAppTitle);
        WriteServerLog(server, text);
        return false;
    }
}

bool RecoverQueueDatabase(Server& server) {
    for (int attempt = 1;; ++attempt) {
        if (LoadQueueDatabase(server)) return attempt == 1;
        SetDatabaseAside(server.DataPath, attempt);
        const int pair = ChooseBackup(server, false);
        if (pair == kNoBackup) {
            server.op.Message(kNoBackups, MessageIcon::Exclamation, kAppTitle);
            return false;
        }
        if (!RestoreBackupPair(server, pair == 2)) return false;
        if (!server.op.AskYesNo(kLoadBackupQuestion, kAppTitle)) return false;
    }
}

int ChooseBackup(Server& server, bool forWriting) {
    struct stat first {
    }, second{};
    const bool hasFirst = ::stat(BackupName(server, true, false).c_str(), &first) == 0;
    const bool hasSecond = ::stat(BackupName(server, true, true).c_str(), &second) == 0;
    if (!hasFirst) return forWriting ? 1 : (hasSecond ? 2 : kNoBackup);
    if (!hasSecond) return forWriting ? 2 : 1;
    // Writing overwrites the older pair, reading takes the newer; a tie goes to pair 2 both ways.
    const int order = CompareTimes(first.st_mtim, second.st_mtim);
    if (order == 0) return 2;
    const bool firstIsOlder = order < 0;
    return firstIsOlder == forWriting ? 1 : 2;
}

std::string BackupName(const Server& server, bool isJobs, bool second) {
    return server.DataPath + (isJobs ? "Jobs" : "Steps") + (second ? ".bk2" : ".bk1");
}

int32_t JobNumberStore(Server& server, bool save) {
    if (server.NextTaskNumber >= 999999) server.NextTaskNumber = 0;
    const std::string file = server.DataPath + kTaskNumberFile;
    if (save) {
        SaveRegSetting(server.registry, "ServerSettings", "JobNumber",
                       std::to_string(server.NextTaskNumber));
        WriteFileAtomic(file, std::to_string(server.NextTaskNumber) + "\r\n");
        return server.NextTaskNumber;
    }
    const int64_t stored = GetSettingNumber(server.registry, "ServerSettings", "JobNumber");
    std::string content;
    int64_t inFile = 0;
    if (ReadWholeFile(file, content))
        inFile = Val(content.substr(0, content.find_first_of("\r\n")));
    const int64_t larger = std::max(stored, inFile);
    return static_cast<int32_t>(std::clamp<int64_t>(larger, 0, 999999));
}

int32_t TakeTaskNumber(Server& server) {
    if (server.NextTaskNumber >= 999999 || server.NextTaskNumber < 0) server.NextTaskNumber = 0;
    const int32_t number = ++server.NextTaskNumber;
    // The store turns 999999 into 0 in memory, so the number after it is 1.
    JobNumberStore(server, true);
    return number;
}

bool JournalSubmittedTask(Server& server, const std::string& taskKey) {
    try {
        AppendFlushed(server.DataPath + kJournalFile, JournalEntry(server.tables, taskKey));
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while journaling the submitted task (" + taskKey +
                                   ")!\n" + e.what());
        return false;
    }
}

}  // namespace vq
