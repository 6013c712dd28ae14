#include "storage/TaskFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Error.h"
#include "platform/Files.h"
#include "platform/UniqueFd.h"
#include "storage/EncStr.h"
#include "storage/Enkripcija.h"
#include "storage/TaggedStream.h"

namespace vq {
namespace {

constexpr int kProbeWaits = 5;
constexpr int kProbeWaitMs = 100;
constexpr int kProgressProbe = 907;
constexpr int kFormatErrorNumber = 6;
constexpr size_t kEncryptedPieceSize = 60;

const std::string kXmlLine = "<?xml version=\"1.0\"?>";
const std::string kEncryptedOpenLine = "<orvantisfile version=\"1.1\" encrypted=\"yes\">";
const std::string kEncryptedCloseLine = "</orvantisfile>";
// The markers, enciphered: the hex text of each marker XORed with the block mask.
constexpr std::string_view kBeginMarkerHex =
    "1654167F152E286F346678323B0C6E277F0B7B4C28663E7A012D3D1F6B0B3D6A1163515015401565";
constexpr std::string_view kEndMarkerHex =
    "1654167F155128663908172F3F1B613D62110829236B2F7108292C1E0F7F28780915515015401565";

[[noreturn]] void ThrowFormat(const std::string& description) {
    throw VqError(description, kFormatErrorNumber, "LoadTaskFile");
}

// One exclusive-open probe: open for reading, then make sure that no writer holds a lock on
// the file, of either kind (flock or a POSIX record lock). False with errno set on failure.
bool ProbeExclusiveOpen(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.Valid()) return false;
    if (::flock(fd.Get(), LOCK_EX | LOCK_NB) != 0) return false;
    struct flock record {};
    record.l_type = F_WRLCK;
    record.l_whence = SEEK_SET;
    if (::fcntl(fd.Get(), F_OFD_GETLK, &record) == 0 && record.l_type != F_UNLCK) {
        errno = EWOULDBLOCK;
        return false;
    }
    return true;
}

// Step 1 of the load: up to 6 attempts with 100 ms between them; the last failure is raised.
void WaitForExclusiveOpen(Clock& clock, const std::string& path) {
    for (int attempt = 0;; ++attempt) {
        if (ProbeExclusiveOpen(path)) return;
        const int error = errno;
        if (attempt == kProbeWaits) throw VqError(ErrnoText(error), error, "LoadTaskFile");
        clock.Sleep(kProbeWaitMs);
    }
}

// Steps 2 to 5 of the load: the file's bytes, at most 10,485,760 of them.
std::string ReadTaskFileBytes(const std::string& path, int& progress) {
    progress = 1;
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.Valid()) throw VqError(ErrnoText(errno), errno, "LoadTaskFile");
    struct stat st {};
    if (::fstat(fd.Get(), &st) != 0) throw VqError(ErrnoText(errno), errno, "LoadTaskFile");
    if (!S_ISREG(st.st_mode)) throw VqError("Path/File access error", 75, "LoadTaskFile");
    progress = 2;
    if (static_cast<uint64_t>(st.st_size) > kMaxTaskFileSize)
        throw VqError("File too big.", 111, "LoadTaskFile");
    progress = 3;
    std::string text(static_cast<size_t>(st.st_size), '\0');
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::read(fd.Get(), text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw VqError(ErrnoText(errno), errno, "LoadTaskFile");
        if (n == 0) break;  // the file shrank under us: take what is there
        done += static_cast<size_t>(n);
    }
    text.resize(done);
    progress = 4;
    fd.Reset();
    return text;
}

// Lines end in CR LF; a file whose first line ends in LF alone is read with LF.
void ChooseLineEnd(VqStringReader& reader) {
    const std::string& text = reader.toString();
    const size_t lf = text.find('\n');
    reader.Delimiter(lf != std::string::npos && (lf == 0 || text[lf - 1] != '\r') ? "\n" : kCrLf);
}

// A section: its opening tag on a trimmed line, then the fields, then one line not looked at.
void ExpectSection(VqStringReader& reader, const std::string& tag) {
    if (!InputZkStreamTag(reader, tag)) ThrowFormat("Invalid File Format.");
}

void ReadGeneral(VqStringReader& r, bool encrypted, TaskGeneral& g) {
    const auto field = [&r](const char* tag) { return InputZkStreamC(r, tag); };
    g.TaskName = field("TASKNAME");
    g.User = field("USER");
    g.Password = field("PASSWORD");
    g.Domain = field("DOMAIN");
    g.Server = field("SERVER");
    g.ServerPath = field("SERVERPATH");
    g.Dependent = field("DEPENDENT");
    g.TaskReportFile = field("TASKREPORTFILE");
    g.MaxRC = field("MAXRC");
    g.QueuePriority = field("QUEUEPRIORITY");
    g.CpuPriority = field("CPUPRIORITY");
    g.ScheduledTime = field("SCHEDULEDTIME");
    g.TaskRepeat = field("TASKREPEAT");
    g.MaxTime = field("MAXTIME");
    g.TaskClass = field("TASKCLASS");
    g.SubUser = field("SUBUSER");
    g.SubDomain = field("SUBDOMAIN");
    g.SubServer = field("SUBSERVER");
    g.SubData = field("SUBDATA");
    g.RepeatCancel = field("REPEATCANCEL");
    g.FontName = field("FONTNAME");
    g.FontSize = field("FONTSIZE");
    g.FontColor = field("FONTCOLOR");
    g.FontCharset = field("FONTCHARSET");
    g.FontBold = field("FONTBOLD");
    g.FontItalic = field("FONTITALIC");
    g.Reserved1 = field("RESERVED1");
    g.Reserved2 = field("RESERVED2");
    if (encrypted) g.EditPpp = field("EDITPPP");
    g.NumberSteps = ConvertToLong(field("NUMBERSTEPS"));
    g.NumberTaskFiles = ConvertToLong(field("NUMBERTASKFILES"));
    g.NumberEnviron = ConvertToLong(field("NUMBERENVIRON"));
}

TaskStep ReadStep(VqStringReader& r) {
    TaskStep s;
    s.StepName = InputZkStreamC(r, "STEPNAME");
    s.Command = InputZkStreamC(r, "COMMAND");
    s.FileRC = InputZkStreamC(r, "FILERC");
    s.WorkingDirectory = InputZkStreamC(r, "WORKINGDIRECTORY");
    s.Environment = InputZkStreamC(r, "ENVIRONMENT");
    s.BuffWidth = InputZkStreamC(r, "BUFFWIDTH");
    s.BuffHeight = InputZkStreamC(r, "BUFFHEIGHT");
    s.MinRC = InputZkStreamC(r, "MINRC");
    s.MaxRC = InputZkStreamC(r, "MAXRC");
    s.Execute = InputZkStreamC(r, "EXECUTE");
    return s;
}

TaskFileEntry ReadTaskFileEntry(VqStringReader& r) {
    TaskFileEntry f;
    f.LocalPath = InputZkStreamC(r, "LOCALPATH");
    f.ServerPath = InputZkStreamC(r, "SERVERPATH");
    f.Copy = InputZkStreamC(r, "COPY");
    return f;
}

TaskEnviron ReadEnviron(VqStringReader& r) {
    TaskEnviron e;
    e.Step = InputZkStreamC(r, "STEP");
    e.Caption = InputZkStreamC(r, "CAPTION");
    e.Variable = InputZkStreamC(r, "VARIABLE");
    e.Type = InputZkStreamC(r, "TYPE");
    e.Value = InputZkStreamC(r, "VALUE");
    e.Help = InputZkStreamC(r, "HELP");
    e.Min = InputZkStreamC(r, "MIN");
    e.Max = InputZkStreamC(r, "MAX");
    e.Percent = InputZkStreamC(r, "PERCENT");
    e.Format = InputZkStreamC(r, "FORMAT");
    return e;
}

// `count` sections of one kind; the records go to `list`.
template <typename Record, typename ReadRecord>
void ReadSections(VqStringReader& reader, const std::string& tag, int32_t count,
                  std::vector<Record>& list, ReadRecord read) {
    for (int32_t i = 0; i < count; ++i) {
        ExpectSection(reader, tag);
        list.push_back(read(reader));
        reader.SkipOneForward();
    }
}

// Steps 6 to 11 of the load, on the file's text.
void ParseTaskText(std::string text, TaskFileData& task, int& progress) {
    progress = 5;
    VqStringReader reader(std::move(text));
    ChooseLineEnd(reader);
    const bool encrypted = OpenEncryptedTaskFile(reader);

    progress = 6;
    const std::string version = InputZkStreamLine(reader);
    if (version != kTaskFileVersion && version != kTaskFileVersionOld)
        ThrowFormat("Invalid File Version.");
    const std::string fileTag = InputZkStreamLine(reader);
    if (fileTag != "<" + kTaskFileTag + ">" && fileTag != "<" + kTaskFileTagOld + ">")
        ThrowFormat("Invalid File Format.");
    ExpectSection(reader, "GENERAL");
    ReadGeneral(reader, encrypted, task.general);
    reader.SkipOneForward();

    progress = 7;
    if (task.general.NumberSteps < 1) ThrowFormat("Invalid File Format.");
    ReadSections(reader, "STEP", task.general.NumberSteps, task.steps, ReadStep);
    progress = 8;
    ReadSections(reader, "TASKFILE", task.general.NumberTaskFiles, task.taskFiles,
                 ReadTaskFileEntry);
    progress = 9;
    ReadSections(reader, "ENVIRON", task.general.NumberEnviron, task.environ, ReadEnviron);
    progress = 10;
}

std::string LoadErrorText(const std::string& path, const std::string& description, int progress) {
    return "ERROR: Cannot Open \"" + path + "\". \n\n" + description +
           "\n\nLoad Progress Number: " + std::to_string(progress);
}

std::string Marker(std::string_view enciphered) {
    return XorText(HexDecode(enciphered), BlockMask());
}

void WriteGeneral(VqStringBuilder& b, const TaskFileData& task, bool withEditPpp) {
    const TaskGeneral& g = task.general;
    OutputZkStreamC(b, "TASKNAME", g.TaskName);
    OutputZkStreamC(b, "USER", g.User);
    OutputZkStreamC(b, "PASSWORD", g.Password);
    OutputZkStreamC(b, "DOMAIN", g.Domain);
    OutputZkStreamC(b, "SERVER", g.Server);
    OutputZkStreamC(b, "SERVERPATH", g.ServerPath);
    OutputZkStreamC(b, "DEPENDENT", g.Dependent);
    OutputZkStreamC(b, "TASKREPORTFILE", g.TaskReportFile);
    OutputZkStreamC(b, "MAXRC", g.MaxRC);
    OutputZkStreamC(b, "QUEUEPRIORITY", g.QueuePriority);
    OutputZkStreamC(b, "CPUPRIORITY", g.CpuPriority);
    OutputZkStreamC(b, "SCHEDULEDTIME", g.ScheduledTime);
    OutputZkStreamC(b, "TASKREPEAT", g.TaskRepeat);
    OutputZkStreamC(b, "MAXTIME", g.MaxTime);
    OutputZkStreamC(b, "TASKCLASS", g.TaskClass);
    OutputZkStreamC(b, "SUBUSER", g.SubUser);
    OutputZkStreamC(b, "SUBDOMAIN", g.SubDomain);
    OutputZkStreamC(b, "SUBSERVER", g.SubServer);
    OutputZkStreamC(b, "SUBDATA", g.SubData);
    OutputZkStreamC(b, "REPEATCANCEL", g.RepeatCancel);
    OutputZkStreamC(b, "FONTNAME", g.FontName);
    OutputZkStreamC(b, "FONTSIZE", g.FontSize);
    OutputZkStreamC(b, "FONTCOLOR", g.FontColor);
    OutputZkStreamC(b, "FONTCHARSET", g.FontCharset);
    OutputZkStreamC(b, "FONTBOLD", g.FontBold);
    OutputZkStreamC(b, "FONTITALIC", g.FontItalic);
    OutputZkStreamC(b, "RESERVED1", g.Reserved1);
    OutputZkStreamC(b, "RESERVED2", g.Reserved2);
    if (withEditPpp) OutputZkStreamC(b, "EDITPPP", g.EditPpp);
    OutputZkStreamC(b, "NUMBERSTEPS", std::to_string(task.steps.size()));
    OutputZkStreamC(b, "NUMBERTASKFILES", std::to_string(task.taskFiles.size()));
    OutputZkStreamC(b, "NUMBERENVIRON", std::to_string(task.environ.size()));
}

void WriteStep(VqStringBuilder& b, const TaskStep& s) {
    OutputZkStreamTag(b, "STEP");
    OutputZkStreamC(b, "STEPNAME", s.StepName);
    OutputZkStreamC(b, "COMMAND", s.Command);
    OutputZkStreamC(b, "FILERC", s.FileRC);
    OutputZkStreamC(b, "WORKINGDIRECTORY", s.WorkingDirectory);
    OutputZkStreamC(b, "ENVIRONMENT", s.Environment);
    OutputZkStreamC(b, "BUFFWIDTH", s.BuffWidth);
    OutputZkStreamC(b, "BUFFHEIGHT", s.BuffHeight);
    OutputZkStreamC(b, "MINRC", s.MinRC);
    OutputZkStreamC(b, "MAXRC", s.MaxRC);
    OutputZkStreamC(b, "EXECUTE", s.Execute);
    OutputZkStreamTag(b, "/STEP");
}

void WriteTaskFileEntry(VqStringBuilder& b, const TaskFileEntry& f) {
    OutputZkStreamTag(b, "TASKFILE");
    OutputZkStreamC(b, "LOCALPATH", f.LocalPath);
    OutputZkStreamC(b, "SERVERPATH", f.ServerPath);
    OutputZkStreamC(b, "COPY", f.Copy);
    OutputZkStreamTag(b, "/TASKFILE");
}

void WriteEnviron(VqStringBuilder& b, const TaskEnviron& e) {
    OutputZkStreamTag(b, "ENVIRON");
    OutputZkStreamC(b, "STEP", e.Step);
    OutputZkStreamC(b, "CAPTION", e.Caption);
    OutputZkStreamC(b, "VARIABLE", e.Variable);
    OutputZkStreamC(b, "TYPE", e.Type);
    OutputZkStreamC(b, "VALUE", e.Value);
    OutputZkStreamC(b, "HELP", e.Help);
    OutputZkStreamC(b, "MIN", e.Min);
    OutputZkStreamC(b, "MAX", e.Max);
    OutputZkStreamC(b, "PERCENT", e.Percent);
    OutputZkStreamC(b, "FORMAT", e.Format);
    OutputZkStreamTag(b, "/ENVIRON");
}

bool IsBadName(const std::string& name) {
    return name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
           name.find('\0') != std::string::npos;
}

}  // namespace

const std::string& EncryptedBeginMarker() {
    static const std::string marker = Marker(kBeginMarkerHex);
    return marker;
}

const std::string& EncryptedEndMarker() {
    static const std::string marker = Marker(kEndMarkerHex);
    return marker;
}

bool LoadTaskFile(Clock& clock, const std::string& path, TaskFileData& task,
                  std::string& LastTaskFileError, bool /*quiet*/) {
    task = TaskFileData{};
    int progress = 0;
    try {
        try {
            WaitForExclusiveOpen(clock, path);
        } catch (const VqError&) {
            progress = kProgressProbe;
            throw;
        }
        ParseTaskText(ReadTaskFileBytes(path, progress), task, progress);
        return true;
    } catch (const std::exception& e) {
        LastTaskFileError = LoadErrorText(path, e.what(), progress);
        return false;
    }
}

bool ParseTaskFileText(std::string text, const std::string& path, TaskFileData& task,
                       std::string& LastTaskFileError) {
    task = TaskFileData{};
    int progress = 5;
    try {
        ParseTaskText(std::move(text), task, progress);
        return true;
    } catch (const std::exception& e) {
        LastTaskFileError = LoadErrorText(path, e.what(), progress);
        return false;
    }
}

bool OpenEncryptedTaskFile(VqStringReader& reader) {
    const auto noEncryptedFile = [&reader] {
        reader.ResetPosition();
        return false;
    };
    reader.ResetPosition();
    if (reader.ReadNextLine() != kXmlLine) return noEncryptedFile();
    if (reader.ReadNextLine() != kEncryptedOpenLine) return noEncryptedFile();
    if (reader.ReadNextLine() != EncryptedBeginMarker()) return noEncryptedFile();
    if (reader.ReadNextLine().empty()) return noEncryptedFile();
    VqStringBuilder plain;
    try {
        for (std::string line = reader.ReadNextLine(); line != EncryptedEndMarker();
             line = reader.ReadNextLine()) {
            if (reader.IsEOF()) return noEncryptedFile();
            plain.AppendElement(DecodeEncStr(line));
        }
    } catch (const VqError&) {
        return noEncryptedFile();
    }
    if (reader.ReadNextLine() != kEncryptedCloseLine) return noEncryptedFile();
    reader.toString(plain.toString());
    ChooseLineEnd(reader);
    return true;
}

std::string TaskFileText(const TaskFileData& task, bool withEditPpp) {
    VqStringBuilder b;
    b.AppendElement(kTaskFileVersion);
    OutputZkStreamTag(b, kTaskFileTag);
    OutputZkStreamTag(b, "GENERAL");
    WriteGeneral(b, task, withEditPpp);
    OutputZkStreamTag(b, "/GENERAL");
    for (const TaskStep& step : task.steps) WriteStep(b, step);
    for (const TaskFileEntry& entry : task.taskFiles) WriteTaskFileEntry(b, entry);
    for (const TaskEnviron& environ : task.environ) WriteEnviron(b, environ);
    OutputZkStreamTag(b, "/" + kTaskFileTag);
    return b.toDelimitedString(kCrLf) + kCrLf;
}

std::string EncryptedTaskFileText(const TaskFileData& task, RandomSource& random) {
    const std::string plain = TaskFileText(task, true);
    VqStringBuilder b;
    b.AppendElement(kXmlLine);
    b.AppendElement(kEncryptedOpenLine);
    b.AppendElement(EncryptedBeginMarker());
    b.AppendElement(HexEncode(RandomBytes(8, random)));  // must not be empty; not read
    for (size_t at = 0; at < plain.size(); at += kEncryptedPieceSize)
        b.AppendElement(
            EncodeEncStr(std::string_view(plain).substr(at, kEncryptedPieceSize), random));
    b.AppendElement(EncryptedEndMarker());
    b.AppendElement(kEncryptedCloseLine);
    return b.toDelimitedString(kCrLf) + kCrLf;
}

bool SaveTaskFile(const std::string& path, const TaskFileData& task, bool encrypted,
                  std::string* error) {
    return WriteFileAtomic(path, encrypted ? EncryptedTaskFileText(task) : TaskFileText(task),
                           error);
}

std::string FileSystemNameProblem(const TaskGeneral& general) {
    // An empty domain is allowed: the task's folders then begin with the user.
    const struct {
        const char* tag;
        const std::string& value;
        bool mayBeEmpty;
    } fields[] = {{"TASKNAME", general.TaskName, false},
                  {"USER", general.User, false},
                  {"DOMAIN", general.Domain, true},
                  {"TASKREPORTFILE", general.TaskReportFile, false}};
    for (const auto& f : fields) {
        if (f.mayBeEmpty && f.value.empty()) continue;
        if (IsBadName(f.value))
            return std::string("The field ") + f.tag + " \"" + f.value +
                   "\" can't be a folder or file name: it must not " +
                   (f.mayBeEmpty ? "" : "be empty, ") +
                   "hold \"/\" or a NUL character, or be \".\" or \"..\".";
    }
    return {};
}

std::string SingleRunRepeat() { return "0000" + std::string(31 + 7, ' ') + "0000" + "ED"; }

TaskFileData NewTaskFile(const std::string& name, const std::string& computer,
                         const std::string& submitter, const std::string& scheduled) {
    TaskFileData task;
    TaskGeneral& g = task.general;
    g.TaskName = name;
    g.TaskReportFile = name;
    g.User = "$LOCALUSER$";
    g.Domain = "$LOCALS$";
    g.Server = computer;
    g.MaxRC = "1";
    g.QueuePriority = "3";
    g.CpuPriority = "22";
    g.ScheduledTime = scheduled;
    g.TaskRepeat = SingleRunRepeat();
    g.MaxTime = "0";
    g.TaskClass = "A";
    g.SubUser = submitter;
    g.SubDomain = "$LOCALS$";
    g.SubServer = computer;
    g.RepeatCancel = "0";
    g.FontName = "Monospace";
    g.FontSize = "10";
    g.FontColor = "0";
    g.FontCharset = "0";
    g.FontBold = "0";
    g.FontItalic = "0";
    g.EditPpp = "1";
    return task;
}

TaskStep NewTaskStep(const std::string& command, size_t number) {
    TaskStep step;
    step.StepName = "Step " + std::to_string(number);
    step.Command = command;
    step.BuffWidth = "80";
    step.BuffHeight = "300";
    step.MinRC = "1";
    step.MaxRC = "1";
    step.Execute = "1";
    return step;
}

}  // namespace vq
