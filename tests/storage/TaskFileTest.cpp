#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "platform/Files.h"
#include "storage/TaggedStream.h"
#include "storage/TaskFile.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::FakeClock;
using test::TempDir;

// The general fields in their file order: member, tag and the sample's value.
const struct {
    std::string TaskGeneral::*member;
    const char* tag;
    std::string value;
} kGeneralFields[] = {
    {&TaskGeneral::TaskName, "TASKNAME", "Nightly build"},
    {&TaskGeneral::User, "USER", "$LOCALUSER$"},
    {&TaskGeneral::Password, "PASSWORD", "0DE15DC7FDF21B9763B790482CDEF7F5E14FA8930373F8F84DA2EB06AD1FCC2AA8AB9C5F97031ABD"},
    {&TaskGeneral::Domain, "DOMAIN", "$LOCALS$"},
    {&TaskGeneral::Server, "SERVER", "HOST"},
    {&TaskGeneral::ServerPath, "SERVERPATH", "/srv"},
    {&TaskGeneral::Dependent, "DEPENDENT", "Other"},
    {&TaskGeneral::TaskReportFile, "TASKREPORTFILE", "report"},
    {&TaskGeneral::MaxRC, "MAXRC", "1"},
    {&TaskGeneral::QueuePriority, "QUEUEPRIORITY", "3"},
    {&TaskGeneral::CpuPriority, "CPUPRIORITY", "22"},
    {&TaskGeneral::ScheduledTime, "SCHEDULEDTIME", "2026-11-22 12:00:00"},
    {&TaskGeneral::TaskRepeat, "TASKREPEAT", "0000" + std::string(38, ' ') + "0000ED"},
    {&TaskGeneral::MaxTime, "MAXTIME", "0"},
    {&TaskGeneral::TaskClass, "TASKCLASS", "B"},
    {&TaskGeneral::SubUser, "SUBUSER", "anna"},
    {&TaskGeneral::SubDomain, "SUBDOMAIN", "$LOCALS$"},
    {&TaskGeneral::SubServer, "SUBSERVER", "HOST"},
    {&TaskGeneral::SubData, "SUBDATA", "d"},
    {&TaskGeneral::RepeatCancel, "REPEATCANCEL", "0"},
    {&TaskGeneral::FontName, "FONTNAME", "Mono"},
    {&TaskGeneral::FontSize, "FONTSIZE", "10"},
    {&TaskGeneral::FontColor, "FONTCOLOR", "0"},
    {&TaskGeneral::FontCharset, "FONTCHARSET", "0"},
    {&TaskGeneral::FontBold, "FONTBOLD", "1"},
    {&TaskGeneral::FontItalic, "FONTITALIC", "0"},
    {&TaskGeneral::Reserved1, "RESERVED1", "r1"},
    {&TaskGeneral::Reserved2, "RESERVED2", "r2"},
};

TaskFileData SampleTask() {
    TaskFileData t;
    for (const auto& f : kGeneralFields) t.general.*f.member = f.value;
    t.general.EditPpp = "1";
    t.steps.push_back({"Build", "make\r\nmake install", "rc.txt", "/tmp", "A=1\r\nB=2", "80", "300",
                       "1", "2", "1"});
    t.taskFiles.push_back({"/home/a/x", "/srv/x", "1"});
    t.environ.push_back({"1", "Cap", "VAR", "T", "V", "H", "0", "9", "5", "F"});
    return t;
}

std::string SampleText() {
    std::string text = "Orvantis File Version 1.0\r\n<ORVANTIS>\r\n<GENERAL>\r\n";
    for (const auto& f : kGeneralFields)
        text += "\t<" + std::string(f.tag) + ">" + f.value + "</" + f.tag + ">\r\n";
    return text +
    "\t<NUMBERSTEPS>1</NUMBERSTEPS>\r\n"
    "\t<NUMBERTASKFILES>1</NUMBERTASKFILES>\r\n"
    "\t<NUMBERENVIRON>1</NUMBERENVIRON>\r\n"
    "</GENERAL>\r\n"
    "<STEP>\r\n"
    "\t<STEPNAME>Build</STEPNAME>\r\n"
    "\t<COMMAND>make\x01make install</COMMAND>\r\n"
    "\t<FILERC>rc.txt</FILERC>\r\n"
    "\t<WORKINGDIRECTORY>/tmp</WORKINGDIRECTORY>\r\n"
    "\t<ENVIRONMENT>A=1\x01"
    "B=2</ENVIRONMENT>\r\n"
    "\t<BUFFWIDTH>80</BUFFWIDTH>\r\n"
    "\t<BUFFHEIGHT>300</BUFFHEIGHT>\r\n"
    "\t<MINRC>1</MINRC>\r\n"
    "\t<MAXRC>2</MAXRC>\r\n"
    "\t<EXECUTE>1</EXECUTE>\r\n"
    "</STEP>\r\n"
    "<TASKFILE>\r\n"
    "\t<LOCALPATH>/home/a/x</LOCALPATH>\r\n"
    "\t<SERVERPATH>/srv/x</SERVERPATH>\r\n"
    "\t<COPY>1</COPY>\r\n"
    "</TASKFILE>\r\n"
    "<ENVIRON>\r\n"
    "\t<STEP>1</STEP>\r\n"
    "\t<CAPTION>Cap</CAPTION>\r\n"
    "\t<VARIABLE>VAR</VARIABLE>\r\n"
    "\t<TYPE>T</TYPE>\r\n"
    "\t<VALUE>V</VALUE>\r\n"
    "\t<HELP>H</HELP>\r\n"
    "\t<MIN>0</MIN>\r\n"
    "\t<MAX>9</MAX>\r\n"
    "\t<PERCENT>5</PERCENT>\r\n"
    "\t<FORMAT>F</FORMAT>\r\n"
    "</ENVIRON>\r\n"
    "</ORVANTIS>\r\n";
}
const std::string kSampleText = SampleText();

// Every field of `read` equals that of `written`: the writer, pinned to the byte below, puts
// each field under its own tag, so equal texts mean equal fields.
void ExpectSameTask(const TaskFileData& written, const TaskFileData& read, bool withEditPpp) {
    EXPECT_EQ(TaskFileText(read), TaskFileText(written));
    EXPECT_EQ(read.general.NumberSteps, static_cast<int32_t>(written.steps.size()));
    EXPECT_EQ(read.general.NumberTaskFiles, static_cast<int32_t>(written.taskFiles.size()));
    EXPECT_EQ(read.general.NumberEnviron, static_cast<int32_t>(written.environ.size()));
    EXPECT_EQ(read.general.EditPpp, withEditPpp ? written.general.EditPpp : "");
}

class TaskFileLoad : public ::testing::Test {
  protected:
    std::string Write(const std::string& text, const std::string& name = "task.vqf") {
        const std::string path = dir.Path() + name;
        EXPECT_TRUE(WriteFileAtomic(path, text));
        return path;
    }
    bool Load(const std::string& path) { return LoadTaskFile(clock, path, task, error); }
    // Loads `text` and expects failure with `description` at `progress`.
    void ExpectFailure(const std::string& text, const std::string& description, int progress) {
        const std::string path = Write(text);
        EXPECT_FALSE(Load(path));
        EXPECT_EQ(error, "ERROR: Cannot Open \"" + path + "\". \n\n" + description +
                             "\n\nLoad Progress Number: " + std::to_string(progress));
    }
    static std::string Replace(std::string text, const std::string& from, const std::string& to) {
        const size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    }

    TempDir dir;
    FakeClock clock;
    TaskFileData task;
    std::string error;
};

TEST_F(TaskFileLoad, PlainFileIsWrittenToTheByteAndReadBackFieldByField) {
    const TaskFileData sample = SampleTask();
    EXPECT_EQ(TaskFileText(sample), kSampleText);
    ASSERT_TRUE(Load(Write(kSampleText))) << error;
    ExpectSameTask(sample, task, false);
    EXPECT_EQ(task.steps[0].Command, "make\r\nmake install");
    EXPECT_EQ(clock.slept, 0);
}

TEST_F(TaskFileLoad, LineBreaksInValuesComeBackAsCrLf) {
    TaskFileData sample = SampleTask();
    sample.steps[0].Command =
        "a\nb\rc\r\nd\x1A"
        "e";
    ASSERT_TRUE(Load(Write(TaskFileText(sample))));
    EXPECT_EQ(task.steps[0].Command, "a\r\nb\r\nc\r\nd\r\ne");
}

TEST_F(TaskFileLoad, FileWithLfLineEndsAndFreeIndentationIsRead) {
    std::string text = kSampleText;
    for (size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at))
        text.replace(at, 2, "\n");
    text = Replace(text, "\n<GENERAL>\n", "\n      <GENERAL>   \n");
    text = Replace(text, "\t<USER>", "<USER>");
    ASSERT_TRUE(Load(Write(text))) << error;
    ExpectSameTask(SampleTask(), task, false);
}

TEST_F(TaskFileLoad, VersionLinesAndFileTagsCombineFreely) {
    ASSERT_TRUE(Load(Write(
        Replace(kSampleText, "Orvantis File Version 1.0", "  Belquinn File Version 1.0 \t"))));
    ASSERT_TRUE(Load(Write(Replace(kSampleText, "<ORVANTIS>", "<BELQUINN>"))));
    ExpectFailure(Replace(kSampleText, "Orvantis File Version 1.0", "orvantis file version 1.0"),
                  "Invalid File Version.", 6);
    ExpectFailure(Replace(kSampleText, "<ORVANTIS>", "<OTHER>"), "Invalid File Format.", 6);
    ExpectFailure(Replace(kSampleText, "<GENERAL>", "<GENERAL2>"), "Invalid File Format.", 6);
    ExpectFailure("", "Invalid File Version.", 6);
}

TEST_F(TaskFileLoad, EveryFieldIsRequiredAndInOrder) {
    ExpectFailure(Replace(kSampleText, "\t<RESERVED1>r1</RESERVED1>\r\n", ""),
                  "Invalid Data: RESERVED1", 6);
    ExpectFailure(
        Replace(kSampleText, "\t<USER>$LOCALUSER$</USER>\r\n\t<PASSWORD>", "\t<PASSWORD>"),
        "Invalid Data: USER", 6);
    // Two fields swapped fail at the first of them.
    const std::string user = "\t<USER>$LOCALUSER$</USER>\r\n";
    std::string swapped = Replace(kSampleText, user, "");
    swapped = Replace(swapped, "\t<DOMAIN>", user + "\t<DOMAIN>");
    ExpectFailure(swapped, "Invalid Data: USER", 6);
    ExpectFailure(Replace(kSampleText, "\t<HELP>H</HELP>\r\n", ""), "Invalid Data: HELP", 9);
    ExpectFailure(Replace(kSampleText, "\t<COPY>1</COPY>\r\n", ""), "Invalid Data: COPY", 8);
    ExpectFailure(Replace(kSampleText, "<STEPNAME>Build", "<STEPNAME2>Build"),
                  "Invalid Data: STEPNAME", 7);
}

TEST_F(TaskFileLoad, CountsDecideTheSections) {
    ExpectFailure(Replace(kSampleText, "<NUMBERSTEPS>1<", "<NUMBERSTEPS>0<"),
                  "Invalid File Format.", 7);
    ExpectFailure(Replace(kSampleText, "<NUMBERSTEPS>1<", "<NUMBERSTEPS>-3<"),
                  "Invalid File Format.", 7);
    ExpectFailure(Replace(kSampleText, "<NUMBERSTEPS>1<", "<NUMBERSTEPS>one<"), "Type mismatch", 6);
    ExpectFailure(Replace(kSampleText, "<NUMBERSTEPS>1<", "<NUMBERSTEPS>99999999999<"), "Overflow",
                  6);
    ExpectFailure(Replace(kSampleText, "<NUMBERSTEPS>1<", "<NUMBERSTEPS>2<"),
                  "Invalid File Format.", 7);
    ExpectFailure(Replace(kSampleText, "<TASKFILE>\r\n", "<FILE>\r\n"), "Invalid File Format.", 8);
    ExpectFailure(Replace(kSampleText, "<ENVIRON>\r\n", "<ENV>\r\n"), "Invalid File Format.", 9);
    TaskFileData noLists = SampleTask();
    noLists.taskFiles.clear();
    noLists.environ.clear();
    ASSERT_TRUE(Load(Write(TaskFileText(noLists))));
    EXPECT_TRUE(task.taskFiles.empty());
    EXPECT_TRUE(task.environ.empty());
    EXPECT_EQ(task.steps.size(), 1u);
}

TEST_F(TaskFileLoad, ClosingLinesAndWhatFollowsAreNotRead) {
    std::string text = Replace(kSampleText, "</GENERAL>", "</WRONG>");
    text = Replace(text, "</STEP>", "whatever");
    text = Replace(text, "</ORVANTIS>", "</ORVANTIS>\r\ntrailing garbage <STEP>");
    ASSERT_TRUE(Load(Write(text))) << error;
    ExpectSameTask(SampleTask(), task, false);
}

TEST_F(TaskFileLoad, SizeBoundIsTenMebibytes) {
    // The closing file tag and what follows it are never read, so padding there is harmless.
    std::string text = kSampleText;
    text.resize(kMaxTaskFileSize, 'x');
    ASSERT_TRUE(Load(Write(text))) << error;
    EXPECT_EQ(task.general.TaskName, "Nightly build");
    text += 'x';
    ExpectFailure(text, "File too big.", 2);
}

// A missing file and one under a writer's record lock are tried five times, 100 ms apart; a
// folder is no task file at all.
TEST_F(TaskFileLoad, FilesThatCantBeOpenedFailWithTheirProgress) {
    const std::string absent = dir.Path() + "absent.vqf";
    EXPECT_FALSE(Load(absent));
    EXPECT_EQ(clock.slept, 500);
    EXPECT_EQ(error, "ERROR: Cannot Open \"" + absent +
                         "\". \n\nNo such file or directory\n\nLoad Progress Number: 907");

    const std::string path = Write(kSampleText);
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    ASSERT_EQ(::fcntl(fd, F_OFD_SETLK, &lock), 0);
    EXPECT_FALSE(Load(path));
    EXPECT_EQ(clock.slept, 1000);
    EXPECT_NE(error.find("Load Progress Number: 907"), std::string::npos);
    ::close(fd);
    EXPECT_TRUE(Load(path)) << error;

    ASSERT_TRUE(MakeFolders(dir.Path() + "folder.vqf"));
    EXPECT_FALSE(Load(dir.Path() + "folder.vqf"));
    EXPECT_NE(error.find("Load Progress Number: 1"), std::string::npos) << error;
}

// A writer that holds an exclusive lock on the file for `ms` milliseconds, on its own thread.
class LockingWriter {
  public:
    LockingWriter(const std::string& path, int ms) : fd_(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
        EXPECT_EQ(::flock(fd_, LOCK_EX), 0);
        thread_ = std::thread([this, ms] {
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
            ::flock(fd_, LOCK_UN);
        });
    }
    ~LockingWriter() {
        thread_.join();
        ::close(fd_);
    }

  private:
    int fd_;
    std::thread thread_;
};

// A file held by its writer for 300 ms is read; one held for a second is refused.
TEST(TaskFileProbe, FileHeldByItsWriterIsWaitedForFiveTimes) {
    TempDir dir;
    const std::string path = dir.Path() + "held.vqf";
    ASSERT_TRUE(WriteFileAtomic(path, kSampleText));
    SystemClock clock;
    TaskFileData task;
    std::string error;
    {
        LockingWriter writer(path, 300);
        EXPECT_TRUE(LoadTaskFile(clock, path, task, error)) << error;
        EXPECT_EQ(task.general.TaskName, "Nightly build");
    }
    LockingWriter writer(path, 1000);
    EXPECT_FALSE(LoadTaskFile(clock, path, task, error));
    EXPECT_EQ(error, "ERROR: Cannot Open \"" + path + "\". \n\n" + ErrnoText(EWOULDBLOCK) +
                         "\n\nLoad Progress Number: 907");
}

TEST_F(TaskFileLoad, EncryptedFileIsReadLikeItsPlainTwin) {
    const TaskFileData sample = SampleTask();
    const std::string encrypted = EncryptedTaskFileText(sample);
    VqStringReader lines(encrypted);
    EXPECT_EQ(lines.ReadNextLine(), "<?xml version=\"1.0\"?>");
    EXPECT_EQ(lines.ReadNextLine(), "<orvantisfile version=\"1.1\" encrypted=\"yes\">");
    EXPECT_EQ(lines.ReadNextLine(), EncryptedBeginMarker());
    EXPECT_EQ(EncryptedBeginMarker().size(), 40u);
    EXPECT_EQ(EncryptedEndMarker().size(), 40u);
    EXPECT_EQ(encrypted.find("Nightly"), std::string::npos);
    const std::string closing = EncryptedEndMarker() + "\r\n</orvantisfile>\r\n";
    EXPECT_EQ(encrypted.substr(encrypted.size() - closing.size()), closing);

    ASSERT_TRUE(Load(Write(encrypted))) << error;
    ExpectSameTask(sample, task, true);
}

TEST_F(TaskFileLoad, DamagedEncryptedFileFailsAsAnInvalidVersion) {
    const std::string encrypted = EncryptedTaskFileText(SampleTask());
    // A data line with a character that no code table holds.
    const size_t data = encrypted.find("\r\n", encrypted.find(EncryptedBeginMarker()) + 42) + 2;
    std::string damaged = encrypted;
    damaged[data + 3] = ' ';
    ExpectFailure(damaged, "Invalid File Version.", 6);
    // No end marker, no closing line, an empty fourth line.
    ExpectFailure(Replace(encrypted, EncryptedEndMarker(), "end"), "Invalid File Version.", 6);
    ExpectFailure(Replace(encrypted, "</orvantisfile>", "</other>"), "Invalid File Version.", 6);
    const size_t line4 = encrypted.find(EncryptedBeginMarker()) + 42;
    ExpectFailure(encrypted.substr(0, line4) + encrypted.substr(encrypted.find("\r\n", line4)),
                  "Invalid File Version.", 6);
}

TEST(OpenEncryptedTaskFile, LeavesAPlainTextAtItsStart) {
    VqStringReader reader(kSampleText);
    reader.ReadNextLine();
    EXPECT_FALSE(OpenEncryptedTaskFile(reader));
    EXPECT_EQ(reader.Position(), 1u);
    EXPECT_EQ(reader.toString(), kSampleText);
}

TEST(TaskFileSave, WritesBothFormsWhole) {
    TempDir dir;
    FakeClock clock;
    TaskFileData read;
    std::string error;
    for (bool encrypted : {false, true}) {
        const std::string path = dir.Path() + (encrypted ? "e.vqf" : "p.vqf");
        ASSERT_TRUE(SaveTaskFile(path, SampleTask(), encrypted));
        ASSERT_TRUE(LoadTaskFile(clock, path, read, error)) << error;
        ExpectSameTask(SampleTask(), read, encrypted);
    }
    EXPECT_FALSE(SaveTaskFile(dir.Path() + "missing/x.vqf", SampleTask(), false, &error));
    EXPECT_FALSE(error.empty());
}

TEST(FileSystemNames, FieldsThatBecomeNamesAreChecked) {
    EXPECT_EQ(FileSystemNameProblem(SampleTask().general), "");
    const struct {
        std::string TaskGeneral::*field;
        std::string value, problem;
    } cases[] = {{&TaskGeneral::TaskReportFile, "..", "TASKREPORTFILE"},
                 {&TaskGeneral::User, "", "USER"},
                 {&TaskGeneral::Domain, std::string("a\0b", 3), "DOMAIN"},
                 {&TaskGeneral::Domain, ".", "DOMAIN"},
                 {&TaskGeneral::Domain, "", ""},
                 {&TaskGeneral::TaskName, "a/b", "TASKNAME \"a/b\""},
                 {&TaskGeneral::TaskName, "with blanks", ""}};
    for (const auto& c : cases) {
        TaskGeneral g = SampleTask().general;
        g.*c.field = c.value;
        const std::string problem = FileSystemNameProblem(g);
        if (c.problem.empty()) {
            EXPECT_EQ(problem, "");
        } else {
            EXPECT_NE(problem.find(c.problem), std::string::npos) << problem;
        }
    }
}

}  // namespace
}  // namespace vq
