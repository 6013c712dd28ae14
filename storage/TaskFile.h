#pragma once
// The task file (.vqf): the document in which a client hands a task to the server, in its
// plain tagged form or its encrypted form. The server only reads it; the writer serves vqctl
// and the tests.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/Random.h"
#include "storage/VqString.h"

namespace vq {

inline constexpr uint64_t kMaxTaskFileSize = 10485760;  // 0xA00000
inline const std::string kTaskFileVersion = "Orvantis File Version 1.0";
inline const std::string kTaskFileVersionOld = "Belquinn File Version 1.0";
inline const std::string kTaskFileTag = "ORVANTIS";
inline const std::string kTaskFileTagOld = "BELQUINN";

// The general fields, in file order. All are text but the three counts.
struct TaskGeneral {
    std::string TaskName, User, Password, Domain, Server, ServerPath, Dependent, TaskReportFile;
    std::string MaxRC, QueuePriority, CpuPriority, ScheduledTime, TaskRepeat, MaxTime, TaskClass;
    std::string SubUser, SubDomain, SubServer, SubData, RepeatCancel;
    std::string FontName, FontSize, FontColor, FontCharset, FontBold, FontItalic;
    std::string Reserved1, Reserved2;
    std::string EditPpp;  // only in a file that came in the encrypted form
    int32_t NumberSteps = 0, NumberTaskFiles = 0, NumberEnviron = 0;
};

// A STEP section, fields in file order.
struct TaskStep {
    std::string StepName, Command, FileRC, WorkingDirectory, Environment;
    std::string BuffWidth, BuffHeight, MinRC, MaxRC, Execute;
};

// A TASKFILE section: a file that the client's editor carries along.
struct TaskFileEntry {
    std::string LocalPath, ServerPath, Copy;
};

// An ENVIRON section: a variable that the client's editor asks for.
struct TaskEnviron {
    std::string Step, Caption, Variable, Type, Value, Help, Min, Max, Percent, Format;
};

struct TaskFileData {
    TaskGeneral general;
    std::vector<TaskStep> steps;
    std::vector<TaskFileEntry> taskFiles;
    std::vector<TaskEnviron> environ;
};

// A task of one run that a user starts from: $LOCALUSER$ in $LOCALS$ on `computer`, handed in
// by `submitter`, class A, queue priority 3, CPU priority 22, task RC 1, scheduled at
// `scheduled` ("yyyy-mm-dd hh:mm:ss"), no steps yet.
TaskFileData NewTaskFile(const std::string& name, const std::string& computer,
                         const std::string& submitter, const std::string& scheduled);
// A step that runs `command` when the step before succeeded (range 1 to 1).
TaskStep NewTaskStep(const std::string& command, size_t number);
// The repeat text of a single run.
std::string SingleRunRepeat();

// Reads a whole task file. On failure the result is false and `LastTaskFileError` holds
// "ERROR: Cannot Open \"path\". ", two line feeds, the description, two line feeds and
// "Load Progress Number: " with the progress number. The probe for a writer that still holds
// the file waits through `clock`. `quiet` changes nothing: the reader shows nothing.
bool LoadTaskFile(Clock& clock, const std::string& path, TaskFileData& task,
                  std::string& LastTaskFileError, bool quiet = true);
// The part of the load after the file was read (progress 5 to 10), on a text in memory.
bool ParseTaskFileText(std::string text, const std::string& path, TaskFileData& task,
                       std::string& LastTaskFileError);
// Replaces the reader's text by the plain form when it holds an encrypted task file; false,
// with the reader at position 1 and its text unchanged, when it doesn't.
bool OpenEncryptedTaskFile(VqStringReader& reader);

// The plain form of a task: counts from the lists, EDITPPP only with `withEditPpp`.
std::string TaskFileText(const TaskFileData& task, bool withEditPpp = false);
// The encrypted form: the plain form with EDITPPP, in scrambled pieces.
std::string EncryptedTaskFileText(const TaskFileData& task, RandomSource& random = SystemRandom());
// Writes a task file whole; false with `error` set on failure.
bool SaveTaskFile(const std::string& path, const TaskFileData& task, bool encrypted,
                  std::string* error = nullptr);

// The begin and end markers of the encrypted form, 40 characters each.
const std::string& EncryptedBeginMarker();
const std::string& EncryptedEndMarker();

// The fields that become folder and file names (TASKNAME, USER, DOMAIN, TASKREPORTFILE) must
// not hold "/" or a NUL character, or be "." or ".."; all but DOMAIN must not be empty. The
// empty text when all are fine, else a message that names the first field at fault.
std::string FileSystemNameProblem(const TaskGeneral& general);

}  // namespace vq
