// The class table, Classes.dat and the non-working days of NonWork.dat.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>

#include "platform/Files.h"
#include "storage/Classes.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;

std::string ClassesPath(TestServer& ts) { return ts->DataPath + kClassesFileName; }

// The file text of the defaults with `from` replaced by `to` once.
std::string DefaultsWith(const std::string& from, const std::string& to) {
    std::string text = ClassesFileText(ClassData());
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(ClassTable, DefaultsAndLettersWhateverTheLocale) {
    ClassData data;
    // Class A bounds nothing; the others are bounded to one unit. The file pins the rest.
    EXPECT_EQ(data.ClassTable[0].MaxUnits, 0);
    EXPECT_EQ(data.ClassTable[25].MaxUnits, 1);
    test::LocaleScope turkish("tr_TR.UTF-8");
    ASSERT_TRUE(turkish.Active());
    const std::pair<const char*, int> letters[] = {{"b", 1}, {"Z", 25}, {"i", 8},
                                                   {"?", 0}, {"", 0},   {"BB", 0}};
    for (const auto& [letter, index] : letters)
        EXPECT_EQ(ClassIndex(data, letter), index) << letter;
}

TEST(ClassTable, UnitsRoundHalfToEvenAndGiveZeroWhenTheyDontFit) {
    ClassData data;
    ClassEntry& c = data.ClassTable[3];
    // CPU, memory, the ponders of the two and the units.
    const std::tuple<int, int, double, double, int> cases[] = {
        {1, 0, 2.5, 0, 2}, {1, 0, 3.5, 0, 4}, {10, INT32_MAX, 1, 2, 0}};
    for (const auto& [cpu, memory, cpuPonder, memoryPonder, units] : cases) {
        c.MaxCpu = cpu;
        c.MaxMemory = memory;
        data.Ponders = {cpuPonder, memoryPonder};
        ComputeClassUnits(data);
        EXPECT_EQ(c.MaxUnits, units) << cpu << " " << memory;
    }
}

TEST(ClassesFile, IsWrittenInFileFormExactlyAndReadBack) {
    TestServer ts;
    ClassData& data = ts->classes;
    data.Ponders[1] = 0.5;
    ClassEntry& b = data.ClassTable[1];
    b = {"B", 3600, 60, 31, 2048, 12345 * kIoScale + 5000, 150, 0};
    ASSERT_TRUE(SaveClasses(*ts));
    const std::string text = test::ReadFileText(ClassesPath(ts));
    const std::string ponders =
        "    <Orvantis Classes>\r\n"
        "    <PONDERS>\r\n"
        "        <PONDER0>1</PONDER0>\r\n"
        "        <PONDER1>0.5</PONDER1>\r\n"
        "        <PONDER2>1</PONDER2>\r\n";
    EXPECT_EQ(text.substr(0, ponders.size()), ponders);
    // Every class in the form of class B, after class A with its defaults.
    EXPECT_NE(text.find("        <PONDER6>0</PONDER6>\r\n"
                        "    </PONDERS>\r\n"
                        "    <CLASS-0>\r\n"
                        "        <CLASSNAME>A</CLASSNAME>\r\n"
                        "        <MAXTIME>0</MAXTIME>\r\n"
                        "        <CPU>0</CPU>\r\n"
                        "        <CPUP>22</CPUP>\r\n"
                        "        <MEM>0</MEM>\r\n"
                        "        <IO>0</IO>\r\n"
                        "        <QP>0</QP>\r\n"
                        "    </CLASS-0>\r\n"
                        "    <CLASS-1>\r\n"
                        "        <CLASSNAME>B</CLASSNAME>\r\n"
                        "        <MAXTIME>3600</MAXTIME>\r\n"
                        "        <CPU>60</CPU>\r\n"
                        "        <CPUP>31</CPUP>\r\n"
                        "        <MEM>2048</MEM>\r\n"
                        "        <IO>12345.5</IO>\r\n"
                        "        <QP>150</QP>\r\n"
                        "    </CLASS-1>\r\n"),
              std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10 + 26 * 9);

    data = ClassData();
    ASSERT_TRUE(LoadClasses(*ts));
    // Read back field for field, but the I/O as a whole number, half to even.
    std::string roundedIo = text;
    EXPECT_EQ(ClassesFileText(data), roundedIo.replace(roundedIo.find("12345.5"), 7, "12346"));
    EXPECT_EQ(b.MaxUnits, 60 + 1024 + 12346);
    EXPECT_EQ(ts.LogText(), "");
}

TEST(ClassesFile, MissingFileGivesDefaultsIoUpToTheLongRangeIsReadAndAFailedSaveIsLogged) {
    TestServer ts;
    ts->classes.ClassTable[4].MaxCpu = 77;
    EXPECT_TRUE(LoadClasses(*ts));
    EXPECT_EQ(ts->classes.ClassTable[4].MaxCpu, 1);
    ASSERT_TRUE(
        WriteFileAtomic(ClassesPath(ts), DefaultsWith("<IO>0</IO>", "<IO>2147483647</IO>")));
    EXPECT_TRUE(LoadClasses(*ts));
    EXPECT_EQ(ts->classes.ClassTable[0].MaxIo, int64_t{2147483647} * kIoScale);
    EXPECT_EQ(ts.LogText(), "");
    ASSERT_EQ(::unlink(ClassesPath(ts).c_str()), 0);
    ASSERT_TRUE(MakeFolders(ClassesPath(ts)));  // a folder where the file should go
    EXPECT_FALSE(SaveClasses(*ts));
    EXPECT_NE(ts.LogText().find("Error occured while saving classes.\n\n"), std::string::npos);
}

TEST(ClassesFile, DamagedFilesFailWithTheirDescriptionAndKeepWhatWasRead) {
    const std::string full = ClassesFileText(ClassData());
    const std::pair<std::string, const char*> cases[] = {
        {DefaultsWith("</CLASS-0>", "</CLASS-9>"), "Invalid File Format."},
        {DefaultsWith("<IO>0</IO>", "<IO>2147483648</IO>"),
         "Default values will be used.\n\nOverflow"},
        {full.substr(0, full.find("    <CLASS-13>")), "Input past end of file"},
        {DefaultsWith("<CPU>1</CPU>", "<CPUX>1</CPUX>"), "Invalid Data: CPU"}};
    for (const auto& [text, description] : cases) {
        TestServer ts;
        ASSERT_TRUE(WriteFileAtomic(ClassesPath(ts), text));
        EXPECT_FALSE(LoadClasses(*ts)) << description;
        EXPECT_NE(ts.LogText().find(
                      "Error occured while loading classes.\n\nDefault values will be used.\n\n"),
                  std::string::npos);
        EXPECT_NE(ts.LogText().find(description), std::string::npos) << ts.LogText();
    }
    TestServer ts;
    std::string text = DefaultsWith("<CPU>0</CPU>", "<CPU>100</CPU>");
    ASSERT_TRUE(
        WriteFileAtomic(ClassesPath(ts), text.replace(text.find("<CLASS-1>"), 9, "<CLASS-3>")));
    EXPECT_FALSE(LoadClasses(*ts));
    EXPECT_EQ(ts->classes.ClassTable[0].MaxCpu, 100);
    EXPECT_EQ(ts->classes.ClassTable[0].MaxUnits, 0);  // the units stay those of the defaults
}

class NonWorkDays : public ::testing::Test {
  protected:
    void WriteDates(const std::string& lines) {
        ASSERT_TRUE(WriteFileAtomic(NonWorkFilePath(*ts), lines));
    }
    bool NonWork(int y, int m, int d) {
        return IsNonWorkDay(*ts, MakeDate({y, m, d, 10, 30, 0, 0}));
    }
    size_t Marks() const {
        const std::string& cache = ts.server->classes.NonWorkCache;
        return static_cast<size_t>(std::count(cache.begin(), cache.end(), 'H'));
    }
    TestServer ts;
};

// The cell form and the locale's short date, where "09-01-27" is 9 January 2027.
TEST_F(NonWorkDays, QuotedDatesInBothFormsAreNonWorking) {
    test::LocaleScope dutch("nl_NL.UTF-8");
    ASSERT_TRUE(dutch.Active());
    WriteDates("\"2026-12-25\"\r\n\"26-12-26\"\r\n\r\n\"2027-01-01\"\r\n09-01-27\r\n");
    EXPECT_TRUE(NonWork(2026, 12, 25));
    EXPECT_TRUE(NonWork(2026, 12, 26));
    EXPECT_FALSE(NonWork(2026, 12, 27));
    EXPECT_TRUE(NonWork(2027, 1, 1));
    EXPECT_TRUE(NonWork(2027, 1, 9));
    EXPECT_EQ(Marks(), 4u);
}

TEST_F(NonWorkDays, TheCacheHoldsExactlyTwoYearsUpToADay366AndMovesOn) {
    WriteDates("\"2026-05-01\"\r\n\"2027-05-01\"\r\n\"2028-05-01\"\r\n");
    EXPECT_TRUE(NonWork(2026, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkCache.size(), 732u);
    EXPECT_EQ(Marks(), 2u);  // the year after next has no place yet
    // A change to the file isn't seen while the cached years stay.
    WriteDates("\"2026-05-01\"\r\n\"2027-05-01\"\r\n\"2027-06-01\"\r\n\"2028-05-01\"\r\n"
               "\"2028-12-31\"\r\n");
    EXPECT_FALSE(NonWork(2027, 6, 1));
    // The year after the two moves the cache by one year and reads the file again.
    EXPECT_TRUE(NonWork(2028, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkBaseYear, 2027);
    EXPECT_TRUE(NonWork(2027, 6, 1));
    EXPECT_TRUE(NonWork(2028, 12, 31));  // day 366 of a leap year, the cache's last place
    EXPECT_FALSE(NonWork(2028, 12, 30));
    EXPECT_FALSE(NonWork(2026, 5, 1));  // a year before the cache has no place in it
    // A jump of more than a year starts the cache at the date's own year.
    EXPECT_FALSE(NonWork(2031, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkBaseYear, 2031);
}

TEST_F(NonWorkDays, MissingFileOrBadLineGivesFalseAndKeepsWhatWasRead) {
    EXPECT_FALSE(NonWork(2026, 5, 1));
    EXPECT_EQ(ts->classes.NonWorkBaseYear, 2026);
    ts->classes.NonWorkBaseYear = 0;
    WriteDates("\"2026-05-01\"\r\n\"no date\"\r\n\"2026-05-02\"\r\n");
    EXPECT_FALSE(NonWork(2026, 5, 1));  // the call that fails gives false
    EXPECT_TRUE(NonWork(2026, 5, 1));   // the cache holds what came before the bad line
    EXPECT_FALSE(NonWork(2026, 5, 2));
}

}  // namespace
}  // namespace vq
